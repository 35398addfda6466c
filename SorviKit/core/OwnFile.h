#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QString>

#include <optional>

/// The small files of our own (catalogs, check results, the record of moved rejects,
/// settings): read whole, replaced atomically, and set aside rather than written over
/// when they do not parse. Never throws.
namespace OwnFile {

/// The file's bytes; none when it is missing or cannot be read.
std::optional<QByteArray> read(const QString &path);

/// Replaces the file atomically (a temporary file beside it, then a rename). Returns
/// the reason on failure, an empty text on success.
[[nodiscard]] QString write(const QString &path, const QByteArray &bytes);

/// Where `path` is kept when it does not parse: beside it, its name with
/// ".unreadable-" and the time (yyyyMMdd-HHmmss) put before the extension, so
/// "k.checks.json" becomes "k.checks.unreadable-20261123-101500.json".
QString asideName(const QString &path, const QDateTime &when);

struct KeptAside {
    QString path;  ///< where the file is now; empty when it could not be moved
    QString error; ///< why it could not be moved
};
/// Renames `path` to its aside name (numbered when that is taken), never replacing anything.
KeptAside keepAside(const QString &path, const QDateTime &when = QDateTime::currentDateTime());

} // namespace OwnFile
