// Copies a card's worth of large files with the hand-off engine, and the same files with
// `cp -r` followed by `xxhsum` of the sources and of the copies read back from the disk,
// in the same run; prints both times and their ratio against our goal. Then the same to
// two destinations at once (a backup drive), against `cp -r` to each followed by one
// `xxhsum` of the sources and both sets of copies. Last it shows that the engine's
// read-back reaches the device rather than the page cache.

#include "SorviKit/handoff/Handoff.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <fcntl.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <vector>

namespace {

constexpr double goal = 1.1; // at most this many times the peer's time
constexpr int fileCount = 200;
constexpr double mebibyte = 1024.0 * 1024.0;

// Random-looking bytes, fast to make, so that nothing along the way can compress them.
void writeNoise(const QString &path, qint64 bytes, std::uint64_t seed)
{
    std::vector<std::uint64_t> block(1 << 19); // 4 MiB
    std::uint64_t state = seed * 0x9E3779B97F4A7C15ull + 1;
    const int fd = ::open(QFile::encodeName(path).constData(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    for (qint64 left = bytes; left > 0 && fd >= 0;) {
        for (std::uint64_t &word : block) {
            state ^= state << 13, state ^= state >> 7, state ^= state << 17;
            word = state;
        }
        const auto length = std::size_t(std::min<qint64>(left, qint64(block.size() * 8)));
        if (::write(fd, block.data(), length) != ssize_t(length))
            break;
        left -= qint64(length);
    }
    if (fd >= 0) {
        ::fdatasync(fd);
        ::close(fd);
    }
}

// Writes any dirty pages of the files to the device and drops them from the page cache,
// so that what follows reads them from the device.
void flushAndDrop(const QStringList &files)
{
    for (const QString &file : files) {
        const int fd = ::open(QFile::encodeName(file).constData(), O_RDONLY);
        if (fd < 0)
            continue;
        ::fdatasync(fd);
        ::posix_fadvise(fd, 0, 0, POSIX_FADV_DONTNEED);
        ::close(fd);
    }
}

QStringList filesIn(const QString &folder)
{
    QStringList files;
    for (const QString &name : QDir(folder).entryList(QDir::Files, QDir::Name))
        files << folder + '/' + name;
    return files;
}

bool run(const QString &program, const QStringList &arguments, QByteArray *output = nullptr)
{
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForFinished(-1) || process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0) {
        std::fprintf(stderr, "%s failed: %s\n", qPrintable(program), process.readAllStandardError().constData());
        return false;
    }
    if (output)
        *output = process.readAllStandardOutput();
    return true;
}

// The peer: plain copies to each destination, then every file's XXH64 with the copies
// read from the device. Returns the seconds taken, or a negative value when the tools
// failed or a copy differs.
double timePeer(const QString &sources, const QStringList &destinations)
{
    QElapsedTimer timer;
    timer.start();
    QStringList copies;
    for (const QString &destination : destinations) {
        if (!run("cp", {"-r", sources, destination}))
            return -1;
        copies << filesIn(destination);
    }
    flushAndDrop(copies);
    QByteArray listing;
    if (!run("xxhsum", filesIn(sources) + copies, &listing))
        return -1;
    const double seconds = timer.nsecsElapsed() / 1e9;
    QHash<QString, QByteArray> byName;
    int mismatches = 0;
    for (const QByteArray &line : listing.split('\n')) {
        const QList<QByteArray> fields = line.split(' ');
        if (fields.size() < 3)
            continue;
        const QString name = QFileInfo(QString::fromUtf8(fields.last())).fileName();
        if (byName.contains(name) && byName.value(name) != fields.first())
            ++mismatches;
        byName.insert(name, fields.first());
    }
    return mismatches == 0 ? seconds : -1;
}

double timeOurs(const QString &sources, const QStringList &destinations)
{
    QList<Shot> shots;
    for (const QString &file : filesIn(sources))
        shots << Shot(QFileInfo(file).completeBaseName(), {file});
    QElapsedTimer timer;
    timer.start();
    for (const Handoff::DestinationCopy &copy : Handoff::copyToEach(shots, sources, destinations, false)) {
        if (copy.failure || copy.result.files != shots.size()) {
            std::fprintf(stderr, "the copy to %s failed\n", qPrintable(copy.destination));
            return -1;
        }
    }
    return timer.nsecsElapsed() / 1e9;
}

constexpr int hashRuns = 3;

// The median of a few timed hashes; `before` runs untimed ahead of each one.
double timeHash(const QString &file, bool uncached, const std::function<void()> &before = {})
{
    std::vector<double> seconds;
    for (int run = 0; run < hashRuns; ++run) {
        if (before)
            before();
        QElapsedTimer timer;
        timer.start();
        Handoff::hash(file, uncached);
        seconds.push_back(timer.nsecsElapsed() / 1e9);
    }
    std::sort(seconds.begin(), seconds.end());
    return seconds[seconds.size() / 2];
}

bool dropAllCaches()
{
    ::sync();
    QFile control(QStringLiteral("/proc/sys/vm/drop_caches"));
    return control.open(QIODevice::WriteOnly) && control.write("1\n") == 2;
}

// Hashing a file just written with the read-back from the device, against reading it
// from the cache and after all caches were dropped. Equal first and last times mean the
// read-back really reaches the device.
void showReadBack(const QString &folder, qint64 bytes)
{
    const QString source = folder + "/readback-source.bin", copy = folder + "/readback-copy.bin";
    writeNoise(source, bytes, 4242);
    Handoff::copyHashing(source, copy);
    const double megabytes = bytes / mebibyte;
    const double uncached = timeHash(copy, true);
    const double cached = timeHash(copy, false);
    std::printf("\nRead-back of a freshly written %.0f MiB copy (median of %d):\n", megabytes, hashRuns);
    std::printf("  hash(uncached: true), just written   %7.3f s  %7.0f MiB/s\n", uncached, megabytes / uncached);
    std::printf("  hash(uncached: false), in the cache  %7.3f s  %7.0f MiB/s\n", cached, megabytes / cached);
    if (dropAllCaches()) {
        const double dropped = timeHash(copy, false, dropAllCaches);
        std::printf("  hash after drop_caches               %7.3f s  %7.0f MiB/s\n", dropped, megabytes / dropped);
        std::printf("  read-back / after drop_caches: %.2f (about 1 means it came from the device)\n",
                    uncached / dropped);
    } else {
        std::printf("  (writing /proc/sys/vm/drop_caches is not permitted here)\n");
    }
    std::printf("  read-back / cached: %.1f times slower\n", uncached / cached);
}

// The requested size, scaled down when the folder's volume cannot hold the sources and
// four sets of copies (ours and the peer's, to two destinations) with a quarter of its
// free space to spare.
qint64 fittingTotal(const QString &folder, qint64 requested)
{
    struct statvfs volume;
    if (::statvfs(QFile::encodeName(folder).constData(), &volume) != 0)
        return requested;
    const qint64 free = qint64(volume.f_bavail) * qint64(volume.f_frsize);
    const qint64 fits = free * 3 / 4 / 5;
    if (requested <= fits)
        return requested;
    std::printf("Note: only %.0f MB free in %s; scaling the data down from %.0f MB to %.0f MB.\n", free / 1e6,
                qPrintable(folder), requested / 1e6, fits / 1e6);
    return fits;
}

// Times ours and the peer's copy of the sources to `count` destinations below `work`,
// each starting with the sources on the device only, then removes the copies.
bool compareRun(const QString &work, const QString &sources, qint64 bytes, int count)
{
    QStringList peer, ours;
    for (int i = 1; i <= count; ++i) {
        peer << work + QStringLiteral("/peer%1").arg(i);
        ours << work + QStringLiteral("/ours%1").arg(i);
    }
    flushAndDrop(filesIn(sources));
    const double peerSeconds = timePeer(sources, peer);
    QStringList peerCopies;
    for (const QString &folder : peer)
        peerCopies << filesIn(folder);
    flushAndDrop(filesIn(sources) + peerCopies);
    const double ourSeconds = timeOurs(sources, ours);
    for (const QString &folder : peer + ours)
        QDir(folder).removeRecursively();
    if (peerSeconds < 0 || ourSeconds < 0) {
        std::fprintf(stderr, "a run failed; no figures\n");
        return false;
    }
    const double gigabytes = bytes / 1e9;
    const char *peerName = count == 1 ? "cp -r + xxhsum" : "cp -r to each + xxhsum";
    std::printf("\nCopy and verify %d files, %.2f GB, to %d destination%s:\n", fileCount, gigabytes, count,
                count == 1 ? "" : "s");
    std::printf("  %-28s (copies read from the device)  %7.2f s  %6.0f MB/s of sources\n", peerName, peerSeconds,
                gigabytes * 1e3 / peerSeconds);
    std::printf("  %-28s                                %7.2f s  %6.0f MB/s of sources\n",
                count == 1 ? "Handoff::copy" : "Handoff::copyToEach", ourSeconds, gigabytes * 1e3 / ourSeconds);
    std::printf("  ratio ours / peer: %.2f (goal <= %.1f) %s\n", ourSeconds / peerSeconds, goal,
                ourSeconds / peerSeconds <= goal ? "met" : "NOT met");
    return true;
}

bool compareCopies(const QString &work, qint64 total)
{
    const QString sources = work + "/card";
    QDir().mkpath(sources);
    const qint64 each = total / fileCount;
    std::printf("Making %d files of %.1f MB (%.2f GB) in %s …\n", fileCount, each / 1e6, each * fileCount / 1e9,
                qPrintable(work));
    for (int i = 0; i < fileCount; ++i)
        writeNoise(sources + QString::asprintf("/IMG_%04d.CR3", i + 1), each, std::uint64_t(i + 1));
    return compareRun(work, sources, each * fileCount, 1) && compareRun(work, sources, each * fileCount, 2);
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription("Times the hand-off copy against cp -r plus xxhsum.");
    parser.addHelpOption();
    const QCommandLineOption totalOption("total-mb", "Megabytes of sources to copy (default 2000).", "MB", "2000");
    const QCommandLineOption folderOption("folder", "Where the data is made (default the temp folder).", "dir",
                                          QDir::tempPath());
    parser.addOptions({totalOption, folderOption});
    parser.process(app);
    if (QStandardPaths::findExecutable("xxhsum").isEmpty()) {
        std::fprintf(stderr, "xxhsum is not installed (Debian package xxhash); the peer cannot be timed\n");
        return 1;
    }
    const QString folder = parser.value(folderOption);
    const qint64 total = fittingTotal(folder, qint64(parser.value(totalOption).toDouble() * 1e6));
    QTemporaryDir work(folder + "/sorvi-copy-bench-XXXXXX");
    if (!work.isValid()) {
        std::fprintf(stderr, "cannot make a folder in %s\n", qPrintable(folder));
        return 1;
    }
    const bool compared = compareCopies(work.path(), total);
    if (compared)
        showReadBack(work.path(), std::max<qint64>(total / 4, 64 * 1024 * 1024));
    std::printf("\nRemoving %s\n", qPrintable(work.path()));
    return work.remove() && compared ? 0 : 1;
}
