#include "SorviKit/handoff/LightroomPlugin.h"
#include "TestFiles.h"

#include <QDirIterator>
#include <QMap>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace {

// Every file below `folder` by relative path, with its bytes.
QMap<QString, QByteArray> contents(const QString &folder)
{
    QMap<QString, QByteArray> files;
    const QDir root(folder);
    QDirIterator it(folder, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        QFile file(path);
        file.open(QIODevice::ReadOnly);
        files.insert(root.relativeFilePath(path), file.readAll());
    }
    return files;
}

QStringList entries(const QString &folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
}

const QString saved = QStringLiteral("Saved. In Lightroom Classic: File ▸ Plug-in Manager ▸ Add.");

} // namespace

TEST(LightroomPlugin, SavesTheWholeBundleAndReplacesWhatWasThere)
{
    const QString bundle = LightroomPlugin::bundlePath();
    ASSERT_FALSE(bundle.isEmpty());
    const auto shipped = contents(bundle);
    EXPECT_TRUE(shipped.contains(QStringLiteral("Info.lua")));
    EXPECT_TRUE(shipped.contains(QStringLiteral("ApplyFlags.lua")));
    EXPECT_TRUE(shipped.contains(QStringLiteral("FlagsList.lua")));

    QTemporaryDir folder;
    const QString target = folder.filePath(LightroomPlugin::bundleName);
    EXPECT_EQ(LightroomPlugin::save(target), saved);
    EXPECT_EQ(contents(target), shipped);

    // An earlier, changed copy is replaced whole: nothing of it survives.
    TestFiles::write(target + QStringLiteral("/Info.lua"), "return {}");
    TestFiles::write(target + QStringLiteral("/old/Stale.lua"), "-- from an earlier version");
    EXPECT_EQ(LightroomPlugin::save(target), saved);
    EXPECT_EQ(contents(target), shipped);

    // A file the user chose to replace in the save panel becomes the bundle folder.
    const QString overFile = folder.filePath(QStringLiteral("Chosen.lrplugin"));
    TestFiles::write(overFile, "not a plug-in");
    EXPECT_EQ(LightroomPlugin::save(overFile), saved);
    EXPECT_EQ(contents(overFile), shipped);

    // No work-in-progress or replaced copies are left beside them.
    EXPECT_EQ(entries(folder.path()), (QStringList{QStringLiteral("Chosen.lrplugin"), LightroomPlugin::bundleName}));
}

TEST(LightroomPlugin, SaveToAnImpossiblePlaceReportsAndWritesNothing)
{
    QTemporaryDir folder;
    const QString file = folder.filePath(QStringLiteral("photo.txt"));
    TestFiles::write(file, "a regular file");

    const QString message = LightroomPlugin::save(file + QLatin1Char('/') + LightroomPlugin::bundleName);
    EXPECT_TRUE(message.startsWith(QStringLiteral("Couldn't save: "))) << message.toStdString();
    EXPECT_GT(message.size(), QStringLiteral("Couldn't save: ").size());

    EXPECT_EQ(entries(folder.path()), QStringList{QStringLiteral("photo.txt")});
    QFile kept(file);
    ASSERT_TRUE(kept.open(QIODevice::ReadOnly));
    EXPECT_EQ(kept.readAll(), QByteArray("a regular file"));
}

TEST(LightroomPlugin, InstallsIntoTheLightroomModulesFolder)
{
    QTemporaryDir data;
    const QByteArray before = qgetenv("XDG_DATA_HOME");
    qputenv("XDG_DATA_HOME", QFile::encodeName(data.path()));

    const QString modules = data.path() + QStringLiteral("/Adobe/Lightroom/Modules");
    EXPECT_EQ(LightroomPlugin::installFolder(), modules);
    EXPECT_EQ(LightroomPlugin::install(), QStringLiteral("Installed. Restart Lightroom Classic to load it."));
    EXPECT_EQ(contents(modules + QLatin1Char('/') + LightroomPlugin::bundleName),
              contents(LightroomPlugin::bundlePath()));
    EXPECT_EQ(entries(modules), QStringList{LightroomPlugin::bundleName});

    // A folder for application data that can't be made is reported, not thrown.
    TestFiles::write(data.path() + QStringLiteral("/Adobe/Lightroom/x"), "");
    qputenv("XDG_DATA_HOME", QFile::encodeName(data.path() + QStringLiteral("/Adobe/Lightroom/x")));
    EXPECT_TRUE(LightroomPlugin::install().startsWith(QStringLiteral("Couldn't install: ")));

    if (before.isNull())
        qunsetenv("XDG_DATA_HOME");
    else
        qputenv("XDG_DATA_HOME", before);
}
