#include "SorviKit/checks/AssessmentStore.h"
#include "SorviKit/checks/Assessor.h"
#include "SorviKit/checks/Bursts.h"
#include "SorviKit/checks/CheckReasons.h"
#include "SorviKit/checks/CheckRun.h"
#include "SorviKit/checks/CheckSettings.h"
#include "SorviKit/library/DetailReader.h"
#include "SorviKit/library/ShotScanner.h"
#include "SorviKit/previews/PreviewLoader.h"
#include "TestFiles.h"

#include <QJsonDocument>
#include <QRandomGenerator>
#include <QSettings>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace {

// Fine random texture (like grain or foliage) over `area`, mid-grey elsewhere.
QImage textured(QSize size, QRect area)
{
    QImage image(size, QImage::Format_RGB32);
    image.fill(qRgb(128, 128, 128));
    QRandomGenerator random(1);
    for (int y = area.top(); y <= area.bottom(); ++y)
        for (int x = area.left(); x <= area.right(); ++x) {
            const int v = int(random.bounded(256));
            image.setPixel(x, y, qRgb(v, v, v));
        }
    return image;
}

QImage checkerboard(int width, int height)
{
    QImage image(width, height, QImage::Format_RGB32);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            image.setPixel(x, y, (x + y) % 2 ? qRgb(255, 255, 255) : qRgb(0, 0, 0));
    return image;
}

Assessment result(double sharpness, int eyesClosed = 0, std::optional<double> quality = {})
{
    return Assessment{sharpness, quality ? 1 : 0, eyesClosed, quality, {}};
}

Shot frame(const QString &id, std::optional<double> seconds, std::optional<QString> camera = QString("Canon EOS R5"))
{
    Shot shot(id, {"/s/" + id + ".JPG"});
    if (seconds)
        shot.captureDate = QDateTime(QDate(2024, 5, 18), QTime(14, 0), Qt::UTC).addMSecs(qint64(*seconds * 1000));
    shot.camera = camera;
    return shot;
}

} // namespace

TEST(Sharpness, FlatIsZeroOneSharpTileIsEnoughAndSmallPicturesKeepTheirSize)
{
    QImage grey(640, 480, QImage::Format_RGB32);
    grey.fill(qRgb(90, 90, 90));
    EXPECT_EQ(Assessor::sharpness(grey), 0.0);
    EXPECT_EQ(Assessor::sharpness(QImage()), 0.0);

    // A sharp subject in one corner tile counts as much as sharpness everywhere: the
    // best tile decides, and each tile of the fully textured picture has the same texture.
    const QSize size(800, 800);
    const QImage everywhere = textured(size, QRect(QPoint(0, 0), size));
    const double sharp = Assessor::sharpness(everywhere);
    EXPECT_GT(sharp, 1000.0);
    EXPECT_NEAR(Assessor::sharpness(textured(size, QRect(0, 0, 200, 200))) / sharp, 1.0, 0.1);
    // The same texture blurred is much less sharp.
    EXPECT_LT(Assessor::sharpness(everywhere.scaled(100, 100, Qt::IgnoreAspectRatio, Qt::SmoothTransformation)
                                      .scaled(size, Qt::IgnoreAspectRatio, Qt::SmoothTransformation)),
              sharp / 10);

    // A checkerboard's Laplacian is ±1020 on every interior pixel, whatever the size, as
    // long as the picture is not resampled: so a value of 1020² shows it kept its size.
    EXPECT_NEAR(Assessor::sharpness(checkerboard(300, 200)), 1020.0 * 1020.0, 1.0);
    // 2048 px is measured at 1024: the resampled board no longer alternates cleanly.
    EXPECT_LT(Assessor::sharpness(checkerboard(2048, 1024)), 1020.0 * 1020.0 * 0.9);
    // 5 × 5 is drawn into 8 × 8 first: still measurable, no longer a perfect board.
    const double tiny = Assessor::sharpness(checkerboard(5, 5));
    EXPECT_GT(tiny, 0.0);
    EXPECT_LT(tiny, 1020.0 * 1020.0);
}

TEST(Assessor, BestOfBurstsAndSoftShots)
{
    const QHash<QString, Assessment> results{
        {"a1", result(100)}, {"a2", result(300)}, {"a3", result(300)},       // sharpest, earliest on a tie
        {"b1", result(900, 1, 0.9)}, {"b2", result(100, 0, 0.2)},          // open eyes beat closed
        {"c1", result(500, 0, 0.62)}, {"c2", result(600, 0, 0.66)},        // 0.04 apart: sharpness decides
        {"d1", result(900, 0, 0.60)}, {"d2", result(100, 0, 0.70)},        // 0.10 apart: quality decides
        {"e1", result(100, 0, 0.7)}, {"e2", result(200)},                  // one without quality: sharpness
        {"f1", result(999)},                                               // f2 not assessed yet
    };
    const QList<QStringList> bursts{{"a1", "a2", "a3"}, {"b1", "b2"}, {"c1", "c2"},
                                    {"d1", "d2"},       {"e1", "e2"}, {"f1", "f2"}};
    EXPECT_EQ(Assessor::bestOfBursts(bursts, results), (QSet<QString>{"a2", "b2", "c2", "d2", "e2"}));

    // Soft is below a tenth of the median, and only from five shots.
    QHash<QString, Assessment> soft{{"s10", result(10)}, {"s200", result(200)}, {"s210", result(210)},
                                    {"s220", result(220)}, {"s230", result(230)}};
    EXPECT_EQ(Assessor::soft(soft, 0.1), QSet<QString>{"s10"});
    soft.remove("s230");
    EXPECT_TRUE(Assessor::soft(soft, 0.1).isEmpty());
    // With an even count the upper middle value is the reference: 20 < 0.1 × 210 = 21.
    soft.insert("s230", result(230));
    soft.insert("s20", result(20));
    EXPECT_EQ(Assessor::soft(soft, 0.1), (QSet<QString>{"s10", "s20"}));
}

// What the inspector and sorvi check say of each mark, and the thresholds they come from.
TEST(CheckReasons, SoftByShareFacesByPlaceAndWhatWonTheBurst)
{
    QHash<QString, Assessment> results{{"s10", result(10)}, {"s200", result(200)}, {"s210", result(210)},
                                       {"s220", result(220)}, {"s230", result(230)}};
    const QSet<QString> soft = Assessor::soft(results, 0.1);
    EXPECT_EQ(CheckReasons::focus("s10", results, soft), "Soft: 5 % of the shoot's typical sharpness");
    EXPECT_EQ(CheckReasons::focus("s230", results, soft), "Sharp: 110 % of the shoot's typical sharpness");
    results.remove("s200");
    EXPECT_EQ(CheckReasons::focus("s10", results, {}), "Sharp") << "too few shots to compare";

    Assessment group{100, 3, 2, 0.7, {{QRectF(0.7, 0.1, 0.1, 0.1), true, false}, {QRectF(0.1, 0.1, 0.1, 0.1), true, false},
                                     {QRectF(0.4, 0.1, 0.1, 0.1), false, true}}};
    EXPECT_EQ(CheckReasons::faces(group), "3 · eyes closed on 2: the 1st and 3rd from the left · eyes not clear on 1");
    EXPECT_EQ(CheckReasons::faces({100, 1, 0, 0.5, {{QRectF(0.4, 0.1, 0.05, 0.05), false, true}}}), "1 · eyes not clear");
    EXPECT_EQ(CheckReasons::faces({100, 0, 0, std::nullopt, {}}), "None found");

    const QHash<QString, Assessment> frames{{"a", result(900, 1, 0.9)}, {"b", result(100, 0, 0.5)},
                                            {"c", result(300, 0, 0.7)}, {"d", result(600, 0, 0.72)}};
    const QStringList burst{"a", "b", "c", "d"};
    const QSet<QString> best = Assessor::bestOfBursts({burst}, frames);
    ASSERT_EQ(best, QSet<QString>{"d"});
    EXPECT_EQ(CheckReasons::burst("d", burst, frames, best), "Best of this burst: sharper, 2.0×") << "c is the next best";
    EXPECT_EQ(CheckReasons::burst("a", burst, frames, best, [](const QString &id) { return "IMG_" + id; }),
              "Another frame is better: IMG_d, eyes open");
    EXPECT_EQ(CheckReasons::burst("b", burst, frames, best), "Another frame is better: d, faces caught better (quality 0.72 against 0.50)");
    EXPECT_EQ(CheckReasons::burst("b", burst, frames, {}), QString()) << "no best frame yet";

    // Thresholds: the defaults for anything missing, unreadable or out of range.
    QTemporaryDir dir;
    QSettings settings(dir.filePath("s.conf"), QSettings::IniFormat);
    EXPECT_EQ(CheckSettings::read(settings), CheckThresholds());
    settings.setValue(CheckSettings::softFractionKey, 0.25);
    settings.setValue(CheckSettings::burstGapKey, "soon");
    EXPECT_EQ(CheckSettings::read(settings), (CheckThresholds{0.25, 1.0}));
    settings.setValue(CheckSettings::softFractionKey, 7);
    settings.setValue(CheckSettings::burstGapKey, 2.5);
    EXPECT_EQ(CheckSettings::read(settings), (CheckThresholds{0.1, 2.5}));
}

TEST(Bursts, FramesJoinWithinTheGapOfTheirPreviousFrameFromOneCameraWithDates)
{
    const QString nikon("NIKON D70");
    const std::pair<QList<Shot>, QList<QStringList>> cases[] = {
        // Out of time order on input; a long series of short gaps is one burst.
        {{frame("c", 0.8), frame("a", 0.0), frame("b", 0.4), frame("d", 2.3), frame("e", 3.3), frame("f", 4.3),
          frame("g", 5.2)},
         {{"a", "b", "c"}, {"d", "e", "f", "g"}}},
        // A lone frame 1.5 s later is no burst; exactly the gap still joins; equal times keep their order.
        {{frame("a", 0), frame("b", 0.4), frame("c", 1.9)}, {{"a", "b"}}},
        {{frame("a", 0), frame("b", 1.0)}, {{"a", "b"}}},
        {{frame("y", 1.0), frame("x", 1.0)}, {{"y", "x"}}},
        // Runs of one camera are broken by the other; no camera is a camera of its own; no date, no burst.
        {{frame("c1", 12.3), frame("n1", 12.7, nikon), frame("c2", 13.0), frame("n2", 13.1, nikon)}, {}},
        {{frame("a", 0, std::nullopt), frame("b", 0.5, std::nullopt)}, {{"a", "b"}}},
        {{frame("a", 0, std::nullopt), frame("b", 0.5)}, {}},
        {{frame("a", std::nullopt), frame("b", std::nullopt)}, {}},
    };
    for (const auto &[frames, bursts] : cases)
        EXPECT_EQ(Bursts::group(frames, 1.0), bursts) << frames.size() << " frames from " << frames.first().id.toStdString();
}

// Results surviving a reopen are pinned by the corpus check run below.
TEST(AssessmentStore, WritesFaceQualityOnlyWhenPresentOneFilePerFolderAndStartsEmptyOnAnythingElse)
{
    QTemporaryDir catalogs, folder, other;
    AssessmentStore store(folder.path(), catalogs.path());
    const Assessment marked{812.25, 3, 1, 0.625,
                            {{QRectF(0.1, 0.2, 1.0 / 3, 0.3), true, false}, {QRectF(0.5, 0, 0.25, 0.4), false, false},
                             {QRectF(0.8, 0.1, 0.05, 0.06), false, true}}};
    store.set(marked, "DCIM/IMG_0001");
    store.set(Assessment{0.1, 0, 0, std::nullopt, {}}, "DCIM/IMG_0002");
    store.save();
    EXPECT_TRUE(store.file().endsWith(".checks.json"));
    const QJsonObject root = QJsonDocument::fromJson(TestFiles::read(store.file())).object();
    EXPECT_EQ(root["version"].toInt(), 2);
    const QJsonObject results = root["results"].toObject();
    EXPECT_EQ(results["DCIM/IMG_0001"].toObject().keys(), (QStringList{"eyesClosed", "faceMarks", "faceQuality", "faces", "sharpness"}));
    EXPECT_FALSE(results["DCIM/IMG_0002"].toObject().contains("faceQuality"));
    EXPECT_EQ(AssessmentStore(folder.path(), catalogs.path()).result("DCIM/IMG_0002"),
              (Assessment{0.1, 0, 0, std::nullopt, {}}));
    const Assessment reread = *AssessmentStore(folder.path(), catalogs.path()).result("DCIM/IMG_0001");
    EXPECT_EQ(reread, marked);
    EXPECT_EQ(reread.faceMarks[0].box.width(), 1.0 / 3) << "exactly, not just nearly";
    EXPECT_TRUE(AssessmentStore(other.path(), catalogs.path()).results().isEmpty());

    const QByteArray entry = R"({"a":{"sharpness":5,"faces":0,"eyesClosed":0}})";
    const Assessment older = AssessmentStore::decode("{\"version\":2,\"results\":" + entry + "}")->value("a");
    EXPECT_EQ(older.sharpness, 5.0);
    EXPECT_TRUE(older.faceMarks.isEmpty());
    for (const QByteArray &content :
         {"{\"version\":1,\"results\":" + entry + "}", "{\"version\":3,\"results\":" + entry + "}",
          QByteArray("{\"version\":2,\"results\":{\"a\":{\"sharpness\":5}}}"), QByteArray("not json"),
          QByteArray("{\"version\":2,\"results\":{\"a\":{\"sharpness\":\"5\",\"faces\":0,\"eyesClosed\":0}}}"),
          QByteArray(R"({"version":2,"results":{"a":{"sharpness":5,"faces":1,"eyesClosed":0,"faceMarks":[{"x":0}]}}})")})
        EXPECT_FALSE(AssessmentStore::decode(content)) << content.constData();
    TestFiles::write(store.file(), "not json");
    AssessmentStore reopened(folder.path(), catalogs.path());
    EXPECT_TRUE(reopened.results().isEmpty());
    reopened.set(Assessment{7, 1, 0, 0.5, {}}, "b");
    reopened.save();
    EXPECT_EQ(AssessmentStore(folder.path(), catalogs.path()).results().keys(), QStringList{"b"});
}

// The checks over the corpus shoot: soft frames, each burst's best frame, and results that
// survive a restart. The bursts themselves are the corpus details tests' subject.
TEST(CheckRunCorpus, BlurredFramesAreSoftAndEachBurstsBestIsSharpWithOpenEyes)
{
    SKIP_WITHOUT_CORPUS();
    const QString folder = TestFiles::corpus() + "/shoot";
    const QJsonObject truth = QJsonDocument::fromJson(TestFiles::read(folder + "/truth.json")).object();
    QSet<QString> blurred;
    for (const QJsonValue &file : truth["files"].toArray())
        if (file["blurred"].toBool())
            blurred.insert(file["file"].toString().section('.', 0, 0));
    ASSERT_EQ(blurred.size(), 6);

    const QList<Shot> shots = DetailReader::readAll(ShotScanner::list(folder));
    QTemporaryDir catalogs;
    PreviewLoader loader;
    // The shot the user looks at is taken first: here the last, and the run stopped then.
    {
        QTemporaryDir elsewhere;
        AssessmentStore store(folder, elsewhere.path());
        std::stop_source stop;
        const QString looked = shots.last().id;
        const CheckRun::Outcome first = CheckRun::checkPending(shots, store, loader, {}, stop.get_token(), [&] {
            stop.request_stop();
            return QStringList{looked};
        });
        EXPECT_TRUE(store.result(looked)) << "the wanted shot was not checked first";
        EXPECT_LE(first.checked, 2) << "one shot per worker at most once stopped";
    }
    CheckRun::Outcome outcome;
    {
        AssessmentStore store(folder, catalogs.path());
        outcome = CheckRun::checkPending(shots, store, loader);
    }
    EXPECT_EQ(outcome.checked, shots.size());
    EXPECT_TRUE(outcome.unreadable.isEmpty()) << outcome.unreadable.join(", ").toStdString();

    // A restart finds every result stored and computes nothing.
    AssessmentStore reopened(folder, catalogs.path());
    const QHash<QString, Assessment> results = reopened.results();
    EXPECT_EQ(results.size(), shots.size());
    EXPECT_EQ(CheckRun::checkPending(shots, reopened, loader).checked, 0);

    EXPECT_EQ(Assessor::soft(results, 0.1), blurred);
    const QList<QStringList> bursts = TestFiles::truthBursts(truth);
    const QSet<QString> best = Assessor::bestOfBursts(bursts, results);
    EXPECT_EQ(best.size(), bursts.size());
    for (const QString &id : best) {
        EXPECT_FALSE(blurred.contains(id)) << id.toStdString();
        EXPECT_EQ(results[id].eyesClosed, 0) << id.toStdString();
    }
}
