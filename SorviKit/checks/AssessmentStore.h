#pragma once

#include "SorviKit/checks/Assessment.h"
#include "SorviKit/core/StoreFile.h"

#include <QByteArray>
#include <QHash>
#include <QMutex>
#include <QString>

#include <memory>
#include <optional>

/// The check results of one opened folder by shot id, kept beside the folder's rating
/// catalog ("<catalog key>.checks.json") so that checks are not run again when the folder
/// is opened again. Thread-safe: check tasks call set() while views read. Never throws:
/// an unreadable, malformed or other-version file starts empty and is kept aside before
/// the next save replaces it; a failed save leaves the file as it was and is remembered
/// by storeFile().
class AssessmentStore {
public:
    static constexpr int version = 2;

    /// Reads the stored results of `folder` from `directory` (created when missing).
    /// `writer`, when given, must outlive the last save; without one, saves write at once.
    AssessmentStore(const QString &folder, const QString &directory, SerialWriter *writer = nullptr,
                    StoreFile::WriteFunction write = {});

    QString file() const { return m_file->path(); }
    StoreFile &storeFile() const { return *m_file; }
    std::optional<Assessment> result(const QString &id) const;
    QHash<QString, Assessment> results() const;
    /// Stores a result in memory; save() writes it.
    void set(const Assessment &assessment, const QString &id);
    /// Writes a snapshot of the results atomically; the lock is not held while writing.
    void save() const;
    /// Blocks until the saves asked for so far are on disk (or failed).
    void flush() const { m_file->flush(); }

    /// The file's content: {"version":2,"results":{id:{"sharpness","faces","eyesClosed"
    /// [,"faceQuality"][,"faceMarks"]}}}, "faceQuality" only when present, "faceMarks"
    /// ([{"x","y","w","h","eyesClosed"[,"eyesUnclear"]}, …]) only when there are marks.
    static QByteArray encode(const QHash<QString, Assessment> &results);
    /// The results of a version-2 document, or none when it is malformed or of another version.
    /// An entry without "faceMarks" has none.
    static std::optional<QHash<QString, Assessment>> decode(const QByteArray &json);

private:
    struct Results {
        mutable QMutex lock;
        QHash<QString, Assessment> byId;
    };
    std::shared_ptr<StoreFile> m_file;
    std::shared_ptr<Results> m_results; ///< shared with writes still pending
};
