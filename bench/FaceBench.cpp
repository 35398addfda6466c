// Cost of the face check per picture, the figure that decides how long a card of thousands
// of photos takes to check: the working pass at 1024 px (detection on the doubled picture,
// landmarks and quality per face) and the eye pass at 2048 px (landmarks and the open-eye
// cascade per face), on the corpus photos without faces and on the face photos. Next to
// them, in the same run, the peers it was chosen over: dlib's detector on the picture at
// its own size (misses faces under about 80 px) and a fresh detection on the 2048 px picture
// (what an eye pass that found its own faces would cost). Medians of several runs.
// The face photos are smaller than 1024 px and are enlarged for this timing only.

#include "SorviKit/checks/FaceCheck.h"
#include "SorviKit/checks/FaceModels.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QImage>
#include <QImageReader>

#include <dlib/image_processing/frontal_face_detector.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <vector>

namespace {

constexpr int runs = 5;

double medianMs(const std::function<void()> &work)
{
    std::vector<double> times;
    work(); // warm the models' pools and the caches
    for (int i = 0; i < runs; ++i) {
        QElapsedTimer timer;
        timer.start();
        work();
        times.push_back(timer.nsecsElapsed() / 1e6);
    }
    std::nth_element(times.begin(), times.begin() + runs / 2, times.end());
    return times[runs / 2];
}

// Upright and scaled so the long side is `longSide`, enlarging when the file is smaller.
QImage picture(const QString &path, int longSide)
{
    QImageReader reader(path);
    reader.setAutoTransform(true);
    return reader.read()
        .scaled(longSide, longSide, Qt::KeepAspectRatio, Qt::SmoothTransformation)
        .convertToFormat(QImage::Format_RGB32);
}

// dlib's detector on the picture as it is, without doubling: faces from about 80 px.
double dlibAtOwnSize(const QImage &grey)
{
    static dlib::frontal_face_detector detector = dlib::get_frontal_face_detector();
    dlib::array2d<unsigned char> pixels(grey.height(), grey.width());
    for (int y = 0; y < grey.height(); ++y)
        std::copy_n(grey.constScanLine(y), grey.width(), &pixels[y][0]);
    return medianMs([&] { detector(pixels); });
}

void measure(const FaceModels &models, const QString &name, const QString &path)
{
    const QImage working = picture(path, 1024), larger = picture(path, 2048);
    const QImage grey = working.convertToFormat(QImage::Format_Grayscale8);
    const QImage greyLarger = larger.convertToFormat(QImage::Format_Grayscale8);
    const std::vector<QRectF> boxes = models.detect(grey);
    const double scale = double(larger.width()) / working.width();

    const double check = medianMs([&] { FaceCheck::check(working, [&](int) { return std::optional<QImage>(larger); }); });
    const double detect = medianMs([&] { models.detect(grey); });
    const double landmarks = medianMs([&] {
        for (const QRectF &box : boxes)
            models.shape(grey, box, false);
    });
    const double eyes = medianMs([&] {
        for (const QRectF &box : boxes)
            models.shape(greyLarger, QRectF(box.topLeft() * scale, box.size() * scale), true);
    });
    const double ownSize = dlibAtOwnSize(grey);
    const double detectLarger = dlibAtOwnSize(greyLarger);
    std::printf("%-38s %4dx%-4d %2zu | %7.0f %7.0f %7.1f %7.1f | %7.0f %7.0f\n", qPrintable(name),
                working.width(), working.height(), boxes.size(), check, detect, landmarks, eyes,
                ownSize, detectLarger);
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const FaceModels *models = FaceModels::shared();
    if (!models) {
        std::fprintf(stderr, "face models not installed (libdlib-data, opencv-data)\n");
        return 1;
    }
    const QString corpus = QStringLiteral(SORVI_CORPUS_DIR);
    const QStringList files{
        "jpeg/samsung_sm-g965w_xmp_lens_subsec.jpg", "jpeg/motorola_xt1068_no_orientation_tag.jpg",
        "jpeg/nikon_d40_orient6.jpg", "jpeg/panasonic_dmc-lz2_orient6.jpg",
        "faces/other/Tom_Cruise_avp_2014_4.jpg", "faces/other/portrait.jpg",
        "faces/dlib/2008_002079.jpg", "faces/dlib/2007_007763.jpg", "faces/yale/subject09_sleepy.jpg"};
    std::printf("median ms; working picture 1024 px long, larger 2048 px\n"
                "%-38s %-9s %2s | %7s %7s %7s %7s | %7s %7s\n",
                "picture", "size", "n", "check", "detect", "marks", "eyes2k", "dlib1x", "det2k");
    std::printf("  check: the whole check; detect: doubled 1024 px picture; marks: landmarks and\n"
                "  quality input of all n faces; eyes2k: eye pass of all faces on the 2048 px picture;\n"
                "  dlib1x: peer, detector on the 1024 px picture undoubled; det2k: peer, the same\n"
                "  on the 2048 px picture (what a fresh detection in the eye pass would cost)\n");
    for (const QString &file : files) {
        const QString path = corpus + QLatin1Char('/') + file;
        if (QImageReader(path).canRead())
            measure(*models, file.section(QLatin1Char('/'), -1), path);
        else
            std::printf("%-38s missing\n", qPrintable(file));
    }
    return 0;
}
