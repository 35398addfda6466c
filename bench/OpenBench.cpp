// Opens a card of 10,000 photos with the application model and reports how long the
// shots take to appear, how long until every shot's details are read, and how much
// memory the open folder costs. The card is written here from the demo shoot's JPEGs
// (real files with full EXIF) copied under camera-style names, and removed afterwards.
// The on-device checks are left off: they are measured by bench_face.

#include "WindowBench.h"
#include "SorviKit/core/FileError.h"
#include "SorviKit/demo/DemoShoot.h"
#include "SorviApp/model/SorviModel.h"

#include <QCoreApplication>
#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QTemporaryDir>
#include <QThread>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <optional>

namespace {

constexpr int photoCount = 10'000;
constexpr int photosPerFolder = 500;
constexpr int sourcePictures = 8;
constexpr double shotsGoalSeconds = 1.0;
constexpr double memoryGoalMB = 400.0;

// A field of /proc/self/status in megabytes ("VmRSS", "VmHWM"); 0 when unreadable.
double statusMB(const char *field)
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    const QByteArray prefix = QByteArray(field) + ':';
    for (const QByteArray &line : status.readAll().split('\n'))
        if (line.startsWith(prefix))
            return line.mid(prefix.size()).trimmed().split(' ').first().toDouble() / 1024.0;
    return 0;
}

// Lets VmHWM measure from here on rather than include writing the card.
void resetPeak()
{
    QFile refs(QStringLiteral("/proc/self/clear_refs"));
    if (refs.open(QIODevice::WriteOnly))
        refs.write("5");
}

// The smallest of the demo shoot's JPEGs: only their headers are read, so larger files
// would only make the card slower to write.
QStringList demoJpegs(const QString &dir)
{
    QFileInfoList files;
    QDirIterator it(dir, {QStringLiteral("*.JPG")}, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        it.next();
        files << it.fileInfo();
    }
    std::sort(files.begin(), files.end(), [](const QFileInfo &a, const QFileInfo &b) {
        return a.size() != b.size() ? a.size() < b.size() : a.filePath() < b.filePath();
    });
    QStringList paths;
    for (qsizetype i = 0; i < std::min<qsizetype>(files.size(), sourcePictures); ++i)
        paths << files[i].filePath();
    return paths;
}

// Writes the card and pushes its files out of the page cache, so that the first open
// reads from the disk as an inserted card would. Returns the bytes written, or none.
std::optional<qint64> writeCard(const QString &card, const QStringList &sources)
{
    qint64 bytes = 0;
    for (int i = 0; i < photoCount; ++i) {
        const QString folder = QStringLiteral("%1/DCIM/%2KSRVI").arg(card).arg(100 + i / photosPerFolder);
        const QString target = QStringLiteral("%1/KSR_%2.JPG").arg(folder).arg(i % photosPerFolder + 1, 4, 10, QChar('0'));
        const QString &source = sources[i % sources.size()];
        if (!QDir().mkpath(folder) || !QFile::copy(source, target))
            return std::nullopt;
        bytes += QFileInfo(source).size();
    }
    ::sync();
    QDirIterator it(card, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const int fd = ::open(QFile::encodeName(it.next()).constData(), O_RDONLY);
        if (fd >= 0) {
            ::posix_fadvise(fd, 0, 0, POSIX_FADV_DONTNEED);
            ::close(fd);
        }
    }
    return bytes;
}

struct Timing {
    double shotsSeconds = -1;
    double detailsSeconds = -1;
    int shots = 0;
};

Timing timeOpen(SorviModel &model, const QString &card)
{
    Timing timing;
    QElapsedTimer clock;
    QEventLoop loop;
    const auto listed = QObject::connect(&model, &SorviModel::shotsChanged, &loop, [&] {
        if (timing.shotsSeconds < 0)
            timing.shotsSeconds = clock.nsecsElapsed() / 1e9;
    });
    const auto loaded = QObject::connect(&model, &SorviModel::loadingChanged, &loop, [&] {
        if (!model.loading())
            loop.quit();
    });
    clock.start();
    model.open(card);
    loop.exec();
    timing.detailsSeconds = clock.nsecsElapsed() / 1e9;
    timing.shots = int(model.shots().size());
    QObject::disconnect(listed);
    QObject::disconnect(loaded);
    return timing;
}

void printTiming(const char *name, const Timing &timing)
{
    std::printf("%-5s %d shots shown after %.3f s (goal under %.1f s: %s), details of all read after %.2f s\n",
                name, timing.shots, timing.shotsSeconds, shotsGoalSeconds,
                timing.shotsSeconds >= 0 && timing.shotsSeconds < shotsGoalSeconds ? "met" : "MISSED",
                timing.detailsSeconds);
}

} // namespace

int main(int argc, char **argv)
{
    QTemporaryDir work;
    if (!work.isValid())
        return 1;
    WindowBench::useScratchHome(work);
    QCoreApplication app(argc, argv);
    WindowBench::nameApplication();
    ShotScanner::initializeMetadataReader();

    const QString demo = work.filePath(QStringLiteral("demo")), card = work.filePath(QStringLiteral("card"));
    QStringList sources;
    try {
        DemoShoot::write(demo, DemoShoot::defaultCount);
        sources = demoJpegs(demo);
    } catch (const FileError &error) {
        std::fprintf(stderr, "bench_open: %s\n", qPrintable(error.description()));
    }
    const std::optional<qint64> bytes = sources.isEmpty() ? std::nullopt : writeCard(card, sources);
    if (!bytes) {
        std::fprintf(stderr, "bench_open: could not write the card in %s\n", qPrintable(work.path()));
        return 1;
    }
    std::printf("Card: %d JPEG files, %.1f GB, from %lld demo pictures; %d cores\n", photoCount,
                double(*bytes) / 1e9, qlonglong(sources.size()), QThread::idealThreadCount());

    resetPeak();
    const double startMB = statusMB("VmRSS");
    SorviModel::Options options;
    options.runsChecks = false;
    {
        SorviModel model(options);
        printTiming("cold:", timeOpen(model, card));
        const double afterMB = statusMB("VmRSS");
        printTiming("warm:", timeOpen(model, card));
        std::printf("Memory beyond the start: %.0f MB after the first open, %.0f MB after the second, "
                    "peak %.0f MB (goal under %.0f MB: %s)\n",
                    afterMB - startMB, statusMB("VmRSS") - startMB, statusMB("VmHWM") - startMB, memoryGoalMB,
                    statusMB("VmHWM") - startMB < memoryGoalMB ? "met" : "MISSED");
    }
    return 0;
}
