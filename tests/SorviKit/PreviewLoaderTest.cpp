#include "SorviKit/previews/PictureDecoder.h"
#include "SorviKit/previews/PreviewLoader.h"
#include "SorviKit/library/Shot.h"
#include "SorviKit/library/ShotScanner.h"
#include "TestFiles.h"

#include <QImageWriter>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QtConcurrent>
#include <gtest/gtest.h>

namespace {

int longSide(QSize size)
{
    return std::max(size.width(), size.height());
}

int orientationOf(const QJsonObject &truth)
{
    return truth["orientation"].isDouble() ? truth["orientation"].toInt() : 1;
}

QSize upright(QSize size, int orientation)
{
    return orientation >= 5 && orientation <= 8 ? size.transposed() : size;
}

// Upright, the preview is the source turned upright and shrunk to `maxPixels`, never
// enlarged, its short side rounded to the nearest pixel.
void expectFits(const ShotPreview &preview, QSize uprightSource, int maxPixels)
{
    const QSize shown = PreviewLoader::upright(preview.image, preview.orientation).size();
    const double scale = double(std::min(maxPixels, longSide(uprightSource))) / longSide(uprightSource);
    EXPECT_EQ(longSide(shown), std::min(maxPixels, longSide(uprightSource)));
    EXPECT_NEAR(shown.width(), uprightSource.width() * scale, 0.5) << preview.source.toStdString();
    EXPECT_NEAR(shown.height(), uprightSource.height() * scale, 0.5) << preview.source.toStdString();
}

// A rendered file shows itself; libheif's own turns are the picture, the EXIF orientation
// is not applied on top.
void checkRendered(const std::optional<ShotPreview> &preview, const QJsonObject &truth, int maxPixels)
{
    ASSERT_TRUE(preview);
    EXPECT_EQ(preview->orientation, 1);
    const QJsonArray heif = truth["heif_decoded_size"].toArray();
    const QSize stored = heif.isEmpty() ? QSize(truth["image_width"].toInt(), truth["image_height"].toInt())
                                        : QSize(heif[0].toInt(), heif[1].toInt());
    EXPECT_EQ(QSize(preview->sourceWidth, preview->sourceHeight), stored);
    expectFits(*preview, heif.isEmpty() ? upright(stored, orientationOf(truth)) : stored, maxPixels);
}

// A RAW alone shows the smallest complete stored picture whose long side reaches
// `maxPixels`, else the largest; a "RAW" that is really a JPEG is one of its own.
void checkRawOnly(const std::optional<ShotPreview> &preview, const QJsonObject &truth, int maxPixels)
{
    QList<QJsonObject> stored;
    for (const QJsonValue &image : truth["embedded_images"].toArray())
        if (image["has_eoi"].toBool())
            stored << image.toObject();
    if (truth["file_type"] == "JPEG")
        stored << QJsonObject{{"width", truth["image_width"]}, {"height", truth["image_height"]}, {"offset", 0}};
    const auto size = [](const QJsonObject &image) { return QSize(image["width"].toInt(), image["height"].toInt()); };
    const auto area = [&](const QJsonObject &image) { return qint64(size(image).width()) * size(image).height(); };
    std::optional<QJsonObject> smallestLongEnough, largest;
    for (const QJsonObject &image : stored) {
        if (longSide(size(image)) >= maxPixels && (!smallestLongEnough || area(image) < area(*smallestLongEnough)))
            smallestLongEnough = image;
        if (!largest || area(image) > area(*largest))
            largest = image;
    }
    const std::optional<QJsonObject> expected = smallestLongEnough ? smallestLongEnough : largest;
    if (!expected) {
        EXPECT_TRUE(!preview || !preview->source.startsWith("stored JPEG")) << preview->source.toStdString();
        return;
    }
    ASSERT_TRUE(preview);
    EXPECT_EQ(preview->source, QString("stored JPEG %1×%2 at byte %3")
                                   .arg(size(*expected).width())
                                   .arg(size(*expected).height())
                                   .arg((*expected)["offset"].toInteger()));
    EXPECT_EQ(QSize(preview->sourceWidth, preview->sourceHeight), size(*expected));
    EXPECT_EQ(preview->orientation, orientationOf(truth));
    expectFits(*preview, upright(size(*expected), orientationOf(truth)), maxPixels);
}

Shot fileShot(const QString &path, int orientation = 1)
{
    Shot shot(QFileInfo(path).completeBaseName(), {path});
    shot.orientation = orientation;
    return shot;
}

// A picture whose colour changes across it, so that a scaled or turned copy can be told apart.
QString gradient(const QTemporaryDir &dir, const QString &name, int width, int height)
{
    QImage image(width, height, QImage::Format_RGB32);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            image.setPixel(x, y, qRgb(x * 255 / width, y * 255 / height, 128));
    QImageWriter(dir.filePath(name)).write(image);
    return dir.filePath(name);
}

// The mean colour of a picture, whatever its size.
QRgb meanColour(const QImage &image)
{
    return image.scaled(1, 1, Qt::IgnoreAspectRatio, Qt::SmoothTransformation).pixel(0, 0);
}

} // namespace

TEST(PreviewLoaderCorpus, EveryShotFitsItsChosenSource)
{
    SKIP_WITHOUT_CORPUS();
    for (const char *name : {"raw", "pairs", "shoot", "jpeg", "heic"}) {
        const QString folder = TestFiles::corpus() + '/' + name;
        QHash<QString, QJsonObject> truth;
        for (const QJsonValue &file : QJsonDocument::fromJson(TestFiles::read(folder + "/truth.json"))["files"].toArray())
            truth.insert(QFileInfo(folder + '/' + file["file"].toString()).canonicalFilePath(), file.toObject());
        PreviewLoader loader;
        const QList<Shot> shots = ShotScanner::list(folder);
        ASSERT_FALSE(shots.isEmpty()) << name;
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
}

TEST(PreviewLoaderCorpus, SensorDataStandsInOnlyWithoutAStoredPictureAndFullResolutionIsUpright)
{
    SKIP_WITHOUT_CORPUS();
    const QString corpus = TestFiles::corpus();
    const auto kodak = PreviewLoader().preview(fileShot(corpus + "/raw/kodak_dc50_no_jpeg.kdc"), 256);
    ASSERT_TRUE(kodak);
    EXPECT_EQ(kodak->source, "LibRaw");
    EXPECT_EQ(longSide(kodak->image.size()), 256);
    const auto kodakFull = PreviewLoader::fullResolution(fileShot(corpus + "/raw/kodak_dc50_no_jpeg.kdc"));
    ASSERT_TRUE(kodakFull);
    EXPECT_EQ(kodakFull->source, "LibRaw");
    EXPECT_EQ(kodakFull->image.size(), QSize(kodakFull->sourceWidth, kodakFull->sourceHeight));
    EXPECT_GE(longSide(kodakFull->image.size()), 700);

    // The sensor data of the CR2 is a stub, so its largest stored picture stands in; every
    // full-resolution picture is turned by the shot's orientation.
    const std::pair<QString, QSize> sideways[] = {{"/jpeg/nikon_d40_orient6.jpg", {2000, 3008}},
                                                  {"/heic/apple_iphonexr_orient6_gps.heic", {3024, 4032}},
                                                  {"/raw/canon_eos350d.cr2", {2304, 3456}}};
    for (const auto &[file, size] : sideways) {
        const auto full = PreviewLoader::fullResolution(fileShot(corpus + file, 6));
        ASSERT_TRUE(full) << file.toStdString();
        EXPECT_EQ(full->image.size(), size) << file.toStdString();
        EXPECT_EQ(full->orientation, 1) << file.toStdString();
    }
}

TEST(PreviewLoaderCorpus, HeifColoursMatchTheSamePhotoStoredAsJpegAndAreOpaque)
{
    SKIP_WITHOUT_CORPUS();
    // The late DNG's previews were made from the iPhone 7 photo (cropped to 3:2), so libheif
    // and TurboJPEG must agree on its colours; swapped channels would differ by 14 levels.
    const auto heif = PreviewLoader::thumbnail(TestFiles::corpus() + "/heic/apple_iphone7_gps.heic", 256);
    const auto late =
        PreviewLoader().preview(fileShot(TestFiles::corpus() + "/raw/canon_eos350d_previews_after_12MiB.dng"), 256);
    ASSERT_TRUE(heif && late);
    const QRgb heifMean = meanColour(heif->image), lateMean = meanColour(late->image);
    EXPECT_NEAR(qRed(heifMean), qRed(lateMean), 4);
    EXPECT_NEAR(qGreen(heifMean), qGreen(lateMean), 4);
    EXPECT_NEAR(qBlue(heifMean), qBlue(lateMean), 4);
    // RGB32 promises an opaque fourth byte; a stray value would show as transparency.
    for (int y = 0; y < heif->image.height(); y += 7)
        for (int x = 0; x < heif->image.width(); x += 5)
            ASSERT_EQ(heif->image.constScanLine(y)[x * 4 + 3], 0xFF);
}

TEST(PreviewLoader, CachesEachSizeOnceAndEvictsByDecodedBytes)
{
    QTemporaryDir dir;
    const Shot a = fileShot(gradient(dir, "a.jpg", 800, 600)), b = fileShot(gradient(dir, "b.jpg", 800, 600));

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
    const auto png = PreviewLoader::thumbnail(gradient(dir, "wide.png", 3000, 1000), 1024);
    ASSERT_TRUE(png);
    EXPECT_EQ(png->source, "Qt image reader");
    EXPECT_EQ(png->image.size(), QSize(1024, 341));
    EXPECT_EQ(QSize(png->sourceWidth, png->sourceHeight), QSize(3000, 1000));
    // A JPEG under a RAW name is read as the JPEG it is, and a small one is never enlarged.
    QFile::rename(gradient(dir, "frame.jpg", 3000, 1000), dir.filePath("frame.nef"));
    const auto jpeg = PreviewLoader::thumbnail(dir.filePath("frame.nef"), 4000);
    ASSERT_TRUE(jpeg);
    EXPECT_EQ(jpeg->source, "TurboJPEG");
    EXPECT_EQ(jpeg->image.size(), QSize(3000, 1000));
    // Every pixel in its place and channel, and opaque: red grows to the right, green downwards.
    for (const QPoint p : {QPoint(0, 0), QPoint(2999, 0), QPoint(1500, 999), QPoint(700, 300)}) {
        const QRgb colour = jpeg->image.pixel(p);
        EXPECT_NEAR(qRed(colour), p.x() * 255 / 3000, 8) << p.x() << "," << p.y();
        EXPECT_NEAR(qGreen(colour), p.y() * 255 / 1000, 8) << p.x() << "," << p.y();
        EXPECT_NEAR(qBlue(colour), 128, 8) << p.x() << "," << p.y();
        EXPECT_EQ(jpeg->image.constScanLine(p.y())[p.x() * 4 + 3], 0xFF);
    }

    TestFiles::write(dir.filePath("cut.jpg"), TestFiles::read(dir.filePath("frame.nef")).left(100));
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

    // The decoder is chosen by content, then by extension; CR3 is an ISO media file too,
    // but no HEIF.
    using Kind = PictureDecoder::Kind;
    const std::tuple<QByteArray, QString, Kind> kinds[] = {
        {"\xFF\xD8\xFF\xE1", "a.nef", Kind::jpeg},
        {QByteArray("\0\0\0\x18" "ftypmif1\0\0\0\0mif1heic", 24), "a.jpg", Kind::heif},
        {QByteArray("\0\0\0\x20" "ftypxxxx\0\0\0\0isomavifmif1", 28), "a.avif", Kind::heif},
        {QByteArray("\0\0\0\x18" "ftypcrx \0\0\0\x01" "crx isom", 24), "a.CR3", Kind::raw},
        {"\x89PNG\r\n\x1a\n", "a.png", Kind::other}};
    for (const auto &[head, path, kind] : kinds) {
        const std::span<const std::uint8_t> bytes(reinterpret_cast<const std::uint8_t *>(head.data()), head.size());
        EXPECT_EQ(PictureDecoder::kindOf(bytes, path), kind) << path.toStdString();
    }
}

TEST(PreviewLoader, UprightTurnsEveryOrientation)
{
    // Stored 3×2 with a marked top-left and top-right pixel; where each lands follows EXIF.
    QImage stored(3, 2, QImage::Format_RGB32);
    stored.fill(Qt::white);
    stored.setPixel(0, 0, qRgb(255, 0, 0));
    stored.setPixel(2, 0, qRgb(0, 0, 255));
    // {orientation, red corner, blue corner}, corners as (column, row) of the upright picture, 1 = last
    const std::tuple<int, QPoint, QPoint> cases[] = {
        {1, {0, 0}, {1, 0}}, {2, {1, 0}, {0, 0}}, {3, {1, 1}, {0, 1}}, {4, {0, 1}, {1, 1}}, {5, {0, 0}, {0, 1}},
        {6, {1, 0}, {1, 1}}, {7, {1, 1}, {1, 0}}, {8, {0, 1}, {0, 0}}, {0, {0, 0}, {1, 0}}, {9, {0, 0}, {1, 0}}};
    for (const auto &[orientation, red, blue] : cases) {
        const QImage turned = PreviewLoader::upright(stored, orientation);
        ASSERT_EQ(turned.size(), upright(QSize(3, 2), orientation)) << orientation;
        const auto corner = [&](QPoint p) { return turned.pixel(p.x() * (turned.width() - 1), p.y() * (turned.height() - 1)); };
        EXPECT_EQ(corner(red), qRgb(255, 0, 0)) << orientation;
        EXPECT_EQ(corner(blue), qRgb(0, 0, 255)) << orientation;
    }
}
