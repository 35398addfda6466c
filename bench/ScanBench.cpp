// Lists a card-sized folder and reads every shot's details, timed against exiftool and
// exiv2 over the same files in the same run, and prints the ratios next to our goals.

#include "SorviKit/library/DetailReader.h"
#include "SorviKit/library/ShotScanner.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QMap>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QThreadPool>

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <optional>
#include <vector>

namespace {

constexpr int filesPerFolder = 500;
constexpr int maximumCount = 900 * filesPerFolder; // folder numbers 100…999
constexpr int timedRuns = 3;
constexpr double exiftoolGoal = 10.0, exiv2Goal = 1.5; // how many times faster we mean to be

const QStringList corpusFolders{"raw", "pairs", "jpeg", "heic", "shoot"};
const QSet<QString> photoExtensions{"jpg", "jpeg", "heic", "heif", "hif", "cr2", "cr3", "crw",
                                    "nef", "dng", "raf", "rw2", "mrw", "x3f", "iiq", "kdc"};
const QSet<QString> demoExtensions{"jpg", "jpeg", "dng"};

/// What takes one file number on the card: a lone file, or a RAW and a rendered file
/// sharing a stem (RAW first).
using Unit = QStringList;

// Hidden items and rejects are what a card would not show, so they stay out of the mix.
bool isSkipped(const QString &relativePath)
{
    static const QRegularExpression skipped(QStringLiteral("(^|/)(\\.|Rejected/)"));
    return skipped.match(relativePath).hasMatch();
}

// Files under `dir` with one of `extensions`. A stem holding exactly one RAW and one
// rendered file stays a pair; anything else goes as lone files. Sorted so runs repeat.
QList<Unit> collectUnits(const QString &dir, const QSet<QString> &extensions)
{
    const QDir base(dir);
    QMap<QString, QStringList> byStem;
    QDirIterator it(dir, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        const QString relative = base.relativeFilePath(path);
        const QString suffix = it.fileInfo().suffix();
        if (isSkipped(relative) || !extensions.contains(suffix.toLower()))
            continue;
        byStem[relative.chopped(suffix.size() + 1).toLower()] << path;
    }
    QList<Unit> units;
    for (QStringList &files : byStem) {
        std::sort(files.begin(), files.end());
        std::stable_partition(files.begin(), files.end(), ShotScanner::isRawFile);
        if (files.size() == 2 && ShotScanner::isRawFile(files[0]) && !ShotScanner::isRawFile(files[1]))
            units << files;
        else
            for (const QString &file : std::as_const(files))
                units << Unit{file};
    }
    return units;
}

struct Card {
    QString root;
    QStringList files;
    QMap<QString, int> kinds; ///< upper-case extension → number of files
    int pairs = 0, linked = 0, copied = 0;
};

// A hard link costs no space and reads exactly like the original; copying is the fallback
// where linking is refused (another file system, protected links).
bool place(const QString &source, const QString &target, Card &card)
{
    if (::link(QFile::encodeName(source).constData(), QFile::encodeName(target).constData()) == 0) {
        ++card.linked;
        return true;
    }
    if (!QFile::copy(source, target))
        return false;
    ++card.copied;
    return true;
}

// Cycles through `units` until the card holds exactly `count` files, 500 to a folder as a
// camera numbers them. A pair that would overflow a folder or the total keeps its RAW only.
std::optional<Card> buildCard(const QString &root, const QList<Unit> &units, int count)
{
    Card card{root, {}, {}, 0, 0, 0};
    for (qsizetype next = 0; card.files.size() < count; ++next) {
        const Unit &unit = units[next % units.size()];
        const int placed = int(card.files.size());
        const QString folder = root + QStringLiteral("/DCIM/%1KSRVI").arg(100 + placed / filesPerFolder);
        if (placed % filesPerFolder == 0 && !QDir().mkpath(folder)) {
            std::fprintf(stderr, "Could not create %s\n", qPrintable(folder));
            return std::nullopt;
        }
        const int room = std::min(filesPerFolder - placed % filesPerFolder, count - placed);
        const qsizetype take = std::min<qsizetype>(unit.size(), room);
        const QString stem = folder + QStringLiteral("/IMG_%1.").arg(next + 1, 4, 10, QLatin1Char('0'));
        for (qsizetype i = 0; i < take; ++i) {
            const QString suffix = QFileInfo(unit[i]).suffix();
            if (!place(unit[i], stem + suffix, card)) {
                std::fprintf(stderr, "Could not put %s onto the card\n", qPrintable(unit[i]));
                return std::nullopt;
            }
            card.files << stem + suffix;
            ++card.kinds[suffix.toUpper()];
        }
        card.pairs += take == 2;
    }
    return card;
}

// One untimed run first, so every contender meets the same warm page cache; then the
// median of the timed runs, which shrugs off a single disturbed run.
std::optional<double> medianMs(const std::function<bool()> &run)
{
    if (!run())
        return std::nullopt;
    std::vector<double> times;
    for (int i = 0; i < timedRuns; ++i) {
        QElapsedTimer timer;
        timer.start();
        if (!run())
            return std::nullopt;
        times.push_back(double(timer.nsecsElapsed()) / 1e6);
    }
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

// Output goes to the null device: we time the tool's reading, not a pipe we would drain.
// A non-zero exit code still counts as a run (exiv2 reports files it can't read that way).
bool runTool(const QString &program, const QStringList &arguments, int &exitCode)
{
    QProcess process;
    process.setStandardOutputFile(QProcess::nullDevice());
    process.setStandardErrorFile(QProcess::nullDevice());
    process.start(program, arguments);
    if (!process.waitForFinished(-1) || process.exitStatus() != QProcess::NormalExit) {
        std::printf("  %s did not run to the end: %s\n", qPrintable(program), qPrintable(process.errorString()));
        return false;
    }
    exitCode = process.exitCode();
    return true;
}

// Splits the file list only where the kernel's argument limit forces it; half of ARG_MAX
// leaves room for the environment.
QList<QStringList> argumentBatches(const QStringList &leading, const QStringList &files)
{
    const long argMax = sysconf(_SC_ARG_MAX);
    const long limit = (argMax > 0 ? argMax : 128 * 1024) / 2;
    QList<QStringList> batches;
    long used = limit;
    for (const QString &file : files) {
        const long size = long(QFile::encodeName(file).size()) + 1 + long(sizeof(char *));
        if (used + size > limit) {
            batches << leading;
            used = 0;
        }
        batches.last() << file;
        used += size;
    }
    return batches;
}

void printTime(const char *label, const std::optional<double> &ms, const QString &note)
{
    if (ms)
        std::printf("  %-26s %9.1f ms   %s\n", label, *ms, qPrintable(note));
    else
        std::printf("  %-26s not measured   %s\n", label, qPrintable(note));
}

void printRatio(const char *label, const std::optional<double> &peer, const std::optional<double> &ours,
                double goal)
{
    if (!peer || !ours) {
        std::printf("  %-16s n/a\n", label);
        return;
    }
    const double ratio = *peer / *ours;
    std::printf("  %-16s %6.1fx   goal >= %.1fx   %s\n", label, ratio, goal, ratio >= goal ? "met" : "MISSED");
}

std::optional<double> measureOurs(const Card &card)
{
    qsizetype shots = 0, dated = 0;
    const auto ms = medianMs([&] {
        const QList<Shot> read = DetailReader::readAll(ShotScanner::list(card.root));
        shots = read.size();
        dated = std::count_if(read.begin(), read.end(), [](const Shot &s) { return s.captureDate.has_value(); });
        return !read.isEmpty();
    });
    printTime("ours: list + readAll", ms, QStringLiteral("(%1 shots, %2 with a capture date; %3 threads)")
                                              .arg(shots).arg(dated).arg(QThreadPool::globalInstance()->maxThreadCount()));
    return ms;
}

// One run of a peer is all of `batches`, one process each, one after another.
std::optional<double> measurePeer(const char *label, const QString &name, const QList<QStringList> &batches)
{
    const QString program = QStandardPaths::findExecutable(name);
    if (program.isEmpty()) {
        printTime(label, std::nullopt, QStringLiteral("(%1 not found on PATH)").arg(name));
        return std::nullopt;
    }
    int exitCode = 0;
    const auto ms = medianMs([&] {
        return std::all_of(batches.begin(), batches.end(),
                           [&](const QStringList &arguments) { return runTool(program, arguments, exitCode); });
    });
    QString note = batches.size() == 1 ? QStringLiteral("(1 process")
                                       : QStringLiteral("(%1 processes, as the argument limit forces").arg(batches.size());
    note += exitCode ? QStringLiteral("; exit code %1: some files unreadable to it)").arg(exitCode) : QStringLiteral(")");
    printTime(label, ms, note);
    return ms;
}

void printCard(const Card &card)
{
    std::printf("Card: %s\n  %lld files in %lld folder(s) (%d hard links, %d copies), %d RAW+rendered pairs\n  kinds:",
                qPrintable(card.root), qlonglong(card.files.size()),
                qlonglong((card.files.size() + filesPerFolder - 1) / filesPerFolder), card.linked, card.copied,
                card.pairs);
    for (auto it = card.kinds.cbegin(); it != card.kinds.cend(); ++it)
        std::printf(" %s %d", qPrintable(it.key()), it.value());
    std::printf("\n");
}

// The corpus folders, then the demo shoot's JPEGs; nullopt (after a message) when the
// demo folder named is missing.
std::optional<QList<Unit>> gatherSources(const QString &corpus, const QString &demo)
{
    QList<Unit> units;
    for (const QString &folder : corpusFolders)
        units += collectUnits(corpus + QLatin1Char('/') + folder, photoExtensions);
    if (!demo.isEmpty() && !QFileInfo(demo).isDir()) {
        std::fprintf(stderr, "The demo shoot folder %s does not exist.\n", qPrintable(demo));
        return std::nullopt;
    }
    if (!demo.isEmpty())
        units += collectUnits(demo, demoExtensions);
    return units;
}

// Where the card goes; empty (after a message) when that can't be. An existing card is
// never built over: its files would be overwritten or mixed in.
QString cardRoot(const QString &keep, std::optional<QTemporaryDir> &temporary)
{
    if (keep.isEmpty() && temporary.emplace().isValid())
        return temporary->path();
    if (keep.isEmpty()) {
        std::fprintf(stderr, "Could not create a temporary folder: %s\n", qPrintable(temporary->errorString()));
        return {};
    }
    const QString root = QDir(keep).absolutePath();
    if (!QFileInfo::exists(root + QStringLiteral("/DCIM")))
        return root;
    std::fprintf(stderr, "%s/DCIM already exists; name a folder without one.\n", qPrintable(root));
    return {};
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    ShotScanner::initializeMetadataReader();
    // Each figure shows as soon as it is measured, also through a pipe: a full run takes minutes.
    std::setvbuf(stdout, nullptr, _IOLBF, 0);

    QCommandLineParser parser;
    parser.setApplicationDescription("Times reading a card-sized folder against exiftool and exiv2.");
    parser.addHelpOption();
    parser.addOption({"count", "Number of files on the card.", "N", "5000"});
    parser.addOption({"demo", "Also use the JPEGs of the demo shoot in DIR.", "DIR"});
    parser.addOption({"keep", "Build the card in DIR (holding no DCIM yet) and leave it there.", "DIR"});
    parser.process(app);

    bool ok = false;
    const int count = parser.value("count").toInt(&ok);
    if (!ok || count < 1 || count > maximumCount) {
        std::fprintf(stderr, "--count must be a whole number from 1 to %d.\n", maximumCount);
        return 1;
    }
    const QString corpus = QStringLiteral(SORVI_CORPUS_DIR);
    if (!QFileInfo(corpus).isDir()) {
        std::printf("The camera corpus %s is absent; nothing to measure.\n", qPrintable(corpus));
        return 0;
    }
    const std::optional<QList<Unit>> units = gatherSources(corpus, parser.value("demo"));
    if (units && units->isEmpty())
        std::printf("No photo files in the corpus %s; nothing to measure.\n", qPrintable(corpus));
    if (!units || units->isEmpty())
        return units ? 0 : 1;

    std::optional<QTemporaryDir> temporary; // only made when no --keep folder is given
    const QString root = cardRoot(parser.value("keep"), temporary);
    const std::optional<Card> card = root.isEmpty() ? std::nullopt : buildCard(root, *units, count);
    if (!card)
        return 1;
    printCard(*card);

    std::printf("Times (median of %d after one untimed warm-up each, warm cache):\n", timedRuns);
    const auto ours = measureOurs(*card);
    const auto exiftool = measurePeer("exiftool -fast2 -json -r", QStringLiteral("exiftool"),
                                      {{"-fast2", "-json", "-r", card->root}});
    const auto exiv2 = measurePeer("exiv2 -q -pa FILES", QStringLiteral("exiv2"),
                                   argumentBatches({"-q", "-pa"}, card->files));
    std::printf("Ratios (higher is better for us):\n");
    printRatio("exiftool / ours", exiftool, ours, exiftoolGoal);
    printRatio("exiv2 / ours", exiv2, ours, exiv2Goal);
    return 0;
}
