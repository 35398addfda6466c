#include "SorviKit/handoff/XMPSidecar.h"
#include "SorviKit/library/Catalog.h"
#include "SorviProcess.h"
#include "TestFiles.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

// The command-line companion run as a real process, with its own data folder.
using SorviCommandTest = SorviProcessTest;

TEST_F(SorviCommandTest, ScanJsonListsTheShootAsExpected)
{
    SKIP_WITHOUT_CORPUS();
    const QString folder = TestFiles::corpus() + "/shoot";
    const CommandRun run = sorvi({"scan", folder, "--json"});
    ASSERT_EQ(run.exitCode, 0) << run.err.constData();
    const QJsonObject scan = QJsonDocument::fromJson(run.out).object();
    const QJsonObject truth = QJsonDocument::fromJson(TestFiles::read(folder + "/truth.json")).object();
    EXPECT_EQ(scan["folder"].toString(), QFileInfo(folder).canonicalFilePath());

    QSet<QString> expectedIds, expectedFiles, ids, files;
    for (const QJsonValue &value : truth["files"].toArray())
        if (value["expected_in_scan"].toBool()) {
            expectedIds << value["frame"].toString();
            expectedFiles << value["file"].toString();
        }
    for (const QJsonValue &shot : scan["shots"].toArray()) {
        ids << shot["id"].toString();
        for (const QJsonValue &file : shot["files"].toArray())
            files << file.toString();
        if (shot["id"] == "DCIM/100CANON/IMG_0019") {
            EXPECT_EQ(shot["kinds"].toString(), "CR2 + JPG");
            EXPECT_EQ(shot["captureDate"].toString(), "2024-05-18T12:25:00.000Z");
            EXPECT_EQ(shot["camera"].toString(), "Canon EOS 350D DIGITAL");
            EXPECT_TRUE(shot["lens"].isNull());
        }
    }
    EXPECT_EQ(ids, expectedIds);
    EXPECT_EQ(files, expectedFiles);
    QJsonArray expectedBursts;
    for (const QJsonValue &burst : truth["bursts"].toArray())
        expectedBursts.append(burst["frames"]);
    EXPECT_EQ(scan["bursts"].toArray(), expectedBursts);

    const CommandRun text = sorvi({"scan", folder});
    EXPECT_TRUE(text.out.endsWith("46 photos in 48 files, 2 RAW+JPEG pairs\n")) << text.out.right(200).constData();
}

TEST_F(SorviCommandTest, RateWritesTheCatalogTheApplicationReadsAdoptingButNeverWritingSidecars)
{
    QTemporaryDir shoot;
    const QString folder = shoot.path();
    TestFiles::write(folder + "/DCIM/IMG_0001.JPG", "x");
    TestFiles::write(folder + "/DCIM/IMG_0002.CR2", "x");
    const Rating inSidecar{3, Rating::Flag::none, Rating::Label::red};
    XMPSidecar::write(inSidecar, folder + "/DCIM/IMG_0002.CR2");
    const auto ratings = [&] {
        const CommandRun run = sorvi({"ratings", folder, "--json"});
        EXPECT_EQ(run.exitCode, 0) << run.err.constData();
        return QJsonDocument::fromJson(run.out).object()["ratings"].toObject();
    };
    EXPECT_EQ(ratings().value("DCIM/IMG_0002")["label"].toString(), "Red") << "the sidecar's rating is adopted";

    CommandRun run = sorvi({"rate", folder, "DCIM/IMG_0001", "--stars", "3", "--pick", "--label", "Red"});
    ASSERT_EQ(run.exitCode, 0) << run.err.constData();
    run = sorvi({"rate", folder, "DCIM/IMG_0002", "--reject", "--label", "purple"});
    ASSERT_EQ(run.exitCode, 0) << run.err.constData();
    const Catalog catalog(folder, dataPath() + "/Kestrane Sorvi/Catalogs");
    EXPECT_EQ(catalog.rating("DCIM/IMG_0001"), (Rating{3, Rating::Flag::pick, Rating::Label::red}));
    EXPECT_EQ(catalog.rating("DCIM/IMG_0002"), (Rating{3, Rating::Flag::reject, Rating::Label::purple}))
        << "the adopted stars stay, and the catalog wins over the sidecar from then on";
    EXPECT_EQ(XMPSidecar::read(folder + "/DCIM/IMG_0002.xmp"), inSidecar) << "rating leaves sidecars alone";

    run = sorvi({"rate", folder, "DCIM/IMG_0001", "--unflag", "--stars", "0", "--label", "none"});
    ASSERT_EQ(run.exitCode, 0);
    EXPECT_EQ(ratings().keys(), QStringList{"DCIM/IMG_0002"}) << "an emptied rating is dropped";

    for (const QStringList &bad : {QStringList{"rate", folder, "DCIM/IMG_0003", "--pick"},
                                   QStringList{"rate", folder, "DCIM/IMG_0001", "--stars", "6"},
                                   QStringList{"rate", folder, "DCIM/IMG_0001", "--label", "Pink"}}) {
        run = sorvi(bad);
        EXPECT_EQ(run.exitCode, 2) << bad.join(' ').toStdString();
        EXPECT_FALSE(run.err.isEmpty());
    }
    EXPECT_TRUE(sorvi({"rate", folder, "DCIM/IMG_0003"}).err.contains("no photo with the id"));

    // A catalog that does not parse is kept, byte for byte, before the rating replaces it.
    const QByteArray damaged = "{\"version\":1,\"ratings\":{\"DCIM/IMG_0002\":";
    TestFiles::write(catalog.file(), damaged);
    run = sorvi({"rate", folder, "DCIM/IMG_0001", "--stars", "2"});
    ASSERT_EQ(run.exitCode, 0) << run.err.constData();
    EXPECT_TRUE(run.err.contains("could not be read; it was kept as")) << run.err.constData();
    const QDir catalogs = QFileInfo(catalog.file()).dir();
    const QStringList aside = catalogs.entryList({"*.unreadable-*"}, QDir::Files);
    ASSERT_EQ(aside.size(), 1);
    EXPECT_EQ(TestFiles::read(catalogs.filePath(aside.first())), damaged);

    // A write that fails is an exit status, not a log line.
    QFile::remove(catalog.file());
    ASSERT_TRUE(QDir().mkpath(catalog.file()));
    run = sorvi({"rate", folder, "DCIM/IMG_0001", "--pick"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.err.contains("Couldn't save the ratings to " + catalog.file().toUtf8())) << run.err.constData();
}

TEST_F(SorviCommandTest, CheckChecksOnceThenReusesTheStoredResults)
{
    QTemporaryDir shoot;
    const QString card = shoot.path() + "/card";
    ASSERT_EQ(sorvi({"demo", card, "--count", "14"}).exitCode, 0);
    EXPECT_EQ(sorvi({"demo", card, "--count", "14"}).exitCode, 1) << "a second demo must not write over the first";

    const CommandRun first = sorvi({"check", card, "--json"});
    ASSERT_EQ(first.exitCode, 0) << first.err.constData();
    const QJsonObject json = QJsonDocument::fromJson(first.out).object();
    const QJsonObject shots = json["shots"].toObject();
    EXPECT_EQ(shots.size(), 14);
    for (const QJsonValue &shot : shots) {
        EXPECT_GT(shot["sharpness"].toDouble(), 0.0);
        EXPECT_TRUE(shot["faces"].isDouble() && shot["eyesClosed"].isDouble());
        EXPECT_TRUE(shot["reasons"].toArray().first().toString().contains("% of the shoot's typical sharpness"));
    }
    EXPECT_FALSE(json["bursts"].toArray().isEmpty());
    EXPECT_EQ(json["bestOfBurst"].toArray().size(), json["bursts"].toArray().size());
    EXPECT_TRUE(first.err.contains("14 photos checked now, 0 stored from before")) << first.err.constData();

    const CommandRun second = sorvi({"check", card});
    ASSERT_EQ(second.exitCode, 0);
    EXPECT_TRUE(second.err.contains("0 photos checked now, 14 stored from before")) << second.err.constData();
    EXPECT_TRUE(second.out.contains("Burst 1: ") && second.out.contains("sharpness ")) << second.out.constData();
    EXPECT_TRUE(second.out.contains("Best of this burst: ") && second.out.contains("Another frame is better: "))
        << second.out.constData();
    EXPECT_EQ(sorvi({"check", shoot.path() + "/missing"}).exitCode, 1);
}

// The options reach the hand-off plan, its lines go to stdout and its failure to stderr
// with a non-zero exit, and put-back finds what the hand-off moved.
TEST_F(SorviCommandTest, HandoffRunsTheChosenStepsReportsThemAndPutsRejectsBack)
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
}

// Copies to two drives with a checksum list on each; `sorvi verify` then reads a drive
// again and names the file whose byte went bad and the file that went missing.
TEST_F(SorviCommandTest, HandoffToTwoDrivesThenVerifyNamesTheDamagedAndTheMissing)
{
    QTemporaryDir dir;
    const QString shoot = dir.path() + "/shoot", picks = dir.path() + "/picks", backup = dir.path() + "/backup";
    for (const char *name : {"day1/IMG_0001.CR2", "day1/IMG_0001.JPG", "day1/IMG_0002.JPG"})
        TestFiles::write(shoot + '/' + name, QByteArray(name).repeated(5000));
    ASSERT_EQ(sorvi({"rate", shoot, "day1/IMG_0001", "--pick", "--label", "Green"}).exitCode, 0);
    ASSERT_EQ(sorvi({"rate", shoot, "day1/IMG_0002", "--pick"}).exitCode, 0);

    CommandRun run = sorvi({"handoff", shoot, "--copy", picks, "--second-copy", backup, "--manifest", "--sidecars",
                            "--sidecar-style", "darktable"});
    ASSERT_EQ(run.exitCode, 0) << run.err.constData();
    EXPECT_EQ(run.out, "Copied 3 files to picks, each checked against the original.\n"
                       "Copied 3 files to backup, each checked against the original.\n"
                       "Ratings written for 3 files in picks, for darktable and digiKam.\n"
                       "Ratings written for 3 files in backup, for darktable and digiKam.\n"
                       "Checksums of 3 files listed in picks/kestrane-sorvi.mhl.\n"
                       "Checksums of 3 files listed in backup/kestrane-sorvi.mhl.\n");
    EXPECT_EQ(TestFiles::tree(backup), (QStringList{"day1/IMG_0001.CR2", "day1/IMG_0001.CR2.xmp", "day1/IMG_0001.JPG",
                                                    "day1/IMG_0001.JPG.xmp", "day1/IMG_0002.JPG",
                                                    "day1/IMG_0002.JPG.xmp", "kestrane-sorvi.mhl"}));

    run = sorvi({"verify", backup});
    EXPECT_EQ(run.exitCode, 0) << run.err.constData();
    EXPECT_TRUE(run.out.endsWith("3 files listed in kestrane-sorvi.mhl: 3 match, 0 differ, 0 missing, 0 not checked.\n"))
        << run.out.constData();

    QByteArray bytes = TestFiles::read(backup + "/day1/IMG_0001.CR2");
    bytes[1234] = char(bytes[1234] ^ 0x01);
    TestFiles::write(backup + "/day1/IMG_0001.CR2", bytes);
    ASSERT_TRUE(QFile::remove(backup + "/day1/IMG_0002.JPG"));
    run = sorvi({"verify", backup});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.out.contains("DIFFERS  day1/IMG_0001.CR2 (its xxhash64be is ")) << run.out.constData();
    EXPECT_TRUE(run.out.contains("matches  day1/IMG_0001.JPG\n")) << run.out.constData();
    EXPECT_TRUE(run.out.contains("MISSING  day1/IMG_0002.JPG\n")) << run.out.constData();
    EXPECT_TRUE(run.out.endsWith(": 1 match, 1 differ, 1 missing, 0 not checked.\n")) << run.out.constData();
    EXPECT_EQ(sorvi({"verify", picks}).exitCode, 0) << "the first drive was touched";

    run = sorvi({"verify", shoot});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.err.contains("no checksum list (.mhl) in")) << run.err.constData();
    for (const QStringList &bad : {QStringList{"handoff", shoot, "--sidecars", "--manifest"},
                                   QStringList{"handoff", shoot, "--sidecars", "--second-copy", backup},
                                   QStringList{"handoff", shoot, "--sidecars", "--sidecar-style", "capture-one"},
                                   QStringList{"verify"}})
        EXPECT_EQ(sorvi(bad).exitCode, 2) << bad.join(' ').toStdString();
}
