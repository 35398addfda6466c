#pragma once

#include <QString>
#include <QVariant>

class QSettings;

/// Every write of ours to the user's settings (QSettings of "Kestrane"/"Sorvi": recent
/// folders, AI choices, view switches) goes through here, so that none fails unseen and
/// none writes over a settings file that did not parse. Reading stays with QSettings: a
/// value that can't be read is simply absent.
///
/// Qt rewrites the whole file on every save and leaves out whatever it could not parse
/// (a line without "=", binary bytes, an unclosed "[section"), so before a write to a file
/// that does not parse, the file is kept aside byte for byte
/// ("Sorvi.unreadable-TIME.conf") and what Qt could read of it is written again with the
/// change. Writes land on the disk at once. Any thread with a QCoreApplication.
namespace UserSettings {

/// What one write came to; both texts are sentences the user reads.
struct [[nodiscard]] Outcome {
    QString notice; ///< where a settings file that did not parse was kept, said by the write that kept it
    QString error;  ///< why the change is not on the disk; empty when it is
    bool failed() const { return !error.isEmpty(); }
    /// The notice and the error as one line for a warning, empty when there is nothing to say.
    QString message() const;
};

/// Sets `key` to `value` in the file behind `settings` and writes the file.
Outcome setValue(const QSettings &settings, const QString &key, const QVariant &value);
/// The same in the application's own settings (a default QSettings).
Outcome setValue(const QString &key, const QVariant &value);

} // namespace UserSettings
