// Recent folders in the user's defaults, and noticing a card that is mounted or unmounted.
#include "ModelTestFiles.h"
#include "SorviApp/model/MountWatcher.h"

#include <QSettings>
#include <QSignalSpy>

#include <sched.h>
#include <sys/mount.h>

using namespace ModelTest;

namespace {

QStringList pathsOf(const QList<RecentFolder> &folders)
{
    QStringList paths;
    for (const RecentFolder &folder : folders)
        paths << folder.path;
    return paths;
}

} // namespace

TEST(RecentFolders, EightMostRecentFirstWithoutDuplicatesAndWhetherReachable)
{
    QSettings().remove(FolderAccess::recentFoldersKey);
    ASSERT_FALSE(FolderAccess::isSandboxed());
    QTemporaryDir dir;
    QStringList folders;
    for (int i = 0; i < 9; ++i) {
        folders << dir.filePath(QString("card %1").arg(i));
        ASSERT_TRUE(QDir().mkpath(folders.last()));
    }
    SorviModel model(ModelTest::withoutChecks());
    // The list is written off the GUI thread and announced once it is on disk. What each
    // announcement finds is kept, not how many there were: a drive mounted anywhere on
    // the computer (other tests mount some) announces the list too.
    QList<QStringList> announced;
    QObject::connect(&model, &SorviModel::recentFoldersChanged, &model, [&] {
        announced << QSettings().value(FolderAccess::recentFoldersKey).toStringList();
    });
    const auto announcedLast = [&](const QStringList &paths) {
        return waitFor([&] { return !announced.isEmpty() && announced.last() == paths; });
    };
    ASSERT_TRUE(openAndWait(model, folders[0]));
    EXPECT_TRUE(announcedLast({folders[0]}));
    for (int i = 1; i < 9; ++i)
        model.remember(folders[i]);
    const QStringList newestFirst{folders[8], folders[7], folders[6], folders[5],
                                  folders[4], folders[3], folders[2], folders[1]};
    ASSERT_TRUE(announcedLast(newestFirst));
    EXPECT_EQ(pathsOf(model.recentFolders()), newestFirst);

    model.open(folders[4]); // already in the list: moved to the front
    const QStringList moved = QStringList{folders[4]} + newestFirst.mid(0, 4) + newestFirst.mid(5);
    ASSERT_TRUE(announcedLast(moved));
    ASSERT_TRUE(waitFor([&] { return !model.loading(); }));
    const QList<RecentFolder> recent = model.recentFolders();
    EXPECT_EQ(pathsOf(recent), moved);
    EXPECT_TRUE(std::all_of(recent.begin(), recent.end(), [](const RecentFolder &f) { return f.connected; }));
    EXPECT_TRUE(FolderAccess::remember(QSettings(dir.path(), QSettings::IniFormat), folders[0]).failed())
        << "a list that can't reach the disk says so";

    QSettings().remove(FolderAccess::recentFoldersKey);
}

// Needs to mount file systems, which only a privileged process in its own mount
// namespace may do; everywhere else the test skips.
TEST(MountWatcherTest, MountingACardRefreshesTheRecentFolders)
{
    if (::unshare(CLONE_NEWNS) != 0 || ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        GTEST_SKIP() << "no permission to make a private mount namespace";
    QSettings().remove(FolderAccess::recentFoldersKey);
    QTemporaryDir dir;
    const QString card = dir.filePath("card"), mountPoint = dir.filePath("media");
    ASSERT_TRUE(QDir().mkpath(card + "/DCIM"));
    ASSERT_TRUE(QDir().mkpath(mountPoint));
    const QByteArray source = QFile::encodeName(card), target = QFile::encodeName(mountPoint);

    SorviModel model(ModelTest::withoutChecks());
    MountWatcher watcher;
    ASSERT_TRUE(watcher.isWatching());
    QSignalSpy mounts(&watcher, &MountWatcher::mountsChanged);
    QSignalSpy recent(&model, &SorviModel::recentFoldersChanged);
    model.remember(mountPoint + "/DCIM");
    ASSERT_TRUE(waitFor([&] { return !recent.isEmpty(); }, 10000));
    EXPECT_FALSE(model.recentFolders().first().connected);
    recent.clear();
    ASSERT_EQ(::mount(source.constData(), target.constData(), nullptr, MS_BIND, nullptr), 0);
    EXPECT_TRUE(mounts.wait(10000));
    EXPECT_TRUE(waitFor([&] { return !recent.isEmpty(); }, 10000));
    EXPECT_TRUE(model.recentFolders().first().connected);

    recent.clear();
    ASSERT_EQ(::umount(target.constData()), 0);
    EXPECT_TRUE(waitFor([&] { return !recent.isEmpty(); }, 10000));
    EXPECT_FALSE(model.recentFolders().first().connected);
    QSettings().remove(FolderAccess::recentFoldersKey);
}
