#pragma once

#include "SorviKit/core/UserSettings.h"

#include <QByteArray>
#include <QHashFunctions>
#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

class QSettings;

/// A folder opened before, as the welcome screen lists it. A plain value.
struct RecentFolder {
    QString path;           ///< the folder's absolute path
    bool connected = false; ///< something exists at `path` now (its card or disk is mounted)

    friend bool operator==(const RecentFolder &, const RecentFolder &) = default;
};

size_t qHash(const RecentFolder &folder, size_t seed = 0) noexcept;

/// Which folders the application may read and which it opened lately. A sandboxed
/// process keeps its permission to a folder only through security-scoped bookmarks;
/// nothing on Linux provides them, so there a sandboxed process remembers nothing it
/// cannot reach by path, and outside a sandbox every bookmark and access step is skipped.
/// The functions that take a QSettings read the user's defaults through it and write the
/// file behind it through UserSettings; they run on the GUI thread like every other use
/// of the defaults.
namespace FolderAccess {

/// How many recent folders are kept.
inline constexpr int recentLimit = 8;
/// User-default keys: paths when not sandboxed; {"path", "bookmark"} maps when sandboxed.
inline constexpr char recentFoldersKey[] = "RecentFolders";
inline constexpr char recentBookmarksKey[] = "RecentFolderBookmarks";

/// True when the environment has APP_SANDBOX_CONTAINER_ID. Read once per process.
bool isSandboxed();

/// A folder found from its bookmark; `refreshed` is a new bookmark when the stored one
/// was stale.
struct Resolved {
    QString path;
    std::optional<QByteArray> refreshed;
};

/// Resolves a stored security-scoped bookmark. No result outside a sandbox, for data
/// that does not resolve, and on platforms without bookmarks.
std::optional<Resolved> resolve(const QByteArray &bookmark);

/// A security-scoped bookmark of `path`; none where bookmarks don't exist or it fails.
std::optional<QByteArray> makeBookmark(const QString &path);

/// Starts reading `path` under the sandbox's rules; true when the folder may be read.
/// Where the sandbox has no scoped access, plain file permissions decide.
bool startAccess(const QString &path);
/// Ends what startAccess began; nothing to end where access is not scoped.
void stopAccess(const QString &path);

/// `list` with `path` moved to the front, every other copy of it removed, and cut to
/// recentLimit entries. Pure.
QStringList withRecent(const QStringList &list, const QString &path);

/// A stored bookmark entry.
struct StoredBookmark {
    QString path;
    QByteArray bookmark;
};

/// The "RecentFolderBookmarks" list, most recent first; entries without a path or
/// bookmark are left out.
QList<StoredBookmark> storedBookmarks(const QSettings &settings);

/// Puts `path` at the front of the recent list that fits the process (bookmarks when
/// sandboxed, a bookmark that can't be made is not remembered; paths otherwise) and
/// writes it at once; the outcome says whether the list reached the disk.
[[nodiscard]] UserSettings::Outcome remember(const QSettings &settings, const QString &path);

/// The recent folders, most recent first, each with whether it exists now.
QList<RecentFolder> recentFolders(const QSettings &settings);

} // namespace FolderAccess
