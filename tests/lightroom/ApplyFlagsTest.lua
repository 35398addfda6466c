-- The plug-in's Library command run against real list files and a small stand-in for the
-- parts of the Lightroom SDK it touches.
-- Usage: lua5.4 ApplyFlagsTest.lua <KestraneSorvi.lrplugin folder>

local bundle = assert(arg[1], "usage: lua5.4 ApplyFlagsTest.lua <plug-in folder>")
package.path = bundle .. "/?.lua;" .. package.path

local here = arg[0]:match("^(.*)/[^/]*$") or "."
package.path = here .. "/?.lua;" .. package.path
local LuaTest = require "LuaTest"
local test, equal = LuaTest.test, LuaTest.equal

-- Files --------------------------------------------------------------------------------

local base = os.tmpname()
os.remove(base)

local function shell(command)
	assert(os.execute(command), command)
end

local function quoted(path)
	return "'" .. string.gsub(path, "'", "'\\''") .. "'"
end

local function writeFile(path, text)
	shell("mkdir -p " .. quoted(string.match(path, "^(.*)/")))
	local file = assert(io.open(path, "wb"))
	file:write(text)
	file:close()
end

local header = "# Kestrane Sorvi picks and rejects, for the Lightroom Classic plug-in. Safe to delete.\n"
local listName = "/.kestrane-sorvi-flags.txt"

-- The stand-in SDK ----------------------------------------------------------------------

local run -- what one run of the command did: writes, messages, misuse

local function makePhoto(path, pickStatus)
	local photo = { path = path, pickStatus = pickStatus, sets = 0 }
	function photo:getRawMetadata(key)
		if key == "path" then
			return self.path
		elseif key == "pickStatus" then
			return self.pickStatus
		end
		error("unexpected raw metadata " .. tostring(key))
	end
	function photo:setRawMetadata(key, value)
		if not run.writing then
			run.misuse = "setRawMetadata outside withWriteAccessDo"
			error(run.misuse)
		end
		equal(key, "pickStatus", "metadata written")
		self.pickStatus = value
		self.sets = self.sets + 1
	end
	return photo
end

local catalog = {}
function catalog:getTargetPhotos()
	return run.photos
end
function catalog:withWriteAccessDo(name, body)
	run.writes[#run.writes + 1] = name
	if run.busy then
		return "aborted"
	end
	run.writing = true
	local ok, err = pcall(body)
	run.writing = false
	if not ok then
		error(err, 0)
	end
	return "executed"
end

local sdk = {
	LrApplication = {
		activeCatalog = function()
			return catalog
		end,
	},
	LrTasks = {
		startAsyncTask = function(body)
			run.started = true
			body()
		end,
		pcall = pcall,
	},
	LrDialogs = {
		message = function(message, info, style)
			run.messages[#run.messages + 1] = { message = message, info = info, style = style }
		end,
	},
}

function import(name) -- Lightroom provides this global to plug-ins
	return sdk[name] or error("the plug-in imported " .. tostring(name))
end

-- Runs the menu command the way Lightroom finds it: through Info.lua.
local function runCommand(photos, busy)
	run = { photos = photos, busy = busy, writes = {}, messages = {} }
	local info = dofile(bundle .. "/Info.lua")
	local item = info.LrLibraryMenuItems[1]
	equal(item.title, "Apply Sorvi Picks and Rejects", "menu title")
	dofile(bundle .. "/" .. item.file)
	equal(run.started, true, "ran in an async task")
	equal(run.misuse, nil, "SDK misuse")
	equal(#run.messages, 1, "messages shown")
	equal(run.messages[1].message, "Kestrane Sorvi", "message title")
	return run.messages[1]
end

-- Tests ----------------------------------------------------------------------------------

local card = base .. "/card"
local shot = card .. "/DCIM/100CANON"
local copies = base .. "/copies"
writeFile(card .. listName, header
	.. "1\t3\tRed\tDCIM/100CANON/IMG_0001.CR3\n"
	.. "1\t3\tRed\tDCIM/100CANON/IMG_0001.JPG\n"
	.. "-1\t0\t\tDCIM/100CANON/IMG_0002.CR3\n"
	.. "0\t2\t\tDCIM/100CANON/IMG_0003.CR3\n"
	.. "1\t0\t\tDCIM/100CANON/IMG_0005.CR3\n")
writeFile(copies .. listName, header .. "-1\t0\t\tIMG_0007.CR3\r\n")

local photos = {
	added = makePhoto(shot .. "/IMG_0001.CR3", 0),
	alreadyPicked = makePhoto(shot .. "/IMG_0001.JPG", 1),
	rejected = makePhoto(shot .. "/IMG_0002.CR3", 1),
	cleared = makePhoto(shot .. "/IMG_0003.CR3", 1),
	unlisted = makePhoto(shot .. "/IMG_0004.CR3", -1),
	caseChanged = makePhoto(shot .. "/img_0005.cr3", 0),
	copied = makePhoto(copies .. "/IMG_0007.CR3", 0),
	nowhere = makePhoto(base .. "/elsewhere/IMG_0009.CR3", 0),
}
local selection = {}
for _, name in ipairs({ "added", "alreadyPicked", "rejected", "cleared", "unlisted", "caseChanged", "copied", "nowhere" }) do
	selection[#selection + 1] = photos[name]
end

test("flags from a card's list and a copy's list are applied in one catalog step", function()
	local message = runCommand(selection)
	equal(message.info, "5 photos changed. 2 selected photos aren't in any Sorvi flags list.", "message")
	equal(message.style, "info", "style")
	equal(#run.writes, 1, "write steps")
	equal(run.writes[1], "Apply Sorvi Picks and Rejects", "undo step name")
	equal(photos.added.pickStatus, 1, "pick")
	equal(photos.rejected.pickStatus, -1, "reject")
	equal(photos.cleared.pickStatus, 0, "flag cleared")
	equal(photos.caseChanged.pickStatus, 1, "name with changed case")
	equal(photos.copied.pickStatus, -1, "list in the copy folder, CR LF line")
	equal(photos.alreadyPicked.sets, 0, "an unchanged flag isn't rewritten")
	equal(photos.unlisted.pickStatus, -1, "unlisted photo keeps its flag")
	equal(photos.unlisted.sets, 0, "unlisted photo untouched")
	equal(photos.nowhere.sets, 0, "photo without a list untouched")
end)

test("running again changes nothing and writes nothing", function()
	local message = runCommand(selection)
	equal(message.info, "0 photos changed. 2 selected photos aren't in any Sorvi flags list.", "message")
	equal(#run.writes, 0, "write steps")
end)

test("one photo: singular wording", function()
	photos.added.pickStatus = 0
	local message = runCommand({ photos.added, photos.nowhere })
	equal(message.info, "1 photo changed. 1 selected photo isn't in any Sorvi flags list.", "message")
	equal(photos.added.pickStatus, 1, "pick")
end)

test("no list anywhere: the message says where Sorvi puts it", function()
	local message = runCommand({ photos.nowhere })
	equal(string.find(message.info, "0 photos changed. 1 selected photo isn't in any Sorvi flags list. "
		.. "Sorvi writes the list as .kestrane-sorvi-flags.txt", 1, true), 1, "message")
	equal(#run.writes, 0, "write steps")
end)

test("a busy catalog is reported and nothing is set", function()
	photos.added.pickStatus = 0
	local message = runCommand({ photos.added }, true)
	equal(message.style, "critical", "style")
	equal(string.find(message.info, "Couldn't apply the picks and rejects: the catalog stayed busy", 1, true), 1,
		"message")
	equal(photos.added.pickStatus, 0, "flag untouched")
end)

shell("rm -rf " .. quoted(base))

LuaTest.finish()
