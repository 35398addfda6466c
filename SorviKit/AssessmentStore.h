#pragma once

#include "Assessment.h"

#include <QByteArray>
#include <QHash>
#include <QMutex>
#include <QString>

#include <optional>

/// The check results of one opened folder by shot id, kept beside the folder's rating
/// catalog ("<catalog key>.checks.json") so that checks are not run again when the folder
/// is opened again. Thread-safe: check tasks call set() while views read. Never reports
/// an error: an unreadable, malformed or other-version file starts empty (and is
/// replaced by the next save); a failed save leaves the file as it was.
class AssessmentStore {
public:
    static constexpr int version = 2;

    /// Reads the stored results of `folder` from `directory` (created when missing).
    AssessmentStore(const QString &folder, const QString &directory);

    QString file() const { return m_file; }
    std::optional<Assessment> result(const QString &id) const;
    QHash<QString, Assessment> results() const;
    /// Stores a result in memory; save() writes it.
    void set(const Assessment &assessment, const QString &id);
    /// Writes a snapshot of the results atomically; the lock is not held while writing.
    void save() const;

    /// The file's content: {"version":2,"results":{id:{"sharpness","faces","eyesClosed"
    /// [,"faceQuality"]}}}, "faceQuality" only when present.
    static QByteArray encode(const QHash<QString, Assessment> &results);
    /// The results of a version-2 document, or none when it is malformed or of another version.
    static std::optional<QHash<QString, Assessment>> decode(const QByteArray &json);

private:
    QString m_file;
    mutable QMutex m_lock;
    QHash<QString, Assessment> m_results;
};
