#include "SorviKit/demo/DemoRaw.h"
#include "SorviKit/previews/JpegEncoder.h"

#include <QList>
#include <QSize>

#include <algorithm>
#include <array>
#include <cmath>
#include <initializer_list>

namespace DemoRaw {
namespace {

constexpr int previewQuality = 85;

namespace Tag {
constexpr quint16 newSubfileType = 0x00fe, imageWidth = 0x0100, imageLength = 0x0101;
constexpr quint16 bitsPerSample = 0x0102, compression = 0x0103, photometric = 0x0106;
constexpr quint16 make = 0x010f, model = 0x0110, stripOffsets = 0x0111, orientation = 0x0112;
constexpr quint16 samplesPerPixel = 0x0115, rowsPerStrip = 0x0116, stripByteCounts = 0x0117;
constexpr quint16 xResolution = 0x011a, yResolution = 0x011b, planarConfiguration = 0x011c;
constexpr quint16 resolutionUnit = 0x0128, software = 0x0131, dateTime = 0x0132, subIfds = 0x014a;
constexpr quint16 yCbCrSubSampling = 0x0212, cfaRepeatPatternDim = 0x828d, cfaPattern = 0x828e;
constexpr quint16 exposureTime = 0x829a, fNumber = 0x829d, exifIfd = 0x8769, iso = 0x8827;
constexpr quint16 exifVersion = 0x9000, dateTimeOriginal = 0x9003, dateTimeDigitized = 0x9004;
constexpr quint16 offsetTime = 0x9010, offsetTimeOriginal = 0x9011, offsetTimeDigitized = 0x9012;
constexpr quint16 focalLength = 0x920a, subSecTime = 0x9290, subSecTimeOriginal = 0x9291;
constexpr quint16 subSecTimeDigitized = 0x9292, pixelXDimension = 0xa002, pixelYDimension = 0xa003;
constexpr quint16 lensModel = 0xa434, dngVersion = 0xc612, dngBackwardVersion = 0xc613;
constexpr quint16 uniqueCameraModel = 0xc614, cfaPlaneColor = 0xc616, cfaLayout = 0xc617;
constexpr quint16 blackLevel = 0xc61a, whiteLevel = 0xc61d, colorMatrix1 = 0xc621;
constexpr quint16 asShotNeutral = 0xc628, calibrationIlluminant1 = 0xc65a, previewColorSpace = 0xc71a;
} // namespace Tag

enum Type : quint16 { byteType = 1, asciiType = 2, shortType = 3, longType = 4, rationalType = 5,
                      undefinedType = 7, sRationalType = 10 };

// One directory entry with its value already in file byte order.
struct Entry {
    quint16 tag;
    quint16 type;
    quint32 count;
    QByteArray value;
};
using Directory = QList<Entry>;

void put16(QByteArray &out, quint32 value)
{
    out.append(char(value & 0xff)).append(char(value >> 8 & 0xff));
}

void put32(QByteArray &out, quint32 value)
{
    put16(out, value & 0xffff);
    put16(out, value >> 16);
}

Entry shorts(quint16 tag, std::initializer_list<quint32> values)
{
    Entry entry{tag, shortType, quint32(values.size()), {}};
    for (const quint32 value : values)
        put16(entry.value, value);
    return entry;
}

Entry longs(quint16 tag, const QList<quint32> &values)
{
    Entry entry{tag, longType, quint32(values.size()), {}};
    for (const quint32 value : values)
        put32(entry.value, value);
    return entry;
}

Entry bytes(quint16 tag, std::initializer_list<quint8> values)
{
    Entry entry{tag, byteType, quint32(values.size()), {}};
    for (const quint8 value : values)
        entry.value.append(char(value));
    return entry;
}

Entry text(quint16 tag, const std::string &value)
{
    QByteArray terminated(value.data(), qsizetype(value.size()));
    terminated.append('\0');
    return {tag, asciiType, quint32(terminated.size()), terminated};
}

// Rationals given as numerator and denominator; signed ones keep their two's complement.
Entry rationals(quint16 tag, std::initializer_list<std::pair<qint64, qint64>> values, quint16 type = rationalType)
{
    Entry entry{tag, type, quint32(values.size()), {}};
    for (const auto &[numerator, denominator] : values) {
        put32(entry.value, quint32(numerator));
        put32(entry.value, quint32(denominator));
    }
    return entry;
}

qsizetype even(qsizetype size)
{
    return size + (size & 1);
}

// Count, entries, next-directory link, then the values too large for an entry.
qsizetype directorySize(const Directory &directory)
{
    qsizetype size = 2 + 12 * directory.size() + 4;
    for (const Entry &entry : directory)
        size += entry.value.size() > 4 ? even(entry.value.size()) : 0;
    return size;
}

void setLongs(Directory &directory, quint16 tag, const QList<quint32> &values)
{
    for (Entry &entry : directory)
        if (entry.tag == tag)
            entry = longs(tag, values);
}

// The directory as stored at file offset `at` (even), its large values right after it.
QByteArray serialize(Directory directory, quint32 at)
{
    std::sort(directory.begin(), directory.end(), [](const Entry &a, const Entry &b) { return a.tag < b.tag; });
    QByteArray head, values;
    put16(head, quint32(directory.size()));
    quint32 valueAt = at + quint32(2 + 12 * directory.size() + 4);
    for (const Entry &entry : std::as_const(directory)) {
        put16(head, entry.tag);
        put16(head, entry.type);
        put32(head, entry.count);
        if (entry.value.size() <= 4) {
            head.append(entry.value).append(4 - entry.value.size(), '\0');
            continue;
        }
        put32(head, valueAt + quint32(values.size()));
        values.append(entry.value).append(entry.value.size() & 1, '\0');
    }
    put32(head, 0); // SubIFDs and the Exif IFD are reached through tags, never chained
    return head + values;
}

// The JPEG tags of a picture stored as one strip; offset and length are set at layout.
Directory jpegStrip(quint32 subfileType, QSize size)
{
    return {longs(Tag::newSubfileType, {subfileType}),
            longs(Tag::imageWidth, {quint32(size.width())}),
            longs(Tag::imageLength, {quint32(size.height())}),
            shorts(Tag::bitsPerSample, {8, 8, 8}),
            shorts(Tag::compression, {7}),
            shorts(Tag::photometric, {6}), // YCbCr
            longs(Tag::stripOffsets, {0}),
            shorts(Tag::samplesPerPixel, {3}),
            longs(Tag::rowsPerStrip, {quint32(size.height())}),
            longs(Tag::stripByteCounts, {0}),
            shorts(Tag::planarConfiguration, {1}),
            shorts(Tag::yCbCrSubSampling, {2, 2})}; // what DemoExif's 4:2:0 encoder makes
}

Directory previewDirectory(QSize size)
{
    Directory directory = jpegStrip(1, size);
    directory << longs(Tag::previewColorSpace, {2}); // sRGB
    return directory;
}

// IFD0: the thumbnail, the camera, and what a RAW converter needs to render the mosaic.
// The colour matrix is XYZ to linear sRGB, because the mosaic samples linear sRGB.
Directory mainDirectory(const DemoShoot::DemoFrame &frame, QSize thumbnailSize)
{
    Directory directory = jpegStrip(1, thumbnailSize);
    directory << text(Tag::make, frame.make.toStdString())
              << text(Tag::model, frame.model.toStdString())
              << shorts(Tag::orientation, {quint32(frame.orientation)})
              << rationals(Tag::xResolution, {{300, 1}}) << rationals(Tag::yResolution, {{300, 1}})
              << shorts(Tag::resolutionUnit, {2})
              << text(Tag::software, DemoExif::software)
              << text(Tag::dateTime, DemoExif::captureText(frame).dateTime)
              << longs(Tag::subIfds, {0, 0, 0}) << longs(Tag::exifIfd, {0})
              << bytes(Tag::dngVersion, {1, 4, 0, 0}) << bytes(Tag::dngBackwardVersion, {1, 1, 0, 0})
              << text(Tag::uniqueCameraModel, frame.model.toStdString())
              << rationals(Tag::colorMatrix1,
                           {{32406, 10000}, {-15372, 10000}, {-4986, 10000}, {-9689, 10000}, {18758, 10000},
                            {415, 10000}, {557, 10000}, {-2040, 10000}, {10570, 10000}},
                           sRationalType)
              << rationals(Tag::asShotNeutral, {{1, 1}, {1, 1}, {1, 1}})
              << shorts(Tag::calibrationIlluminant1, {21}); // D65
    return directory;
}

Directory sensorDirectory(QSize size)
{
    return {longs(Tag::newSubfileType, {0}),
            longs(Tag::imageWidth, {quint32(size.width())}),
            longs(Tag::imageLength, {quint32(size.height())}),
            shorts(Tag::bitsPerSample, {16}),
            shorts(Tag::compression, {1}),
            shorts(Tag::photometric, {32803}), // colour filter array
            longs(Tag::stripOffsets, {0}),
            shorts(Tag::samplesPerPixel, {1}),
            longs(Tag::rowsPerStrip, {quint32(size.height())}),
            longs(Tag::stripByteCounts, {0}),
            shorts(Tag::planarConfiguration, {1}),
            shorts(Tag::cfaRepeatPatternDim, {2, 2}),
            bytes(Tag::cfaPattern, {0, 1, 1, 2}), // red, green / green, blue
            bytes(Tag::cfaPlaneColor, {0, 1, 2}),
            shorts(Tag::cfaLayout, {1}),
            longs(Tag::blackLevel, {sensorBlack}),
            longs(Tag::whiteLevel, {sensorWhite})};
}

Directory exifDirectory(const DemoShoot::DemoFrame &frame)
{
    const DemoExif::CaptureText capture = DemoExif::captureText(frame);
    return {rationals(Tag::exposureTime, {{1, frame.exposureDenominator}}),
            rationals(Tag::fNumber, {{qRound(frame.fNumber * 10), 10}}),
            shorts(Tag::iso, {quint32(frame.iso)}),
            {Tag::exifVersion, undefinedType, 4, QByteArray("0232")},
            text(Tag::dateTimeOriginal, capture.dateTime), text(Tag::dateTimeDigitized, capture.dateTime),
            text(Tag::offsetTime, capture.offset), text(Tag::offsetTimeOriginal, capture.offset),
            text(Tag::offsetTimeDigitized, capture.offset),
            rationals(Tag::focalLength, {{frame.focalLengthMm, 1}}),
            text(Tag::subSecTime, capture.subSeconds), text(Tag::subSecTimeOriginal, capture.subSeconds),
            text(Tag::subSecTimeDigitized, capture.subSeconds),
            longs(Tag::pixelXDimension, {quint32(frame.width)}),
            longs(Tag::pixelYDimension, {quint32(frame.height)}),
            text(Tag::lensModel, frame.lens.toStdString())};
}

struct Mosaic {
    QSize size;
    QByteArray samples; ///< 16-bit little-endian, row by row
};

// What a sensor behind an RGGB filter would have recorded: linear light, one colour per
// photosite, in whole 2×2 filter cells.
Mosaic mosaic(const QImage &image)
{
    const int width = image.width() / sensorReduction / 2 * 2;
    const int height = image.height() / sensorReduction / 2 * 2;
    const QImage small = image.scaled(width, height, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    std::array<quint16, 256> linear{};
    for (int v = 0; v < 256; ++v) {
        const double encoded = v / 255.0;
        const double light = encoded <= 0.04045 ? encoded / 12.92 : std::pow((encoded + 0.055) / 1.055, 2.4);
        linear[v] = quint16(sensorBlack + std::lround(light * (sensorWhite - sensorBlack)));
    }
    Mosaic result{QSize(width, height), {}};
    result.samples.reserve(qsizetype(width) * height * 2);
    for (int y = 0; y < height; ++y) {
        const QRgb *line = reinterpret_cast<const QRgb *>(small.constScanLine(y));
        for (int x = 0; x < width; ++x) {
            const int channel = (y & 1) + (x & 1); // 0 red, 1 green, 2 blue
            const int value = channel == 0 ? qRed(line[x]) : channel == 1 ? qGreen(line[x]) : qBlue(line[x]);
            put16(result.samples, linear[value]);
        }
    }
    return result;
}

// The header, the directories, then the image data of directory i as block i. Offsets
// are known before anything is written: every directory's size is fixed by its entries.
QByteArray assemble(QList<Directory> directories, const QList<QByteArray> &data)
{
    QList<quint32> at;
    qsizetype end = 8; // after the header
    for (const Directory &directory : std::as_const(directories)) {
        at << quint32(end);
        end += even(directorySize(directory));
    }
    for (const QByteArray &block : data) {
        at << quint32(end);
        end += even(block.size());
    }
    setLongs(directories[0], Tag::subIfds, {at[1], at[2], at[3]});
    setLongs(directories[0], Tag::exifIfd, {at[4]});
    for (int i = 0; i < data.size(); ++i) {
        setLongs(directories[i], Tag::stripOffsets, {at[directories.size() + i]});
        setLongs(directories[i], Tag::stripByteCounts, {quint32(data[i].size())});
    }

    QByteArray file("II*\0", 4);
    put32(file, at[0]);
    file.reserve(end);
    for (int i = 0; i < directories.size(); ++i)
        file.append(serialize(directories[i], at[i]));
    for (const QByteArray &block : data)
        file.append(block).append(block.size() & 1, '\0');
    return file;
}

} // namespace

std::optional<QByteArray> dngFile(const QImage &image, const DemoExif::Encoded &encoded,
                                  const DemoShoot::DemoFrame &frame, QString *error)
{
    const QImage middle = image.scaled(previewLongSide, previewLongSide, Qt::KeepAspectRatio, Qt::SmoothTransformation);
    const std::optional<QByteArray> preview = JpegEncoder::encode(middle, previewQuality, error);
    if (!preview)
        return std::nullopt;
    const Mosaic sensor = mosaic(image);
    // Small pictures come before large ones, as in camera files; the Exif IFD, last among
    // the directories, has no image data.
    return assemble({mainDirectory(frame, encoded.thumbnailSize), sensorDirectory(sensor.size),
                     previewDirectory(middle.size()), previewDirectory(image.size()), exifDirectory(frame)},
                    {encoded.thumbnail, sensor.samples, *preview, encoded.picture});
}

} // namespace DemoRaw
