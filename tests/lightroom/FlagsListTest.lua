-- The plug-in's pure parts: reading a flags list and finding a photo in it.
-- Usage: lua5.4 FlagsListTest.lua <KestraneSorvi.lrplugin folder>

local bundle = assert(arg[1], "usage: lua5.4 FlagsListTest.lua <plug-in folder>")
package.path = bundle .. "/?.lua;" .. package.path
local FlagsList = require "FlagsList"

local here = arg[0]:match("^(.*)/[^/]*$") or "."
package.path = here .. "/?.lua;" .. package.path
local LuaTest = require "LuaTest"
local test, equal = LuaTest.test, LuaTest.equal

local header = "# Kestrane Sorvi picks and rejects, for the Lightroom Classic plug-in. Safe to delete."

test("a list as Sorvi writes it", function()
	local list = FlagsList.parse(table.concat({
		header,
		"1\t3\tRed\tDCIM/100CANON/IMG_0001.CR3",
		"1\t3\tRed\tDCIM/100CANON/IMG_0001.JPG",
		"-1\t0\t\tDCIM/100CANON/IMG_0002.CR3",
		"0\t0\tPurple\tIMG_0003.ARW",
	}, "\n") .. "\n")
	equal(list.count, 4, "lines read")
	local pick = FlagsList.lookup(list, "DCIM/100CANON/IMG_0001.JPG")
	equal(pick.flag, 1, "pick")
	equal(pick.stars, 3, "stars")
	equal(pick.label, "Red", "label")
	local reject = FlagsList.lookup(list, "DCIM/100CANON/IMG_0002.CR3")
	equal(reject.flag, -1, "reject")
	equal(reject.label, "", "no label")
	equal(FlagsList.lookup(list, "IMG_0003.ARW").flag, 0, "label only: no flag")
	equal(FlagsList.lookup(list, "DCIM/100CANON/IMG_0004.CR3"), nil, "unlisted photo")
end)

test("malformed lines are skipped, CRLF and a byte-order mark are accepted", function()
	local list = FlagsList.parse("\239\187\191" .. table.concat({
		header,
		"",
		"   ",
		"#1\t0\t\tcommented.CR3",
		"2\t0\t\tbadflag.CR3",
		"pick\t0\t\tword.CR3",
		"1\tthree\t\tbadstars.CR3",
		"1\t3.5\t\tfraction.CR3",
		"1\t0\tthreefields.CR3",
		"1\t0\t\t",
		"1 0  spaces.CR3",
		"-1\t2\tBlue\tgood one.CR3",
		"1\t0\t\tname\twith tab.CR3",
	}, "\r\n") .. "\r\n")
	equal(list.count, 2, "lines read")
	equal(FlagsList.lookup(list, "good one.CR3").flag, -1, "line ending in CR LF")
	equal(FlagsList.lookup(list, "name\twith tab.CR3").flag, 1, "tab inside a name")
	for _, name in ipairs({ "commented.CR3", "badflag.CR3", "word.CR3", "badstars.CR3", "fraction.CR3" }) do
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
	equal(FlagsList.join("C:/Photos", "x"), "C:/Photos/x", "list in a folder")
	equal(FlagsList.relativePath("/Volumes/CARD/DCIM/IMG_0001.CR3", "/Volumes/CARD"), "DCIM/IMG_0001.CR3", "below")
	equal(FlagsList.relativePath("/Volumes/CARD/IMG_0001.CR3", "/"), "Volumes/CARD/IMG_0001.CR3", "below the root")
	equal(FlagsList.relativePath("C:/IMG_0001.CR3", "C:/"), "IMG_0001.CR3", "below a drive")
	equal(FlagsList.relativePath("/Volumes/CARD2/IMG_0001.CR3", "/Volumes/CARD"), nil, "sibling sharing a prefix")
	equal(FlagsList.relativePath("/Volumes/CARD", "/Volumes/CARD"), nil, "the folder itself")
end)

test("finding the nearest list that names the photo", function()
	local lists = {
		["/cards/A"] = FlagsList.parse("-1\t0\t\tDCIM/IMG_0001.CR3\n1\t0\t\tDCIM/IMG_0002.CR3\n"),
		["/cards/A/DCIM"] = FlagsList.parse("1\t0\t\tIMG_0001.CR3\n"),
	}
	local asked = {}
	local function listIn(folder)
		asked[#asked + 1] = folder
		return lists[folder]
	end
	equal(FlagsList.find("/cards/A/DCIM/IMG_0001.CR3", listIn).flag, 1, "nearer list wins")
	equal(table.concat(asked, "|"), "/cards/A/DCIM", "walk stops at the first list naming it")
	equal(FlagsList.find("/cards/A/DCIM/IMG_0002.CR3", listIn).flag, 1, "nearer list without it: card root")
	asked = {}
	equal(FlagsList.find("/cards/A/DCIM/IMG_0003.CR3", listIn), nil, "no list names it")
	equal(table.concat(asked, "|"), "/cards/A/DCIM|/cards/A|/cards|/", "walked up to the root")
end)

LuaTest.finish()
