#include "SorviKit/checks/Assessor.h"
#include "SorviKit/checks/FaceCheck.h"
#include "SorviKit/checks/FaceModels.h"
#include "TestFiles.h"

#include <QImageReader>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPainter>
#include <QTemporaryDir>
#include <QTransform>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace {

#define SKIP_WITHOUT_FACE_MODELS()                                                               \
    if (!FaceModels::shared())                                                                   \
    GTEST_SKIP() << "face models not found at " << FaceModels::defaultPredictorPath.toStdString() \
                 << " / " << FaceModels::defaultEyeCascadePath.toStdString()                     \
                 << " (install libdlib-data and opencv-data)"

QString faces(const QString &file)
{
    return TestFiles::corpus() + QStringLiteral("/faces/") + file;
}

// The picture as the application's preview loader hands it over: decoded, turned upright by
// its orientation tag and scaled down (never up) to `longSide`.
QImage preview(const QString &path, int longSide)
{
    QImageReader reader(path);
    reader.setAutoTransform(true);
    QImage image = reader.read();
    if (image.width() > longSide || image.height() > longSide)
        image = image.scaled(longSide, longSide, Qt::KeepAspectRatio, Qt::SmoothTransformation);
    return image.convertToFormat(QImage::Format_RGB32);
}

// Checks a corpus picture the way the application does, counting the calls for the larger one.
FaceFindings checkFile(const QString &path, int *largerCalls = nullptr)
{
    return FaceCheck::check(preview(path, 1024), [=](int longSide) -> std::optional<QImage> {
        if (largerCalls)
            ++*largerCalls;
        return preview(path, longSide);
    });
}

QImage blurred(const QImage &image)
{
    return image.scaled(image.size() / 5, Qt::IgnoreAspectRatio, Qt::SmoothTransformation)
        .scaled(image.size(), Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
}

} // namespace

// The measures' effect is pinned by the labelled corpus; here, what it cannot show.
TEST(FaceCheck, EyeMeasuresSurviveDegenerateLandmarksAndATiltedHead)
{
    using namespace FaceCheck;
    EXPECT_EQ(openness({}), 1.0);
    EXPECT_EQ(openness({{5, 0}, {5, 3}}), 1.0) << "no width";
    EXPECT_EQ(eyeAspectRatio({{0, 0}, {1, 1}}), 1.0) << "not six points";
    EXPECT_EQ(eyeAspectRatio({{1, 1}, {1, 0}, {1, 0}, {1, 1}, {1, 2}, {1, 2}}), 1.0) << "corners coincide";
    // An open eye in landmark order (outer corner, upper lid, inner corner, lower lid): a
    // tilted head leaves the aspect ratio alone but opens the box of the points.
    const std::vector<QPointF> eye{{0, 0}, {3, -1.5}, {7, -1.5}, {10, 0}, {7, 1.5}, {3, 1.5}};
    std::vector<QPointF> tilted;
    for (const QPointF &p : eye)
        tilted.push_back(QTransform().rotate(25).map(p));
    EXPECT_DOUBLE_EQ(eyeAspectRatio(eye), 0.3);
    EXPECT_NEAR(eyeAspectRatio(tilted), 0.3, 1e-9);
    EXPECT_DOUBLE_EQ(openness(eye), 0.3);
    EXPECT_GT(openness(tilted), 0.45);
}

TEST(FaceCheck, NothingFromPicturesWithoutFacesOrWithoutModels)
{
    SKIP_WITHOUT_FACE_MODELS();
    int calls = 0;
    QImage grey(1024, 683, QImage::Format_RGB32);
    grey.fill(QColor(128, 128, 128));
    for (const QImage &picture : {QImage(), grey, grey.scaled(5, 5)}) {
        const auto larger = [&](int) -> std::optional<QImage> { return ++calls, std::nullopt; };
        EXPECT_EQ(FaceCheck::check(picture, larger), FaceFindings()) << picture.width() << "×" << picture.height();
    }
    EXPECT_EQ(calls, 0) << "the larger picture is only wanted when there is a face";
    EXPECT_FALSE(FaceModels::shared()->shape(grey.convertToFormat(QImage::Format_Grayscale8), QRectF(0, 0, 0, 0), true));

    QTemporaryDir dir;
    TestFiles::write(dir.filePath("junk.dat"), QByteArray(4096, '\x5a'));
    EXPECT_FALSE(FaceModels::load(dir.filePath("missing.dat"), FaceModels::defaultEyeCascadePath));
    EXPECT_FALSE(FaceModels::load(dir.filePath("junk.dat"), FaceModels::defaultEyeCascadePath));
}

// What must hold of every labelled picture, whatever the levels the accuracy bench
// measures: the larger picture is wanted once at most and only for a face, and the marks
// make the counts, each inside the picture.
TEST(FaceCheckCorpus, MarksMakeTheCountsOnEveryLabelledPicture)
{
    SKIP_WITHOUT_CORPUS();
    SKIP_WITHOUT_FACE_MODELS();
    const QJsonObject images = QJsonDocument::fromJson(TestFiles::read(faces("labels.json")))["images"].toObject();
    ASSERT_FALSE(images.isEmpty());
    int found = 0;
    for (auto it = images.begin(); it != images.end(); ++it) {
        SCOPED_TRACE(it.key().toStdString());
        int calls = 0;
        const FaceFindings result = checkFile(faces(it.key()), &calls);
        found += result.faces;
        EXPECT_LE(calls, result.faces > 0 ? 1 : 0);
        EXPECT_EQ(result.faceQuality.has_value(), !result.eyeReport.isEmpty());
        EXPECT_EQ(result.faceMarks.size(), result.faces);
        EXPECT_EQ(std::count_if(result.faceMarks.begin(), result.faceMarks.end(), [](const FaceMark &m) { return m.eyesClosed; }),
                  result.eyesClosed);
        for (const FaceMark &mark : result.faceMarks) {
            EXPECT_TRUE(!mark.box.isEmpty() && QRectF(0, 0, 1, 1).contains(mark.box));
            EXPECT_FALSE(mark.eyesClosed && mark.eyesUnclear);
        }
    }
    EXPECT_GT(found, 0);
}

// The eye verdict on faces no one would argue about: a person asleep, the same person
// winking, and a face too small to see its eyes.
TEST(FaceCheckCorpus, ClosedPairWinkAndSmallFace)
{
    SKIP_WITHOUT_CORPUS();
    SKIP_WITHOUT_FACE_MODELS();
    const FaceFindings asleep = checkFile(faces("yale/subject03_sleepy.jpg"));
    ASSERT_EQ(asleep.faceMarks.size(), 1);
    EXPECT_TRUE(asleep.faceMarks[0].eyesClosed);
    EXPECT_FALSE(asleep.faceMarks[0].eyesUnclear);
    for (const QString subject : {"03", "04"}) {
        const FaceFindings wink = checkFile(faces("yale/subject" + subject + "_wink.jpg"));
        ASSERT_EQ(wink.faceMarks.size(), 1) << subject.toStdString();
        EXPECT_EQ(wink.eyesClosed, 0) << "a wink is not closed eyes: " << subject.toStdString();
    }
    // The same face 40 px wide in the preview of a large shot: its eyes are judged on a
    // picture asked for at the size that shows the face about 128 px wide.
    QImage shot(3328, 2218, QImage::Format_RGB32);
    shot.fill(QColor(118, 118, 118));
    QPainter(&shot).drawImage(QPoint(1500, 1000), preview(faces("yale/subject03_sleepy.jpg"), 1024));
    int asked = 0;
    const FaceFindings framed = FaceCheck::check(shot.scaledToWidth(1024, Qt::SmoothTransformation), [&](int longSide) {
        asked = longSide;
        return std::optional(shot.scaledToWidth(std::min(longSide, shot.width()), Qt::SmoothTransformation));
    });
    EXPECT_GT(asked, FaceCheck::leastEyePicturePixels);
    EXPECT_LE(asked, FaceCheck::mostEyePicturePixels);
    ASSERT_EQ(framed.faceMarks.size(), 1);
    EXPECT_TRUE(framed.faceMarks[0].eyesClosed);
    // At a third of its size the face is about 44 px wide and no larger picture exists.
    const QImage full = preview(faces("yale/subject01_sleepy.jpg"), 1024);
    const FaceFindings small = FaceCheck::check(full.scaled(full.size() / 3, Qt::IgnoreAspectRatio, Qt::SmoothTransformation), {});
    ASSERT_EQ(small.faces, 1) << "still counted as a face";
    EXPECT_TRUE(small.faceMarks[0].eyesUnclear);
    EXPECT_EQ(small.eyesClosed, 0);
}

TEST(FaceCheckCorpus, QualityRanksTheBetterFrame)
{
    SKIP_WITHOUT_CORPUS();
    SKIP_WITHOUT_FACE_MODELS();
    const auto quality = [](const QImage &picture) { return FaceCheck::check(picture, {}).faceQuality.value_or(-1); };
    for (const QString subject : {"01", "02", "03", "04", "05", "07", "09", "10"}) {
        SCOPED_TRACE("subject " + subject.toStdString());
        const QImage open = preview(faces("yale/subject" + subject + "_normal.jpg"), 1024);
        const double best = quality(open);
        ASSERT_GE(best, 0) << "no face";
        EXPECT_LE(best, 1);
        EXPECT_LT(quality(preview(faces("yale/subject" + subject + "_sleepy.jpg"), 1024)), best) << "eyes shut";
        EXPECT_LT(quality(blurred(open)), best) << "blurred";
    }
    const QImage portrait = preview(faces("other/Tom_Cruise_avp_2014_4.jpg"), 1024);
    EXPECT_LT(quality(blurred(portrait)), quality(portrait));
}

TEST(FaceCheckCorpus, LargerPictureIsOptionalAndTheEyeCascadeToo)
{
    SKIP_WITHOUT_CORPUS();
    SKIP_WITHOUT_FACE_MODELS();
    const QImage working = preview(faces("yale/subject07_sleepy.jpg"), 1024);
    const FaceFindings alone = FaceCheck::check(working, {});
    ASSERT_GT(alone.faces, 0);
    // Faces found on the working picture are looked up at their place in the larger one.
    const QImage twice = working.scaled(working.size() * 2, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    const FaceFindings larger = FaceCheck::check(working, [&](int) { return std::optional<QImage>(twice); });
    EXPECT_EQ(larger.faces, alone.faces);
    EXPECT_EQ(larger.eyesClosed, alone.eyesClosed);
    // When the larger picture fails to decode, or is not the same frame (the caller forgot
    // to turn it, say), the working picture will do.
    const auto failing = [](int) -> std::optional<QImage> { throw std::runtime_error("cannot decode"); };
    EXPECT_EQ(FaceCheck::check(working, failing), alone);
    const QImage half = working.copy(0, 0, working.width() / 2, working.height());
    EXPECT_EQ(FaceCheck::check(working, [&](int) { return std::optional<QImage>(half); }), alone);

    // Without the eye cascade the landmarks' openness judges; it sees these lids a little
    // apart, so the eyes the cascade finds closed pass as open.
    QTemporaryDir dir;
    const auto withoutCascade = FaceModels::load(FaceModels::defaultPredictorPath, dir.filePath("missing.xml"));
    ASSERT_TRUE(withoutCascade);
    EXPECT_FALSE(withoutCascade->hasEyeCascade());
    const FaceFindings fallback = FaceCheck::check(*withoutCascade, working, {});
    EXPECT_EQ(fallback.faces, alone.faces);
    EXPECT_EQ(fallback.faceQuality, alone.faceQuality);
    EXPECT_EQ(alone.eyesClosed, 1) << "labelled with both eyes closed";
    EXPECT_NE(fallback.eyesClosed, alone.eyesClosed) << fallback.eyeReport.toStdString();
    EXPECT_TRUE(alone.faceMarks.value(0).eyesClosed);
    EXPECT_EQ(fallback.faceMarks.value(0), (FaceMark{alone.faceMarks.value(0).box, false})) << "the same face, judged open";
    // A sideways picture (orientation 6) is marked in the upright picture's fractions.
    EXPECT_EQ(Assessor::assess(working.transformed(QTransform().rotate(-90)), 6).faceMarks, alone.faceMarks);
}

TEST(FaceCheckCorpus, ConcurrentChecksAgree)
{
    SKIP_WITHOUT_CORPUS();
    SKIP_WITHOUT_FACE_MODELS();
    const QStringList files{"dlib/2008_001322.jpg", "yale/subject01_wink.jpg", "yale/subject09_sleepy.jpg",
                            "other/Tom_Cruise_avp_2014_4.jpg"};
    std::vector<FaceFindings> expected;
    for (const QString &file : files)
        expected.push_back(checkFile(faces(file)));
    std::atomic<int> mismatches = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < files.size(); ++i)
                mismatches += checkFile(faces(files[(i + t) % files.size()])) == expected[(i + t) % files.size()] ? 0 : 1;
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(mismatches, 0);
}
