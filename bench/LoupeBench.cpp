// The single-photo view in the real browser, offscreen at the window's opening size, over
// a folder of 24-megapixel JPEGs and over the corpus RAWs: how long after a Right press the
// next photo's full-quality pixels are painted (a person stepping through, one press every
// 300 ms), the frame times while the key is held (auto-repeat, one press every 33 ms), and
// how long Space takes until the 100 % picture is on screen. Also the most memory the
// prepared neighbour pictures held and the process's peak resident size.
// Goals: p95 under 16 ms per step; no frame over 50 ms while held; 100 % painted within
// 250 ms for a 24 MP JPEG; neighbour pictures under 300 MB.
#include "WindowBench.h"
#include "SorviApp/model/SorviModel.h"
#include "SorviApp/views/BrowserView.h"
#include "SorviApp/views/LoupeView.h"
#include "SorviApp/views/NeighbourPictures.h"
#include "SorviApp/views/ZoomView.h"
#include "SorviKit/library/ShotScanner.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QKeyEvent>
#include <QLinearGradient>
#include <QPainter>
#include <QRadialGradient>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <vector>

namespace {

constexpr int jpegCount = 16;
constexpr int jpegWidth = 6000;
constexpr int jpegHeight = 4000;
constexpr int steps = 15;
constexpr int personGapMs = 300;
constexpr int repeatGapMs = 33;
constexpr int zoomRepeats = 5;
constexpr int waitCapMs = 10000;

constexpr double personGoalMs = 16;
constexpr double frameGoalMs = 50;
constexpr double zoomGoalMs = 250;
constexpr double neighbourBoundMb = 300;

// One clock for the whole run, so times taken in slots and in loops compare.
QElapsedTimer runClock;
double nowMs() { return runClock.nsecsElapsed() / 1e6; }

// Records when a widget inside `watched` finished painting: the zoomed picture's paint
// comes from the backing store's nested sends, which notify() sees like any other.
class PaintWatchingApplication : public QApplication {
public:
    using QApplication::QApplication;
    bool notify(QObject *receiver, QEvent *event) override
    {
        const bool result = QApplication::notify(receiver, event);
        if (watched && event->type() == QEvent::Paint && receiver->isWidgetType()) {
            auto *widget = static_cast<QWidget *>(receiver);
            if (widget == watched || watched->isAncestorOf(widget))
                lastPaintMs = nowMs();
        }
        return result;
    }
    QWidget *watched = nullptr;
    double lastPaintMs = -1;
};

// A picture that does not compress to nothing: a gradient, per-pixel noise and shapes,
// different for every index.
QImage syntheticPicture(int index)
{
    QImage image(jpegWidth, jpegHeight, QImage::Format_RGB32);
    const QColor from = QColor::fromHsv(index * 23 % 360, 170, 230);
    const QColor to = QColor::fromHsv((index * 23 + 150) % 360, 200, 70);
    quint32 state = 0x9E3779B9u * quint32(index + 1);
    for (int y = 0; y < jpegHeight; ++y) {
        auto *line = reinterpret_cast<QRgb *>(image.scanLine(y));
        for (int x = 0; x < jpegWidth; ++x) {
            state ^= state << 13;
            state ^= state >> 17;
            state ^= state << 5;
            const int t = (x + y) * 256 / (jpegWidth + jpegHeight);
            const int noise = int(state & 31) - 16;
            const auto mix = [&](int a, int b) { return std::clamp(a + (b - a) * t / 256 + noise, 0, 255); };
            line[x] = qRgb(mix(from.red(), to.red()), mix(from.green(), to.green()), mix(from.blue(), to.blue()));
        }
    }
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    for (int s = 0; s < 40; ++s) {
        const int cx = (index * 977 + s * 1531) % jpegWidth;
        const int cy = (index * 613 + s * 887) % jpegHeight;
        const int r = 80 + (s * 53 + index * 31) % 500;
        QRadialGradient shade(cx, cy, r);
        shade.setColorAt(0, QColor::fromHsv((index * 40 + s * 17) % 360, 220, 255));
        shade.setColorAt(1, QColor::fromHsv((index * 40 + s * 17 + 90) % 360, 150, 40, 160));
        painter.setBrush(shade);
        painter.setPen(QPen(Qt::black, 3));
        if (s % 3 == 0)
            painter.drawEllipse(QPoint(cx, cy), r, r * 2 / 3);
        else if (s % 3 == 1)
            painter.drawRect(cx - r, cy - r / 2, 2 * r, r);
        else
            painter.drawLine(cx - r, cy - r, cx + 2 * r, cy + r);
    }
    painter.setFont(QFont(QStringLiteral("Sans"), 160));
    painter.setPen(Qt::white);
    painter.drawText(QRect(0, 0, jpegWidth, jpegHeight), Qt::AlignCenter, QStringLiteral("Frame %1").arg(index + 1));
    return image;
}

bool writeJpegFolder(const QString &dir)
{
    for (int i = 0; i < jpegCount; ++i)
        if (!syntheticPicture(i).save(dir + QStringLiteral("/IMG_%1.JPG").arg(i + 1, 4, 10, QLatin1Char('0')), "JPG", 90))
            return false;
    return true;
}

bool copyRawFolder(const QString &from, const QString &to)
{
    const QStringList names = QDir(from).entryList(QDir::Files);
    for (const QString &name : names)
        if (!name.endsWith(QLatin1String(".json")) && !QFile::copy(from + QLatin1Char('/') + name, to + QLatin1Char('/') + name))
            return false;
    return true;
}

// Runs the loop until `done` holds or `capMs` passes; whether it held.
bool waitUntil(const std::function<bool()> &done, int capMs)
{
    QElapsedTimer timer;
    timer.start();
    while (!done()) {
        if (timer.elapsed() >= capMs)
            return false;
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 5);
    }
    return true;
}

void idleUntil(double atMs)
{
    while (nowMs() < atMs)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, std::max(1, int(atMs - nowMs())));
}

double percentile(std::vector<double> values, double fraction)
{
    if (values.empty())
        return -1;
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, size_t(values.size() * fraction))];
}

const char *verdict(bool met) { return met ? "met" : "MISSED"; }

double vmHwmMb()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray &line : status.readAll().split('\n'))
        if (line.startsWith("VmHWM:"))
            return line.mid(6).trimmed().split(' ').value(0).toDouble() / 1024;
    return -1;
}

QString cpuModel()
{
    QFile info(QStringLiteral("/proc/cpuinfo"));
    if (!info.open(QIODevice::ReadOnly))
        return QStringLiteral("unknown");
    for (const QByteArray &line : info.readAll().split('\n'))
        if (line.startsWith("model name"))
            return QString::fromUtf8(line.mid(line.indexOf(':') + 1).trimmed());
    return QStringLiteral("unknown");
}

// What the loupe painted last, with the selection it painted.
struct Paints {
    double anyMs = -1;
    double fullMs = -1;
    QString fullId;
    int standIns = 0; ///< paints of a stand-in (or of nothing) while the picture loads
};

struct Session {
    SorviModel &model;
    BrowserView &browser;
    LoupeView &loupe;
    Paints &paints;
    qint64 &peakNeighbourBytes;

    QString name(const QString &id) const { return QFileInfo(id).fileName(); }
    void sample() { peakNeighbourBytes = std::max(peakNeighbourBytes, loupe.neighbours().bytes()); }
    bool waitForFull(const QString &id, double afterMs, int capMs = waitCapMs)
    {
        return waitUntil([&] { return (paints.fullMs >= afterMs && paints.fullId == id) || loupe.hasNoPicture(); }, capMs);
    }
    // Back to the first shot, its full-quality picture painted and the neighbours settled.
    void restart()
    {
        const QString first = model.visibleShots().first().id;
        const double at = nowMs();
        model.setSelection(first);
        if (!waitForFull(first, at))
            std::printf("  (the first photo never painted at full quality)\n");
        idleUntil(nowMs() + 500);
    }
};

void runPerson(Session &s)
{
    std::printf("  person, Right every %d ms:\n", personGapMs);
    std::vector<double> times;
    int misses = 0;
    int standInFirst = 0;
    QStringList missed, undecodable;
    for (int i = 0; i < steps; ++i) {
        const QString before = s.model.selection();
        const double sent = nowMs();
        const int standInsBefore = s.paints.standIns;
        WindowBench::press(&s.browser, Qt::Key_Right);
        const QString target = s.model.selection();
        if (target == before) {
            std::printf("    end of the folder after %d presses\n", i);
            break;
        }
        if (s.waitForFull(target, sent) && s.loupe.hasNoPicture()) {
            undecodable << s.name(target); // the loupe says so at once; there is nothing to time
        } else if (s.paints.fullId == target && s.paints.fullMs >= sent) {
            times.push_back(s.paints.fullMs - sent);
            // A stand-in painted first says the neighbour's picture was not ready at the press.
            if (s.paints.standIns > standInsBefore)
                ++standInFirst;
        } else {
            ++misses;
            missed << s.name(target);
        }
        s.sample();
        idleUntil(sent + personGapMs);
    }
    const double p95 = percentile(times, 0.95);
    std::printf("    n=%zu  p50 %7.1f ms  p95 %7.1f ms  worst %7.1f ms  misses (>10 s) %d  — goal p95 < %.0f ms: %s\n",
                times.size(), percentile(times, 0.5), p95, percentile(times, 1.0), misses, personGoalMs,
                verdict(misses == 0 && !times.empty() && p95 < personGoalMs));
    std::printf("    each:");
    for (double t : times)
        std::printf(" %.0f", t);
    std::printf("\n");
    if (!missed.isEmpty())
        std::printf("    never full quality: %s\n", qPrintable(missed.join(QStringLiteral(", "))));
    if (!undecodable.isEmpty())
        std::printf("    no picture in the file (shown as such, not timed): %s\n",
                    qPrintable(undecodable.join(QStringLiteral(", "))));
    if (standInFirst > 0)
        std::printf("    %d steps painted a stand-in first (the neighbour's picture was not ready)\n", standInFirst);
}

void runHeld(Session &s)
{
    std::printf("  held key, Right every %d ms:\n", repeatGapMs);
    struct Press {
        double sentMs = 0;
        QString target;
        double frameMs = -1; // until the next paint of any kind
        bool fullBeforeNext = false;
    };
    std::vector<Press> presses;
    bool held = true;
    const QMetaObject::Connection watch =
        QObject::connect(&s.loupe, &LoupeView::photoPainted, &s.loupe, [&](bool fullQuality) {
            if (!held || presses.empty())
                return;
            for (Press &p : presses)
                if (p.frameMs < 0)
                    p.frameMs = nowMs() - p.sentMs;
            if (fullQuality && s.model.selection() == presses.back().target)
                presses.back().fullBeforeNext = true;
        });
    QEventLoop loop;
    QTimer repeat;
    repeat.setInterval(repeatGapMs);
    QObject::connect(&repeat, &QTimer::timeout, &loop, [&] {
        if (int(presses.size()) == steps || s.model.selection() == s.model.visibleShots().last().id) {
            repeat.stop();
            loop.quit();
            return;
        }
        Press p;
        p.sentMs = nowMs();
        WindowBench::press(&s.browser, Qt::Key_Right);
        p.target = s.model.selection();
        presses.push_back(p);
        s.sample();
    });
    repeat.start();
    loop.exec();
    // The last press has no next one: give it the person's cap.
    s.waitForFull(presses.back().target, presses.back().sentMs);
    held = false;
    QObject::disconnect(watch);
    s.sample();

    std::vector<double> frames;
    int full = 0;
    int unpainted = 0;
    for (const Press &p : presses) {
        if (p.frameMs >= 0)
            frames.push_back(p.frameMs);
        else
            ++unpainted;
        full += p.fullBeforeNext;
    }
    const double worst = percentile(frames, 1.0);
    std::printf("    n=%zu  frame p50 %7.1f ms  p95 %7.1f ms  worst %7.1f ms  — goal no frame > %.0f ms: %s\n",
                presses.size(), percentile(frames, 0.5), percentile(frames, 0.95), worst, frameGoalMs,
                verdict(unpainted == 0 && !frames.empty() && worst <= frameGoalMs));
    std::printf("    each:");
    for (double t : frames)
        std::printf(" %.0f", t);
    std::printf("\n    full quality painted before the next press: %d of %zu%s\n", full, presses.size(),
                unpainted ? qPrintable(QStringLiteral("; %1 presses never painted").arg(unpainted)) : "");
}

void runZoom(Session &s, PaintWatchingApplication &app, bool isJpeg)
{
    std::printf("  zoom, Space then Escape on %d photos:\n", zoomRepeats);
    ZoomView *zoom = s.loupe.zoomView();
    app.watched = zoom;
    double fullShownMs = -1;
    const QMetaObject::Connection watch =
        QObject::connect(zoom, &ZoomView::fullShown, zoom, [&] { fullShownMs = nowMs(); });
    int met = 0;
    int tried = 0;
    for (int k = 0; k < zoomRepeats; ++k) {
        if (k > 0) {
            const QString before = s.model.selection();
            const double at = nowMs();
            WindowBench::press(&s.browser, Qt::Key_Right);
            if (s.model.selection() == before)
                break;
            s.waitForFull(s.model.selection(), at);
            idleUntil(nowMs() + 300);
        }
        const QString id = s.model.selection();
        fullShownMs = -1;
        const double sent = nowMs();
        WindowBench::press(&s.browser, Qt::Key_Space, QStringLiteral(" "));
        const bool shown = waitUntil([&] { return fullShownMs >= sent && app.lastPaintMs > fullShownMs; }, waitCapMs);
        s.sample();
        ++tried;
        if (shown) {
            const double painted = app.lastPaintMs - sent;
            met += painted < zoomGoalMs;
            std::printf("    %-40s full shown %7.1f ms, painted %7.1f ms  %s\n", qPrintable(s.name(id)),
                        fullShownMs - sent, painted, isJpeg ? verdict(painted < zoomGoalMs) : "");
        } else {
            std::printf("    %-40s not shown within 10 s (%s)\n", qPrintable(s.name(id)),
                        zoom->hasFailed() ? "the decode failed" : "still decoding");
        }
        const double out = nowMs();
        WindowBench::press(&s.browser, Qt::Key_Escape);
        s.waitForFull(id, out);
        s.sample();
    }
    QObject::disconnect(watch);
    app.watched = nullptr;
    if (isJpeg)
        std::printf("    within %.0f ms: %d of %d — goal all: %s\n", zoomGoalMs, met, tried, verdict(met == tried && tried > 0));
}

// Runs `phase` in a browser of its own over a model of its own, so every phase starts with
// cold caches as a freshly opened folder does.
bool inFreshBrowser(const QString &folder, qint64 &peak, const std::function<void(Session &)> &phase)
{
    SorviModel::Options options;
    options.runsChecks = false; // the checks would take the cores away from the views
    SorviModel model(options);
    BrowserView browser(model);
    browser.resize(1240, 820);
    browser.show();
    browser.setFocus();
    LoupeView *loupe = browser.findChild<LoupeView *>();
    Paints paints;
    QObject::connect(loupe, &LoupeView::photoPainted, loupe, [&](bool fullQuality) {
        paints.anyMs = nowMs();
        if (fullQuality) {
            paints.fullMs = paints.anyMs;
            paints.fullId = model.selection();
        } else {
            ++paints.standIns;
        }
    });
    QCoreApplication::processEvents();

    model.open(folder);
    if (!waitUntil([&] { return !model.visibleShots().isEmpty() && !model.loading(); }, 120000)) {
        std::printf("  the folder did not finish opening\n");
        return false;
    }
    model.setMode(SorviModel::Mode::loupe);
    Session session{model, browser, *loupe, paints, peak};
    session.restart();
    phase(session);
    return true;
}

void runFolder(const char *title, const QString &folder, bool isJpeg, PaintWatchingApplication &app, qint64 &peak)
{
    std::printf("\n%s\n", title);
    inFreshBrowser(folder, peak, [](Session &s) {
        std::printf("  %lld shots\n", qlonglong(s.model.visibleShots().size()));
        runPerson(s);
    }) && inFreshBrowser(folder, peak, runHeld) && inFreshBrowser(folder, peak, [&](Session &s) {
        runZoom(s, app, isJpeg);
        std::printf("  neighbour pictures after zooming: %.1f MB\n", s.loupe.neighbours().bytes() / 1048576.0);
    });
}

} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QTemporaryDir home; // catalogs and settings of this run only
    QTemporaryDir jpegs;
    QTemporaryDir raws;
    if (!home.isValid() || !jpegs.isValid() || !raws.isValid())
        return 1;
    WindowBench::useScratchHome(home);
    PaintWatchingApplication app(argc, argv);
    WindowBench::nameApplication();
    ShotScanner::initializeMetadataReader();
    runClock.start();

    std::printf("machine: %d cores, %s\n", QThread::idealThreadCount(), qPrintable(cpuModel()));
    std::printf("goals: person p95 < %.0f ms; held key no frame > %.0f ms; 100 %% zoom of a 24 MP JPEG painted < %.0f ms;"
                " neighbour pictures < %.0f MB\n",
                personGoalMs, frameGoalMs, zoomGoalMs, neighbourBoundMb);

    const double writing = nowMs();
    if (!writeJpegFolder(jpegs.path())) {
        std::fprintf(stderr, "could not write the JPEGs in %s\n", qPrintable(jpegs.path()));
        return 1;
    }
    std::printf("wrote %d JPEGs of %dx%d in %.1f s\n", jpegCount, jpegWidth, jpegHeight, (nowMs() - writing) / 1000);

    qint64 peakNeighbourBytes = 0;
    runFolder("A: 24 MP JPEGs", jpegs.path(), true, app, peakNeighbourBytes);

    const QString rawSource = QStringLiteral(SORVI_CORPUS_DIR) + QStringLiteral("/raw");
    if (!QDir(rawSource).exists())
        std::printf("\nB: RAW files — skipped, %s is absent\n", qPrintable(rawSource));
    else if (!copyRawFolder(rawSource, raws.path()))
        std::printf("\nB: RAW files — skipped, could not copy %s\n", qPrintable(rawSource));
    else
        runFolder("B: corpus RAW files (copies)", raws.path(), false, app, peakNeighbourBytes);

    const double peakMb = peakNeighbourBytes / 1048576.0;
    std::printf("\nmemory: most held by neighbour pictures %.1f MB (bound %.0f MB: %s); process peak RSS %.0f MB\n",
                peakMb, neighbourBoundMb, verdict(peakMb < neighbourBoundMb), vmHwmMb());
    double load[3] = {};
    if (getloadavg(load, 3) == 3)
        std::printf("machine load average at the end: %.2f\n", load[0]);
    return 0;
}
