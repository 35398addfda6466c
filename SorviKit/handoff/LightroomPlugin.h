#pragma once

#include <QString>

/// The Lightroom Classic plug-in that ships with Sorvi (it turns Sorvi's flags list into
/// picks and rejects), and putting copies of it where Lightroom can load it. Synchronous
/// file work with no shared state; any thread. Never throws: install() and save() return
/// the sentence the user reads.
namespace LightroomPlugin {

inline const QString bundleName = QStringLiteral("KestraneSorvi.lrplugin");

/// The shipped bundle: <prefix>/share/kestrane-sorvi/KestraneSorvi.lrplugin beside the
/// running executable's prefix (needs a QCoreApplication), else the copy in the source
/// tree this library was built from. Empty when neither exists.
QString bundlePath();

/// Whether Lightroom Classic runs on this system at all (macOS and Windows).
bool installSupported();

/// The folder Lightroom Classic loads plug-ins from without being told: "Adobe/Lightroom/
/// Modules" in the user's application data ("Application Support" on macOS, %APPDATA% on
/// Windows, the XDG data folder elsewhere). Not created here.
QString installFolder();

/// Copies the bundle into installFolder(), replacing an earlier copy. Returns
/// "Installed. Restart Lightroom Classic to load it.", "Couldn't install: " + what went
/// wrong, or "The plug-in isn't in this copy of Sorvi.".
QString install();

/// Copies the bundle to `target` (the full path of the new bundle folder, usually chosen in
/// a save panel), replacing whatever is there. Returns "Saved. In Lightroom Classic: File ▸
/// Plug-in Manager ▸ Add.", "Couldn't save: " + what went wrong, or "The plug-in isn't in
/// this copy of Sorvi.".
QString save(const QString &target);

} // namespace LightroomPlugin
