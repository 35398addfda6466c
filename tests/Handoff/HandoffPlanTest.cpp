#include "SorviKit/handoff/HandoffPlan.h"
#include "SorviKit/handoff/MediaHashList.h"
#include "SorviKit/handoff/MoveLog.h"
#include "HandoffTestFiles.h"
#include "HashKit/XXH64.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>

// The tables name only the choices and fields that differ from their defaults.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

using namespace HandoffTest;
using HandoffPlan::Choices;

namespace {

// A: a picked pair without stars; B: a rejected 3-star RAW; C: a 2-star JPEG; D: an unrated RAW.
HandoffPlan::Folder shoot(const QString &card)
{
    HandoffPlan::Folder folder{card, {}, {}, true};
    for (const char *name : {"A.CR3", "A.JPG", "B.CR3", "C.JPG", "D.NEF"})
        write(card + '/' + name, noise(5000, qHash(QByteArray(name))));
    folder.shots = {Shot("A", {card + "/A.CR3", card + "/A.JPG"}), Shot("B", {card + "/B.CR3"}),
                    Shot("C", {card + "/C.JPG"}), Shot("D", {card + "/D.NEF"})};
    folder.ratings = {{"A", Rating{0, Rating::Flag::pick, Rating::Label::red}},
                      {"B", Rating{3, Rating::Flag::reject, Rating::Label::none}},
                      {"C", Rating{2, Rating::Flag::none, Rating::Label::none}}};
    return folder;
}

QString flagsLine(const char *photos)
{
    return QStringLiteral("Picks and rejects marked for Lightroom (%1). In Lightroom Classic, select them and choose "
                          "Library \u25B8 Plug-in Extras \u25B8 Apply Sorvi Picks and Rejects.")
        .arg(photos);
}

} // namespace

TEST(HandoffPlanTest, WhenThereIsNothingToRunOrASidecarFolderIsNeeded)
{
    const struct {
        Choices choices;
        bool readOnly, nothingToDo, needsSidecarFolder;
    } gates[] = {
        {{}, false, false, false},
        {{}, true, false, true},
        {{.sidecars = false}, false, true, false}, // the flags list alone is no reason to run
        {{.sidecars = false, .flagsList = false, .moveRejects = true}, false, false, false},
        {{.sidecars = false, .flagsList = false, .moveRejects = true}, true, true, false},
        {{.copy = true, .destination = "/out"}, true, false, false},
        {{.sidecarFolder = "/sidecars"}, true, false, false},
    };
    for (const auto &gate : gates) {
        EXPECT_EQ(HandoffPlan::nothingToDo(gate.choices, gate.readOnly), gate.nothingToDo) << &gate - gates;
        EXPECT_EQ(HandoffPlan::needsSidecarFolder(gate.choices, gate.readOnly), gate.needsSidecarFolder) << &gate - gates;
    }
}

// Which shots the copy and the moves take shows in the files each run leaves.
TEST(HandoffPlanTest, StepsRunInOrderAndSayWhatTheyDid)
{
    // Folders are relative to the test's folder; `blocker` is a plain file put there first.
    const struct {
        const char *name;
        Choices choices;
        bool writable;
        QStringList lines;
        QStringList changes; ///< "+" a file that appeared, "-" one that went
        QString failure;
        QString blocker;
    } cases[] = {
        {"in place", {}, true, {"Ratings written for 2 RAW files.", flagsLine("3 photos")},
         {"+card/.kestrane-sorvi-flags.txt", "+card/A.xmp", "+card/B.xmp"}},
        {"a card that can't be written", {.moveRejects = true, .sidecarFolder = "side"}, false,
         {"Ratings written for 2 RAW files in side.", flagsLine("3 photos")},
         {"+side/.kestrane-sorvi-flags.txt", "+side/A.xmp", "+side/B.xmp"}},
        {"picks, described beside the copies", {.copy = true, .destination = "out"}, true,
         {"Copied 2 files to out, each checked against the original.", "Ratings written for 1 RAW file in out.",
          flagsLine("1 photo")},
         {"+out/.kestrane-sorvi-flags.txt", "+out/A.CR3", "+out/A.JPG", "+out/A.xmp"}},
        {"rated, leaving out a rejected 3-star RAW",
         {.sidecars = false, .flagsList = false, .copy = true, .destination = "out", .copyWhat = "rated",
          .removeLocation = true},
         true, {"Copied 1 file to out, each checked against the original."}, {"+out/C.JPG"}},
        {"all but rejects, then the rejects moved",
         {.sidecars = false, .flagsList = false, .copy = true, .destination = "out/", .copyWhat = "all",
          .moveRejects = true},
         true, {"Copied 3 files to out, each checked against the original. 1 were already there.",
                "Moved 1 reject into the Rejected folder."},
         {"+card/Rejected/B.CR3", "+out/A.JPG", "+out/C.JPG", "+out/D.NEF", "-card/B.CR3"}, {}, "out/A.CR3"},
        {"copying chosen without a destination", {.copy = true}, true, {}, {}},
        {"two drives, darktable sidecars and a checksum list on each",
         {.copy = true, .destination = "out", .secondDestination = "backup",
          .sidecarStyle = HandoffPlan::SidecarStyle::darktable, .manifest = true},
         true,
         {"Copied 2 files to out, each checked against the original.",
          "Copied 2 files to backup, each checked against the original.",
          "Ratings written for 2 files in out, for darktable and digiKam.",
          "Ratings written for 2 files in backup, for darktable and digiKam.", flagsLine("1 photo"),
          "Checksums of 2 files listed in out/kestrane-sorvi.mhl.",
          "Checksums of 2 files listed in backup/kestrane-sorvi.mhl."},
         {"+backup/.kestrane-sorvi-flags.txt", "+backup/A.CR3", "+backup/A.CR3.xmp", "+backup/A.JPG",
          "+backup/A.JPG.xmp", "+backup/kestrane-sorvi.mhl", "+out/.kestrane-sorvi-flags.txt", "+out/A.CR3",
          "+out/A.CR3.xmp", "+out/A.JPG", "+out/A.JPG.xmp", "+out/kestrane-sorvi.mhl"}},
        {"the second copy to the same folder", {.copy = true, .destination = "out", .secondDestination = "out/"},
         true, {}, {}, "The second copy would go to out too. Choose another drive for it."},
        {"a failed step keeps the lines before it", {.moveRejects = true}, true,
         {"Ratings written for 2 RAW files.", flagsLine("3 photos")},
         {"+card/.kestrane-sorvi-flags.txt", "+card/A.xmp", "+card/B.xmp"}, "Couldn't create the folder",
         "card/Rejected"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        QTemporaryDir dir;
        HandoffPlan::Folder folder = shoot(dir.path() + "/card");
        folder.writable = c.writable;
        if (!c.blocker.isEmpty())
            write(dir.path() + '/' + c.blocker, read(dir.path() + "/card/A.CR3"));
        Choices choices = c.choices;
        for (QString *path : {&choices.destination, &choices.secondDestination, &choices.sidecarFolder})
            if (!path->isEmpty())
                *path = dir.path() + '/' + *path;
        const QStringList before = tree(dir.path());
        const QMap<QString, QString> photos = snapshot(dir.path() + "/card");
        QList<double> fractions;

        const HandoffPlan::Report report = HandoffPlan::run(choices, folder, MoveLog(folder.path, dir.path() + "/log"),
                                                            {[&](double fraction) { fractions << fraction; }});
        EXPECT_EQ(report.lines, c.lines);
        EXPECT_TRUE(c.failure.isEmpty() ? report.failure.isEmpty() : report.failure.startsWith(c.failure))
            << report.failure.toStdString();
        QStringList changes;
        for (const QString &file : tree(dir.path()))
            if (!before.contains(file) && !file.startsWith("log/"))
                changes << '+' + file;
        for (const QString &file : before)
            if (!QFileInfo::exists(dir.path() + '/' + file))
                changes << '-' + file;
        changes.sort();
        EXPECT_EQ(changes, c.changes);
        const bool copied = !choices.destination.isEmpty() && !c.lines.isEmpty();
        EXPECT_EQ(fractions.isEmpty() ? 0.0 : fractions.last(), copied ? 1.0 : 0.0);
        for (auto photo = photos.begin(); photo != photos.end(); ++photo) {
            const QString now = dir.path() + "/card/" + photo.key();
            EXPECT_EQ(digest(QFileInfo::exists(now) ? now : dir.path() + "/card/Rejected/" + photo.key()), *photo);
        }
    }
}

// Picks added after a first hand-off: only they are copied, the copies already there are
// recognised by content and listed again, a list that does not parse is kept aside, and
// the entries of copies that were since removed leave the list.
TEST(HandoffPlanTest, ARepeatedHandOffCopiesOnlyWhatIsNewAndKeepsItsChecksumListTrue)
{
    QTemporaryDir dir;
    HandoffPlan::Folder folder = shoot(dir.path() + "/card");
    const QString out = dir.path() + "/out", manifest = out + '/' + MediaHashList::manifestName;
    const Choices choices{.sidecars = false, .flagsList = false, .copy = true, .destination = out, .manifest = true};
    const MoveLog log(folder.path, dir.path() + "/log");
    const auto listed = [&] {
        QMap<QString, QString> digests;
        for (const MediaHashList::Entry &entry : MediaHashList::parse(read(manifest)).value_or(QList<MediaHashList::Entry>{})) {
            XXH64 hasher(0);
            const QByteArray bytes = read(folder.path + '/' + entry.file);
            hasher.update(bytes.constData(), std::size_t(bytes.size()));
            EXPECT_EQ(entry.size, std::uint64_t(bytes.size())) << entry.file.toStdString();
            EXPECT_EQ(entry.algorithm, "xxhash64be");
            EXPECT_TRUE(entry.hashDate.isValid() && entry.lastModified.isValid());
            digests.insert(entry.file, entry.digest == QString::fromStdString(hasher.finalize()) ? "right" : "wrong");
        }
        return digests;
    };

    HandoffPlan::Report report = HandoffPlan::run(choices, folder, log);
    EXPECT_EQ(report.lines, (QStringList{"Copied 2 files to out, each checked against the original.",
                                         "Checksums of 2 files listed in out/kestrane-sorvi.mhl."}));
    EXPECT_EQ(listed(), (QMap<QString, QString>{{"A.CR3", "right"}, {"A.JPG", "right"}}));

    const QByteArray damaged = "<hashlist version=\"1.1\"><hash><file>A.CR3";
    write(manifest, damaged);
    folder.ratings["C"].flag = Rating::Flag::pick;
    report = HandoffPlan::run(choices, folder, log);
    ASSERT_EQ(report.lines.size(), 3) << report.lines.join('\n').toStdString();
    EXPECT_EQ(report.lines[0], "Copied 1 file to out, each checked against the original. 2 were already there.");
    EXPECT_TRUE(report.lines[1].startsWith("The checksum list " + manifest + " could not be read; it was kept as "));
    EXPECT_EQ(report.lines[2], "Checksums of 3 files listed in out/kestrane-sorvi.mhl.");
    const QStringList aside = QDir(out).entryList({"*.unreadable-*"}, QDir::Files);
    ASSERT_EQ(aside.size(), 1);
    EXPECT_EQ(read(out + '/' + aside.first()), damaged);
    EXPECT_EQ(listed(), (QMap<QString, QString>{{"A.CR3", "right"}, {"A.JPG", "right"}, {"C.JPG", "right"}}));

    // A's JPEG copy is deleted and A is no longer chosen: its entry goes, A.CR3's stays.
    ASSERT_TRUE(QFile::remove(out + "/A.JPG"));
    folder.ratings["A"].flag = Rating::Flag::none;
    report = HandoffPlan::run(choices, folder, log);
    EXPECT_EQ(report.lines, (QStringList{"Copied 0 files to out, each checked against the original. 1 were already there.",
                                         "Checksums of 2 files listed in out/kestrane-sorvi.mhl."}));
    EXPECT_EQ(listed(), (QMap<QString, QString>{{"A.CR3", "right"}, {"C.JPG", "right"}}));
}
