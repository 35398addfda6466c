#include "SorviKit/previews/PictureDecoder.h"
#include "SorviKit/previews/HeifDecoder.h"
#include "SorviKit/library/ShotScanner.h"

#include "ByteKit/DeviceError.h"
#include "ByteKit/MappedFile.h"
#include "MediaKit/JpegDecoder.h"
#include "MediaKit/RAWPreview.h"
#include "MediaKit/RawDecoder.h"

#include <QBuffer>
#include <QFile>
#include <QFileInfo>
#include <QImageReader>
#include <QTransform>

#include <algorithm>
#include <cmath>
#include <memory>
#include <new>
#include <vector>

namespace PictureDecoder {
namespace {

using Bytes = std::span<const std::uint8_t>;

// Qt refuses pictures above 256 MB of decoded pixels by default; stitched panoramas and
// medium-format TIFFs are larger than that and must still open.
constexpr int readerAllocationLimitMB = 4096;

void freeBuffer(void *buffer)
{
    delete static_cast<std::vector<std::uint8_t> *>(buffer);
}

ShotPreview described(QImage image, const char *decoder, QSize decoded)
{
    return ShotPreview{std::move(image), 1, QString::fromLatin1(decoder), decoded.width(), decoded.height()};
}

QImage quarterTurn(const QImage &image, int degrees)
{
    // Exact quarter turns take Qt's fast pixel-moving path, not its general transform.
    return image.transformed(QTransform().rotate(degrees));
}

std::optional<ShotPreview> jpegThumbnail(Bytes bytes, int maxPixels)
{
    QSize stored;
    const std::optional<QImage> image = decodeJpeg(bytes, maxPixels, &stored);
    if (!image)
        return std::nullopt;
    return described(turned(*image, JpegDecoder::exifOrientation(bytes)), "TurboJPEG", stored);
}

std::optional<ShotPreview> heifThumbnail(Bytes bytes, int maxPixels)
{
    const std::optional<QImage> image = HeifDecoder::decode(bytes);
    if (!image)
        return std::nullopt;
    return described(scaledToFit(*image, maxPixels), "libheif", image->size());
}

std::optional<ShotPreview> rawThumbnail(Bytes bytes, int maxPixels)
{
    std::optional<Bitmap> bitmap = RawDecoder::decode(bytes, maxPixels);
    if (!bitmap || bitmap->empty())
        return std::nullopt;
    const QSize decoded(bitmap->width, bitmap->height);
    return described(scaledToFit(toImage(std::move(*bitmap)), maxPixels), "LibRaw", decoded);
}

std::optional<ShotPreview> readerThumbnail(Bytes bytes, int maxPixels)
{
    [[maybe_unused]] static const bool limitRaised = [] {
        QImageReader::setAllocationLimit(readerAllocationLimitMB);
        return true;
    }();
    // The buffer reads the mapped file in place.
    QByteArray data = QByteArray::fromRawData(reinterpret_cast<const char *>(bytes.data()), qsizetype(bytes.size()));
    QBuffer buffer(&data);
    QImageReader reader(&buffer);
    reader.setAutoTransform(true);
    const QSize stored = reader.size();
    if (stored.isValid() && std::max(stored.width(), stored.height()) > maxPixels)
        reader.setScaledSize(fittedSize(stored, maxPixels));
    const QImage image = reader.read();
    if (image.isNull())
        return std::nullopt;
    const auto format = image.hasAlphaChannel() ? QImage::Format_ARGB32_Premultiplied : QImage::Format_RGB32;
    return described(image.convertToFormat(format), "Qt image reader", stored.isValid() ? stored : image.size());
}

std::optional<ShotPreview> decodeBytes(Bytes bytes, const QString &path, int maxPixels)
{
    switch (kindOf(bytes, path)) {
    case Kind::jpeg:
        return jpegThumbnail(bytes, maxPixels);
    case Kind::heif:
        return heifThumbnail(bytes, maxPixels);
    case Kind::raw:
        return rawThumbnail(bytes, maxPixels);
    case Kind::other:
        break;
    }
    return readerThumbnail(bytes, maxPixels);
}

} // namespace

Kind kindOf(std::span<const std::uint8_t> head, const QString &path)
{
    if (head.size() >= 3 && head[0] == 0xFF && head[1] == 0xD8 && head[2] == 0xFF)
        return Kind::jpeg;
    if (HeifDecoder::isHeif(head))
        return Kind::heif;
    return ShotScanner::isRawFile(path) ? Kind::raw : Kind::other;
}

QSize fittedSize(QSize size, int maxPixels)
{
    const int longSide = std::max(size.width(), size.height());
    if (longSide <= maxPixels || size.isEmpty())
        return size;
    const int target = std::max(1, maxPixels);
    const auto shortSide = [&](int side) {
        return std::max(1, int(std::lround(double(side) * target / longSide)));
    };
    return size.width() >= size.height() ? QSize(target, shortSide(size.height()))
                                         : QSize(shortSide(size.width()), target);
}

QImage scaledToFit(const QImage &image, int maxPixels)
{
    const QSize target = fittedSize(image.size(), maxPixels);
    if (target == image.size())
        return image;
    return image.scaled(target, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
}

QImage toImage(Bitmap &&bitmap)
{
    if (bitmap.empty() || bitmap.stride < std::size_t(bitmap.width) * 4
        || bitmap.pixels.size() < bitmap.stride * std::size_t(bitmap.height))
        return {};
    auto buffer = std::make_unique<std::vector<std::uint8_t>>(std::move(bitmap.pixels));
    QImage image(buffer->data(), bitmap.width, bitmap.height, qsizetype(bitmap.stride), QImage::Format_RGB32,
                 freeBuffer, buffer.get());
    if (!image.isNull())
        buffer.release(); // now freed by the image's clean-up function
    return image;
}

QImage turned(const QImage &image, int orientation)
{
    switch (orientation) {
    case 2:
        return image.mirrored(true, false);
    case 3:
        return image.mirrored(true, true);
    case 4:
        return image.mirrored(false, true);
    case 5:
        return quarterTurn(image, 90).mirrored(true, false);
    case 6:
        return quarterTurn(image, 90);
    case 7:
        return quarterTurn(image, 90).mirrored(false, true);
    case 8:
        return quarterTurn(image, 270);
    default:
        return image;
    }
}

std::optional<QImage> decodeJpeg(std::span<const std::uint8_t> jpeg, int maxPixels, QSize *storedOut)
{
    JpegDecoder::Size stored;
    std::optional<Bitmap> bitmap = JpegDecoder::decode(jpeg, maxPixels, &stored);
    if (!bitmap || bitmap->empty())
        return std::nullopt;
    const QImage image = toImage(std::move(*bitmap));
    if (image.isNull())
        return std::nullopt;
    // The target follows from the stored size: DCT scaling rounds each side up, which
    // would skew the aspect ratio by a pixel.
    const QSize target = fittedSize(QSize(stored.width, stored.height), maxPixels);
    if (storedOut)
        *storedOut = QSize(stored.width, stored.height);
    return image.size() == target ? image : image.scaled(target, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
}

std::optional<ShotPreview> thumbnail(const QString &path, int maxPixels)
{
    if (maxPixels < 1)
        return std::nullopt;
    try {
        const MappedFile file(QFile::encodeName(path).toStdString());
        return decodeBytes(file.bytes(), path, maxPixels);
    } catch (const DeviceError &) {
        // An unreadable file simply has no picture; whoever asked says what it was doing.
        return std::nullopt;
    } catch (const std::bad_alloc &) {
        // A damaged header can claim a picture too large for memory.
        return std::nullopt;
    }
}

} // namespace PictureDecoder
