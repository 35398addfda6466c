#include "SorviKit/demo/DemoExif.h"
#include "SorviKit/previews/JpegEncoder.h"

#include <QMutex>

#include <exiv2/exiv2.hpp>

namespace DemoExif {
namespace {

constexpr int quality = 88;
constexpr int thumbnailQuality = 80;
constexpr int thumbnailLongSide = 160;

int offsetSeconds(const QString &offsetText)
{
    const int sign = offsetText.startsWith('-') ? -1 : 1;
    const QStringList parts = offsetText.mid(1).split(':');
    return parts.size() == 2 ? sign * (parts[0].toInt() * 3600 + parts[1].toInt() * 60) : 0;
}

void setCaptureTime(Exiv2::ExifData &exif, const DemoShoot::DemoFrame &frame)
{
    const CaptureText capture = captureText(frame);
    exif["Exif.Image.DateTime"] = capture.dateTime;
    exif["Exif.Photo.DateTimeOriginal"] = capture.dateTime;
    exif["Exif.Photo.DateTimeDigitized"] = capture.dateTime;
    exif["Exif.Photo.SubSecTime"] = capture.subSeconds;
    exif["Exif.Photo.SubSecTimeOriginal"] = capture.subSeconds;
    exif["Exif.Photo.SubSecTimeDigitized"] = capture.subSeconds;
    exif["Exif.Photo.OffsetTime"] = capture.offset;
    exif["Exif.Photo.OffsetTimeOriginal"] = capture.offset;
    exif["Exif.Photo.OffsetTimeDigitized"] = capture.offset;
}

Exiv2::ExifData exifFor(const DemoShoot::DemoFrame &frame)
{
    Exiv2::ExifData exif;
    exif["Exif.Image.Make"] = frame.make.toStdString();
    exif["Exif.Image.Model"] = frame.model.toStdString();
    exif["Exif.Image.Orientation"] = uint16_t(frame.orientation);
    exif["Exif.Image.XResolution"] = Exiv2::URational(300, 1);
    exif["Exif.Image.YResolution"] = Exiv2::URational(300, 1);
    exif["Exif.Image.ResolutionUnit"] = uint16_t(2);
    exif["Exif.Image.Software"] = std::string(software);
    exif["Exif.Photo.ExifVersion"] = std::string("48 50 51 50"); // "0232"
    exif["Exif.Photo.ExposureTime"] = Exiv2::URational(1, uint32_t(frame.exposureDenominator));
    exif["Exif.Photo.FNumber"] = Exiv2::URational(uint32_t(qRound(frame.fNumber * 10)), 10);
    exif["Exif.Photo.ISOSpeedRatings"] = uint16_t(frame.iso);
    exif["Exif.Photo.FocalLength"] = Exiv2::URational(uint32_t(frame.focalLengthMm), 1);
    exif["Exif.Photo.LensModel"] = frame.lens.toStdString();
    exif["Exif.Photo.ColorSpace"] = uint16_t(1);
    exif["Exif.Photo.PixelXDimension"] = uint32_t(frame.width);
    exif["Exif.Photo.PixelYDimension"] = uint32_t(frame.height);
    setCaptureTime(exif, frame);
    return exif;
}

// Exiv2 0.27 documents no guarantee for concurrent writers and this part takes about a
// millisecond, so frames pass through it one at a time.
QMutex exiv2Lock;

std::optional<QByteArray> withExif(const QByteArray &jpeg, const QByteArray &thumbnail,
                                   const DemoShoot::DemoFrame &frame, QString *error)
{
    const QMutexLocker locker(&exiv2Lock);
    try {
        Exiv2::ExifData exif = exifFor(frame);
        Exiv2::ExifThumb(exif).setJpegThumbnail(reinterpret_cast<const Exiv2::byte *>(thumbnail.constData()),
                                                long(thumbnail.size()), Exiv2::URational(72, 1),
                                                Exiv2::URational(72, 1), 2);
        const auto image = Exiv2::ImageFactory::open(reinterpret_cast<const Exiv2::byte *>(jpeg.constData()),
                                                     long(jpeg.size()));
        image->setExifData(exif);
        image->writeMetadata();
        Exiv2::BasicIo &io = image->io();
        io.seek(0, Exiv2::BasicIo::beg);
        const Exiv2::DataBuf bytes = io.read(long(io.size()));
        return QByteArray(reinterpret_cast<const char *>(bytes.pData_), bytes.size_);
    } catch (const Exiv2::AnyError &e) {
        *error = QStringLiteral("the metadata could not be written (%1)").arg(QString::fromStdString(e.what()));
        return std::nullopt;
    }
}

quint32 readUnsigned(const QByteArray &bytes, qsizetype at, int size, bool isBigEndian)
{
    quint32 value = 0;
    for (int i = 0; i < size; ++i) {
        const int shift = 8 * (isBigEndian ? size - 1 - i : i);
        value |= quint32(quint8(bytes[at + i])) << shift;
    }
    return value;
}

// Start and end of the first APP1 segment holding EXIF, or {-1, -1}.
std::pair<qsizetype, qsizetype> exifSegment(const QByteArray &jpeg)
{
    qsizetype at = 2; // after SOI
    while (at + 4 <= jpeg.size() && quint8(jpeg[at]) == 0xFF) {
        const quint8 marker = quint8(jpeg[at + 1]);
        if (marker == 0xDA || marker == 0xD9) // image data follows: no more metadata
            break;
        const qsizetype end = at + 2 + readUnsigned(jpeg, at + 2, 2, true);
        if (marker == 0xE1 && jpeg.mid(at + 4, 6) == QByteArray("Exif\0\0", 6) && end <= jpeg.size())
            return {at + 10, end};
        at = end;
    }
    return {-1, -1};
}

} // namespace

bool damageExif(QByteArray &jpeg)
{
    const auto [tiff, end] = exifSegment(jpeg);
    if (tiff < 0 || end - tiff < 8)
        return false;
    const bool isBigEndian = jpeg.mid(tiff, 2) == "MM";
    const qsizetype ifd0 = tiff + readUnsigned(jpeg, tiff + 4, 4, isBigEndian);
    if (ifd0 + 2 > end)
        return false;
    // 0xFFFF entries of 12 bytes lie far beyond any APP1 segment (at most 64 KiB), so a
    // careful reader rejects the whole directory instead of reading part of it.
    jpeg[ifd0] = char(0xFF);
    jpeg[ifd0 + 1] = char(0xFF);
    return true;
}

std::optional<Encoded> encode(const QImage &image, QString *error)
{
    const std::optional<QByteArray> picture = JpegEncoder::encode(image, quality, error);
    const QImage small = image.scaled(thumbnailLongSide, thumbnailLongSide, Qt::KeepAspectRatio,
                                      Qt::SmoothTransformation);
    const std::optional<QByteArray> thumbnail = picture ? JpegEncoder::encode(small, thumbnailQuality, error) : std::nullopt;
    if (!thumbnail)
        return std::nullopt;
    return Encoded{*picture, *thumbnail, small.size()};
}

CaptureText captureText(const DemoShoot::DemoFrame &frame)
{
    const QDateTime local = frame.captureTime.toOffsetFromUtc(offsetSeconds(frame.offsetText));
    return {local.toString(QStringLiteral("yyyy:MM:dd HH:mm:ss")).toStdString(),
            QStringLiteral("%1").arg(local.time().msec() / 10, 2, 10, QLatin1Char('0')).toStdString(),
            frame.offsetText.toStdString()};
}

std::optional<QByteArray> jpegFile(const Encoded &encoded, const DemoShoot::DemoFrame &frame, QString *error)
{
    std::optional<QByteArray> file = withExif(encoded.picture, encoded.thumbnail, frame, error);
    if (file && frame.damagedMetadata && !damageExif(*file)) {
        *error = QStringLiteral("the metadata block to damage was not found");
        return std::nullopt;
    }
    return file;
}

} // namespace DemoExif
