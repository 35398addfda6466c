#include "SorviKit/demo/DemoShoot.h"
#include "SorviKit/core/FileError.h"
#include "SorviKit/core/Wording.h"

#include "SorviKit/demo/DemoExif.h"
#include "SorviKit/demo/DemoRaw.h"
#include "SorviKit/demo/DemoScene.h"
#include "SorviKit/demo/DemoShoot_p.h"

#include <QDir>
#include <QFileInfo>
#include <QHash>
#include <QMutex>
#include <QSaveFile>
#include <QSet>
#include <QWaitCondition>
#include <QtConcurrent/QtConcurrentMap>

#include <algorithm>
#include <atomic>
#include <iterator>
#include <numeric>
#include <optional>

namespace DemoShoot {
namespace {

constexpr int offsetSeconds = 2 * 3600;

struct Camera {
    QString folder;
    QString prefix;
    QString make;
    QString model;
    QString lens;
    QList<int> focalLengths;
    QList<double> apertures;
};

const Camera &camera(int index)
{
    static const Camera cameras[] = {
        {"DCIM/100KSRVI", "KSR_", "Canon", "Canon EOS R6", "RF24-105mm F4 L IS USM",
         {24, 35, 50, 70, 85, 105}, {4.0, 5.6, 8.0, 11.0}},
        {"DCIM/101NIKON", "DSC_", "NIKON CORPORATION", "NIKON Z 6_2", "NIKKOR Z 24-70mm f/4 S",
         {24, 28, 35, 50, 70}, {4.0, 5.6, 8.0}},
    };
    return cameras[index];
}

// How a camera's name is shown: the model alone when it already starts with the maker's
// first word ("Canon" + "Canon EOS R6"), otherwise make and model together.
QString cameraName(const QString &make, const QString &model)
{
    const QString trimmedMake = make.trimmed();
    const QString firstWord = trimmedMake.isEmpty() ? QStringLiteral("~")
                                                    : trimmedMake.toLower().split(' ').first();
    if (model.toLower().startsWith(firstWord))
        return model.trimmed();
    return (trimmedMake + ' ' + model).trimmed();
}

enum class Kind { Single, Burst, Pair };

struct Event {
    Kind kind;
    int camera;
    int size;
};

// A fixed opening (single, burst, single, both cameras at once) makes sure even the
// smallest shoot has every kind of moment; the rest is left to chance.
QList<Event> events(int count, Random &random)
{
    const Kind opening[] = {Kind::Single, Kind::Burst, Kind::Single, Kind::Pair};
    QList<Event> result;
    int remaining = count;
    while (remaining > 0) {
        const int index = int(result.size());
        Kind kind = index < 4 ? opening[index]
                    : random.chance(30) ? Kind::Burst
                    : random.chance(10) ? Kind::Pair
                                        : Kind::Single;
        if ((kind == Kind::Burst && remaining < 3) || (kind == Kind::Pair && remaining < 2))
            kind = Kind::Single;
        const int size = kind == Kind::Burst ? std::min(random.between(3, 6), remaining)
                         : kind == Kind::Pair ? 2
                                              : 1;
        const int cameraIndex = index == 0 || random.chance(75) ? 0 : 1;
        result.append({kind, cameraIndex, size});
        remaining -= size;
    }
    return result;
}

struct Exposure {
    int denominator;
    double fNumber;
    int iso;
    int focalLengthMm;
};

Exposure exposure(int cameraIndex, Random &random)
{
    const Camera &c = camera(cameraIndex);
    return {random.pick(QList<int>{125, 250, 320, 500, 800, 1000, 2000}), random.pick(c.apertures),
            random.pick(QList<int>{100, 200, 400, 640, 800, 1600}), random.pick(c.focalLengths)};
}

DemoFrame frame(int cameraIndex, qint64 hundredths, const Exposure &e, quint32 sceneSeed,
                QPointF shift, Random &random)
{
    static const QDateTime start =
        QDateTime(QDate(2025, 9, 14), QTime(10, 0), Qt::OffsetFromUTC, offsetSeconds).toUTC();
    const Camera &c = camera(cameraIndex);
    DemoFrame f;
    f.camera = cameraName(c.make, c.model);
    f.make = c.make;
    f.model = c.model;
    f.lens = c.lens;
    f.captureTime = start.addMSecs(hundredths * 10);
    f.offsetText = QStringLiteral("+02:00");
    f.width = pictureWidth;
    f.height = pictureHeight;
    f.exposureDenominator = e.denominator;
    f.fNumber = e.fNumber;
    f.iso = e.iso;
    f.focalLengthMm = e.focalLengthMm;
    f.sceneSeed = sceneSeed;
    f.grainSeed = random.next();
    f.sceneShift = shift;
    return f;
}

QPointF randomShift(Random &random, int reach)
{
    return QPointF(random.between(-reach, reach), random.between(-reach, reach));
}

// Lays the events out in time: seconds to minutes between moments, 0.2–0.8 s between
// the frames of a burst, and both cameras inside one clock second for a pair.
QList<DemoFrame> timeline(const QList<Event> &events, Random &random)
{
    QList<DemoFrame> frames;
    qint64 time = 0; // hundredths of a second after the start of the shoot
    int bursts = 0;
    for (const Event &event : events) {
        time += random.chance(12) ? random.between(12000, 60000) : random.between(400, 9000);
        const quint32 scene = random.next();
        QPointF shift = randomShift(random, 24);
        if (event.kind == Kind::Pair) {
            time = time / 100 * 100 + random.between(0, 40);
            frames.append(frame(0, time, exposure(0, random), scene, shift, random));
            time += random.between(20, 55);
            shift += QPointF(random.between(40, 70), random.between(-15, 15));
            frames.append(frame(1, time, exposure(1, random), scene, shift, random));
            continue;
        }
        const Exposure e = exposure(event.camera, random);
        const int burst = event.kind == Kind::Burst ? ++bursts : 0;
        for (int i = 0; i < event.size; ++i) {
            if (i > 0) {
                time += random.between(20, 80);
                shift += randomShift(random, 6);
            }
            frames.append(frame(event.camera, time, e, scene, shift, random));
            frames.last().burst = burst;
        }
    }
    return frames;
}

void nameFiles(QList<DemoFrame> &frames)
{
    int counters[2] = {0, 0};
    for (DemoFrame &f : frames) {
        const int index = f.make == camera(0).make ? 0 : 1;
        const QString base = QStringLiteral("%1/%2%3")
                                 .arg(camera(index).folder, camera(index).prefix)
                                 .arg(++counters[index], 4, 10, QLatin1Char('0'));
        f.relativePath = base + (f.files == DemoFrame::Files::raw ? ".DNG" : ".JPG");
        f.rawRelativePath = f.files == DemoFrame::Files::jpeg ? QString() : base + ".DNG";
    }
}

// Damage, sideways storage and blur each go to different frames so that every frame
// shows one thing. Damage stays outside bursts and away from the two-camera moments,
// which only show as such when their dates can be read.
void markSpecialFrames(QList<DemoFrame> &frames, const QSet<int> &pairFrames, Random &random)
{
    QList<int> singles;
    QHash<int, QList<int>> burstFrames;
    for (int i = 0; i < frames.size(); ++i) {
        if (frames[i].burst > 0)
            burstFrames[frames[i].burst].append(i);
        else if (!pairFrames.contains(i))
            singles.append(i);
    }
    QList<int> mainSingles;
    std::copy_if(singles.begin(), singles.end(), std::back_inserter(mainSingles),
                 [&](int i) { return frames[i].make == camera(0).make; });
    const int damaged = random.take(mainSingles);
    frames[damaged].damagedMetadata = true;
    singles.removeOne(damaged);

    const int sideways = frames.size() >= 30 ? 2 : 1;
    for (int n = 0; n < sideways && !singles.isEmpty(); ++n) {
        DemoFrame &f = frames[random.take(singles)];
        f.orientation = 6;
        std::swap(f.width, f.height);
    }

    int blurred = random.between(3, 4);
    QList<int> burstNumbers = burstFrames.keys();
    std::sort(burstNumbers.begin(), burstNumbers.end());
    QList<int> restOfBursts;
    for (int n = 0; n < 2 && !burstNumbers.isEmpty(); ++n, --blurred) {
        QList<int> members = burstFrames.value(random.take(burstNumbers));
        frames[random.take(members)].blurred = true;
        restOfBursts += members;
    }
    for (; blurred > 0 && !(singles.isEmpty() && restOfBursts.isEmpty()); --blurred)
        frames[random.take(singles.isEmpty() ? restOfBursts : singles)].blurred = true;
}

// RAW files go where they show most: a whole burst, whose dates then come from RAW files;
// the first sideways frame, whose DNG previews are stored turned as its JPEG is; and a
// few frames at random. The damaged frame stays a lone JPEG, so no RAW twin fills in the
// details its own file lacks.
void chooseFiles(QList<DemoFrame> &frames, Random &random)
{
    int bursts = 0; // numbered 1…n
    for (const DemoFrame &f : std::as_const(frames))
        bursts = std::max(bursts, f.burst);
    const int rawBurst = random.between(1, bursts);
    QList<int> others;
    for (int i = 0; i < frames.size(); ++i) {
        if (frames[i].burst == rawBurst)
            frames[i].files = DemoFrame::Files::rawAndJpeg;
        else if (!frames[i].damagedMetadata)
            others.append(i);
    }
    const auto sideways = std::find_if(others.begin(), others.end(), [&](int i) { return frames[i].orientation == 6; });
    if (sideways != others.end()) {
        frames[*sideways].files = DemoFrame::Files::rawAndJpeg;
        others.erase(sideways);
    }
    const int count = int(frames.size());
    for (int n = std::max(1, count / 20); n > 0 && !others.isEmpty(); --n)
        frames[random.take(others)].files = DemoFrame::Files::rawAndJpeg;
    for (int n = std::max(1, count / 30); n > 0 && !others.isEmpty(); --n)
        frames[random.take(others)].files = DemoFrame::Files::raw;
}

} // namespace

QList<DemoFrame> plan(int count)
{
    Random random(20250914);
    const QList<Event> moments = events(std::clamp(count, minimumCount, maximumCount), random);
    QList<DemoFrame> frames = timeline(moments, random);
    QSet<int> pairFrames;
    for (int i = 0, first = 0; i < moments.size(); first += moments[i].size, ++i) {
        if (moments[i].kind == Kind::Pair)
            pairFrames << first << first + 1;
    }
    markSpecialFrames(frames, pairFrames, random);
    chooseFiles(frames, random);
    nameFiles(frames);
    return frames;
}

QStringList relativePaths(const DemoFrame &frame)
{
    QStringList files;
    if (frame.files != DemoFrame::Files::jpeg)
        files << frame.rawRelativePath;
    if (frame.files != DemoFrame::Files::raw)
        files << frame.relativePath;
    return files;
}

namespace {

std::optional<QString> refuseExisting(const QDir &root, const QList<DemoFrame> &frames)
{
    for (const DemoFrame &f : frames) {
        for (const QString &file : relativePaths(f)) {
            if (QFileInfo::exists(root.filePath(file)))
                return QStringLiteral("%1 already contains %2; demo photos are never written over "
                                      "existing files, so choose an empty folder.")
                    .arg(QDir::toNativeSeparators(root.path()), file);
        }
    }
    return std::nullopt;
}

std::optional<QString> makeFolders(const QDir &root, const QList<DemoFrame> &frames)
{
    QSet<QString> folders;
    for (const DemoFrame &f : frames)
        folders.insert(QFileInfo(root.filePath(f.relativePath)).path());
    for (const QString &folder : std::as_const(folders)) {
        if (!QDir().mkpath(folder))
            return QStringLiteral("Could not create the folder %1.").arg(QDir::toNativeSeparators(folder));
    }
    return std::nullopt;
}

std::optional<QString> saveNew(const QString &path, const std::optional<QByteArray> &bytes, const QString &error)
{
    const QString shown = QDir::toNativeSeparators(path);
    if (!bytes)
        return QStringLiteral("Could not make %1: %2").arg(shown, error);
    // Checked again because another program may have put a file there since the start.
    if (QFileInfo::exists(path))
        return QStringLiteral("%1 appeared while the demo was being written; it was left alone.").arg(shown);
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(*bytes) != bytes->size() || !file.commit())
        return QStringLiteral("Could not write %1: %2").arg(shown, file.errorString());
    return std::nullopt;
}

// Draws and encodes the picture once for all of the frame's files: the JPEG's pixels and
// the DNG's full-size preview are the same bytes, as a camera's would be.
std::optional<QString> writeFrame(const QDir &root, const DemoFrame &frame, int &filesWritten)
{
    const QImage picture = DemoScene::render(frame);
    QString error;
    const std::optional<DemoExif::Encoded> encoded = DemoExif::encode(picture, &error);
    for (const QString &file : relativePaths(frame)) {
        const std::optional<QByteArray> bytes = !encoded ? std::nullopt
                                                : file == frame.rawRelativePath
                                                    ? DemoRaw::dngFile(picture, *encoded, frame, &error)
                                                    : DemoExif::jpegFile(*encoded, frame, &error);
        if (auto failure = saveNew(root.filePath(file), bytes, error))
            return failure;
        ++filesWritten;
    }
    return std::nullopt;
}

// Workers count their frames here so that the caller's progress callback runs on the
// caller's own thread.
struct Tally {
    QMutex lock;
    QWaitCondition changed;
    int done = 0;
    int written = 0;
    int photos = 0;
    QString error;
    std::atomic_bool failed = false;

    void record(bool attempted, const std::optional<QString> &failure, int files)
    {
        const QMutexLocker locker(&lock);
        if (failure && !failed.exchange(true))
            error = *failure;
        if (attempted && !failure)
            ++photos;
        written += files;
        ++done;
        changed.wakeAll();
    }

    void reportUntil(int total, const std::function<void(int, int)> &progress)
    {
        QMutexLocker locker(&lock);
        for (int reported = 0; reported < total;) {
            while (done == reported)
                changed.wait(&lock);
            reported = done;
            if (progress) {
                locker.unlock();
                progress(reported, total);
                locker.relock();
            }
        }
    }
};

} // namespace

WriteResult write(const QString &dir, int count, const std::function<void(int, int)> &progress)
{
    const QList<DemoFrame> frames = plan(count);
    const QDir root(dir);
    if (const auto error = refuseExisting(root, frames))
        throw FileError(*error);
    if (const auto error = makeFolders(root, frames))
        throw FileError(*error);

    Tally tally;
    QList<int> indices(frames.size());
    std::iota(indices.begin(), indices.end(), 0);
    QFuture<void> work = QtConcurrent::map(indices, [&](int index) {
        // After the first failure the remaining frames are skipped rather than written.
        const bool attempted = !tally.failed;
        int files = 0;
        const std::optional<QString> failure = attempted ? writeFrame(root, frames[index], files) : std::nullopt;
        tally.record(attempted, failure, files);
    });
    tally.reportUntil(int(frames.size()), progress);
    work.waitForFinished();
    if (tally.failed)
        throw FileError(tally.written == 0 ? tally.error
                                           : QStringLiteral("%1 (%2 written before the failure.)")
                                                 .arg(tally.error, Wording::counted(tally.written, QStringLiteral("file"))));
    return {tally.written, tally.photos};
}

} // namespace DemoShoot
