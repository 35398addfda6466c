// Cases that need a volume of their own: a full destination, a read-only card, a move
// across drives. Each mounts a small tmpfs and skips when it may not.

#include "HandoffTestFiles.h"
#include "SorviKit/handoff/HandoffPlan.h"
#include "SorviKit/handoff/MoveLog.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace HandoffTest;

TEST(HandoffVolumeTest, AFullDestinationStopsWithAClearErrorAndKeepsEarlierCopies)
{
    QTemporaryDir dir;
    const QString card = dir.path() + "/card", destination = dir.path() + "/small";
    ASSERT_TRUE(QDir().mkpath(destination));
    TmpfsMount mount(destination, "size=3m");
    SKIP_UNLESS_MOUNTED(mount);
    const qsizetype mebibyte = 1024 * 1024;
    write(card + "/a.CR3", noise(mebibyte, 1));
    write(card + "/b.CR3", noise(mebibyte, 2));
    write(card + "/c.CR3", noise(2 * mebibyte, 3));
    const QList<Shot> shots{Shot("a", {card + "/a.CR3"}), Shot("b", {card + "/b.CR3"}), Shot("c", {card + "/c.CR3"})};
    const QMap<QString, QString> originals = snapshot(card);

    EXPECT_EQ(fileError([&] { Handoff::copy(shots, card, destination, false); }),
              "Couldn't write " + destination + "/c.CR3: " + std::strerror(ENOSPC));
    EXPECT_EQ(tree(destination), (QStringList{"a.CR3", "b.CR3"})) << "the partial copy was left";
    EXPECT_EQ(digest(destination + "/a.CR3"), originals.value("a.CR3"));
    EXPECT_EQ(digest(destination + "/b.CR3"), originals.value("b.CR3"));
    EXPECT_EQ(snapshot(card), originals);
}

TEST(HandoffVolumeTest, AReadOnlyCardTakesSidecarsElsewhereAndRefusesMoves)
{
    QTemporaryDir dir;
    const QString card = dir.path() + "/card", sidecars = dir.path() + "/sidecars";
    ASSERT_TRUE(QDir().mkpath(card));
    TmpfsMount mount(card, "size=4m");
    SKIP_UNLESS_MOUNTED(mount);
    write(card + "/DCIM/IMG_0001.CR3", noise(100'000, 1));
    write(card + "/DCIM/IMG_0001.xmp", "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\"/>\n");
    write(card + "/DCIM/IMG_0002.CR3", noise(100'000, 2));
    ASSERT_TRUE(mount.remountReadOnly()) << std::strerror(errno);
    const QList<Shot> shots{Shot("DCIM/IMG_0001", {card + "/DCIM/IMG_0001.CR3"}),
                            Shot("DCIM/IMG_0002", {card + "/DCIM/IMG_0002.CR3"})};
    const QHash<QString, Rating> ratings{{"DCIM/IMG_0001", Rating{5, Rating::Flag::pick, Rating::Label::none}},
                                         {"DCIM/IMG_0002", Rating{0, Rating::Flag::reject, Rating::Label::none}}};
    const QMap<QString, QString> originals = snapshot(card);

    EXPECT_FALSE(Handoff::canWrite(card, true));
    EXPECT_FALSE(Handoff::canWrite(card + "/DCIM", false));

    EXPECT_EQ(Handoff::writeSidecars(shots, ratings, card, sidecars), 2);
    EXPECT_THROW(Handoff::writeSidecars(shots, ratings), FileError);

    const auto record = [](const Handoff::Move &) { FAIL() << "recorded, not moved"; };
    EXPECT_EQ(fileError([&] { Handoff::moveRejects(shots.mid(1), card, record); }),
              "Couldn't create the folder " + card + "/Rejected: " + std::strerror(EROFS));
    EXPECT_EQ(snapshot(card), originals);
}

TEST(HandoffVolumeTest, MovingToAnotherDriveIsRefusedClearly)
{
    QTemporaryDir dir;
    const QString card = dir.path() + "/card", otherDrive = dir.path() + "/other";
    ASSERT_TRUE(QDir().mkpath(card));
    ASSERT_TRUE(QDir().mkpath(otherDrive));
    TmpfsMount mount(otherDrive, "size=1m");
    SKIP_UNLESS_MOUNTED(mount);
    const QString photo = otherDrive + "/IMG_0009.CR3", target = card + "/Rejected/IMG_0009.CR3";
    write(photo, "raw 9");
    const auto record = [](const Handoff::Move &) {};
    EXPECT_EQ(fileError([&] { Handoff::moveRejects({Shot("IMG_0009", {photo})}, card, record); }),
              "Couldn't move " + photo + " to " + target + ": " + target
                  + " is on another drive, and rejects are only moved within the folder they are in");
    EXPECT_EQ(tree(otherDrive), QStringList{"IMG_0009.CR3"});
    EXPECT_EQ(read(photo), "raw 9");
}

// The backup drive fills up part-way: the hand-off says so, naming the drive, and leaves
// whole copies only; the first drive still gets every copy, its sidecars, the flags list
// and the checksum list.
TEST(HandoffVolumeTest, AFullSecondDriveFailsAloneAndTheFirstGetsEverything)
{
    QTemporaryDir dir;
    const QString card = dir.path() + "/card", first = dir.path() + "/first", backup = dir.path() + "/backup";
    ASSERT_TRUE(QDir().mkpath(backup));
    TmpfsMount mount(backup, "size=1m");
    SKIP_UNLESS_MOUNTED(mount);
    const qsizetype kibibyte = 1024;
    write(card + "/a.CR3", noise(300 * kibibyte, 1));
    write(card + "/b.CR3", noise(900 * kibibyte, 2));
    write(card + "/c.JPG", noise(100 * kibibyte, 3));
    HandoffPlan::Folder folder{card,
                               {Shot("a", {card + "/a.CR3"}), Shot("b", {card + "/b.CR3"}), Shot("c", {card + "/c.JPG"})},
                               {},
                               true};
    for (const char *id : {"a", "b", "c"})
        folder.ratings.insert(id, Rating{2, Rating::Flag::pick, Rating::Label::none});
    const QMap<QString, QString> originals = snapshot(card);
    const HandoffPlan::Choices choices{.copy = true, .destination = first, .moveRejects = true,
                                       .secondDestination = backup, .manifest = true};

    const HandoffPlan::Report report = HandoffPlan::run(choices, folder, MoveLog(card, dir.path() + "/log"));
    EXPECT_EQ(report.failure, "Stopped on backup: Couldn't write " + backup + "/b.CR3: " + std::strerror(ENOSPC));
    EXPECT_EQ(report.lines, (QStringList{"Copied 3 files to first, each checked against the original.",
                                         "Ratings written for 2 RAW files in first.",
                                         "Picks and rejects marked for Lightroom (3 photos). In Lightroom Classic, "
                                         "select them and choose Library \u25B8 Plug-in Extras \u25B8 Apply Sorvi "
                                         "Picks and Rejects.",
                                         "Checksums of 3 files listed in first/kestrane-sorvi.mhl."}));
    EXPECT_EQ(tree(first), (QStringList{".kestrane-sorvi-flags.txt", "a.CR3", "a.xmp", "b.CR3", "b.xmp", "c.JPG",
                                        "kestrane-sorvi.mhl"}));
    for (const char *name : {"a.CR3", "b.CR3", "c.JPG"})
        EXPECT_EQ(digest(first + '/' + name), originals.value(name)) << name;
    EXPECT_EQ(tree(backup), QStringList{"a.CR3"}) << "a partial copy was left, or the steps after ran there";
    EXPECT_EQ(digest(backup + "/a.CR3"), originals.value("a.CR3"));
    EXPECT_EQ(snapshot(card), originals) << "the photos were changed, or rejects moved after a failure";
}
