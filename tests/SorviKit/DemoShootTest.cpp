#include "SorviKit/core/FileError.h"
#include "SorviKit/demo/DemoShoot.h"
#include "SorviKit/checks/Assessor.h"
#include "SorviKit/library/Shot.h"
#include "SorviKit/previews/PreviewLoader.h"
#include "TestFiles.h"

#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QThread>
#include <gtest/gtest.h>

#include <map>

using DemoShoot::DemoFrame;
using Files = DemoFrame::Files;

namespace {

// Walks one camera's frames in time order: a burst is a contiguous run of 3–6 frames
// 0.2–0.8 s apart, and everything else stands over two seconds from its neighbours.
void checkTiming(const QList<DemoFrame> &all, const QString &camera, QSet<int> &seenBursts)
{
    QList<DemoFrame> frames;
    std::copy_if(all.begin(), all.end(), std::back_inserter(frames), [&](const DemoFrame &f) { return f.camera == camera; });
    int runLength = 1;
    for (int i = 1; i <= frames.size(); ++i) {
        const DemoFrame &previous = frames[i - 1];
        const double gap = i < frames.size() ? previous.captureTime.msecsTo(frames[i].captureTime) / 1000.0 : 99;
        if (i < frames.size() && previous.burst > 0 && frames[i].burst == previous.burst) {
            EXPECT_TRUE(gap >= 0.2 && gap <= 0.8) << frames[i].relativePath.toStdString() << ": " << gap;
            ++runLength;
            continue;
        }
        if (previous.burst > 0) {
            EXPECT_TRUE(runLength >= 3 && runLength <= 6) << "burst " << previous.burst << " has " << runLength;
            EXPECT_FALSE(seenBursts.contains(previous.burst)) << "burst " << previous.burst << " is split";
            seenBursts.insert(previous.burst);
        }
        EXPECT_GT(gap, 2.0) << "after " << previous.relativePath.toStdString();
        runLength = 1;
    }
}

// The special frames, the names and which frames come with a RAW.
void checkFrames(const QList<DemoFrame> &frames, int count)
{
    static const QRegularExpression pattern("^DCIM/(100KSRVI/KSR|101NIKON/DSC)_(\\d{4})\\.(JPG|DNG)$");
    std::map<QString, int> lastNumber;
    QMap<int, int> burstFrames, rawBurstFrames;
    int blurred = 0, blurredInBursts = 0, damaged = 0, sideways = 0, pairs = 0, rawOnly = 0;
    for (const DemoFrame &f : frames) {
        SCOPED_TRACE(f.relativePath.toStdString());
        EXPECT_LE(int(f.blurred) + int(f.damagedMetadata) + int(f.orientation != 1), 1);
        blurred += f.blurred;
        blurredInBursts += f.blurred && f.burst > 0;
        damaged += f.damagedMetadata;
        EXPECT_TRUE(!f.damagedMetadata || (f.burst == 0 && f.files == Files::jpeg));
        EXPECT_TRUE(f.orientation == 1 || f.orientation == 6);
        EXPECT_EQ(QSize(f.width, f.height), f.orientation == 6 ? QSize(1067, 1600) : QSize(1600, 1067));
        if (f.orientation == 6 && ++sideways == 1) {
            EXPECT_EQ(f.files, Files::rawAndJpeg) << "the first sideways frame comes with a RAW";
        }
        pairs += f.files == Files::rawAndJpeg;
        rawOnly += f.files == Files::raw;
        if (f.burst > 0) {
            ++burstFrames[f.burst];
            rawBurstFrames[f.burst] += f.files == Files::rawAndJpeg;
        }
        const QRegularExpressionMatch match = pattern.match(f.relativePath);
        ASSERT_TRUE(match.hasMatch());
        EXPECT_EQ(match.captured(3) == "DNG", f.files == Files::raw);
        EXPECT_EQ(f.rawRelativePath, f.files == Files::jpeg ? QString() : f.relativePath.chopped(4) + ".DNG");
        EXPECT_EQ(DemoShoot::relativePaths(f), (f.files == Files::rawAndJpeg ? QStringList{f.rawRelativePath, f.relativePath}
                                                                             : QStringList{f.relativePath}));
        // Each card folder counts up from 1 in shooting order.
        EXPECT_EQ(match.captured(2).toInt(), ++lastNumber[match.captured(1)]);
    }
    EXPECT_EQ(lastNumber.size(), 2u);
    EXPECT_TRUE(blurred == 3 || blurred == 4) << blurred;
    EXPECT_GE(blurredInBursts, 1);
    EXPECT_EQ(damaged, 1);
    EXPECT_TRUE(sideways == 1 || sideways == 2) << sideways;
    // One whole burst, the first sideways frame and count/20 others come with a RAW;
    // count/30 frames are a RAW alone.
    int wholeRawBurst = 0;
    for (auto it = burstFrames.cbegin(); it != burstFrames.cend() && !wholeRawBurst; ++it)
        wholeRawBurst = rawBurstFrames.value(it.key()) == it.value() ? it.value() : 0;
    EXPECT_GT(wholeRawBurst, 0);
    EXPECT_GE(pairs, wholeRawBurst + 1 + std::max(1, count / 20));
    EXPECT_EQ(rawOnly, std::max(1, count / 30));
}

#define SKIP_WITHOUT_EXIFTOOL()                                                                  \
    if (QStandardPaths::findExecutable("exiftool").isEmpty())                                    \
    GTEST_SKIP() << "exiftool is not installed; it reads the files apart from our own readers"

// One shoot is written for the whole suite (writing is the slow part), and read back once
// by exiftool.
class DemoShootFiles : public testing::Test {
protected:
    static constexpr int count = 20;
    static inline QTemporaryDir *folder = nullptr;
    static inline QList<DemoFrame> frames;
    static inline QList<std::pair<int, int>> progress;
    static inline DemoShoot::WriteResult result;
    static inline QString failure;

    static void SetUpTestSuite()
    {
        folder = new QTemporaryDir;
        frames = DemoShoot::plan(count);
        QThread *caller = QThread::currentThread();
        try {
            result = DemoShoot::write(folder->path(), count, [caller](int done, int total) {
                EXPECT_EQ(QThread::currentThread(), caller);
                progress.append({done, total});
            });
        } catch (const FileError &error) {
            failure = error.description();
        }
    }
    static void TearDownTestSuite() { delete folder; }
    void SetUp() override { ASSERT_TRUE(failure.isEmpty()) << failure.toStdString(); }

    static QString path(const QString &relativePath)
    {
        return QFileInfo(folder->path()).canonicalFilePath() + '/' + relativePath;
    }
    // Every tag of the file, numbers as numbers, each named with its directory.
    static QJsonObject tags(const QString &relativePath)
    {
        static const QHash<QString, QJsonObject> all = [] {
            QStringList arguments{"-j", "-n", "-a", "-G1", "-all", "-validate", "-warning"};
            for (const DemoFrame &f : frames)
                if (!f.rawRelativePath.isEmpty())
                    arguments << path(f.rawRelativePath);
            QProcess process;
            process.start(QStandardPaths::findExecutable("exiftool"), arguments);
            process.waitForFinished(120000);
            QHash<QString, QJsonObject> byFile;
            for (const QJsonValue &file : QJsonDocument::fromJson(process.readAllStandardOutput()).array())
                byFile.insert(file["SourceFile"].toString(), file.toObject());
            return byFile;
        }();
        return all.value(path(relativePath));
    }
};

} // namespace

TEST(DemoShootPlan, HoldsEveryKindOfMomentAndFileForAnyCount)
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
        checkTiming(frames, "Canon EOS R6", bursts);
        checkTiming(frames, "NIKON Z 6_2", bursts);
        EXPECT_FALSE(bursts.isEmpty());
        EXPECT_EQ(*std::max_element(bursts.begin(), bursts.end()), bursts.size()); // numbered 1…n
        EXPECT_NE(std::adjacent_find(frames.begin(), frames.end(), [](const DemoFrame &a, const DemoFrame &b) {
                      return a.camera != b.camera && a.captureTime.toSecsSinceEpoch() == b.captureTime.toSecsSinceEpoch();
                  }),
                  frames.end())
            << "no moment where both cameras fire in one second";
        checkFrames(frames, count);
    }
    EXPECT_EQ(DemoShoot::plan(3).size(), DemoShoot::minimumCount);
}

TEST_F(DemoShootFiles, WritesExactlyThePlannedFilesWithProgressAndTheSameBytesEachTime)
{
    EXPECT_EQ(result.photos, count);
    QStringList planned;
    for (const DemoFrame &f : frames)
        planned << DemoShoot::relativePaths(f);
    planned.sort();
    EXPECT_EQ(result.written, planned.size());
    EXPECT_EQ(TestFiles::tree(folder->path()), planned);
    ASSERT_FALSE(progress.isEmpty());
    EXPECT_EQ(progress.last(), std::make_pair(count, count));
    for (int i = 1; i < progress.size(); ++i)
        EXPECT_LT(progress[i - 1].first, progress[i].first);

    QTemporaryDir second;
    ASSERT_NO_THROW(DemoShoot::write(second.path(), count));
    EXPECT_EQ(TestFiles::snapshot(second.path()), TestFiles::snapshot(folder->path()));
}

TEST_F(DemoShootFiles, DngsAreValidBlurredFramesLackDetailAndSidewaysFramesTurnUpright)
{
    SKIP_WITHOUT_EXIFTOOL();
    double sharpest = 0, softestSharp = 1e9, blurredMost = 0;
    for (const DemoFrame &f : frames) {
        SCOPED_TRACE(f.relativePath.toStdString());
        // What a viewer shows: the JPEG, or for a RAW alone the full preview of its DNG.
        QImage image = f.files == Files::raw ? QImage() : QImage(path(f.relativePath));
        if (f.files != Files::jpeg) {
            const QJsonObject t = tags(f.rawRelativePath);
            EXPECT_EQ(t["ExifTool:Validate"].toString(), "0 0 0") << t["ExifTool:Warning"].toString().toStdString();
            EXPECT_EQ(t["IFD0:DNGVersion"].toString(), "1 4 0 0");
            const QImage full = QImage::fromData(
                TestFiles::read(path(f.rawRelativePath)).mid(t["SubIFD2:JpgFromRawStart"].toInteger(),
                                                              t["SubIFD2:JpgFromRawLength"].toInteger()));
            if (f.files == Files::raw)
                image = full;
            EXPECT_EQ(full, image) << "the JPEG and the full preview show the same pixels";
            // The sensor data is the picture: developed by LibRaw, it matches the full preview
            // turned upright, cell by cell.
            const auto developed = PreviewLoader::fullResolution(Shot(f.relativePath, {path(f.rawRelativePath)}));
            ASSERT_TRUE(developed);
            EXPECT_EQ(developed->source, "LibRaw");
            const QImage ours = developed->image.scaled(8, 8, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
            const QImage want =
                PreviewLoader::upright(full, f.orientation).scaled(8, 8, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
            for (int cell = 0; cell < 64; ++cell) {
                const QRgb a = ours.pixel(cell % 8, cell / 8), b = want.pixel(cell % 8, cell / 8);
                for (const int difference : {qRed(a) - qRed(b), qGreen(a) - qGreen(b), qBlue(a) - qBlue(b)})
                    EXPECT_LT(std::abs(difference), 25) << "cell " << cell;
            }
        }
        ASSERT_EQ(image.size(), QSize(f.width, f.height));
        const double variance = Assessor::sharpness(image);
        if (f.blurred)
            blurredMost = std::max(blurredMost, variance);
        else
            softestSharp = std::min(softestSharp, variance), sharpest = std::max(sharpest, variance);
        if (f.orientation == 6)
            image = image.transformed(QTransform().rotate(90)); // what a viewer does for orientation 6
        // Upright means sky above land: the top quarter is brighter than the bottom one.
        const QImage quarters = image.scaled(1, 4, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
        EXPECT_GT(qGray(quarters.pixel(0, 0)), qGray(quarters.pixel(0, 3)) + 30);
    }
    EXPECT_LT(blurredMost, softestSharp * 0.1) << "sharp " << softestSharp << "–" << sharpest;
}

namespace {

// The sentence a demo write into `dir` fails with; empty when it does not fail.
QString demoFailure(const QString &dir)
{
    try {
        DemoShoot::write(dir, DemoShoot::minimumCount);
    } catch (const FileError &error) {
        return error.description();
    }
    return {};
}

} // namespace

TEST(DemoShootWrite, RefusesAnyClashAndReportsFolderErrors)
{
    QTemporaryDir dir;
    const QList<DemoFrame> frames = DemoShoot::plan(DemoShoot::minimumCount);
    // The last planned RAW: a clash with any file of the shoot, not only its JPEGs, stops it.
    const auto lastRaw =
        std::find_if(frames.rbegin(), frames.rend(), [](const DemoFrame &f) { return !f.rawRelativePath.isEmpty(); });
    ASSERT_NE(lastRaw, frames.rend());
    TestFiles::write(dir.filePath(lastRaw->rawRelativePath), "mine");
    const QString refused = demoFailure(dir.path());
    EXPECT_TRUE(refused.contains(lastRaw->rawRelativePath)) << refused.toStdString();
    EXPECT_FALSE(refused.contains("written before")) << "refused before writing anything";
    EXPECT_EQ(TestFiles::tree(dir.path()), QStringList{lastRaw->rawRelativePath}) << "nothing else was written";
    EXPECT_EQ(TestFiles::read(dir.filePath(lastRaw->rawRelativePath)), "mine");

    // A plain file where the shoot's folder should go.
    TestFiles::write(dir.filePath("blocked"), "");
    const QString failed = demoFailure(dir.filePath("blocked"));
    EXPECT_TRUE(failed.contains("Could not create the folder")) << failed.toStdString();
}
