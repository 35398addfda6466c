#include "SorviKit/previews/PreviewLoader.h"
#include "SorviApp/views/ShotImage.h"
#include "TestFiles.h"

#include <QImage>
#include <QSemaphore>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QThreadPool>

#include <gtest/gtest.h>

namespace {

constexpr int waitMs = 30'000;

Shot jpegShot(const QTemporaryDir &dir, const QString &name, QColor colour)
{
    QImage image(600, 400, QImage::Format_RGB32);
    image.fill(colour);
    const QString path = dir.filePath(name + QStringLiteral(".jpg"));
    EXPECT_TRUE(image.save(path, "JPEG", 90));
    return Shot(name, {path});
}

// Keeps a one-thread pool busy until released, so requests queue behind it.
struct BlockedPool {
    QThreadPool pool;
    QSemaphore gate;
    BlockedPool()
    {
        pool.setMaxThreadCount(1);
        pool.start([this] { gate.acquire(); });
    }
    ~BlockedPool() { pool.waitForDone(); }
};

bool near(QColor a, QColor b)
{
    return std::abs(a.red() - b.red()) + std::abs(a.green() - b.green()) + std::abs(a.blue() - b.blue()) < 30;
}

} // namespace

TEST(ShotImage, TiersAndPreparation)
{
    // A tier at or above the screen is the screen.
    for (const auto &[needed, screen, tier] : {std::tuple{168, 2560, 256}, {256, 2560, 256}, {336, 2560, 512},
                                              {900, 2560, 2560}, {5000, 2560, 2560}, {300, 400, 400}})
        EXPECT_EQ(ShotImage::tier(needed, screen), tier) << needed << " on " << screen;

    QImage sideways(40, 20, QImage::Format_RGB32);
    sideways.fill(Qt::white);
    sideways.setPixelColor(0, 0, Qt::black);
    const QImage upright = ShotImage::prepare(sideways, 6, {});
    EXPECT_EQ(upright.size(), QSize(20, 40));
    EXPECT_EQ(upright.pixelColor(19, 0), QColor(Qt::black)); // turned a quarter clockwise
    EXPECT_EQ(ShotImage::prepare(sideways, 6, {10, 10}).size(), QSize(5, 10));
    EXPECT_EQ(ShotImage::prepare(sideways, 1, {400, 400}).size(), QSize(40, 20)); // never enlarged
}

TEST(ShotImage, LoadsOffTheGuiThreadThenFromTheCacheAndFailsOnADamagedFile)
{
    QTemporaryDir dir;
    const Shot red = jpegShot(dir, QStringLiteral("red"), Qt::red);
    PreviewLoader loader;
    QThreadPool pool;
    ShotImage first(loader, pool, 0);
    QSignalSpy ready(&first, &ShotImage::imageReady);
    first.request(red, 256, {100, 100});
    EXPECT_TRUE(first.isLoading());
    EXPECT_TRUE(first.image().isNull());
    ASSERT_TRUE(ready.wait(waitMs));
    EXPECT_FALSE(first.hasFailed());
    EXPECT_EQ(first.image().size(), QSize(100, 66));
    EXPECT_TRUE(near(first.image().pixelColor(50, 30), Qt::red));
    ASSERT_TRUE(loader.cached(red, 256));

    // A second view of the same shot gets the cached picture at once, without a worker.
    ShotImage second(loader, pool, 0);
    second.request(red, 256, {60, 60});
    EXPECT_FALSE(second.isLoading());
    EXPECT_EQ(second.image().size(), QSize(60, 40));
    first.request(red, 256, {100, 100});
    EXPECT_EQ(ready.count(), 1); // repeating a request does nothing

    TestFiles::write(dir.filePath(QStringLiteral("damaged.jpg")), "\xFF\xD8\xFF\xE0 not really a picture");
    first.request(Shot(QStringLiteral("damaged"), {dir.filePath(QStringLiteral("damaged.jpg"))}), 256, {80, 80});
    EXPECT_TRUE(first.image().isNull()) << "another shot's picture must not stand in";
    ASSERT_TRUE(ready.wait(waitMs));
    EXPECT_TRUE(first.hasFailed());
    EXPECT_TRUE(first.image().isNull());
}

TEST(ShotImage, StaleAndDroppedRequestsAreNeverDecoded)
{
    QTemporaryDir dir;
    const Shot red = jpegShot(dir, "red", Qt::red), blue = jpegShot(dir, "blue", Qt::blue);
    const Shot green = jpegShot(dir, "green", Qt::green);
    PreviewLoader loader;
    {
        BlockedPool blocked;
        ShotImage image(loader, blocked.pool, 0);
        QSignalSpy ready(&image, &ShotImage::imageReady);
        image.request(red, 256, {100, 100});
        image.request(blue, 256, {100, 100}); // the user moved on before red was decoded
        blocked.gate.release();
        ASSERT_TRUE(ready.wait(waitMs));
        EXPECT_TRUE(near(image.image().pixelColor(50, 30), Qt::blue));
        blocked.pool.waitForDone();
        QCoreApplication::processEvents();
        EXPECT_EQ(ready.count(), 1);
        EXPECT_FALSE(loader.cached(red, 256)) << "a superseded request was still decoded";
    }
    {
        BlockedPool blocked;
        auto image = std::make_unique<ShotImage>(loader, blocked.pool, 0);
        image->request(green, 256, {100, 100});
        image.reset(); // the cell scrolled far away
        blocked.gate.release();
        blocked.pool.waitForDone();
        EXPECT_FALSE(loader.cached(green, 256)) << "a dropped request was still decoded";
    }
}
