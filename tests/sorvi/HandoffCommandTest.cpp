#include "SorviProcess.h"
#include "TestFiles.h"

#include <QTemporaryDir>

// `sorvi handoff` and `put-back`: the options reach the hand-off plan, its lines go to
// stdout and its failure to stderr with a non-zero exit.
class HandoffCommandTest : public SorviProcessTest {};

TEST_F(HandoffCommandTest, RunsTheChosenStepsReportsThemAndPutsRejectsBack)
{
    QTemporaryDir dir;
    const QString shoot = dir.path() + "/shoot";
    for (const char *name : {"day1/IMG_0001.CR2", "day1/IMG_0001.JPG", "day1/IMG_0002.CR2", "day1/IMG_0003.JPG"})
        TestFiles::write(shoot + '/' + name, QByteArray(name).repeated(1000));
    ASSERT_EQ(sorvi({"rate", shoot, "day1/IMG_0001", "--pick", "--stars", "3"}).exitCode, 0);
    ASSERT_EQ(sorvi({"rate", shoot, "day1/IMG_0002", "--reject"}).exitCode, 0);
    const QMap<QString, QString> originals = TestFiles::snapshot(shoot);

    CommandRun run = sorvi({"handoff", shoot, "--copy", dir.path() + "/picks", "--sidecars", "--flags-list",
                            "--move-rejects"});
    ASSERT_EQ(run.exitCode, 0) << run.err.constData();
    EXPECT_EQ(run.out, "Copied 2 files to picks, each checked against the original.\n"
                       "Ratings written for 1 RAW file in picks.\n"
                       "Picks and rejects marked for Lightroom (1 photo). In Lightroom Classic, select them and "
                       "choose Library \u25B8 Plug-in Extras \u25B8 Apply Sorvi Picks and Rejects.\n"
                       "Moved 1 reject into the Rejected folder.\n");
    EXPECT_EQ(TestFiles::tree(dir.path() + "/picks"),
              (QStringList{".kestrane-sorvi-flags.txt", "day1/IMG_0001.CR2", "day1/IMG_0001.JPG", "day1/IMG_0001.xmp"}));
    EXPECT_EQ(TestFiles::tree(shoot + "/Rejected"), QStringList{"day1/IMG_0002.CR2"});

    run = sorvi({"put-back", shoot});
    EXPECT_EQ(run.exitCode, 0) << run.err.constData();
    EXPECT_EQ(run.out, "Rejects put back.\n");
    EXPECT_EQ(TestFiles::snapshot(shoot), originals);
    run = sorvi({"put-back", shoot});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.err.contains("no moved rejects to put back")) << run.err.constData();

    // A step that fails stops the run; the finished steps are still reported.
    ASSERT_TRUE(QDir(shoot + "/Rejected").removeRecursively());
    TestFiles::write(shoot + "/Rejected", "in the way");
    run = sorvi({"handoff", shoot, "--sidecars", "--move-rejects"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.out, "Ratings written for 2 RAW files.\n");
    EXPECT_TRUE(run.err.startsWith("Couldn't create the folder " + (shoot + "/Rejected").toUtf8())) << run.err.constData();

    EXPECT_EQ(sorvi({"handoff", shoot}).exitCode, 2) << "nothing to do";
    EXPECT_EQ(sorvi({"handoff", shoot, "--copy", dir.path() + "/x", "--what", "best"}).exitCode, 2);
    EXPECT_EQ(sorvi({"handoff", shoot, "--flags-list", "--bogus"}).exitCode, 2);
}
