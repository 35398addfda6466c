// How fast a card is checked: photos per second through the application's check run
// (preview from the file, sharpness, faces and eyes, results stored) on every core, for
// 24 MP JPEGs without and with faces and for RAW files whose embedded previews are read.
// Then the window's side of it: the browser (offscreen) over 600 of those JPEGs, scrolled
// a page at a time while the checks run, with how long the GUI thread is busy per input
// and per event it dispatches (goal: p95 per input under 16 ms, no event near 100 ms).
// The JPEGs are made here: camera-like detail everywhere, and for the set with faces four
// Yale faces pasted at about 260 px wide (about 45 px in the 1024 px working picture, near
// the smallest face the checks find). The RAWs are the corpus files with real previews.

#include "DetailedPicture.h"
#include "WindowBench.h"
#include "SorviApp/model/SorviModel.h"
#include "SorviApp/views/BrowserView.h"
#include "SorviApp/views/GridView.h"
#include "SorviKit/checks/AssessmentStore.h"
#include "SorviKit/checks/Assessor.h"
#include "SorviKit/checks/CheckRun.h"
#include "SorviKit/checks/FaceCheck.h"
#include "SorviKit/library/ShotScanner.h"
#include "SorviKit/previews/PreviewLoader.h"

#include <QApplication>
#include <QScrollBar>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QFile>
#include <QImage>
#include <QImageReader>
#include <QImageWriter>
#include <QPainter>
#include <QTemporaryDir>
#include <QThread>

#include <algorithm>
#include <cstdio>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr int photosPerSet = 16;
constexpr int scrollPhotos = 600;
constexpr int pages = 30;
constexpr int inputGapMs = 30;

// A folder of hard links to the two test JPEGs, so that 600 photos cost no disk.
bool linkFolder(const QString &folder, const QString &plain, const QString &faces)
{
    QDir().mkpath(folder);
    for (int i = 0; i < scrollPhotos; ++i) {
        const QString target = folder + QString("/IMG_%1.JPG").arg(i + 1, 4, 10, QLatin1Char('0'));
        if (::link(QFile::encodeName(i % 3 == 0 ? faces : plain).constData(), QFile::encodeName(target).constData()) != 0)
            return false;
    }
    return true;
}

// Scrolls the browser page by page while the model checks the folder.
void scrollWhileChecking(WindowBench::TimingApplication &app, const QString &folder)
{
    SorviModel model;
    BrowserView browser(model);
    browser.resize(1240, 820);
    browser.show();
    GridView *grid = browser.findChild<GridView *>();
    model.open(folder);
    while (grid->count() == 0 || !model.checking())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
    const int checkedBefore = model.checked();
    std::vector<double> inputs;
    QElapsedTimer elapsed;
    elapsed.start();
    app.record(true);
    for (int page = 0; page < pages && model.checking(); ++page) {
        QScrollBar *bar = grid->verticalScrollBar();
        QElapsedTimer timer;
        timer.start();
        bar->setValue(bar->value() + bar->pageStep());
        QCoreApplication::processEvents();
        inputs.push_back(timer.nsecsElapsed() / 1e6);
        WindowBench::idle(inputGapMs * 10); // a photographer looks at each screenful a little
    }
    app.record(false);
    std::printf("\ngrid scroll over %d 24 MP JPEGs while checks run (%d checked during %.1f s of scrolling)\n",
                scrollPhotos, model.checked() - checkedBefore, elapsed.elapsed() / 1e3);
    WindowBench::report("scroll a page (input → idle)", inputs);
    WindowBench::report("every event dispatched meanwhile", app.dispatched);
    double load[3] = {};
    if (getloadavg(load, 3) == 3)
        std::printf("machine load average during the run: %.2f (on %d cores)\n", load[0], QThread::idealThreadCount());
    model.close();
}

bool writeJpegs(const QString &folder, const QImage &picture)
{
    QDir().mkpath(folder);
    QImageWriter writer(folder + "/IMG_0001.JPG", "jpeg");
    writer.setQuality(92);
    if (!writer.write(picture))
        return false;
    for (int i = 2; i <= photosPerSet; ++i)
        if (!QFile::copy(folder + "/IMG_0001.JPG", folder + QString("/IMG_%1.JPG").arg(i, 4, 10, QLatin1Char('0'))))
            return false;
    return true;
}

bool copyRaws(const QString &folder, const QString &corpus)
{
    const QStringList raws{"canon_eos350d.cr2", "nikon_d70.nef", "canon_eos350d.dng", "fujifilm_s5pro.raf",
                           "panasonic_lx3.rw2", "minolta_dimage_a2.mrw", "canon_digital_rebel.crw", "canon_eosm50.cr3"};
    QDir().mkpath(folder);
    for (int i = 0; i < photosPerSet; ++i) {
        const QString raw = raws[i % raws.size()];
        if (!QFile::copy(corpus + "/raw/" + raw, folder + QString("/%1_%2").arg(i).arg(raw)))
            return false;
    }
    return true;
}

double processCpuSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_utime.tv_sec + usage.ru_stime.tv_sec + (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

void measure(const char *name, const QString &folder)
{
    const QList<Shot> shots = ShotScanner::list(folder);
    QTemporaryDir store;
    AssessmentStore results(folder, store.path());
    PreviewLoader loader(256'000'000);
    QElapsedTimer timer;
    timer.start();
    const double cpuBefore = processCpuSeconds();
    const CheckRun::Outcome outcome = CheckRun::checkPending(shots, results, loader);
    const double seconds = timer.nsecsElapsed() / 1e9;
    const double cpuPerPhoto = (processCpuSeconds() - cpuBefore) / std::max(1, outcome.checked);
    int faces = 0;
    for (const Assessment &a : results.results())
        faces += a.faces;
    std::printf("%-34s %3d photos in %5.2f s: %5.2f photos/s (%d faces found, %lld unreadable)\n", name,
                outcome.checked, seconds, outcome.checked / seconds, faces, outcome.unreadable.size());
    // On a machine shared with other work the wall time says little; the processor time
    // each photo took says what two free cores would do.
    std::printf("%-34s processor time %.0f ms per photo: %5.2f photos/s on %d free cores\n", "", cpuPerPhoto * 1e3,
                QThread::idealThreadCount() / cpuPerPhoto, QThread::idealThreadCount());
}

// Where a check's time goes for one 24 MP JPEG, on one thread: the scaled decodes for the
// working and the larger picture, and the checks on the decoded working picture.
void breakDown(const QString &path)
{
    const auto ms = [](const std::function<void()> &work) {
        QElapsedTimer timer;
        timer.start();
        work();
        return timer.nsecsElapsed() / 1e6;
    };
    std::optional<ShotPreview> working = PreviewLoader::thumbnail(path, Assessor::workingPixels);
    if (!working)
        return;
    FaceCheck::check(working->image, {}); // loads the face models
    const double decode1k = ms([&] { working = PreviewLoader::thumbnail(path, Assessor::workingPixels); });
    const double decode2k = ms([&] { PreviewLoader::thumbnail(path, FaceCheck::leastEyePicturePixels); });
    const double decode4k = ms([&] { PreviewLoader::thumbnail(path, FaceCheck::mostEyePicturePixels); });
    const double sharpness = ms([&] { Assessor::sharpness(working->image); });
    const double faces = ms([&] { FaceCheck::check(working->image, {}); });
    std::printf("one %s, one thread: decode to 1024 px %.0f ms, to 2048 px %.0f ms, to 4096 px %.0f ms; "
                "sharpness %.0f ms; face search on the working picture %.0f ms\n",
                qPrintable(QFileInfo(path).fileName()), decode1k, decode2k, decode4k, sharpness, faces);
}

} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QTemporaryDir home;
    WindowBench::useScratchHome(home);
    WindowBench::TimingApplication app(argc, argv);
    WindowBench::nameApplication();
    ShotScanner::initializeMetadataReader();
    const QString corpus = QStringLiteral(SORVI_CORPUS_DIR);
    QTemporaryDir dir;
    QImage picture = BenchPictures::detailed24MP(4242, 99);
    if (!writeJpegs(dir.filePath("plain"), picture)) {
        std::fprintf(stderr, "could not write the test JPEGs\n");
        return 1;
    }
    {
        QPainter painter(&picture);
        const QStringList subjects{"01", "02", "07", "09"};
        for (int i = 0; i < subjects.size(); ++i) {
            QImageReader reader(corpus + "/faces/yale/subject" + subjects[i] + "_normal.jpg");
            const QImage face = reader.read();
            if (face.isNull()) {
                std::fprintf(stderr, "corpus faces missing at %s\n", qPrintable(corpus));
                return 1;
            }
            painter.drawImage(QRect(600 + i * 1300, 1500, 640, 486), face);
        }
    }
    const bool rawsCopied = copyRaws(dir.filePath("raw"), corpus);
    if (!writeJpegs(dir.filePath("faces"), picture) || !rawsCopied) {
        std::fprintf(stderr, "could not make the test folders\n");
        return 1;
    }
    std::printf("check run on %d cores, %d photos per set (goal: 4 photos/s without faces, 2 with)\n",
                QThread::idealThreadCount(), photosPerSet);
    breakDown(dir.filePath("plain/IMG_0001.JPG"));
    measure("24 MP JPEG, no faces", dir.filePath("plain"));
    measure("24 MP JPEG, 4 faces each", dir.filePath("faces"));
    measure("RAW, embedded previews, no faces", dir.filePath("raw"));
    if (!linkFolder(dir.filePath("scroll"), dir.filePath("plain/IMG_0001.JPG"), dir.filePath("faces/IMG_0001.JPG"))) {
        std::fprintf(stderr, "could not link the scrolling folder\n");
        return 1;
    }
    scrollWhileChecking(app, dir.filePath("scroll"));
    return 0;
}
