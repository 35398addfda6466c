-- The plug-in's code outside Lightroom: reading a flags list and finding a photo in it, and
-- the Library command run against real list files and a small stand-in for the parts of
-- the Lightroom SDK it touches. Usage: lua5.4 PluginTest.lua <KestraneSorvi.lrplugin folder>

local bundle = assert(arg[1], "usage: lua5.4 PluginTest.lua <plug-in folder>")
package.path = bundle .. "/?.lua;" .. package.path
local FlagsList = require "FlagsList"

local passed, failed = 0, 0

local function test(name, body)
	local ok, err = pcall(body)
	if ok then
		passed = passed + 1
	else
		failed = failed + 1
		io.stderr:write("FAILED ", name, ": ", tostring(err), "\n")
	end
end

local function equal(actual, expected, what)
	if actual ~= expected then
		error(string.format("%s: expected %s, got %s", what, tostring(expected), tostring(actual)), 2)
	end
end

local header = "# Kestrane Sorvi picks and rejects, for the Lightroom Classic plug-in. Safe to delete."

test("reading a list: lines as Sorvi writes them, malformed ones skipped, CR LF and a byte-order mark", function()
	local list = FlagsList.parse("\239\187\191" .. table.concat({
		"1\t3\tRed\tDCIM/100CANON/IMG_0001.CR3",
		header, "", "   ",
		"-1\t0\t\tDCIM/100CANON/IMG_0002.CR3",
		"0\t0\tPurple\tIMG_0003.ARW",
		"#1\t0\t\tcommented.CR3",
		"2\t0\t\tbadflag.CR3",
		"pick\t0\t\tword.CR3",
		"1\tthree\t\tbadstars.CR3",
		"1\t3.5\t\tfraction.CR3",
		"1\t0\tthreefields.CR3",
		"1\t0\t\t",
		"1 0  spaces.CR3",
		"1\t0\t\tname\twith tab.CR3",
	}, "\r\n") .. "\r\n")
	equal(list.count, 4, "lines read")
	local pick = FlagsList.lookup(list, "DCIM/100CANON/IMG_0001.CR3")
	equal(pick and (pick.flag .. " " .. pick.stars .. " " .. pick.label), "1 3 Red", "first line, after the mark")
	local reject = FlagsList.lookup(list, "DCIM/100CANON/IMG_0002.CR3")
	equal(reject.flag .. " " .. reject.stars .. " " .. reject.label, "-1 0 ", "reject without a label")
	equal(FlagsList.lookup(list, "IMG_0003.ARW").flag, 0, "label only: no flag")
	equal(FlagsList.lookup(list, "name\twith tab.CR3").flag, 1, "tab inside a name")
	for _, name in ipairs({ "commented.CR3", "badflag.CR3", "word.CR3", "badstars.CR3", "fraction.CR3", "IMG_0004.CR3" }) do
		equal(FlagsList.lookup(list, name), nil, name)
	end
	equal(FlagsList.parse("").count, 0, "empty file")
	equal(FlagsList.parse(header).count, 0, "header only, no final line feed")
end)

test("matching: exact spelling first, then ignoring case", function()
	local list = FlagsList.parse(table.concat({
		"1\t0\t\tDCIM/100CANON/IMG_0001.CR3",
		"-1\t0\t\tDCIM/100CANON/img_0001.cr3",
		"1\t0\t\tDCIM/100CANON/IMG_0002.CR3",
		"-1\t0\t\tDCIM\\Windows\\IMG_0003.CR3",
		"0\t0\t\tDCIM/100CANON/IMG_0002.CR3",
	}, "\n"))
	equal(FlagsList.lookup(list, "DCIM/100CANON/IMG_0001.CR3").flag, 1, "exact upper case")
	equal(FlagsList.lookup(list, "DCIM/100CANON/img_0001.cr3").flag, -1, "exact lower case")
	equal(FlagsList.lookup(list, "dcim/100canon/Img_0001.Cr3"), nil, "two names differ only in case")
	equal(FlagsList.lookup(list, "dcim/100canon/img_0002.cr3").flag, 0, "case changed by a copy; later line wins")
	equal(FlagsList.lookup(list, "DCIM/Windows/IMG_0003.CR3").flag, -1, "backslashes in the list")
	equal(FlagsList.lookup(list, "DCIM\\Windows\\IMG_0003.CR3").flag, -1, "backslashes in the photo path")
	equal(FlagsList.lookup(list, "IMG_0001.CR3"), nil, "same name in another folder")
end)

test("paths: normalising, parents and relative paths", function()
	equal(FlagsList.normalisePath("C:\\Photos\\Card\\IMG_0001.CR3"), "C:/Photos/Card/IMG_0001.CR3", "Windows")
	equal(FlagsList.normalisePath("/Volumes/a\\b.CR3"), "/Volumes/a\\b.CR3", "backslash in a POSIX name")
	equal(FlagsList.normalisePath("\\\\nas\\share\\x.CR3"), "//nas/share/x.CR3", "network share")

	equal(table.concat(FlagsList.parentFolders("/Volumes/CARD/DCIM/IMG_0001.CR3"), "|"),
		"/Volumes/CARD/DCIM|/Volumes/CARD|/Volumes|/", "POSIX walk")
	equal(table.concat(FlagsList.parentFolders("C:/Photos/IMG_0001.CR3"), "|"), "C:/Photos|C:/", "drive walk")
	equal(table.concat(FlagsList.parentFolders("//nas/share/shoot/IMG_0001.CR3"), "|"),
		"//nas/share/shoot|//nas/share/", "share walk stops at the share")
	equal(#FlagsList.parentFolders("/"), 0, "root has no parent")

	equal(FlagsList.join("/", FlagsList.fileName), "/.kestrane-sorvi-flags.txt", "list at the root")
	equal(FlagsList.relativePath("/Volumes/CARD/DCIM/IMG_0001.CR3", "/Volumes/CARD"), "DCIM/IMG_0001.CR3", "below")
	equal(FlagsList.relativePath("/Volumes/CARD/IMG_0001.CR3", "/"), "Volumes/CARD/IMG_0001.CR3", "below the root")
	equal(FlagsList.relativePath("C:/IMG_0001.CR3", "C:/"), "IMG_0001.CR3", "below a drive")
	equal(FlagsList.relativePath("/Volumes/CARD2/IMG_0001.CR3", "/Volumes/CARD"), nil, "sibling sharing a prefix")
	equal(FlagsList.relativePath("/Volumes/CARD", "/Volumes/CARD"), nil, "the folder itself")
end)

-- The Library command, with a stand-in SDK ---------------------------------------------

local base = os.tmpname()
os.remove(base)

local function quoted(path)
	return "'" .. string.gsub(path, "'", "'\\''") .. "'"
end

local function writeFile(path, text)
	assert(os.execute("mkdir -p " .. quoted(string.match(path, "^(.*)/"))))
	local file = assert(io.open(path, "wb"))
	file:write(text)
	file:close()
end

local run -- what one run of the command did: writes, messages, misuse

local function makePhoto(path, pickStatus)
	local photo = { path = path, pickStatus = pickStatus, sets = 0 }
	function photo:getRawMetadata(key)
		assert(key == "path" or key == "pickStatus", "unexpected raw metadata " .. tostring(key))
		return self[key]
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
	LrApplication = { activeCatalog = function() return catalog end },
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
	local item = dofile(bundle .. "/Info.lua").LrLibraryMenuItems[1]
	equal(item.title, "Apply Sorvi Picks and Rejects", "menu title")
	dofile(bundle .. "/" .. item.file)
	equal(run.started, true, "ran in an async task")
	equal(run.misuse, nil, "SDK misuse")
	equal(#run.messages, 1, "messages shown")
	equal(run.messages[1].message, "Kestrane Sorvi", "message title")
	return run.messages[1]
end

local card, copies = base .. "/card", base .. "/copies"
local shot = card .. "/DCIM/100CANON"
writeFile(card .. "/" .. FlagsList.fileName, header .. "\n"
	.. "1\t3\tRed\tDCIM/100CANON/IMG_0001.CR3\n"
	.. "1\t3\tRed\tDCIM/100CANON/IMG_0001.JPG\n"
	.. "-1\t0\t\tDCIM/100CANON/IMG_0002.CR3\n"
	.. "-1\t2\t\tDCIM/100CANON/IMG_0003.CR3\n"
	.. "1\t0\t\tDCIM/100CANON/IMG_0005.CR3\n")
-- A nearer list names one photo of the card's; the others are still found in the card's list.
writeFile(shot .. "/" .. FlagsList.fileName, header .. "\n0\t2\t\tIMG_0003.CR3\n")
writeFile(copies .. "/" .. FlagsList.fileName, header .. "\n-1\t0\t\tIMG_0007.CR3\r\n")

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
for _, photo in pairs(photos) do
	selection[#selection + 1] = photo
end

test("flags from a card's list and a copy's list are applied in one catalog step, once", function()
	local message = runCommand(selection)
	equal(message.info, "5 photos changed. 2 selected photos aren't in any Sorvi flags list.", "message")
	equal(message.style, "info", "style")
	equal(#run.writes, 1, "write steps")
	equal(run.writes[1], "Apply Sorvi Picks and Rejects", "undo step name")
	equal(photos.added.pickStatus, 1, "pick")
	equal(photos.rejected.pickStatus, -1, "reject")
	equal(photos.cleared.pickStatus, 0, "flag cleared by the nearer list")
	equal(photos.caseChanged.pickStatus, 1, "name with changed case")
	equal(photos.copied.pickStatus, -1, "list in the copy folder, CR LF line")
	equal(photos.alreadyPicked.sets, 0, "an unchanged flag isn't rewritten")
	equal(photos.unlisted.pickStatus, -1, "unlisted photo keeps its flag")
	equal(photos.unlisted.sets + photos.nowhere.sets, 0, "photos without an entry untouched")

	message = runCommand(selection)
	equal(message.info, "0 photos changed. 2 selected photos aren't in any Sorvi flags list.", "message again")
	equal(#run.writes, 0, "write steps again")
end)

test("the wording for one photo, the list's name when none is found, and a busy catalog", function()
	photos.added.pickStatus = 0
	local message = runCommand({ photos.added, photos.nowhere })
	equal(message.info, "1 photo changed. 1 selected photo isn't in any Sorvi flags list.", "message")
	equal(photos.added.pickStatus, 1, "pick")
	message = runCommand({ photos.nowhere })
	equal(string.find(message.info, "0 photos changed. 1 selected photo isn't in any Sorvi flags list. "
		.. "Sorvi writes the list as .kestrane-sorvi-flags.txt", 1, true), 1, "message without a list")
	equal(#run.writes, 0, "write steps")

	photos.added.pickStatus = 0
	message = runCommand({ photos.added }, true)
	equal(message.style, "critical", "style when busy")
	equal(string.find(message.info, "Couldn't apply the picks and rejects: the catalog stayed busy", 1, true), 1,
		"message when busy")
	equal(photos.added.pickStatus, 0, "flag untouched")
end)

assert(os.execute("rm -rf " .. quoted(base)))
print(string.format("%d passed, %d failed", passed, failed))
os.exit(failed == 0 and 0 or 1)
