-- The few helpers the plug-in's test scripts share: named cases, an equality check and
-- the closing "N passed, N failed" line with a failing exit status.
local LuaTest = {}

local passed, failed = 0, 0

function LuaTest.test(name, body)
	local ok, err = pcall(body)
	if ok then
		passed = passed + 1
	else
		failed = failed + 1
		io.stderr:write("FAILED ", name, ": ", tostring(err), "\n")
	end
end

function LuaTest.equal(actual, expected, what)
	if actual ~= expected then
		error(string.format("%s: expected %s, got %s", what, tostring(expected), tostring(actual)), 2)
	end
end

function LuaTest.finish()
	print(string.format("%d passed, %d failed", passed, failed))
	if failed > 0 then
		os.exit(1)
	end
end

return LuaTest
