#include "SorviProcess.h"
#include "TestFiles.h"

#include <QTemporaryDir>

// The hand-off run from the command line on a copy of the corpus's RAW+JPEG pairs.
namespace {

class HandoffCommandTest : public SorviProcessTest {
protected:
    void SetUp() override
    {
        if (!TestFiles::hasCorpus())
            GTEST_SKIP() << "camera corpus not found at " << SORVI_CORPUS_DIR;
        m_shoot = m_dir.path() + "/shoot";
        for (const char *name : {"DSC_0042.NEF", "DSC_0042.JPG", "IMG_0001.CR2", "IMG_0001.jpg", "IMG_0002.CR2",
                                 "IMG_0003.JPG", "P1000123.RW2", "p1000123.jpg"})
            ASSERT_TRUE(QFile::copy(TestFiles::corpus() + "/pairs/" + name, m_shoot + "/day1/" + name)
                        || (QDir().mkpath(m_shoot + "/day1")
                            && QFile::copy(TestFiles::corpus() + "/pairs/" + name, m_shoot + "/day1/" + name)));
        rate("day1/IMG_0001", {"--pick", "--stars", "3", "--label", "Red"});
        rate("day1/IMG_0003", {"--pick"});
        rate("day1/IMG_0002", {"--reject"});
        rate("day1/P1000123", {"--label", "Blue"});
    }
    void rate(const QString &id, const QStringList &changes)
    {
        const CommandRun run = sorvi(QStringList{"rate", m_shoot, id} + changes);
        ASSERT_EQ(run.exitCode, 0) << run.err.constData();
    }
    QTemporaryDir m_dir;
    QString m_shoot;
};

} // namespace

TEST_F(HandoffCommandTest, SidecarsFlagsCopiesAndRejectsLeaveThePhotosUntouched)
{
    const QMap<QString, QString> originals = TestFiles::snapshot(m_shoot);

    CommandRun run = sorvi({"handoff", m_shoot, "--sidecars", "--flags-list"});
    ASSERT_EQ(run.exitCode, 0) << run.err.constData();
    EXPECT_TRUE(run.out.contains("Ratings written for 3 RAW files.\n")) << run.out.constData();
    EXPECT_TRUE(run.out.contains("Picks and rejects marked for Lightroom (4 photos).")) << run.out.constData();
    EXPECT_TRUE(QFile::exists(m_shoot + "/day1/IMG_0001.xmp"));
    EXPECT_TRUE(QFile::exists(m_shoot + "/.kestrane-sorvi-flags.txt"));

    const QString destination = m_dir.path() + "/picks";
    run = sorvi({"handoff", m_shoot, "--copy", destination, "--what", "picks", "--sidecars"});
    ASSERT_EQ(run.exitCode, 0) << run.err.constData();
    // IMG_0001 (CR2 + JPG + its sidecar) and IMG_0003 (JPG).
    EXPECT_TRUE(run.out.contains("Copied 4 files to picks, each checked against the original.\n")) << run.out.constData();
    EXPECT_TRUE(run.out.contains("Ratings written for 1 RAW file in picks.\n")) << run.out.constData();
    // The photos are found identical; the sidecar beside the copy was updated after copying,
    // so it differs from the card's and a second copy lands beside it instead of over it.
    run = sorvi({"handoff", m_shoot, "--copy", destination});
    EXPECT_TRUE(run.out.contains("Copied 1 file to picks, each checked against the original. 3 were already there."))
        << run.out.constData();
    EXPECT_TRUE(QFile::exists(destination + "/day1/IMG_0001 2.xmp"));

    run = sorvi({"handoff", m_shoot, "--move-rejects"});
    ASSERT_EQ(run.exitCode, 0) << run.err.constData();
    EXPECT_TRUE(run.out.contains("Moved 1 reject into the Rejected folder.")) << run.out.constData();
    EXPECT_FALSE(QFile::exists(m_shoot + "/day1/IMG_0002.CR2"));
    EXPECT_EQ(TestFiles::snapshot(m_shoot + "/Rejected").value("day1/IMG_0002.CR2"), originals.value("day1/IMG_0002.CR2"));

    run = sorvi({"put-back", m_shoot});
    ASSERT_EQ(run.exitCode, 0) << run.err.constData();
    EXPECT_EQ(run.out, "Rejects put back.\n");
    EXPECT_EQ(sorvi({"put-back", m_shoot}).exitCode, 1) << "nothing left to put back";

    const QMap<QString, QString> after = TestFiles::snapshot(m_shoot);
    for (auto it = originals.constBegin(); it != originals.constEnd(); ++it)
        EXPECT_EQ(after.value(it.key()), it.value()) << it.key().toStdString();
}

TEST_F(HandoffCommandTest, BadRequestsExplainThemselves)
{
    CommandRun run = sorvi({"handoff", m_shoot});
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_TRUE(run.err.contains("nothing to do"));
    run = sorvi({"handoff", m_shoot, "--copy", m_dir.path() + "/x", "--what", "best"});
    EXPECT_EQ(run.exitCode, 2);
    run = sorvi({"handoff", m_shoot, "--copy", m_shoot + "/day1/IMG_0003.JPG/inside"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.err.contains("IMG_0003.JPG")) << run.err.constData();
}
