// The browser over a folder of 5,000 photos, offscreen at the window's opening size: the
// time from opening the folder until the first screenful of thumbnails is painted, then
// how long the GUI thread is busy while scrolling page by page and moving with the arrow
// keys. Each input is timed from its delivery until the loop is idle again (its repaint
// included); separately, every event the GUI thread dispatched meanwhile (thumbnails
// arriving, the model publishing details) is timed on its own. Goals: first screenful
// under 1.5 s, 95th percentile per input under 16 ms.
#include "WindowBench.h"
#include "SorviApp/views/BrowserView.h"
#include "SorviApp/views/GridView.h"
#include "SorviKit/library/ShotScanner.h"
#include "SorviApp/model/SorviModel.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QKeyEvent>
#include <QLinearGradient>
#include <QPainter>
#include <QScrollBar>
#include <QTemporaryDir>
#include <QThread>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <vector>

namespace {

constexpr int photoCount = 5000;
constexpr int distinctPictures = 12;
constexpr int pages = 40;
constexpr int arrowPresses = 150;
// About the rate of a held arrow key.
constexpr int inputGapMs = 30;

bool writeFolder(const QString &dir)
{
    QStringList pictures;
    for (int i = 0; i < distinctPictures; ++i) {
        QImage image(960, 640, QImage::Format_RGB32);
        QPainter painter(&image);
        QLinearGradient gradient(0, 0, 960, 640);
        gradient.setColorAt(0, QColor::fromHsv(i * 30, 180, 220));
        gradient.setColorAt(1, QColor::fromHsv((i * 30 + 120) % 360, 200, 90));
        painter.fillRect(image.rect(), gradient);
        painter.setBrush(Qt::white);
        painter.drawEllipse(QPoint(200 + i * 50, 320), 120, 120);
        painter.end();
        const QString path = dir + QStringLiteral("/source-%1.jpeg").arg(i);
        if (!image.save(path, "JPEG", 85))
            return false;
        pictures << path;
    }
    for (int i = 0; i < photoCount; ++i)
        if (!QFile::copy(pictures[i % distinctPictures], dir + QStringLiteral("/shoot/IMG_%1.JPG").arg(i + 1, 4, 10, QLatin1Char('0'))))
            return false;
    return true;
}

double threadCpuMs()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return now.tv_sec * 1e3 + now.tv_nsec / 1e6;
}

// The GUI thread's own processor time per input, apart from the wall time: on a machine
// whose cores are all decoding, the difference is time spent waiting for a core.
std::vector<double> cpuTimes;

// One input: delivered, then everything it caused until the loop is idle.
double timed(const std::function<void()> &input)
{
    QElapsedTimer timer;
    timer.start();
    const double cpu = threadCpuMs();
    input();
    QCoreApplication::processEvents();
    cpuTimes.push_back(threadCpuMs() - cpu);
    return timer.nsecsElapsed() / 1e6;
}

} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QTemporaryDir home; // catalogs and settings of this run only
    QTemporaryDir dir;
    if (!home.isValid() || !dir.isValid() || !QDir(dir.path()).mkpath(QStringLiteral("shoot")))
        return 1;
    WindowBench::useScratchHome(home);
    WindowBench::TimingApplication app(argc, argv);
    WindowBench::nameApplication();
    ShotScanner::initializeMetadataReader();
    if (!writeFolder(dir.path())) {
        std::fprintf(stderr, "could not write the test folder in %s\n", qPrintable(dir.path()));
        return 1;
    }

    SorviModel::Options options;
    options.runsChecks = false; // the checks would take the cores for minutes
    SorviModel model(options);
    BrowserView browser(model);
    browser.resize(1240, 820);
    browser.show();
    browser.setFocus();
    GridView *grid = browser.findChild<GridView *>();
    QCoreApplication::processEvents();

    QElapsedTimer opening;
    opening.start();
    model.open(dir.filePath(QStringLiteral("shoot")));
    while (grid->count() == 0 || !grid->isScreenLoaded())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
    grid->viewport()->repaint();
    std::printf("%d photos, %d columns; first screenful painted after %lld ms (goal < 1500 ms)\n", grid->count(),
                grid->columns(), opening.elapsed());

    std::vector<double> scrolling, arrows;
    app.record(true);
    for (int page = 0; page < pages; ++page) {
        QScrollBar *bar = grid->verticalScrollBar();
        scrolling.push_back(timed([bar] { bar->setValue(bar->value() + bar->pageStep()); }));
        WindowBench::idle(inputGapMs);
    }
    for (int i = 0; i < arrowPresses; ++i) {
        const Qt::Key key = i % 3 == 2 ? Qt::Key_Right : Qt::Key_Down;
        arrows.push_back(timed([&browser, key] { WindowBench::press(&browser, key); }));
        WindowBench::idle(inputGapMs);
    }
    app.record(false);
    std::vector<double> all = scrolling;
    all.insert(all.end(), arrows.begin(), arrows.end());
    WindowBench::report("scroll a page (input → idle)", scrolling);
    WindowBench::report("arrow key (input → idle)", arrows);
    WindowBench::report("all inputs (goal p95 < 16 ms)", all);
    WindowBench::report("GUI thread CPU per input", cpuTimes);
    WindowBench::report("every event dispatched meanwhile", app.dispatched);
    std::printf("details still loading at the end: %s\n", model.loading() ? "yes" : "no");
    double load[3] = {};
    if (getloadavg(load, 3) == 3)
        std::printf("machine load average during the run: %.2f (on %d cores)\n", load[0], QThread::idealThreadCount());
    return 0;
}
