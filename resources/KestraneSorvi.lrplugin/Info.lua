-- Lightroom Classic reads this table to register the plug-in and its Library menu command.
return {
	LrSdkVersion = 6.0,
	LrSdkMinimumVersion = 6.0,
	LrToolkitIdentifier = "app.kestrane.sorvi.lightroom",
	LrPluginName = "Kestrane Sorvi",

	LrLibraryMenuItems = {
		{
			title = "Apply Sorvi Picks and Rejects",
			file = "ApplyFlags.lua",
		},
	},

	VERSION = { major = 0, minor = 1, revision = 0, build = 0 },
}
