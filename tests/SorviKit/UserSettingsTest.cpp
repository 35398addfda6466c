// Writes to the user's settings: a file Qt can't parse in full is kept aside byte for
// byte before the first write over it, and a write that can't reach the disk says so.
#include "SorviKit/core/UserSettings.h"
#include "TestFiles.h"

#include <QSettings>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace {

enum class Place { file, folder, underPlainFile };

struct SettingsCase {
    const char *name;
    std::optional<QByteArray> before; ///< the settings file before the writes; none: no file
    Place place = Place::file;        ///< what stands at the settings path or above it
    bool keptAside = false;
};

} // namespace

TEST(UserSettingsTest, KeepsAnUnparsedFileAsideAndSaysWhenAWriteFails)
{
    const QByteArray good = "[General]\nAIProvider=openai\n";
    const QList<SettingsCase> cases{
        {"no file yet", std::nullopt},
        {"a good file", good},
        {"a line without '='", good + "recent folders were here\n", Place::file, true},
        {"an unclosed section", "[General\nAIProvider=openai\n", Place::file, true},
        {"binary bytes", "AIProvider=openai\n" + QByteArray("\x00\x01\xff\xfe\n", 5), Place::file, true},
        // Folders, not permissions, make the writes fail: tests may run as root.
        {"a folder at the settings path", std::nullopt, Place::folder},
        {"a plain file for the settings folder", std::nullopt, Place::underPlainFile},
    };
    for (const SettingsCase &c : cases) {
        SCOPED_TRACE(c.name);
        QTemporaryDir home;
        const QString path = home.filePath("Kestrane/Sorvi.conf");
        if (c.before)
            TestFiles::write(path, *c.before);
        if (c.place == Place::folder)
            QDir().mkpath(path);
        if (c.place == Place::underPlainFile)
            TestFiles::write(home.filePath("Kestrane"), "not a folder");
        const QSettings settings(path, QSettings::IniFormat);
        settings.allKeys(); // read first, as the application does when it starts

        const UserSettings::Outcome first = UserSettings::setValue(settings, "RecentFolders", QStringList{"/a", "/b"});
        const UserSettings::Outcome second = UserSettings::setValue(settings, "AIModel.xai", "grok-4-fast");
        const QStringList aside = QDir(home.filePath("Kestrane")).entryList({"Sorvi.unreadable-*.conf"});
        ASSERT_EQ(aside.size(), c.keptAside ? 1 : 0);
        const QString asidePath = c.keptAside ? home.filePath("Kestrane/" + aside[0]) : QString();
        EXPECT_EQ(TestFiles::read(asidePath), c.keptAside ? *c.before : QByteArray());
        const QString notice = "The settings file could not be read in full; it was kept as " + asidePath + ".";
        EXPECT_EQ(first.notice, c.keptAside ? notice : QString());
        EXPECT_EQ(second.notice, "") << "the notice is given once";
        const QString failure = "Couldn't save the settings in " + path + ": the file can't be written.";
        EXPECT_EQ(first.error, c.place == Place::file ? QString() : failure);
        EXPECT_EQ(second.error, first.error);
        if (c.place != Place::file)
            continue;
        // On the disk: both changes and what could be read before; nothing unreadable.
        const QByteArray written = TestFiles::read(path);
        EXPECT_TRUE(written.startsWith("[General]\n")) << written.toStdString();
        EXPECT_TRUE(written.contains("\nRecentFolders=/a, /b\n"));
        EXPECT_TRUE(written.contains("\nAIModel.xai=grok-4-fast\n"));
        EXPECT_EQ(written.contains("\nAIProvider=openai\n"), c.before.has_value());
        EXPECT_EQ(settings.value("AIModel.xai"), "grok-4-fast");
    }
}
