#include "SorviKit/demo/DemoShoot.h"
#include "TestFiles.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QImage>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QThread>

#include <exiv2/exiv2.hpp>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>

using DemoShoot::DemoFrame;

namespace {

double secondsBetween(const DemoFrame &a, const DemoFrame &b)
{
    return a.captureTime.msecsTo(b.captureTime) / 1000.0;
}

QList<DemoFrame> framesOf(const QList<DemoFrame> &frames, const QString &camera)
{
    QList<DemoFrame> result;
    std::copy_if(frames.begin(), frames.end(), std::back_inserter(result),
                 [&](const DemoFrame &f) { return f.camera == camera; });
    return result;
}

// Walks one camera's frames in time order: a burst is a contiguous run of 3–6 frames
// 0.2–0.8 s apart, and everything else stands well over a second from its neighbours.
void checkTiming(const QList<DemoFrame> &frames, QSet<int> &seenBursts)
{
    int runLength = 1;
    for (int i = 1; i <= frames.size(); ++i) {
        const DemoFrame &previous = frames[i - 1];
        const bool continues = i < frames.size() && previous.burst > 0 && frames[i].burst == previous.burst;
        if (continues) {
            const double gap = secondsBetween(previous, frames[i]);
            EXPECT_GE(gap, 0.2) << frames[i].relativePath.toStdString();
            EXPECT_LE(gap, 0.8) << frames[i].relativePath.toStdString();
            ++runLength;
            continue;
        }
        if (previous.burst > 0) {
            EXPECT_TRUE(runLength >= 3 && runLength <= 6) << "burst " << previous.burst << " has " << runLength;
            EXPECT_FALSE(seenBursts.contains(previous.burst)) << "burst " << previous.burst << " is split";
            seenBursts.insert(previous.burst);
        } else {
            EXPECT_EQ(runLength, 1);
        }
        if (i < frames.size()) {
            EXPECT_GT(secondsBetween(previous, frames[i]), 2.0) << frames[i].relativePath.toStdString();
        }
        runLength = 1;
    }
}

void checkSpecialFrames(const QList<DemoFrame> &frames)
{
    int blurred = 0, blurredInBursts = 0, damaged = 0, sideways = 0;
    for (const DemoFrame &f : frames) {
        EXPECT_LE(int(f.blurred) + int(f.damagedMetadata) + int(f.orientation != 1), 1) << f.relativePath.toStdString();
        blurred += f.blurred;
        blurredInBursts += f.blurred && f.burst > 0;
        damaged += f.damagedMetadata;
        EXPECT_TRUE(!f.damagedMetadata || f.burst == 0);
        if (f.orientation == 6) {
            ++sideways;
            EXPECT_EQ(QSize(f.width, f.height), QSize(1067, 1600));
        } else {
            EXPECT_EQ(f.orientation, 1);
            EXPECT_EQ(QSize(f.width, f.height), QSize(1600, 1067));
        }
    }
    EXPECT_TRUE(blurred == 3 || blurred == 4) << blurred;
    EXPECT_GE(blurredInBursts, 1);
    EXPECT_EQ(damaged, 1);
    EXPECT_TRUE(sideways == 1 || sideways == 2) << sideways;
}

void checkNames(const QList<DemoFrame> &frames)
{
    static const QRegularExpression pattern("^DCIM/(100KSRVI/KSR|101NIKON/DSC)_(\\d{4})\\.(JPG|DNG)$");
    std::map<QString, int> lastNumber;
    for (const DemoFrame &f : frames) {
        const QRegularExpressionMatch match = pattern.match(f.relativePath);
        ASSERT_TRUE(match.hasMatch()) << f.relativePath.toStdString();
        const QString base = f.relativePath.chopped(4);
        EXPECT_EQ(match.captured(3) == "DNG", f.files == DemoFrame::Files::raw);
        EXPECT_EQ(f.rawRelativePath, f.files == DemoFrame::Files::jpeg ? QString() : base + ".DNG");
        const QStringList files = DemoShoot::relativePaths(f);
        EXPECT_EQ(files.size(), f.files == DemoFrame::Files::rawAndJpeg ? 2 : 1);
        EXPECT_EQ(files.last(), f.relativePath);
        EXPECT_EQ(files.first(), f.files == DemoFrame::Files::jpeg ? f.relativePath : f.rawRelativePath);
        // Each card folder counts up from 1 in shooting order.
        EXPECT_EQ(match.captured(2).toInt(), ++lastNumber[match.captured(1)]);
        EXPECT_EQ(f.camera, f.make == "Canon" ? QString("Canon EOS R6") : QString("NIKON Z 6_2"));
    }
    EXPECT_EQ(lastNumber.size(), 2u);
}

TEST(DemoShootPlan, HoldsEveryKindOfMomentForAnyCount)
{
    for (int count : {12, 13, 17, 30, 60, 157}) {
        SCOPED_TRACE(count);
        const QList<DemoFrame> frames = DemoShoot::plan(count);
        ASSERT_EQ(frames.size(), count);
        EXPECT_EQ(frames, DemoShoot::plan(count));
        EXPECT_TRUE(std::is_sorted(frames.begin(), frames.end(), [](const DemoFrame &a, const DemoFrame &b) {
            return a.captureTime < b.captureTime;
        }));
        QSet<int> bursts;
        checkTiming(framesOf(frames, "Canon EOS R6"), bursts);
        checkTiming(framesOf(frames, "NIKON Z 6_2"), bursts);
        EXPECT_FALSE(bursts.isEmpty());
        EXPECT_EQ(*std::max_element(bursts.begin(), bursts.end()), bursts.size()); // numbered 1…n
        const bool bothCamerasInOneSecond =
            std::adjacent_find(frames.begin(), frames.end(), [](const DemoFrame &a, const DemoFrame &b) {
                return a.camera != b.camera && a.captureTime.toSecsSinceEpoch() == b.captureTime.toSecsSinceEpoch();
            }) != frames.end();
        EXPECT_TRUE(bothCamerasInOneSecond);
        checkSpecialFrames(frames);
        checkNames(frames);
    }
    EXPECT_EQ(DemoShoot::plan(3).size(), DemoShoot::minimumCount);
}

// One shoot is written for the whole suite: writing is the slow part.
class DemoShootFiles : public testing::Test {
protected:
    static constexpr int count = 20;
    static inline QTemporaryDir *folder = nullptr;
    static inline QList<DemoFrame> frames;
    static inline QList<std::pair<int, int>> progress;
    static inline DemoShoot::WriteResult result;

    static void SetUpTestSuite()
    {
        folder = new QTemporaryDir;
        frames = DemoShoot::plan(count);
        QThread *caller = QThread::currentThread();
        result = DemoShoot::write(folder->path(), count, [caller](int done, int total) {
            EXPECT_EQ(QThread::currentThread(), caller);
            progress.append({done, total});
        });
    }
    static void TearDownTestSuite() { delete folder; }

    static QString path(const QString &relativePath) { return QDir(folder->path()).filePath(relativePath); }
    static QString path(const DemoFrame &frame) { return path(frame.relativePath); }
    static QByteArray bytes(const QString &file)
    {
        QFile f(file);
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
    }
    static QStringList filesUnder(const QString &dir)
    {
        QStringList files;
        for (QDirIterator it(dir, QDir::Files, QDirIterator::Subdirectories); it.hasNext();)
            files << QDir(dir).relativeFilePath(it.next());
        files.sort();
        return files;
    }
};

TEST_F(DemoShootFiles, WritesExactlyThePlannedFilesWithProgress)
{
    ASSERT_TRUE(result.ok) << result.error.toStdString();
    EXPECT_EQ(result.photos, count);
    QStringList planned;
    for (const DemoFrame &f : frames)
        planned << DemoShoot::relativePaths(f);
    planned.sort();
    EXPECT_EQ(result.written, planned.size());
    EXPECT_TRUE(planned.filter(".DNG").size() > 0 && planned.filter(".JPG").size() < count);
    EXPECT_EQ(filesUnder(folder->path()), planned);

    ASSERT_FALSE(progress.isEmpty());
    EXPECT_EQ(progress.last(), std::make_pair(count, count));
    for (int i = 1; i < progress.size(); ++i)
        EXPECT_LT(progress[i - 1].first, progress[i].first);
}

// Reads a file's EXIF as a scanner would; an unreadable block gives empty data.
Exiv2::ExifData exifOf(const QString &file)
{
    try {
        const auto image = Exiv2::ImageFactory::open(QFile::encodeName(file).toStdString());
        image->readMetadata();
        return image->exifData();
    } catch (const Exiv2::AnyError &) {
        return {};
    }
}

std::string text(const Exiv2::ExifData &exif, const char *key)
{
    const auto it = exif.findKey(Exiv2::ExifKey(key));
    return it == exif.end() ? std::string("(missing)") : it->toString();
}

QDateTime captureTimeIn(const Exiv2::ExifData &exif)
{
    QDateTime local = QDateTime::fromString(QString::fromStdString(text(exif, "Exif.Photo.DateTimeOriginal")),
                                            "yyyy:MM:dd HH:mm:ss");
    const QString offset = QString::fromStdString(text(exif, "Exif.Photo.OffsetTimeOriginal"));
    const int sign = offset.startsWith('-') ? -1 : 1;
    local.setOffsetFromUtc(sign * (offset.mid(1, 2).toInt() * 3600 + offset.mid(4, 2).toInt() * 60));
    const int hundredths = QString::fromStdString(text(exif, "Exif.Photo.SubSecTimeOriginal")).toInt();
    return local.addMSecs(hundredths * 10).toUTC();
}

void checkExif(Exiv2::ExifData exif, const DemoFrame &f) // by value: operator[] is not const
{
    EXPECT_EQ(text(exif, "Exif.Image.Make"), f.make.toStdString());
    EXPECT_EQ(text(exif, "Exif.Image.Model"), f.model.toStdString());
    EXPECT_EQ(text(exif, "Exif.Photo.LensModel"), f.lens.toStdString());
    EXPECT_EQ(captureTimeIn(exif), f.captureTime);
    EXPECT_EQ(text(exif, "Exif.Photo.ExposureTime"), "1/" + std::to_string(f.exposureDenominator));
    EXPECT_NEAR(exif["Exif.Photo.FNumber"].toFloat(), f.fNumber, 0.01);
    EXPECT_EQ(exif["Exif.Photo.ISOSpeedRatings"].toLong(), f.iso);
    EXPECT_EQ(exif["Exif.Photo.FocalLength"].toLong(), f.focalLengthMm);
    EXPECT_EQ(exif["Exif.Image.Orientation"].toLong(), f.orientation);
    EXPECT_EQ(exif["Exif.Photo.PixelXDimension"].toLong(), f.width);
    EXPECT_EQ(exif["Exif.Photo.PixelYDimension"].toLong(), f.height);
}

TEST_F(DemoShootFiles, EveryFileDecodesAndCarriesItsMetadata)
{
    const auto previousLevel = Exiv2::LogMsg::level();
    Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute); // the damaged file is meant to make Exiv2 complain
    for (const DemoFrame &f : frames) {
        SCOPED_TRACE(f.relativePath.toStdString());
        if (!f.rawRelativePath.isEmpty()) // the RAW's own structure is DemoRawTest's subject
            checkExif(exifOf(path(f.rawRelativePath)), f);
        if (f.files == DemoFrame::Files::raw)
            continue;
        const QImage image(path(f));
        EXPECT_EQ(image.size(), QSize(f.width, f.height));
        Exiv2::ExifData exif = exifOf(path(f));
        if (f.damagedMetadata) {
            EXPECT_EQ(text(exif, "Exif.Image.Make"), "(missing)");
            EXPECT_EQ(text(exif, "Exif.Photo.DateTimeOriginal"), "(missing)");
            continue;
        }
        checkExif(exif, f);
        const Exiv2::DataBuf thumb = Exiv2::ExifThumbC(exif).copy();
        const QImage thumbnail = QImage::fromData(thumb.pData_, int(thumb.size_));
        EXPECT_EQ(std::max(thumbnail.width(), thumbnail.height()), 160);
        EXPECT_EQ(thumbnail.width() > thumbnail.height(), f.width > f.height);
    }
    Exiv2::LogMsg::setLevel(previousLevel);
}

// Variance of the 4-neighbour Laplacian on a 1024-pixel grey copy, the usual focus measure.
double laplacianVariance(const QImage &picture)
{
    const QImage grey = picture.scaled(1024, 1024, Qt::KeepAspectRatio, Qt::SmoothTransformation)
                            .convertToFormat(QImage::Format_Grayscale8);
    double sum = 0, squares = 0;
    int n = 0;
    for (int y = 1; y + 1 < grey.height(); ++y) {
        const uchar *above = grey.constScanLine(y - 1), *line = grey.constScanLine(y), *below = grey.constScanLine(y + 1);
        for (int x = 1; x + 1 < grey.width(); ++x, ++n) {
            const double l = above[x] + below[x] + line[x - 1] + line[x + 1] - 4.0 * line[x];
            sum += l;
            squares += l * l;
        }
    }
    return squares / n - (sum / n) * (sum / n);
}

double meanLuminance(const QImage &image, int top, int bottom)
{
    double sum = 0;
    for (int y = top; y < bottom; ++y)
        for (int x = 0; x < image.width(); ++x)
            sum += qGray(image.pixel(x, y));
    return sum / ((bottom - top) * image.width());
}

// The picture a viewer shows: the JPEG, or for a RAW-only frame the largest preview its
// DNG lists, found through the metadata library rather than our own reading.
QImage pictureOf(const QString &file)
{
    if (!file.endsWith(".DNG"))
        return QImage(file);
    const Exiv2::ExifData exif = exifOf(file);
    const QByteArray bytes = TestFiles::read(file);
    QImage largest;
    for (const char *group : {"SubImage1", "SubImage2", "SubImage3", "SubImage4"}) {
        const std::string prefix = std::string("Exif.") + group + ".";
        const auto offset = exif.findKey(Exiv2::ExifKey(prefix + "StripOffsets"));
        const auto length = exif.findKey(Exiv2::ExifKey(prefix + "StripByteCounts"));
        const auto compression = exif.findKey(Exiv2::ExifKey(prefix + "Compression"));
        const bool isJpeg = compression != exif.end() && compression->toLong() == 7;
        if (!isJpeg || offset == exif.end() || length == exif.end())
            continue;
        const QImage preview = QImage::fromData(bytes.mid(offset->toLong(), length->toLong()));
        if (preview.width() * preview.height() > largest.width() * largest.height())
            largest = preview;
    }
    return largest;
}

TEST_F(DemoShootFiles, BlurredFramesLackDetailAndSidewaysFramesTurnUpright)
{
    double sharpest = 0, softestSharp = 1e9, blurredMost = 0;
    for (const DemoFrame &f : frames) {
        QImage image = pictureOf(path(f));
        EXPECT_EQ(image.size(), QSize(f.width, f.height)) << f.relativePath.toStdString();
        ASSERT_FALSE(image.isNull());
        const double variance = laplacianVariance(image);
        if (f.blurred)
            blurredMost = std::max(blurredMost, variance);
        else
            softestSharp = std::min(softestSharp, variance), sharpest = std::max(sharpest, variance);
        if (f.orientation == 6)
            image = image.transformed(QTransform().rotate(90)); // what a viewer does for orientation 6
        // Upright means sky above land.
        EXPECT_GT(meanLuminance(image, 0, image.height() / 4),
                  meanLuminance(image, image.height() * 3 / 4, image.height()) + 30)
            << f.relativePath.toStdString();
    }
    EXPECT_LT(blurredMost, softestSharp * 0.1) << "sharp " << softestSharp << "–" << sharpest;
}

TEST_F(DemoShootFiles, SameCountGivesIdenticalBytesAndNeverOverwrites)
{
    QTemporaryDir second;
    ASSERT_TRUE(DemoShoot::write(second.path(), count).ok);
    QMap<QString, QByteArray> before;
    for (const DemoFrame &f : frames) {
        for (const QString &file : DemoShoot::relativePaths(f)) {
            before[file] = bytes(path(file));
            EXPECT_EQ(before[file], bytes(QDir(second.path()).filePath(file))) << file.toStdString();
        }
    }

    const DemoShoot::WriteResult again = DemoShoot::write(folder->path(), count);
    EXPECT_FALSE(again.ok);
    EXPECT_EQ(again.written, 0);
    EXPECT_TRUE(again.error.contains(frames.first().relativePath)) << again.error.toStdString();
    for (auto it = before.cbegin(); it != before.cend(); ++it)
        EXPECT_EQ(bytes(path(it.key())), it.value()) << it.key().toStdString();
}

TEST(DemoShootWrite, RefusesAnyClashAndReportsFolderErrors)
{
    QTemporaryDir dir;
    const QList<DemoFrame> frames = DemoShoot::plan(DemoShoot::minimumCount);
    // The last planned RAW: a clash with any file of the shoot, not only its JPEGs, stops it.
    const auto lastRaw = std::find_if(frames.rbegin(), frames.rend(),
                                      [](const DemoFrame &f) { return !f.rawRelativePath.isEmpty(); });
    ASSERT_NE(lastRaw, frames.rend());
    const QString clash = QDir(dir.path()).filePath(lastRaw->rawRelativePath);
    ASSERT_TRUE(QDir().mkpath(QFileInfo(clash).path()));
    QFile mine(clash);
    ASSERT_TRUE(mine.open(QIODevice::WriteOnly) && mine.write("mine") == 4);
    mine.close();

    const DemoShoot::WriteResult refused = DemoShoot::write(dir.path(), DemoShoot::minimumCount);
    EXPECT_FALSE(refused.ok);
    EXPECT_TRUE(refused.error.contains(lastRaw->rawRelativePath)) << refused.error.toStdString();
    QFile check(clash);
    ASSERT_TRUE(check.open(QIODevice::ReadOnly));
    EXPECT_EQ(check.readAll(), "mine");
    QDirIterator all(dir.path(), QDir::Files, QDirIterator::Subdirectories);
    int files = 0;
    for (; all.hasNext(); all.next())
        ++files;
    EXPECT_EQ(files, 1); // nothing else was written

    // A plain file where the shoot's folder should go.
    const QString blocked = QDir(dir.path()).filePath("blocked");
    QFile plain(blocked);
    ASSERT_TRUE(plain.open(QIODevice::WriteOnly));
    plain.close();
    const DemoShoot::WriteResult failed = DemoShoot::write(blocked, DemoShoot::minimumCount);
    EXPECT_FALSE(failed.ok);
    EXPECT_TRUE(failed.error.contains("Could not create the folder")) << failed.error.toStdString();
}

} // namespace
