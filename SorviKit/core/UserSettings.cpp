#include "SorviKit/core/UserSettings.h"

#include "SorviKit/core/OwnFile.h"

#include <QDir>
#include <QSettings>
#include <QTemporaryDir>

#include <optional>

namespace {

// Whether Qt parses `bytes` in full. Asked of a private copy: within a process QSettings
// parses a file once and reports the error only to the object that parsed it, so an
// object made later for the same file reports none. When no copy can be made, the file
// counts as unparsed: keeping a good file aside loses nothing.
bool parsesInFull(const QByteArray &bytes, QSettings::Format format)
{
    const QTemporaryDir scratch;
    const QString copy = scratch.filePath(QStringLiteral("settings.conf"));
    if (!scratch.isValid() || !OwnFile::write(copy, bytes).isEmpty())
        return false;
    const QSettings probe(copy, format);
    // Sections are parsed only when something in them is asked for.
    probe.allKeys();
    return probe.status() != QSettings::FormatError;
}

// Everything Qt could read of the file.
QVariantMap readableValues(const QString &file, QSettings::Format format)
{
    const QSettings reader(file, format);
    QVariantMap values;
    for (const QString &key : reader.allKeys())
        values.insert(key, reader.value(key));
    return values;
}

// Before a write over a file that does not parse: keeps the file aside and says where, or
// says why it couldn't; `readable` gets what Qt read of it. Once kept aside and written
// again the file parses, so the notice is given once.
UserSettings::Outcome keepUnparsedAside(const QString &file, QSettings::Format format, QVariantMap &readable)
{
    const std::optional<QByteArray> bytes = OwnFile::read(file);
    if (!bytes || parsesInFull(*bytes, format))
        return {};
    readable = readableValues(file, format);
    const OwnFile::KeptAside kept = OwnFile::keepAside(file);
    if (kept.path.isEmpty())
        return {{}, QStringLiteral("Couldn't keep the unreadable settings file %1 aside, so nothing was saved: %2")
                        .arg(QDir::toNativeSeparators(file), kept.error)};
    return {QStringLiteral("The settings file could not be read in full; it was kept as %1.")
                .arg(QDir::toNativeSeparators(kept.path)),
            {}};
}

} // namespace

namespace UserSettings {

QString Outcome::message() const
{
    if (notice.isEmpty() || error.isEmpty())
        return notice + error;
    return notice + QLatin1Char(' ') + error;
}

Outcome setValue(const QSettings &settings, const QString &key, const QVariant &value)
{
    const QString file = settings.fileName();
    const QSettings::Format format = settings.format();
    QVariantMap readable;
    Outcome outcome = keepUnparsedAside(file, format, readable);
    if (outcome.failed())
        return outcome;
    // A fresh object: QSettings keeps the first error it met for good, so one that once
    // failed to parse or to write would hide how this write went.
    QSettings writer(file, format);
    for (auto it = readable.cbegin(); it != readable.cend(); ++it)
        writer.setValue(it.key(), it.value());
    writer.setValue(key, value);
    writer.sync();
    if (writer.status() == QSettings::AccessError)
        outcome.error = QStringLiteral("Couldn't save the settings in %1: the file can't be written.")
                            .arg(QDir::toNativeSeparators(file));
    return outcome;
}

Outcome setValue(const QString &key, const QVariant &value)
{
    const QSettings settings;
    return setValue(settings, key, value);
}

} // namespace UserSettings
