#include "SorviKit/previews/PictureDecoder.h"
#include "SorviKit/previews/PreviewLoader.h"
#include "SorviKit/library/Shot.h"
#include "SorviKit/library/ShotScanner.h"
#include "TestFiles.h"

#include <QImageReader>
#include <QImageWriter>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QtConcurrent>
#include <gtest/gtest.h>

#include <array>
#include <cmath>

namespace {

int longSide(QSize size)
{
    return std::max(size.width(), size.height());
}

QSize turnedSize(QSize size, int orientation)
{
    return orientation >= 5 && orientation <= 8 ? size.transposed() : size;
}

QHash<QString, QJsonObject> truthOf(const QString &folder)
{
    QHash<QString, QJsonObject> truth;
    const QJsonArray files = QJsonDocument::fromJson(TestFiles::read(folder + "/truth.json"))["files"].toArray();
    for (const QJsonValue &file : files)
        truth.insert(QFileInfo(folder + '/' + file["file"].toString()).canonicalFilePath(), file.toObject());
    return truth;
}

int truthOrientation(const QJsonObject &truth)
{
    return truth["orientation"].isDouble() ? truth["orientation"].toInt() : 1;
}

// The stored picture a RAW-only shot must show: the smallest complete one whose long side
// reaches `maxPixels`, else the largest. A "RAW" that is really a JPEG is one of its own.
std::optional<QSize> expectedStored(const QJsonObject &truth, int maxPixels)
{
    QList<QSize> stored;
    for (const QJsonValue &image : truth["embedded_images"].toArray())
        if (image["has_eoi"].toBool())
            stored << QSize(image["width"].toInt(), image["height"].toInt());
    if (truth["file_type"] == "JPEG")
        stored << QSize(truth["image_width"].toInt(), truth["image_height"].toInt());
    const auto area = [](QSize size) { return qint64(size.width()) * size.height(); };
    std::optional<QSize> smallestLongEnough, largest;
    for (const QSize size : stored) {
        if (longSide(size) >= maxPixels && (!smallestLongEnough || area(size) < area(*smallestLongEnough)))
            smallestLongEnough = size;
        if (!largest || area(size) > area(*largest))
            largest = size;
    }
    return smallestLongEnough ? smallestLongEnough : largest;
}

// Upright, the preview is the source turned upright and shrunk to `maxPixels`, never
// enlarged, its short side rounded to the nearest pixel.
void expectFits(const ShotPreview &preview, QSize uprightSource, int maxPixels)
{
    const QImage upright = PreviewLoader::upright(preview.image, preview.orientation);
    const int wantLong = std::min(maxPixels, longSide(uprightSource));
    const double scale = double(wantLong) / longSide(uprightSource);
    EXPECT_EQ(longSide(upright.size()), wantLong);
    EXPECT_NEAR(upright.width(), uprightSource.width() * scale, 0.5) << preview.source.toStdString();
    EXPECT_NEAR(upright.height(), uprightSource.height() * scale, 0.5) << preview.source.toStdString();
}

void checkRendered(const std::optional<ShotPreview> &preview, const QJsonObject &truth, int maxPixels)
{
    ASSERT_TRUE(preview);
    EXPECT_EQ(preview->orientation, 1);
    // libheif's own turns are the picture; the EXIF orientation is not applied on top.
    const QJsonArray heif = truth["heif_decoded_size"].toArray();
    const QSize stored = heif.isEmpty() ? QSize(truth["image_width"].toInt(), truth["image_height"].toInt())
                                        : QSize(heif[0].toInt(), heif[1].toInt());
    EXPECT_EQ(QSize(preview->sourceWidth, preview->sourceHeight), stored);
    expectFits(*preview, heif.isEmpty() ? turnedSize(stored, truthOrientation(truth)) : stored, maxPixels);
}

void checkRawOnly(const std::optional<ShotPreview> &preview, const QJsonObject &truth, int maxPixels)
{
    const std::optional<QSize> stored = expectedStored(truth, maxPixels);
    if (!stored) {
        EXPECT_TRUE(!preview || !preview->source.startsWith("stored JPEG")) << preview->source.toStdString();
        return;
    }
    ASSERT_TRUE(preview);
    EXPECT_TRUE(preview->source.startsWith("stored JPEG")) << preview->source.toStdString();
    EXPECT_EQ(QSize(preview->sourceWidth, preview->sourceHeight), *stored);
    EXPECT_EQ(preview->orientation, truthOrientation(truth));
    expectFits(*preview, turnedSize(*stored, truthOrientation(truth)), maxPixels);
}

void checkCorpusFolder(const QString &name)
{
    const QString folder = TestFiles::corpus() + '/' + name;
    const QHash<QString, QJsonObject> truth = truthOf(folder);
    PreviewLoader loader;
    const QList<Shot> shots = ShotScanner::list(folder);
    ASSERT_FALSE(shots.isEmpty());
    for (const Shot &listed : shots) {
        const Shot shot = ShotScanner::readDetails(listed);
        for (const int maxPixels : {256, 1024, 2560}) {
            SCOPED_TRACE(QStringLiteral("%1 at %2").arg(shot.id).arg(maxPixels).toStdString());
            const std::optional<ShotPreview> preview = loader.preview(shot, maxPixels);
            if (const std::optional<QString> rendered = shot.rendered())
                checkRendered(preview, truth.value(*rendered), maxPixels);
            else
                checkRawOnly(preview, truth.value(*shot.raw()), maxPixels);
        }
    }
}

Shot fileShot(const QString &path, int orientation = 1)
{
    Shot shot(QFileInfo(path).completeBaseName(), {path});
    shot.orientation = orientation;
    return shot;
}

QString rawFile(const QString &name)
{
    return TestFiles::corpus() + "/raw/" + name;
}

// A picture whose colour changes across it, so that a scaled or turned copy can be told apart.
QImage gradient(int width, int height)
{
    QImage image(width, height, QImage::Format_RGB32);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            image.setPixel(x, y, qRgb(x * 255 / width, y * 255 / height, 128));
    return image;
}

QString written(const QTemporaryDir &dir, const QString &name, const QImage &image)
{
    const QString path = dir.filePath(name);
    QImageWriter(path).write(image);
    return path;
}

double meanDifference(const QImage &a, const QImage &b)
{
    double total = 0;
    for (int y = 0; y < a.height(); ++y)
        for (int x = 0; x < a.width(); ++x) {
            const QRgb p = a.pixel(x, y), q = b.pixel(x, y);
            total += std::abs(qRed(p) - qRed(q)) + std::abs(qGreen(p) - qGreen(q)) + std::abs(qBlue(p) - qBlue(q));
        }
    return total / (3.0 * a.width() * a.height());
}

std::array<double, 3> meanColour(const QImage &image)
{
    std::array<double, 3> sum{};
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x) {
            const QRgb p = image.pixel(x, y);
            sum[0] += qRed(p), sum[1] += qGreen(p), sum[2] += qBlue(p);
        }
    for (double &channel : sum)
        channel /= double(image.width()) * image.height();
    return sum;
}

} // namespace

TEST(PreviewLoaderCorpus, EveryShotFitsItsChosenSource)
{
    SKIP_WITHOUT_CORPUS();
    for (const char *folder : {"raw", "pairs", "shoot", "jpeg", "heic"}) {
        SCOPED_TRACE(folder);
        checkCorpusFolder(folder);
    }
}

TEST(PreviewLoaderCorpus, RawFilesWithHiddenCutOrMissingPictures)
{
    SKIP_WITHOUT_CORPUS();
    PreviewLoader loader;
    // Both previews lie beyond the first 12 MiB: only the pass over the whole file finds them.
    const auto late = loader.preview(fileShot(rawFile("canon_eos350d_previews_after_12MiB.dng")), 1024);
    ASSERT_TRUE(late);
    EXPECT_EQ(late->source, "stored JPEG 1024×683 at byte 13017470");
    const auto progressive = loader.preview(fileShot(rawFile("canon_digital_rebel_progressive_only.crw")), 1024);
    ASSERT_TRUE(progressive);
    EXPECT_EQ(progressive->source, "stored JPEG 3072×2048 at byte 48");
    EXPECT_EQ(progressive->image.size(), QSize(1024, 683));
    // The large preview is cut off; its intact Exif thumbnail is used, never the cut picture.
    for (const int maxPixels : {256, 2560}) {
        const auto cut = loader.preview(fileShot(rawFile("panasonic_lx3_truncated_preview.rw2")), maxPixels);
        ASSERT_TRUE(cut);
        EXPECT_EQ(cut->source, "stored JPEG 160×107 at byte 11018");
        EXPECT_EQ(cut->image.size(), QSize(160, 107));
    }
    // A genuine RAW without any JPEG decodes its sensor data.
    const auto kodak = loader.preview(fileShot(rawFile("kodak_dc50_no_jpeg.kdc")), 256);
    ASSERT_TRUE(kodak);
    EXPECT_EQ(kodak->source, "LibRaw");
    EXPECT_EQ(longSide(kodak->image.size()), 256);
    for (const char *name : {"leaf_credo40_no_jpeg.iiq", "canon_eosm50_stub_previews.cr3"}) {
        const auto none = loader.preview(fileShot(rawFile(name)), 1024);
        EXPECT_TRUE(!none || !none->source.startsWith("stored JPEG")) << name;
    }
}

TEST(PreviewLoaderCorpus, FullResolutionIsUprightAtTheLargestSize)
{
    SKIP_WITHOUT_CORPUS();
    const QString corpus = TestFiles::corpus();
    const auto sideways = PreviewLoader::fullResolution(fileShot(corpus + "/jpeg/nikon_d40_orient6.jpg", 6));
    ASSERT_TRUE(sideways);
    EXPECT_EQ(sideways->image.size(), QSize(2000, 3008));
    EXPECT_EQ(sideways->orientation, 1);
    const auto heif = PreviewLoader::fullResolution(fileShot(corpus + "/heic/apple_iphonexr_orient6_gps.heic", 6));
    ASSERT_TRUE(heif);
    EXPECT_EQ(heif->image.size(), QSize(3024, 4032));
    // The sensor data of this file is a stub, so the largest stored picture stands in,
    // turned by the shot's orientation.
    const auto stub = PreviewLoader::fullResolution(fileShot(rawFile("canon_eos350d.cr2"), 6));
    ASSERT_TRUE(stub);
    EXPECT_EQ(stub->image.size(), QSize(2304, 3456));
    EXPECT_EQ(stub->orientation, 1);
    const auto kodak = PreviewLoader::fullResolution(fileShot(rawFile("kodak_dc50_no_jpeg.kdc")));
    ASSERT_TRUE(kodak);
    EXPECT_EQ(kodak->source, "LibRaw");
    EXPECT_EQ(kodak->image.size(), QSize(kodak->sourceWidth, kodak->sourceHeight));
    EXPECT_GE(longSide(kodak->image.size()), 700);
}

TEST(PreviewLoaderCorpus, DecodedPixelsMatchAnIndependentDecoder)
{
    SKIP_WITHOUT_CORPUS();
    // The pair holds one photo twice: the CR2's stored preview and the JPEG beside it.
    const QString jpeg = TestFiles::corpus() + "/pairs/IMG_0001.jpg";
    const auto ours = PreviewLoader::thumbnail(jpeg, 512);
    const auto stored = PreviewLoader().preview(fileShot(TestFiles::corpus() + "/pairs/IMG_0001.CR2"), 512);
    ASSERT_TRUE(ours && stored);
    QImageReader reader(jpeg);
    reader.setScaledSize(ours->image.size());
    const QImage qt = reader.read().convertToFormat(QImage::Format_RGB32);
    ASSERT_EQ(qt.size(), ours->image.size());
    EXPECT_LT(meanDifference(ours->image, qt), 6.0);
    EXPECT_LT(meanDifference(stored->image, qt), 6.0);
    // The late DNG's previews were made from the iPhone 7 photo (cropped to 3:2), so libheif
    // and TurboJPEG must agree on its colours; swapped channels would differ by 14 levels.
    const auto heif = PreviewLoader::thumbnail(TestFiles::corpus() + "/heic/apple_iphone7_gps.heic", 256);
    const auto late = PreviewLoader().preview(fileShot(rawFile("canon_eos350d_previews_after_12MiB.dng")), 256);
    ASSERT_TRUE(heif && late);
    for (int channel = 0; channel < 3; ++channel)
        EXPECT_NEAR(meanColour(heif->image)[channel], meanColour(late->image)[channel], 4.0) << channel;
    // RGB32 promises an opaque fourth byte; a stray value would show as transparency.
    for (const QImage &image : {ours->image, heif->image})
        for (int y = 0; y < image.height(); y += 7)
            for (int x = 0; x < image.width(); x += 5)
                ASSERT_EQ(image.constScanLine(y)[x * 4 + 3], 0xFF);
}

TEST(PreviewLoader, CachesEachSizeOnceAndEvictsByDecodedBytes)
{
    QTemporaryDir dir;
    const Shot a = fileShot(written(dir, "a.jpg", gradient(800, 600)));
    const Shot b = fileShot(written(dir, "b.jpg", gradient(800, 600)));
    EXPECT_EQ(PreviewLoader::cacheKey(a, 2048), a.files.first() + "|2048");

    PreviewLoader loader;
    EXPECT_FALSE(loader.cached(a, 256));
    const auto small = loader.preview(a, 256);
    ASSERT_TRUE(small);
    EXPECT_EQ(small->image.size(), QSize(256, 192));
    ASSERT_TRUE(loader.cached(a, 256));
    // A hit is the stored picture itself, not a new decode.
    EXPECT_EQ(loader.cached(a, 256)->image.constBits(), small->image.constBits());
    EXPECT_FALSE(loader.cached(a, 512));
    ASSERT_TRUE(loader.preview(a, 512));
    EXPECT_EQ(loader.cached(a, 512)->image.size(), QSize(512, 384));
    EXPECT_TRUE(loader.cached(a, 256));

    PreviewLoader roomForOne(256 * 192 * 4);
    roomForOne.preview(a, 256);
    roomForOne.preview(b, 256);
    EXPECT_FALSE(roomForOne.cached(a, 256));
    EXPECT_TRUE(roomForOne.cached(b, 256));
    PreviewLoader tooSmall(1000);
    EXPECT_TRUE(tooSmall.preview(a, 256));
    EXPECT_FALSE(tooSmall.cached(a, 256));

    // Many threads sharing one loader get whole, correctly sized pictures.
    PreviewLoader shared(600'000);
    QList<int> sizes;
    for (int i = 0; i < 64; ++i)
        sizes << 100 + (i % 8) * 50;
    const QList<QSize> got = QtConcurrent::blockingMapped(sizes, [&](int size) {
        const auto preview = shared.preview(size % 100 ? a : b, size);
        return preview ? preview->image.size() : QSize();
    });
    for (qsizetype i = 0; i < sizes.size(); ++i)
        EXPECT_EQ(longSide(got[i]), sizes[i]);
}

TEST(PreviewLoader, DecodesByContentAndRefusesDamagedFiles)
{
    QTemporaryDir dir;
    const QImage wide = gradient(3000, 1000);
    const auto png = PreviewLoader::thumbnail(written(dir, "wide.png", wide), 1024);
    ASSERT_TRUE(png);
    EXPECT_EQ(png->source, "Qt image reader");
    EXPECT_EQ(png->image.size(), QSize(1024, 341));
    EXPECT_EQ(QSize(png->sourceWidth, png->sourceHeight), QSize(3000, 1000));
    // A JPEG under a RAW name is read as the JPEG it is, and a small one is never enlarged.
    const QString misnamed = written(dir, "frame.jpg", wide);
    QFile::rename(misnamed, dir.filePath("frame.nef"));
    const auto jpeg = PreviewLoader::thumbnail(dir.filePath("frame.nef"), 4000);
    ASSERT_TRUE(jpeg);
    EXPECT_EQ(jpeg->source, "TurboJPEG");
    EXPECT_EQ(jpeg->image.size(), QSize(3000, 1000));

    const QByteArray whole = TestFiles::read(dir.filePath("frame.nef"));
    TestFiles::write(dir.filePath("cut.jpg"), whole.left(100));
    TestFiles::write(dir.filePath("text.jpg"), "not a picture at all");
    TestFiles::write(dir.filePath("empty.png"), {});
    const QByteArray heifBrand("\0\0\0\x18" "ftypheic\0\0\0\0mif1heic", 24);
    TestFiles::write(dir.filePath("fake.heic"), heifBrand + QByteArray(64, 'x'));
    for (const char *name : {"cut.jpg", "text.jpg", "empty.png", "fake.heic", "missing.jpg"}) {
        EXPECT_FALSE(PreviewLoader::thumbnail(dir.filePath(name), 256)) << name;
        PreviewLoader loader;
        EXPECT_FALSE(loader.preview(fileShot(dir.filePath(name)), 256)) << name;
        EXPECT_FALSE(loader.cached(fileShot(dir.filePath(name)), 256)) << name;
    }
}

TEST(PreviewLoader, DecoderIsChosenByContentThenExtension)
{
    const auto kind = [](const QByteArray &head, const QString &path) {
        const auto *bytes = reinterpret_cast<const std::uint8_t *>(head.data());
        return PictureDecoder::kindOf({bytes, std::size_t(head.size())}, path);
    };
    using Kind = PictureDecoder::Kind;
    EXPECT_EQ(kind("\xFF\xD8\xFF\xE1", "a.nef"), Kind::jpeg);
    EXPECT_EQ(kind(QByteArray("\0\0\0\x18" "ftypmif1\0\0\0\0mif1heic", 24), "a.jpg"), Kind::heif);
    EXPECT_EQ(kind(QByteArray("\0\0\0\x20" "ftypxxxx\0\0\0\0isomavifmif1", 28), "a.avif"), Kind::heif);
    // CR3 is an ISO media file too, but no HEIF.
    EXPECT_EQ(kind(QByteArray("\0\0\0\x18" "ftypcrx \0\0\0\x01" "crx isom", 24), "a.CR3"), Kind::raw);
    EXPECT_EQ(kind("\x89PNG\r\n\x1a\n", "a.png"), Kind::other);
}

TEST(PreviewLoader, UprightTurnsEveryOrientation)
{
    // Stored 3×2 with a marked top-left and top-right pixel; where each lands on screen
    // follows the EXIF definitions.
    QImage stored(3, 2, QImage::Format_RGB32);
    stored.fill(Qt::white);
    stored.setPixel(0, 0, qRgb(255, 0, 0));
    stored.setPixel(2, 0, qRgb(0, 0, 255));
    struct Case {
        int orientation;
        QPoint red, blue; // corners as (column, row) of the upright picture, 1 = last
    };
    const Case cases[] = {{1, {0, 0}, {1, 0}}, {2, {1, 0}, {0, 0}}, {3, {1, 1}, {0, 1}}, {4, {0, 1}, {1, 1}},
                          {5, {0, 0}, {0, 1}}, {6, {1, 0}, {1, 1}}, {7, {1, 1}, {1, 0}}, {8, {0, 1}, {0, 0}},
                          {0, {0, 0}, {1, 0}}, {9, {0, 0}, {1, 0}}};
    for (const Case &c : cases) {
        SCOPED_TRACE(c.orientation);
        const QImage upright = PreviewLoader::upright(stored, c.orientation);
        const bool sideways = c.orientation >= 5 && c.orientation <= 8;
        ASSERT_EQ(upright.size(), sideways ? QSize(2, 3) : QSize(3, 2));
        const auto corner = [&](QPoint p) {
            return upright.pixel(p.x() * (upright.width() - 1), p.y() * (upright.height() - 1));
        };
        EXPECT_EQ(corner(c.red), qRgb(255, 0, 0));
        EXPECT_EQ(corner(c.blue), qRgb(0, 0, 255));
    }
}
