#include "SorviKit/library/Catalog.h"
#include "SorviProcess.h"
#include "SorviKit/demo/DemoShoot.h"
#include "TestFiles.h"
#include "SorviKit/handoff/XMPSidecar.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <gtest/gtest.h>

// The command-line companion run as a real process, with its own data folder.
using SorviCommandTest = SorviProcessTest;

namespace {

QJsonObject shootTruth()
{
    QFile file(TestFiles::corpus() + "/shoot/truth.json");
    return file.open(QIODevice::ReadOnly) ? QJsonDocument::fromJson(file.readAll()).object() : QJsonObject();
}

} // namespace

TEST_F(SorviCommandTest, ScanJsonListsTheShootAsExpected)
{
    SKIP_WITHOUT_CORPUS();
    const CommandRun run = sorvi({"scan", TestFiles::corpus() + "/shoot", "--json"});
    ASSERT_EQ(run.exitCode, 0) << run.err.constData();
    const QJsonObject scan = QJsonDocument::fromJson(run.out).object();
    EXPECT_EQ(scan["folder"].toString(), QFileInfo(TestFiles::corpus() + "/shoot").canonicalFilePath());

    QSet<QString> expectedIds, expectedFiles;
    for (const QJsonValue &value : shootTruth()["files"].toArray())
        if (value["expected_in_scan"].toBool()) {
            expectedIds << value["frame"].toString();
            expectedFiles << value["file"].toString();
        }
    QSet<QString> ids, files;
    for (const QJsonValue &shot : scan["shots"].toArray()) {
        ids << shot["id"].toString();
        for (const QJsonValue &file : shot["files"].toArray())
            files << file.toString();
        if (shot["id"] == "DCIM/100CANON/IMG_0019") {
            EXPECT_EQ(shot["kinds"].toString(), "CR2 + JPG");
            EXPECT_EQ(shot["captureDate"].toString(), "2024-05-18T12:25:00.000Z");
            EXPECT_EQ(shot["camera"].toString(), "Canon EOS 350D DIGITAL");
            EXPECT_EQ(shot["exposure"].toString(), "1/15 s · f/8 · ISO 400 · 55 mm");
            EXPECT_TRUE(shot["lens"].isNull());
            EXPECT_EQ(shot["width"].toInt(), 3456);
            EXPECT_GT(shot["byteSize"].toInteger(), 0);
        }
    }
    EXPECT_EQ(ids, expectedIds);
    EXPECT_EQ(files, expectedFiles);

    QJsonArray expectedBursts;
    for (const QJsonValue &burst : shootTruth()["bursts"].toArray())
        expectedBursts.append(burst["frames"]);
    EXPECT_EQ(scan["bursts"].toArray(), expectedBursts);

    const CommandRun text = sorvi({"scan", TestFiles::corpus() + "/shoot"});
    EXPECT_TRUE(text.out.endsWith("46 photos in 48 files, 2 RAW+JPEG pairs\n")) << text.out.right(200).constData();
}

TEST_F(SorviCommandTest, RateWritesTheCatalogTheApplicationReads)
{
    QTemporaryDir shoot;
    TestFiles::write(shoot.path() + "/DCIM/IMG_0001.JPG", "x");
    TestFiles::write(shoot.path() + "/DCIM/IMG_0002.CR2", "x");

    CommandRun run = sorvi({"rate", shoot.path(), "DCIM/IMG_0001", "--stars", "3", "--pick", "--label", "Red"});
    ASSERT_EQ(run.exitCode, 0) << run.err.constData();
    run = sorvi({"rate", shoot.path(), "DCIM/IMG_0002", "--reject", "--label", "purple"});
    ASSERT_EQ(run.exitCode, 0) << run.err.constData();

    const Catalog catalog(shoot.path(), dataPath() + "/Kestrane Sorvi/Catalogs");
    EXPECT_EQ(catalog.rating("DCIM/IMG_0001"), (Rating{3, Rating::Flag::pick, Rating::Label::red}));
    EXPECT_EQ(catalog.rating("DCIM/IMG_0002"), (Rating{0, Rating::Flag::reject, Rating::Label::purple}));

    run = sorvi({"rate", shoot.path(), "DCIM/IMG_0001", "--unflag", "--stars", "0", "--label", "none"});
    ASSERT_EQ(run.exitCode, 0);
    run = sorvi({"ratings", shoot.path(), "--json"});
    const QJsonObject ratings = QJsonDocument::fromJson(run.out).object()["ratings"].toObject();
    EXPECT_EQ(ratings.keys(), QStringList{"DCIM/IMG_0002"}); // an emptied rating is dropped
    EXPECT_EQ(ratings["DCIM/IMG_0002"]["flag"].toString(), "reject");

    for (const QStringList &bad : {QStringList{"rate", shoot.path(), "DCIM/IMG_0003", "--pick"},
                                   QStringList{"rate", shoot.path(), "DCIM/IMG_0001", "--stars", "6"},
                                   QStringList{"rate", shoot.path(), "DCIM/IMG_0001", "--label", "Pink"},
                                   QStringList{"rate", shoot.path()}}) {
        run = sorvi(bad);
        EXPECT_EQ(run.exitCode, 2) << bad.join(' ').toStdString();
        EXPECT_FALSE(run.err.isEmpty());
    }
    EXPECT_TRUE(sorvi({"rate", shoot.path(), "DCIM/IMG_0003"}).err.contains("no photo with the id"));
    EXPECT_EQ(sorvi({"scan", shoot.path() + "/missing"}).exitCode, 1);

    // A catalog that does not parse is kept, byte for byte, before the rating replaces it.
    const QByteArray damaged = "{\"version\":1,\"ratings\":{\"DCIM/IMG_0002\":";
    TestFiles::write(catalog.file(), damaged);
    run = sorvi({"rate", shoot.path(), "DCIM/IMG_0001", "--stars", "2"});
    ASSERT_EQ(run.exitCode, 0) << run.err.constData();
    EXPECT_TRUE(run.err.contains("could not be read; it was kept as")) << run.err.constData();
    const QStringList aside = QFileInfo(catalog.file()).dir().entryList({"*.unreadable-*"}, QDir::Files);
    ASSERT_EQ(aside.size(), 1);
    QFile kept(QFileInfo(catalog.file()).dir().filePath(aside.first()));
    ASSERT_TRUE(kept.open(QIODevice::ReadOnly));
    EXPECT_EQ(kept.readAll(), damaged);

    // A write that fails is an exit status, not a log line.
    QFile::remove(catalog.file());
    ASSERT_TRUE(QDir().mkpath(catalog.file()));
    run = sorvi({"rate", shoot.path(), "DCIM/IMG_0001", "--pick"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.err.contains("Couldn't save the ratings to " + catalog.file().toUtf8())) << run.err.constData();
}

TEST_F(SorviCommandTest, DemoShootScansAsPlanned)
{
    QTemporaryDir dir;
    const QString shoot = dir.path() + "/card";
    const CommandRun made = sorvi({"demo", shoot, "--count", "24"});
    ASSERT_EQ(made.exitCode, 0) << made.err.constData();
    EXPECT_EQ(sorvi({"demo", shoot, "--count", "24"}).exitCode, 1) << "a second run must not write over the first";

    const CommandRun run = sorvi({"scan", shoot, "--json"});
    ASSERT_EQ(run.exitCode, 0) << run.err.constData();
    const QJsonObject scan = QJsonDocument::fromJson(run.out).object();
    const QList<DemoShoot::DemoFrame> plan = DemoShoot::plan(24);
    ASSERT_EQ(scan["shots"].toArray().size(), plan.size());

    QMap<int, QStringList> plannedBursts;
    QHash<QString, DemoShoot::DemoFrame> planned;
    for (const auto &frame : plan) {
        const QString id = frame.relativePath.section('.', 0, 0);
        planned.insert(id, frame);
        if (frame.burst > 0)
            plannedBursts[frame.burst] << id;
    }
    QJsonArray expectedBursts;
    for (const QStringList &burst : plannedBursts)
        expectedBursts.append(QJsonArray::fromStringList(burst));
    EXPECT_EQ(scan["bursts"].toArray(), expectedBursts);

    for (const QJsonValue &shot : scan["shots"].toArray()) {
        const DemoShoot::DemoFrame frame = planned.value(shot["id"].toString());
        SCOPED_TRACE(shot["id"].toString().toStdString());
        if (frame.damagedMetadata) {
            EXPECT_TRUE(shot["captureDate"].isNull());
            EXPECT_TRUE(shot["camera"].isNull());
            continue;
        }
        EXPECT_EQ(shot["captureDate"].toString(), frame.captureTime.toString(Qt::ISODateWithMs));
        EXPECT_EQ(shot["camera"].toString(), frame.camera);
        EXPECT_EQ(shot["lens"].toString(), frame.lens);
        EXPECT_EQ(shot["orientation"].toInt(), frame.orientation);
        EXPECT_EQ(shot["width"].toInt(), frame.width);
    }
}

TEST_F(SorviCommandTest, SidecarRatingsAreAdoptedButTheCatalogWins)
{
    SKIP_WITHOUT_CORPUS();
    QTemporaryDir shoot;
    for (const char *name : {"DSC_0042.NEF", "DSC_0042.JPG", "DSC_0042.xmp"})
        ASSERT_TRUE(QFile::copy(TestFiles::corpus() + "/pairs/" + name, shoot.path() + "/" + name));
    const auto ratingOf42 = [this, &shoot] {
        const CommandRun run = sorvi({"ratings", shoot.path(), "--json"});
        EXPECT_EQ(run.exitCode, 0) << run.err.constData();
        return QJsonDocument::fromJson(run.out).object()["ratings"].toObject()["DSC_0042"].toObject();
    };

    QJsonObject rating = ratingOf42();
    EXPECT_EQ(rating["stars"].toInt(), 3);
    EXPECT_EQ(rating["flag"].toString(), "none");
    EXPECT_EQ(rating["label"].toString(), "Red");

    const CommandRun rate = sorvi({"rate", shoot.path(), "DSC_0042", "--stars", "1"});
    ASSERT_EQ(rate.exitCode, 0) << rate.err.constData();
    rating = ratingOf42();
    EXPECT_EQ(rating["stars"].toInt(), 1) << "a rating given here is never overridden by the sidecar";
    EXPECT_EQ(rating["label"].toString(), "Red");
    EXPECT_EQ(XMPSidecar::read(shoot.path() + "/DSC_0042.xmp"), (Rating{3, Rating::Flag::none, Rating::Label::red}))
        << "rating from the command line leaves sidecars alone";
}
