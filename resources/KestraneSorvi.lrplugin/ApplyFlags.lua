-- Library ▸ Plug-in Extras ▸ Apply Sorvi Picks and Rejects: sets the pick flag of the
-- selected photos from the flags lists Sorvi wrote beside them.

local LrApplication = import "LrApplication"
local LrDialogs = import "LrDialogs"
local LrTasks = import "LrTasks"

local FlagsList = require "FlagsList"

local actionName = "Apply Sorvi Picks and Rejects"
local title = "Kestrane Sorvi"

local function readFile(path)
	local file = io.open(path, "rb")
	if not file then
		return nil
	end
	local text = file:read("*a")
	file:close()
	return text
end

-- Each folder's list is read and parsed once per run, however many photos it covers;
-- false remembers that a folder has none.
local function listReader()
	local lists = {}
	return function(folder)
		local list = lists[folder]
		if list == nil then
			local text = readFile(FlagsList.join(folder, FlagsList.fileName))
			list = text and FlagsList.parse(text) or false
			lists[folder] = list
		end
		return list or nil
	end
end

local function photos(count)
	if count == 1 then
		return "1 photo"
	end
	return count .. " photos"
end

local function summary(changed, notListed, total)
	local text = photos(changed) .. " changed."
	if notListed == 1 then
		text = text .. " 1 selected photo isn't in any Sorvi flags list."
	elseif notListed > 1 then
		text = text .. " " .. notListed .. " selected photos aren't in any Sorvi flags list."
	end
	if total > 0 and notListed == total then
		text = text .. " Sorvi writes the list as " .. FlagsList.fileName
			.. " into the folder it hands the photos off to."
	end
	return text
end

-- Reads first, then writes only the flags that differ in one undoable catalog step.
local function apply()
	local catalog = LrApplication.activeCatalog()
	local targets = catalog:getTargetPhotos()
	local listIn = listReader()
	local changes = {}
	local notListed = 0
	for _, photo in ipairs(targets) do
		local entry = FlagsList.find(FlagsList.normalisePath(photo:getRawMetadata("path")), listIn)
		if entry == nil then
			notListed = notListed + 1
		elseif photo:getRawMetadata("pickStatus") ~= entry.flag then
			changes[#changes + 1] = { photo = photo, flag = entry.flag }
		end
	end
	if #changes > 0 then
		local status = catalog:withWriteAccessDo(actionName, function()
			for _, change in ipairs(changes) do
				change.photo:setRawMetadata("pickStatus", change.flag)
			end
		end, { timeout = 30 })
		if status == "aborted" then
			error("the catalog stayed busy; try again in a moment.", 0)
		end
	end
	return summary(#changes, notListed, #targets)
end

LrTasks.startAsyncTask(function()
	-- LrTasks.pcall, unlike pcall, lets the catalog write inside it yield.
	local ok, result = LrTasks.pcall(apply)
	if ok then
		LrDialogs.message(title, result, "info")
	else
		LrDialogs.message(title, "Couldn't apply the picks and rejects: " .. tostring(result), "critical")
	end
end, actionName)
