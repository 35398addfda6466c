#include "SorviKit/demo/DemoShoot.h"
#include "SorviKit/library/DetailReader.h"
#include "SorviKit/library/ShotDetails.h"
#include "SorviKit/library/ShotScanner.h"
#include "TestFiles.h"

#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtEndian>
#include <gtest/gtest.h>

#include <cmath>

using DemoShoot::DemoFrame;

namespace {

// One directory of a little-endian TIFF, read apart from any code of ours: the unsigned
// values of each entry (BYTE, SHORT, LONG) and the raw bytes of every value.
struct Directory {
    QMap<quint16, QList<quint32>> numbers;
    QMap<quint16, QByteArray> values;

    quint32 number(quint16 tag) const { return numbers.value(tag).value(0, 0); }
    QByteArray text(quint16 tag) const { return values.value(tag).split('\0').first(); }
};

Directory directoryAt(const QByteArray &file, quint32 at)
{
    static const int typeSizes[] = {0, 1, 1, 2, 4, 8, 1, 1, 2, 4, 8, 4, 8};
    const auto *bytes = reinterpret_cast<const uchar *>(file.constData());
    Directory directory;
    if (at + 2 > quint32(file.size()))
        return directory;
    const quint16 count = qFromLittleEndian<quint16>(bytes + at);
    for (quint32 entry = at + 2; entry < at + 2 + 12u * count && entry + 12 <= quint32(file.size()); entry += 12) {
        const quint16 tag = qFromLittleEndian<quint16>(bytes + entry);
        const quint16 type = qFromLittleEndian<quint16>(bytes + entry + 2);
        const quint32 n = qFromLittleEndian<quint32>(bytes + entry + 4);
        const quint32 size = n * (type < 13 ? typeSizes[type] : 0);
        const quint32 valueAt = size <= 4 ? entry + 8 : qFromLittleEndian<quint32>(bytes + entry + 8);
        const QByteArray value = file.mid(valueAt, size);
        directory.values.insert(tag, value);
        for (quint32 i = 0; i < n && (type == 1 || type == 3 || type == 4); ++i) {
            const auto *v = reinterpret_cast<const uchar *>(value.constData());
            directory.numbers[tag] << (type == 1 ? v[i] : type == 3 ? qFromLittleEndian<quint16>(v + 2 * i)
                                                                    : qFromLittleEndian<quint32>(v + 4 * i));
        }
    }
    return directory;
}

QByteArray strip(const QByteArray &file, const Directory &directory)
{
    return file.mid(directory.number(0x0111), directory.number(0x0117));
}

// The JPEG of a preview directory, decoded, at the size the directory declares.
QImage preview(const QByteArray &file, const Directory &directory)
{
    QImage image;
    EXPECT_EQ(directory.number(0x0103), 7u) << "JPEG compression";
    EXPECT_TRUE(image.loadFromData(strip(file, directory), "JPEG"));
    EXPECT_EQ(image.size(), QSize(int(directory.number(0x0100)), int(directory.number(0x0101))));
    return image;
}

// Rebuilds a picture from the RGGB mosaic (one pixel per 2×2 cell, back to sRGB) and
// returns its mean difference in 8-bit levels from `picture` scaled to the same size.
double mosaicDifference(const QByteArray &file, const Directory &sensor, const QImage &picture)
{
    const int width = int(sensor.number(0x0100)), height = int(sensor.number(0x0101));
    const double black = sensor.number(0xc61a), white = sensor.number(0xc61d);
    const QByteArray samples = strip(file, sensor);
    const auto at = [&](int x, int y) {
        const quint16 sample = qFromLittleEndian<quint16>(samples.constData() + 2 * (y * width + x));
        const double linear = (sample - black) / (white - black);
        return 255 * (linear <= 0.0031308 ? 12.92 * linear : 1.055 * std::pow(linear, 1 / 2.4) - 0.055);
    };
    const QImage expected = picture.scaled(width / 2, height / 2, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    double sum = 0;
    for (int y = 0; y < height / 2; ++y)
        for (int x = 0; x < width / 2; ++x) {
            const QRgb want = expected.pixel(x, y);
            sum += std::abs(at(2 * x, 2 * y) - qRed(want)) + std::abs(at(2 * x + 1, 2 * y + 1) - qBlue(want))
                   + std::abs((at(2 * x + 1, 2 * y) + at(2 * x, 2 * y + 1)) / 2 - qGreen(want));
        }
    return sum / (3.0 * (width / 2) * (height / 2));
}

QDateTime utcFromExifText(const QString &text)
{
    static const QRegularExpression pattern(
        "^(\\d{4}:\\d\\d:\\d\\d \\d\\d:\\d\\d:\\d\\d)\\.(\\d+)([+-])(\\d\\d):(\\d\\d)$");
    const QRegularExpressionMatch match = pattern.match(text);
    if (!match.hasMatch())
        return {};
    QDateTime moment = QDateTime::fromString(match.captured(1), "yyyy:MM:dd HH:mm:ss");
    const int sign = match.captured(3) == "-" ? -1 : 1;
    moment.setOffsetFromUtc(sign * (match.captured(4).toInt() * 3600 + match.captured(5).toInt() * 60));
    return moment.addMSecs(qRound(("0." + match.captured(2)).toDouble() * 1000)).toUTC();
}

// One small shoot for the suite: it holds every kind of RAW frame the plan promises.
class DemoRawFiles : public testing::Test {
protected:
    static constexpr int count = DemoShoot::minimumCount;
    static inline QTemporaryDir *folder = nullptr;
    static inline QList<DemoFrame> frames;
    static inline DemoShoot::WriteResult result;

    static void SetUpTestSuite()
    {
        folder = new QTemporaryDir;
        frames = DemoShoot::plan(count);
        result = DemoShoot::write(folder->path(), count);
    }
    static void TearDownTestSuite() { delete folder; }

    static QString root() { return QFileInfo(folder->path()).canonicalFilePath(); }
    static QString path(const QString &relativePath) { return root() + '/' + relativePath; }
    static QList<DemoFrame> withRaw()
    {
        QList<DemoFrame> result;
        std::copy_if(frames.begin(), frames.end(), std::back_inserter(result),
                     [](const DemoFrame &f) { return !f.rawRelativePath.isEmpty(); });
        return result;
    }
};

} // namespace

// One whole burst and the first sideways frame come with a RAW, plus count/20 others;
// count/30 frames have only a RAW; the damaged frame never has one.
TEST(DemoRawPlan, RawFilesGoWhereThePlanPromises)
{
    for (const int count : {12, 13, 30, 60, 157}) {
        SCOPED_TRACE(count);
        const QList<DemoFrame> frames = DemoShoot::plan(count);
        QMap<int, int> rawBurstFrames, burstFrames;
        int pairs = 0, rawOnly = 0;
        for (const DemoFrame &f : frames) {
            pairs += f.files == DemoFrame::Files::rawAndJpeg;
            rawOnly += f.files == DemoFrame::Files::raw;
            EXPECT_TRUE(!f.damagedMetadata || f.files == DemoFrame::Files::jpeg);
            if (f.burst > 0) {
                ++burstFrames[f.burst];
                rawBurstFrames[f.burst] += f.files == DemoFrame::Files::rawAndJpeg;
            }
        }
        QList<int> wholeRawBursts;
        for (auto it = burstFrames.cbegin(); it != burstFrames.cend(); ++it)
            if (rawBurstFrames.value(it.key()) == it.value())
                wholeRawBursts << it.key();
        ASSERT_FALSE(wholeRawBursts.isEmpty());
        const auto sideways =
            std::find_if(frames.begin(), frames.end(), [](const DemoFrame &f) { return f.orientation == 6; });
        ASSERT_NE(sideways, frames.end());
        EXPECT_EQ(sideways->files, DemoFrame::Files::rawAndJpeg);
        EXPECT_GE(pairs, burstFrames.value(wholeRawBursts.first()) + 1 + std::max(1, count / 20));
        EXPECT_EQ(rawOnly, std::max(1, count / 30));
    }
}

TEST_F(DemoRawFiles, ScannerPairsRawFirstAndReadsThePlannedDetailsFromTheRaw)
{
    ASSERT_TRUE(result.ok) << result.error.toStdString();
    const QList<Shot> shots = DetailReader::readAll(ShotScanner::list(folder->path()));
    ASSERT_EQ(shots.size(), frames.size());
    QHash<QString, Shot> byId;
    for (const Shot &shot : shots)
        byId.insert(shot.id, shot);
    int pairs = 0, rawOnly = 0;
    for (const DemoFrame &f : frames) {
        SCOPED_TRACE(f.relativePath.toStdString());
        const Shot shot = byId.value(f.relativePath.chopped(4));
        QStringList files;
        for (const QString &file : DemoShoot::relativePaths(f))
            files << path(file);
        EXPECT_EQ(shot.files, files);
        if (f.files == DemoFrame::Files::jpeg)
            continue;
        pairs += shot.isPair();
        rawOnly += !shot.rendered().has_value();
        // The RAW alone must tell everything the plan says, as the JPEG alone does.
        const Shot fromRaw = ShotDetails::read(Shot(shot.id, {path(f.rawRelativePath)}));
        EXPECT_EQ(fromRaw.captureDate, f.captureTime);
        EXPECT_EQ(fromRaw.camera, f.camera);
        EXPECT_EQ(fromRaw.lens, f.lens);
        EXPECT_EQ(fromRaw.orientation, f.orientation);
        EXPECT_EQ(QSize(fromRaw.width, fromRaw.height), QSize(f.width, f.height));
        EXPECT_EQ(fromRaw.captureDate, shot.captureDate);
        EXPECT_EQ(fromRaw.exposure, shot.exposure);
        if (shot.isPair()) {
            const Shot fromJpeg = ShotDetails::read(Shot(shot.id, {path(f.relativePath)}));
            EXPECT_EQ(fromRaw.exposure, fromJpeg.exposure);
            EXPECT_EQ(fromRaw.captureDate, fromJpeg.captureDate);
        }
        const std::optional<ExifValues> exif = ShotDetails::readExif(path(f.rawRelativePath));
        ASSERT_TRUE(exif.has_value());
        EXPECT_DOUBLE_EQ(exif->exposureTime.value_or(0), 1.0 / f.exposureDenominator);
        EXPECT_DOUBLE_EQ(exif->fNumber.value_or(0), f.fNumber);
        EXPECT_EQ(exif->iso.value_or(0), f.iso);
        EXPECT_DOUBLE_EQ(exif->focalLengthMm.value_or(0), f.focalLengthMm);
    }
    EXPECT_GE(pairs, 2);
    EXPECT_GE(rawOnly, 1);
}

TEST_F(DemoRawFiles, DngHoldsThumbnailSensorDataAndPreviewsInCameraOrder)
{
    ASSERT_TRUE(result.ok) << result.error.toStdString();
    for (const DemoFrame &f : withRaw()) {
        SCOPED_TRACE(f.rawRelativePath.toStdString());
        const QByteArray file = TestFiles::read(path(f.rawRelativePath));
        ASSERT_EQ(file.left(8), QByteArray("II*\0\x08\0\0\0", 8));
        const Directory main = directoryAt(file, 8);
        EXPECT_EQ(main.number(0x00fe), 1u) << "IFD0 is a reduced-size image";
        EXPECT_EQ(main.numbers.value(0xc612), (QList<quint32>{1, 4, 0, 0}));
        EXPECT_EQ(main.text(0xc614), f.model.toUtf8());
        EXPECT_EQ(main.text(0x010f), f.make.toUtf8());
        EXPECT_EQ(main.number(0x0112), quint32(f.orientation));
        EXPECT_NE(main.number(0x8769), 0u) << "Exif IFD";
        const QList<quint32> subIfds = main.numbers.value(0x014a);
        ASSERT_EQ(subIfds.size(), 3);
        const Directory sensor = directoryAt(file, subIfds[0]);
        const Directory middle = directoryAt(file, subIfds[1]);
        const Directory full = directoryAt(file, subIfds[2]);

        const QImage thumbnail = preview(file, main);
        EXPECT_EQ(std::max(thumbnail.width(), thumbnail.height()), 160);
        EXPECT_EQ(middle.number(0x00fe), 1u);
        const QImage smaller = preview(file, middle);
        EXPECT_EQ(std::max(smaller.width(), smaller.height()), 1024);
        EXPECT_EQ(full.number(0x00fe), 1u);
        const QImage picture = preview(file, full);
        EXPECT_EQ(picture.size(), QSize(f.width, f.height));
        EXPECT_EQ(thumbnail.width() > thumbnail.height(), f.width > f.height);
        if (f.files == DemoFrame::Files::rawAndJpeg) {
            EXPECT_EQ(picture, QImage(path(f.relativePath))) << "the JPEG and the full preview show the same pixels";
        }

        EXPECT_EQ(sensor.number(0x00fe), 0u) << "the sensor data is the main image";
        EXPECT_EQ(sensor.number(0x0106), 32803u);
        EXPECT_EQ(sensor.number(0x0102), 16u);
        EXPECT_EQ(sensor.numbers.value(0x828e), (QList<quint32>{0, 1, 1, 2}));
        EXPECT_EQ(sensor.number(0x0117), sensor.number(0x0100) * sensor.number(0x0101) * 2);
        EXPECT_LT(mosaicDifference(file, sensor, picture), 6.0);

        // Data blocks follow each other without overlap, small before large, inside the file.
        quint32 end = 0;
        for (const Directory *d : {&main, &sensor, &middle, &full}) {
            EXPECT_GE(d->number(0x0111), end);
            end = d->number(0x0111) + d->number(0x0117);
        }
        EXPECT_LE(end, quint32(file.size()));
        EXPECT_LT(main.number(0x0117), middle.number(0x0117));
        EXPECT_LT(middle.number(0x0117), full.number(0x0117));
    }
}

TEST_F(DemoRawFiles, ExiftoolReadsEachDngCleanly)
{
    const QString exiftool = QStandardPaths::findExecutable("exiftool");
    if (exiftool.isEmpty())
        GTEST_SKIP() << "exiftool is not installed; it checks the DNGs apart from our own readers";
    ASSERT_TRUE(result.ok) << result.error.toStdString();
    // Naming -validate and -warning alone would limit the output to those two tags.
    QStringList arguments{"-j", "-n", "-a", "-G1", "-all", "-validate", "-warning"};
    QHash<QString, DemoFrame> byFile;
    for (const DemoFrame &f : withRaw()) {
        arguments << path(f.rawRelativePath);
        byFile.insert(path(f.rawRelativePath), f);
    }
    QProcess process;
    process.start(exiftool, arguments);
    ASSERT_TRUE(process.waitForFinished(60000));
    const QJsonArray files = QJsonDocument::fromJson(process.readAllStandardOutput()).array();
    ASSERT_EQ(files.size(), byFile.size());
    for (const QJsonValue &value : files) {
        const QJsonObject tags = value.toObject();
        const DemoFrame f = byFile.value(tags["SourceFile"].toString());
        SCOPED_TRACE(f.rawRelativePath.toStdString());
        EXPECT_EQ(tags["File:FileType"].toString(), "DNG");
        EXPECT_EQ(tags["ExifTool:Validate"].toString(), "0 0 0") << "errors, warnings, minor warnings";
        EXPECT_FALSE(tags.contains("ExifTool:Warning")) << tags["ExifTool:Warning"].toString().toStdString();
        // exiftool's names for the thumbnail in IFD0, the middle preview and the full-size JPEG.
        EXPECT_EQ(std::max(tags["IFD0:ImageWidth"].toInt(), tags["IFD0:ImageHeight"].toInt()), 160);
        EXPECT_TRUE(tags.contains("IFD0:PreviewImage"));
        EXPECT_EQ(std::max(tags["SubIFD1:ImageWidth"].toInt(), tags["SubIFD1:ImageHeight"].toInt()), 1024);
        EXPECT_TRUE(tags.contains("SubIFD1:PreviewImage"));
        EXPECT_EQ(QSize(tags["SubIFD2:ImageWidth"].toInt(), tags["SubIFD2:ImageHeight"].toInt()),
                  QSize(f.width, f.height));
        EXPECT_GT(tags["SubIFD2:JpgFromRawLength"].toInt(), tags["SubIFD1:PreviewImageLength"].toInt());
        EXPECT_EQ(tags["IFD0:Make"].toString(), f.make);
        EXPECT_EQ(tags["IFD0:Model"].toString(), f.model);
        EXPECT_EQ(tags["IFD0:Orientation"].toInt(), f.orientation);
        EXPECT_EQ(tags["ExifIFD:LensModel"].toString(), f.lens);
        EXPECT_DOUBLE_EQ(tags["ExifIFD:ExposureTime"].toDouble(), 1.0 / f.exposureDenominator);
        EXPECT_DOUBLE_EQ(tags["ExifIFD:FNumber"].toDouble(), f.fNumber);
        EXPECT_EQ(tags["ExifIFD:ISO"].toInt(), f.iso);
        EXPECT_EQ(tags["ExifIFD:FocalLength"].toInt(), f.focalLengthMm);
        EXPECT_EQ(utcFromExifText(tags["Composite:SubSecDateTimeOriginal"].toString()), f.captureTime);
    }
}
