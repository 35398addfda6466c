#include "SorviApp/model/FolderAccess.h"

#include <QFileInfo>
#include <QSettings>
#include <QVariantList>
#include <QVariantMap>

size_t qHash(const RecentFolder &folder, size_t seed) noexcept
{
    return qHashMulti(seed, folder.path, folder.connected);
}

namespace FolderAccess {

namespace {

const QString pathField = QStringLiteral("path");
const QString bookmarkField = QStringLiteral("bookmark");

bool exists(const QString &path)
{
    return !path.isEmpty() && QFileInfo::exists(path);
}

} // namespace

bool isSandboxed()
{
    static const bool sandboxed = qEnvironmentVariableIsSet("APP_SANDBOX_CONTAINER_ID");
    return sandboxed;
}

std::optional<Resolved> resolve(const QByteArray &bookmark)
{
    // Linux has no security-scoped bookmarks: no stored data can name a folder here, so
    // callers fall back to the path stored beside it.
    Q_UNUSED(bookmark);
    return std::nullopt;
}

std::optional<QByteArray> makeBookmark(const QString &path)
{
    Q_UNUSED(path);
    return std::nullopt;
}

bool startAccess(const QString &path)
{
    const QFileInfo info(path);
    return info.isDir() && info.isReadable();
}

void stopAccess(const QString &path)
{
    Q_UNUSED(path);
}

QStringList withRecent(const QStringList &list, const QString &path)
{
    QStringList result{path};
    for (const QString &entry : list)
        if (entry != path && result.size() < recentLimit)
            result << entry;
    return result;
}

QList<StoredBookmark> storedBookmarks(const QSettings &settings)
{
    QList<StoredBookmark> result;
    for (const QVariant &entry : settings.value(QLatin1String(recentBookmarksKey)).toList()) {
        const QVariantMap map = entry.toMap();
        StoredBookmark stored{map.value(pathField).toString(), map.value(bookmarkField).toByteArray()};
        if (!stored.path.isEmpty() && !stored.bookmark.isEmpty())
            result << stored;
    }
    return result;
}

UserSettings::Outcome remember(const QSettings &settings, const QString &path)
{
    if (!isSandboxed())
        return UserSettings::setValue(settings, QLatin1String(recentFoldersKey),
                                      withRecent(settings.value(QLatin1String(recentFoldersKey)).toStringList(), path));
    const std::optional<QByteArray> bookmark = makeBookmark(path);
    if (!bookmark)
        return {};
    QVariantList list{QVariantMap{{pathField, path}, {bookmarkField, *bookmark}}};
    for (const StoredBookmark &stored : storedBookmarks(settings))
        if (stored.path != path && list.size() < recentLimit)
            list << QVariantMap{{pathField, stored.path}, {bookmarkField, stored.bookmark}};
    return UserSettings::setValue(settings, QLatin1String(recentBookmarksKey), list);
}

QList<RecentFolder> recentFolders(const QSettings &settings)
{
    QList<RecentFolder> result;
    if (isSandboxed()) {
        for (const StoredBookmark &stored : storedBookmarks(settings)) {
            const std::optional<Resolved> resolved = resolve(stored.bookmark);
            const QString path = resolved ? resolved->path : stored.path;
            result << RecentFolder{path, exists(path)};
        }
        return result;
    }
    for (const QString &path : settings.value(QLatin1String(recentFoldersKey)).toStringList())
        result << RecentFolder{path, exists(path)};
    return result;
}

} // namespace FolderAccess
