#pragma once

#include "SorviKit/core/Rating.h"
#include "SorviKit/core/StoreFile.h"

#include <QHash>
#include <QMutex>
#include <QString>

#include <memory>

/// The ratings of one opened folder, kept in a small JSON file of our own (never beside
/// the photos) and written through atomically on every change. Thread-safe. Never
/// throws: an unreadable file starts empty and is kept aside before the first write over
/// it; a failed write is remembered by storeFile() (and told to its listener) while the
/// in-memory ratings stay authoritative. With a SerialWriter, every change is written in
/// order on the writer's thread and the caller never waits for the disk.
class Catalog {
public:
    /// "Kestrane Sorvi/Catalogs" under the XDG data location.
    static QString defaultDirectory();
    /// 24 hex digits, stable for the same card wherever it is mounted.
    static QString key(const QString &folder);
    /// The key from its parts: volume identity ("local" when none), the volume's mount
    /// point (empty when unknown) and the folder's cleaned absolute path.
    static QString key(const QString &volumeId, const QString &volumeRoot, const QString &folderPath);

    /// Reads the folder's catalog from `directory` (created when missing). `writer`, when
    /// given, must outlive the catalog's last save; without one, saves write at once.
    explicit Catalog(const QString &folder, const QString &directory = defaultDirectory(),
                     SerialWriter *writer = nullptr, StoreFile::WriteFunction write = {});

    QString folder() const { return m_folder; }
    QString file() const { return m_file->path(); }
    /// The file's health: the last write's failure, where an unreadable file was kept.
    StoreFile &storeFile() const { return *m_file; }

    std::optional<Rating> rating(const QString &id) const;
    QHash<QString, Rating> ratings() const;
    /// Stores (or, for an empty rating, removes) and saves at once.
    void set(const Rating &rating, const QString &id);
    /// Stores (or removes) each of `ratings` and saves once, so a change to hundreds of
    /// shots writes the file once, not hundreds of times.
    void set(const QHash<QString, Rating> &ratings);
    /// Stores the non-empty ratings of ids that have no entry yet; saves only if any was added.
    void adopt(const QHash<QString, Rating> &ratings);
    void save();
    /// Blocks until every change so far is on disk (or its write failed).
    void flush() { m_file->flush(); }

    /// The file's content for the given ratings; keys of each rating written as
    /// "stars", "flag", "label".
    static QByteArray encode(const QString &folderPath, const QHash<QString, Rating> &ratings);
    /// Ratings of a catalog document, or none when anything in it is malformed.
    static std::optional<QHash<QString, Rating>> decode(const QByteArray &json);

private:
    struct Ratings {
        mutable QMutex lock;
        QHash<QString, Rating> byId;
    };
    QString m_folder;
    std::shared_ptr<StoreFile> m_file;
    std::shared_ptr<Ratings> m_ratings; ///< shared with writes still pending
};
