-- Reading Sorvi's flags list and finding a photo in it. Nothing here touches the
-- Lightroom SDK or the disk, so it runs the same inside Lightroom and under plain Lua.
--
-- A list is a UTF-8 text file named ".kestrane-sorvi-flags.txt". Lines starting with "#"
-- are comments; every other line has four tab-separated fields: the flag ("1" pick,
-- "-1" reject, "0" none), the stars, the colour label's name (may be empty) and the
-- photo's path relative to the list's folder, with "/" between folders.

local FlagsList = {}

FlagsList.fileName = ".kestrane-sorvi-flags.txt"

local flagValues = { ["1"] = 1, ["-1"] = -1, ["0"] = 0 }

-- Lightroom on Windows hands out "C:\Photos\IMG_0001.CR3". A POSIX path always starts
-- with "/" and may carry a backslash inside a file name, so it is left as it is.
function FlagsList.normalisePath(path)
	if string.sub(path, 1, 1) == "/" then
		return path
	end
	return (string.gsub(path, "\\", "/"))
end

-- The key a relative path is compared by: "/" between folders whoever wrote it.
local function key(relative)
	return (string.gsub(relative, "\\", "/"))
end

-- One list line as { flag, stars, label, path }, or nil for comments and anything
-- malformed. The path is everything after the third tab, so a name holding a tab survives.
local function parseLine(line)
	if string.sub(line, 1, 1) == "#" then
		return nil
	end
	local flag, stars, label, path = string.match(line, "^([^\t]*)\t([^\t]*)\t([^\t]*)\t(.+)$")
	if flag == nil or flagValues[flag] == nil or not string.match(stars, "^%d+$") then
		return nil
	end
	return { flag = flagValues[flag], stars = tonumber(stars), label = label, path = key(path) }
end

-- Names differing only in case can't be told apart by the case-insensitive fallback;
-- such a pair is marked false there so that neither is guessed.
local function add(list, entry)
	list.exact[entry.path] = entry
	local folded = string.lower(entry.path)
	local seen = list.folded[folded]
	if seen == nil or (seen and seen.path == entry.path) then
		list.folded[folded] = entry
	else
		list.folded[folded] = false
	end
	list.count = list.count + 1
end

-- The list in `text` (a file's whole content). Later lines for the same path win.
-- Accepts "\r\n" line ends and a leading byte-order mark from editors that add them.
function FlagsList.parse(text)
	local list = { exact = {}, folded = {}, count = 0 }
	text = string.gsub(text, "^\239\187\191", "")
	for line in string.gmatch(text, "[^\n]+") do
		local entry = parseLine((string.gsub(line, "\r$", "")))
		if entry then
			add(list, entry)
		end
	end
	return list
end

-- The list's entry for a path relative to its folder, or nil. Exact spelling first;
-- then ignoring case, because cards are sometimes copied by tools that change it.
function FlagsList.lookup(list, relative)
	local k = key(relative)
	local entry = list.exact[k]
	if entry == nil then
		entry = list.folded[string.lower(k)]
	end
	return entry or nil
end

-- The leading part of a normalised path that has no parent: "/", "C:/" or "//server/share/".
local function rootOf(path)
	local unc = string.match(path, "^//[^/]+/[^/]+/?")
	if unc then
		return unc
	end
	return string.match(path, "^%a:/") or string.match(path, "^/") or ""
end

-- The folder holding `path` (normalised), or nil at the filesystem root.
function FlagsList.parent(path)
	local root = rootOf(path)
	local rest = string.gsub(string.sub(path, #root + 1), "/+$", "")
	if rest == "" then
		return nil
	end
	local head = string.match(rest, "^(.*)/[^/]*$")
	if head == nil then
		return root ~= "" and root or nil
	end
	return root .. head
end

-- The folders above `path`, nearest first, ending with the filesystem root.
function FlagsList.parentFolders(path)
	local folders = {}
	local folder = FlagsList.parent(path)
	while folder do
		folders[#folders + 1] = folder
		folder = FlagsList.parent(folder)
	end
	return folders
end

function FlagsList.join(folder, name)
	if string.sub(folder, -1) == "/" then
		return folder .. name
	end
	return folder .. "/" .. name
end

-- `path` below `folder` (both normalised), or nil when it isn't inside it.
function FlagsList.relativePath(path, folder)
	local prefix = FlagsList.join(folder, "")
	if #path > #prefix and string.sub(path, 1, #prefix) == prefix then
		return string.sub(path, #prefix + 1)
	end
	return nil
end

-- The entry for the photo at `path` (normalised) from the nearest list that names it,
-- walking up from the photo's folder; nil when none does. `listIn(folder)` returns the
-- parsed list kept in that folder, or nil when there is none. A list written at a card's
-- root names photos in the card's subfolders, so a nearer list that doesn't name the
-- photo doesn't stop the walk.
function FlagsList.find(path, listIn)
	for _, folder in ipairs(FlagsList.parentFolders(path)) do
		local list = listIn(folder)
		if list then
			local entry = FlagsList.lookup(list, FlagsList.relativePath(path, folder))
			if entry then
				return entry
			end
		end
	end
	return nil
end

return FlagsList
