// How fast a card is checked: photos per second through the application's check run
// (preview from the file, sharpness, faces and eyes, results stored) on every core, for
// 24 MP JPEGs without and with faces and for RAW files whose embedded previews are read.
// The JPEGs are made here: camera-like detail everywhere, and for the set with faces four
// Yale faces pasted at about 260 px wide (about 45 px in the 1024 px working picture, near
// the smallest face the checks find). The RAWs are the corpus files with real previews.

#include "SorviKit/checks/AssessmentStore.h"
#include "SorviKit/checks/CheckRun.h"
#include "SorviKit/demo/DemoScene.h"
#include "SorviKit/demo/DemoShoot.h"
#include "SorviKit/library/ShotScanner.h"
#include "SorviKit/previews/PreviewLoader.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QImage>
#include <QImageReader>
#include <QImageWriter>
#include <QPainter>
#include <QTemporaryDir>
#include <QThread>

#include <cstdio>

namespace {

constexpr int photosPerSet = 16;

QImage detailedPicture()
{
    QImage picture(6000, 4000, QImage::Format_RGB32);
    for (int tile = 0; tile < 16; ++tile) {
        DemoShoot::DemoFrame frame;
        frame.width = 1600;
        frame.height = 1067;
        frame.sceneSeed = 4242 + quint32(tile);
        frame.grainSeed = 99 + quint32(tile);
        const QImage scene = DemoScene::render(frame);
        QPainter(&picture).drawImage(QPoint((tile % 4) * 1500, (tile / 4) * 1000), scene, QRect(0, 0, 1500, 1000));
    }
    return picture;
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

void measure(const char *name, const QString &folder)
{
    const QList<Shot> shots = ShotScanner::list(folder);
    QTemporaryDir store;
    AssessmentStore results(folder, store.path());
    PreviewLoader loader(256'000'000);
    QElapsedTimer timer;
    timer.start();
    const CheckRun::Outcome outcome = CheckRun::checkPending(shots, results, loader);
    const double seconds = timer.nsecsElapsed() / 1e9;
    int faces = 0;
    for (const Assessment &a : results.results())
        faces += a.faces;
    std::printf("%-34s %3d photos in %5.2f s: %5.2f photos/s (%d faces found, %lld unreadable)\n", name,
                outcome.checked, seconds, outcome.checked / seconds, faces, outcome.unreadable.size());
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QString corpus = QStringLiteral(SORVI_CORPUS_DIR);
    QTemporaryDir dir;
    QImage picture = detailedPicture();
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
    measure("24 MP JPEG, no faces", dir.filePath("plain"));
    measure("24 MP JPEG, 4 faces each", dir.filePath("faces"));
    measure("RAW, embedded previews, no faces", dir.filePath("raw"));
    return 0;
}
