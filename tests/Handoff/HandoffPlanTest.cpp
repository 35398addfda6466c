#include "SorviKit/handoff/HandoffPlan.h"
#include "SorviKit/handoff/MoveLog.h"
#include "HandoffTestFiles.h"

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
        for (QString *path : {&choices.destination, &choices.sidecarFolder})
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
        EXPECT_EQ(fractions.isEmpty() ? 0.0 : fractions.last(), choices.destination.isEmpty() ? 0.0 : 1.0);
        for (auto photo = photos.begin(); photo != photos.end(); ++photo) {
            const QString now = dir.path() + "/card/" + photo.key();
            EXPECT_EQ(digest(QFileInfo::exists(now) ? now : dir.path() + "/card/Rejected/" + photo.key()), *photo);
        }
    }
}
