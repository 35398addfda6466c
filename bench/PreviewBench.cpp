// Time to a preview, the figure users feel when they move to the next photo: a 24 MP JPEG
// to 1024 px against vipsthumbnail (shrink-on-load) and against a bare TurboJPEG scaled
// decode (the floor), and the corpus RAWs to 1024 and 2560 px against exiftool's preview
// extraction followed by a decode. Every peer runs in the same process run, on the same
// files; medians of several runs; ratios printed next to our goals.

#include "DetailedPicture.h"
#include "SorviKit/library/ShotScanner.h"
#include "SorviKit/previews/PreviewLoader.h"
#include "SorviKit/library/Shot.h"

#include "ByteKit/MappedFile.h"
#include "MediaKit/JpegDecoder.h"
#include "MediaKit/RAWPreview.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QImage>
#include <QImageWriter>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>
#include <vector>

namespace {

constexpr int runs = 7;
constexpr double vipsGoal = 1.5, floorGoal = 1.3, exiftoolGoal = 5.0;

double medianMs(const std::function<bool()> &work)
{
    std::vector<double> times;
    work(); // warm the page cache and the libraries
    for (int i = 0; i < runs; ++i) {
        QElapsedTimer timer;
        timer.start();
        if (!work())
            return -1;
        times.push_back(timer.nsecsElapsed() / 1e6);
    }
    std::nth_element(times.begin(), times.begin() + runs / 2, times.end());
    return times[runs / 2];
}

bool runQuietly(const QString &program, const QStringList &arguments, QByteArray *output = nullptr)
{
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForFinished(120000) || process.exitStatus() != QProcess::NormalExit
        || process.exitCode() != 0)
        return false;
    if (output)
        *output = process.readAllStandardOutput();
    return true;
}

// The 24 MP picture stored as a camera would (quality 92, 4:2:0).
QString writeLargeJpeg(const QString &dir)
{
    const QImage picture = BenchPictures::detailed24MP(20251, 77);
    const QString path = dir + "/large.jpg";
    QImageWriter writer(path, "jpeg");
    writer.setQuality(92);
    return writer.write(picture) ? path : QString();
}

QImage scaledTo(const Bitmap &bitmap, int maxPixels)
{
    const QImage image(bitmap.pixels.data(), bitmap.width, bitmap.height, qsizetype(bitmap.stride),
                       QImage::Format_RGB32);
    if (std::max(image.width(), image.height()) <= maxPixels)
        return image.copy();
    return image.scaled(maxPixels, maxPixels, Qt::KeepAspectRatio, Qt::SmoothTransformation);
}

void printRatio(const char *what, double ours, double theirs, double goal)
{
    const double ratio = theirs / ours;
    std::printf("  %-44s %8.1f ms  ours %7.1f ms  %5.2fx  (goal %.1fx: %s)\n", what, theirs, ours,
                ratio, goal, ratio >= goal ? "met" : "MISSED");
}

void benchLargeJpeg(const QString &dir)
{
    const QString path = writeLargeJpeg(dir);
    if (path.isEmpty()) {
        std::printf("could not write the 24 MP test JPEG\n");
        return;
    }
    std::printf("24 MP JPEG (%s, %.1f MB) to 1024 px\n", qPrintable(QFileInfo(path).fileName()),
                QFileInfo(path).size() / 1e6);
    QSize ourSize;
    const double ours = medianMs([&] {
        const auto preview = PreviewLoader::thumbnail(path, 1024);
        ourSize = preview ? preview->image.size() : QSize();
        return preview.has_value();
    });
    const double bare = medianMs([&] {
        const MappedFile file(path.toStdString());
        return JpegDecoder::decode(file.bytes(), 1024).has_value();
    });
    std::printf("  ours: %.1f ms for %dx%d; bare TurboJPEG scaled decode (1500x1000, no resize): %.1f ms\n",
                ours, ourSize.width(), ourSize.height(), bare);
    std::printf("  within %.2fx of the bare scaled decode (goal at most %.1fx: %s)\n", ours / bare,
                floorGoal, ours / bare <= floorGoal ? "met" : "MISSED");

    const QString vips = QStandardPaths::findExecutable("vipsthumbnail");
    if (vips.isEmpty()) {
        std::printf("  vipsthumbnail not found (Debian package libvips-tools); skipped\n");
        return;
    }
    // vipsthumbnail writes its result; the uncompressed .v format keeps encoding out of
    // its time. Its process start is measured on a tiny picture and reported apart.
    const QString out = dir + "/vips.v";
    const double vipsTime = medianMs([&] { return runQuietly(vips, {path, "--size", "1024", "-o", out}); });
    QImage tiny(16, 16, QImage::Format_RGB32);
    tiny.fill(Qt::gray);
    tiny.save(dir + "/tiny.jpg");
    const double vipsStart = medianMs([&] {
        return runQuietly(vips, {dir + "/tiny.jpg", "--size", "16", "-o", dir + "/tiny.v"});
    });
    printRatio("vipsthumbnail --size 1024 (whole run)", ours, vipsTime, vipsGoal);
    std::printf("  %-44s %8.1f ms  (its start-up on a 16 px picture: %.1f ms)\n",
                "vipsthumbnail without its start-up", vipsTime - vipsStart, vipsStart);
}

struct CorpusRaw {
    QString path;
    QString exiftoolTag; ///< JpgFromRaw or PreviewImage, whichever the file has
};

QList<CorpusRaw> corpusRaws(const QString &corpus)
{
    QList<CorpusRaw> list;
    for (const char *folder : {"raw", "pairs"}) {
        QFile truthFile(corpus + '/' + folder + "/truth.json");
        if (!truthFile.open(QIODevice::ReadOnly))
            continue;
        const QJsonArray files = QJsonDocument::fromJson(truthFile.readAll()).object()["files"].toArray();
        for (const QJsonValue &value : files) {
            const QJsonObject file = value.toObject();
            const QString path = corpus + '/' + folder + '/' + file["file"].toString();
            if (!ShotScanner::isRawFile(path))
                continue;
            // A cut preview would make the two routes decode different pictures.
            QString tag;
            bool allWhole = true;
            for (const QJsonValue &image : file["embedded_images"].toArray()) {
                const QString name = image.toObject()["tag"].toString().section(':', 1);
                allWhole = allWhole && image.toObject()["has_eoi"].toBool();
                if (name == "JpgFromRaw" || (name == "PreviewImage" && tag.isEmpty()))
                    tag = name;
            }
            if (!tag.isEmpty() && allWhole)
                list.append({path, tag});
        }
    }
    return list;
}

// Our route: a fresh loader each run (nothing cached), the RAW file alone as the shot.
// The exiftool route: extract the largest stored picture, then decode and scale it the
// same way, so both end with the same pixels.
void benchCorpusRaws(const QString &corpus)
{
    const QString exiftool = QStandardPaths::findExecutable("exiftool");
    const QList<CorpusRaw> raws = corpusRaws(corpus);
    if (raws.isEmpty() || exiftool.isEmpty()) {
        std::printf("corpus RAWs or exiftool missing; RAW part skipped\n");
        return;
    }
    for (int maxPixels : {1024, 2560}) {
        std::printf("corpus RAWs to %d px: ours vs exiftool -b -TAG then a decode\n", maxPixels);
        double logSum = 0;
        int counted = 0;
        for (const CorpusRaw &raw : raws) {
            const Shot shot(QFileInfo(raw.path).completeBaseName(), {raw.path});
            QString source;
            const double ours = medianMs([&] {
                PreviewLoader loader;
                const auto preview = loader.preview(shot, maxPixels);
                source = preview ? preview->source : QString();
                return preview.has_value();
            });
            const double theirs = medianMs([&] {
                QByteArray jpeg;
                if (!runQuietly(exiftool, {"-b", "-" + raw.exiftoolTag, raw.path}, &jpeg) || jpeg.isEmpty())
                    return false;
                const std::span bytes(reinterpret_cast<const std::uint8_t *>(jpeg.constData()), std::size_t(jpeg.size()));
                const auto bitmap = JpegDecoder::decode(bytes, maxPixels);
                return bitmap && !scaledTo(*bitmap, maxPixels).isNull();
            });
            if (ours <= 0 || theirs <= 0) {
                std::printf("  %-40s failed (ours %.1f, exiftool %.1f)\n", qPrintable(QFileInfo(raw.path).fileName()), ours, theirs);
                continue;
            }
            std::printf("  %-40s ours %7.1f ms  exiftool route %7.1f ms  %6.1fx  [%s]\n",
                        qPrintable(QFileInfo(raw.path).fileName()), ours, theirs, theirs / ours,
                        qPrintable(source));
            logSum += std::log(theirs / ours);
            ++counted;
        }
        if (counted > 0) {
            const double mean = std::exp(logSum / counted);
            std::printf("  geometric mean over %d files: %.1fx faster (goal %.1fx: %s)\n", counted, mean,
                        exiftoolGoal, mean >= exiftoolGoal ? "met" : "MISSED");
        }
    }
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QTemporaryDir dir;
    if (!dir.isValid()) {
        std::fprintf(stderr, "bench_preview: no temporary folder\n");
        return 1;
    }
    benchLargeJpeg(dir.path());
    benchCorpusRaws(QStringLiteral(SORVI_CORPUS_DIR));
    return 0;
}
