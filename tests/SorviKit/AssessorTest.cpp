#include "SorviKit/checks/Assessor.h"

#include <QRandomGenerator>

#include <gtest/gtest.h>

namespace {

// Fine random texture (like grain or foliage) over `area`, mid-grey elsewhere.
QImage textured(QSize size, QRect area, quint32 seed = 1)
{
    QImage image(size, QImage::Format_RGB32);
    image.fill(qRgb(128, 128, 128));
    QRandomGenerator random(seed);
    for (int y = area.top(); y <= area.bottom(); ++y)
        for (int x = area.left(); x <= area.right(); ++x) {
            const int v = int(random.bounded(256));
            image.setPixel(x, y, qRgb(v, v, v));
        }
    return image;
}

Assessment result(double sharpness, int eyesClosed = 0, std::optional<double> quality = {})
{
    Assessment a;
    a.sharpness = sharpness;
    a.eyesClosed = eyesClosed;
    a.faces = quality ? 1 : 0;
    a.faceQuality = quality;
    return a;
}

} // namespace

TEST(Sharpness, FlatIsZeroDetailScoresAndOneSharpTileIsEnough)
{
    QImage grey(640, 480, QImage::Format_RGB32);
    grey.fill(qRgb(90, 90, 90));
    EXPECT_EQ(Assessor::sharpness(grey), 0.0);
    EXPECT_EQ(Assessor::sharpness(QImage()), 0.0);

    // A sharp subject in one corner tile counts as much as sharpness everywhere: the
    // best tile decides, and each tile of the fully textured picture has the same texture.
    const QSize size(800, 800);
    const double everywhere = Assessor::sharpness(textured(size, QRect(QPoint(0, 0), size)));
    const double corner = Assessor::sharpness(textured(size, QRect(0, 0, 200, 200)));
    EXPECT_GT(everywhere, 1000.0);
    EXPECT_NEAR(corner / everywhere, 1.0, 0.1);

    // The same texture blurred is much less sharp.
    const QImage blurred = textured(size, QRect(QPoint(0, 0), size))
                               .scaled(100, 100, Qt::IgnoreAspectRatio, Qt::SmoothTransformation)
                               .scaled(size, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    EXPECT_LT(Assessor::sharpness(blurred), everywhere / 10);
}

TEST(Sharpness, SmallPicturesKeepTheirSizeAndTinyOnesAreRaisedToEightPixels)
{
    // A checkerboard's Laplacian is ±1020 on every interior pixel, whatever the size, as
    // long as the picture is not resampled: so a value of 1020² shows it kept its size.
    auto checkerboard = [](int width, int height) {
        QImage image(width, height, QImage::Format_RGB32);
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
                image.setPixel(x, y, (x + y) % 2 ? qRgb(255, 255, 255) : qRgb(0, 0, 0));
        return image;
    };
    EXPECT_NEAR(Assessor::sharpness(checkerboard(300, 200)), 1020.0 * 1020.0, 1.0);
    // 2048 px is measured at 1024: the resampled board no longer alternates cleanly.
    EXPECT_LT(Assessor::sharpness(checkerboard(2048, 1024)), 1020.0 * 1020.0 * 0.9);
    // 5 × 5 is drawn into 8 × 8 first: still measurable, no longer a perfect board.
    const double tiny = Assessor::sharpness(checkerboard(5, 5));
    EXPECT_GT(tiny, 0.0);
    EXPECT_LT(tiny, 1020.0 * 1020.0);
}

TEST(BestOfBursts, EyesThenFaceQualityThenSharpnessAndOnlyWhenAllAreAssessed)
{
    QHash<QString, Assessment> results{
        {"a1", result(100)}, {"a2", result(300)}, {"a3", result(300)},       // sharpest, earliest on a tie
        {"b1", result(900, 1, 0.9)}, {"b2", result(100, 0, 0.2)},          // open eyes beat closed
        {"c1", result(500, 0, 0.62)}, {"c2", result(600, 0, 0.66)},        // 0.04 apart: sharpness decides
        {"d1", result(900, 0, 0.60)}, {"d2", result(100, 0, 0.70)},        // 0.10 apart: quality decides
        {"e1", result(100, 0, 0.7)}, {"e2", result(200)},                  // one without quality: sharpness
        {"f1", result(999)},                                               // f2 not assessed yet
    };
    const QList<QStringList> bursts{{"a1", "a2", "a3"}, {"b1", "b2"}, {"c1", "c2"}, {"d1", "d2"},
                                    {"e1", "e2"}, {"f1", "f2"}};
    EXPECT_EQ(Assessor::bestOfBursts(bursts, results), (QSet<QString>{"a2", "b2", "c2", "d2", "e2"}));
}

TEST(Soft, BelowATenthOfTheMedianOnlyFromFiveShots)
{
    QHash<QString, Assessment> results{{"s10", result(10)}, {"s200", result(200)}, {"s210", result(210)},
                                       {"s220", result(220)}, {"s230", result(230)}};
    EXPECT_EQ(Assessor::soft(results, 0.1), QSet<QString>{"s10"});
    results.remove("s230");
    EXPECT_TRUE(Assessor::soft(results, 0.1).isEmpty());
    // With an even count the upper middle value is the reference: 20 < 0.1 × 210 = 21.
    results.insert("s230", result(230));
    results.insert("s20", result(20));
    EXPECT_EQ(Assessor::soft(results, 0.1), (QSet<QString>{"s10", "s20"}));
}
