#pragma once

#include "Rating.h"

#include <QHash>
#include <QMutex>
#include <QString>

/// The ratings of one opened folder, kept in a small JSON file of our own (never beside
/// the photos) and written through atomically on every change. Thread-safe. Never
/// reports an error: an unreadable file starts empty, a failed write is ignored and
/// the in-memory ratings stay authoritative.
class Catalog {
public:
    /// "Kestrane Sorvi/Catalogs" under the XDG data location.
    static QString defaultDirectory();
    /// 24 hex digits, stable for the same card wherever it is mounted.
    static QString key(const QString &folder);
    /// The key from its parts: volume identity ("local" when none), the volume's mount
    /// point (empty when unknown) and the folder's cleaned absolute path.
    static QString key(const QString &volumeId, const QString &volumeRoot, const QString &folderPath);

    Catalog(const QString &folder, const QString &directory = defaultDirectory());

    QString folder() const { return m_folder; }
    QString file() const { return m_file; }

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

    /// The file's content for the given ratings; keys of each rating written as
    /// "stars", "flag", "label".
    static QByteArray encode(const QString &folderPath, const QHash<QString, Rating> &ratings);
    /// Ratings of a catalog document, or none when anything in it is malformed.
    static std::optional<QHash<QString, Rating>> decode(const QByteArray &json);

private:
    QString m_folder;
    QString m_file;
    mutable QMutex m_lock;
    QHash<QString, Rating> m_ratings;
};
