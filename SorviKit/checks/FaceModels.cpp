#include "SorviKit/checks/FaceModels.h"

#include <QFileInfo>
#include <QImage>
#include <QMutex>
#include <QMutexLocker>
#include <QtGlobal>

#include <dlib/image_processing/frontal_face_detector.h>
#include <dlib/image_processing/shape_predictor.h>
#include <dlib/image_transforms/interpolation.h>
#include <dlib/opencv/cv_image.h>
#include <dlib/serialize.h>
#include <opencv2/imgproc.hpp>
#include <opencv2/objdetect.hpp>

#include <algorithm>
#include <cmath>
#include <functional>

namespace {

// Faces are scaled to this width before the landmarks are located: small faces then keep
// sub-pixel precision at the eyelids, and the eye cascade sees eyes of about 55 pixels,
// well above its 20-pixel window.
constexpr double chipFaceWidth = 256.0;
// Around each eye the cascade searches a square of 2.4 eye widths and accepts a hit whose
// centre lies within half an eye width of the landmark centre, so that an eyebrow or the
// other eye is never taken for this one. Hits from 0.8 to 3 eye widths are eyes (the
// cascade's box includes the lids and the brow's lower edge).
constexpr double eyeSearchHalfSide = 1.2;
constexpr double eyeHitTolerance = 0.5;
constexpr double eyeHitMin = 0.8;
constexpr double eyeHitMax = 3.0;

using Detector = dlib::frontal_face_detector;

// Objects that keep scratch state during a search and so serve one call at a time. A call
// takes an idle one or makes a new one and gives it back after, so the pool never holds
// more than the number of threads that ever called at once.
template <typename T>
class Pool {
public:
    explicit Pool(std::function<std::unique_ptr<T>()> make) : m_make(std::move(make)) {}

    std::unique_ptr<T> take()
    {
        {
            QMutexLocker lock(&m_mutex);
            if (!m_idle.empty()) {
                std::unique_ptr<T> item = std::move(m_idle.back());
                m_idle.pop_back();
                return item;
            }
        }
        return m_make();
    }

    void give(std::unique_ptr<T> item)
    {
        if (!item)
            return;
        QMutexLocker lock(&m_mutex);
        m_idle.push_back(std::move(item));
    }

private:
    std::function<std::unique_ptr<T>()> m_make;
    QMutex m_mutex;
    std::vector<std::unique_ptr<T>> m_idle;
};

// Borrows from a pool for one scope.
template <typename T>
class Lease {
public:
    explicit Lease(Pool<T> &pool) : m_pool(pool), m_item(pool.take()) {}
    ~Lease() { m_pool.give(std::move(m_item)); }
    Lease(const Lease &) = delete;
    Lease &operator=(const Lease &) = delete;
    T *get() const { return m_item.get(); }

private:
    Pool<T> &m_pool;
    std::unique_ptr<T> m_item;
};

std::unique_ptr<cv::CascadeClassifier> loadCascade(const std::string &path)
{
    // OpenCV logs an error of its own for a missing file; the caller's warning is enough.
    if (!QFileInfo::exists(QString::fromStdString(path)))
        return nullptr;
    try {
        auto cascade = std::make_unique<cv::CascadeClassifier>();
        if (cascade->load(path) && !cascade->empty())
            return cascade;
    } catch (const cv::Exception &) {
    }
    return nullptr;
}

// The grey picture's pixels as an OpenCV matrix, without copying; only read from.
cv::Mat matView(const QImage &grey)
{
    return cv::Mat(grey.height(), grey.width(), CV_8UC1, const_cast<uchar *>(grey.constBits()),
                   size_t(grey.bytesPerLine()));
}

// Centre and width of the six landmarks of one eye, starting at `first`.
struct EyeBox {
    double cx = 0, cy = 0, width = 1;
};

EyeBox eyeBox(const dlib::full_object_detection &parts, unsigned long first)
{
    double left = 1e9, right = -1e9, top = 1e9, bottom = -1e9;
    for (unsigned long i = first; i < first + 6; ++i) {
        left = std::min<double>(left, parts.part(i).x());
        right = std::max<double>(right, parts.part(i).x());
        top = std::min<double>(top, parts.part(i).y());
        bottom = std::max<double>(bottom, parts.part(i).y());
    }
    return {(left + right) / 2, (top + bottom) / 2, std::max(right - left, 1.0)};
}

bool isGrey(const QImage &image)
{
    return !image.isNull() && image.format() == QImage::Format_Grayscale8;
}

} // namespace

struct FaceModels::Private {
    dlib::shape_predictor predictor;
    Detector detectorPrototype = dlib::get_frontal_face_detector();
    Pool<Detector> detectors{[this] { return std::make_unique<Detector>(detectorPrototype); }};
    std::string eyeCascadePath;
    bool hasEyeCascade = false;
    Pool<cv::CascadeClassifier> eyeCascades{[this] { return loadCascade(eyeCascadePath); }};

    std::optional<std::array<bool, 2>> eyesSeen(const cv::Mat &chip,
                                                const dlib::full_object_detection &parts);
};

const QString FaceModels::defaultPredictorPath =
    QStringLiteral("/usr/share/dlib/shape_predictor_68_face_landmarks.dat");
const QString FaceModels::defaultEyeCascadePath =
    QStringLiteral("/usr/share/opencv4/haarcascades/haarcascade_eye.xml");

FaceModels::FaceModels(std::unique_ptr<Private> p) : d(std::move(p)) {}

FaceModels::~FaceModels() = default;

const FaceModels *FaceModels::shared()
{
    // Loaded once for the whole process and never released: every check shares it.
    static const std::unique_ptr<FaceModels> models = [] {
        std::unique_ptr<FaceModels> loaded = load(defaultPredictorPath, defaultEyeCascadePath);
        if (!loaded)
            qWarning("Face checks are off: cannot load %s", qPrintable(defaultPredictorPath));
        else if (!loaded->hasEyeCascade())
            qWarning("Closed eyes are judged by landmarks alone: cannot load %s",
                     qPrintable(defaultEyeCascadePath));
        return loaded;
    }();
    return models.get();
}

std::unique_ptr<FaceModels> FaceModels::load(const QString &predictorPath,
                                             const QString &eyeCascadePath)
{
    auto p = std::make_unique<Private>();
    try {
        dlib::deserialize(predictorPath.toStdString()) >> p->predictor;
    } catch (const std::exception &) {
        return nullptr; // missing, truncated or not a shape predictor
    }
    if (p->predictor.num_parts() != 68)
        return nullptr;
    p->eyeCascadePath = eyeCascadePath.toStdString();
    std::unique_ptr<cv::CascadeClassifier> cascade = loadCascade(p->eyeCascadePath);
    p->hasEyeCascade = cascade != nullptr;
    p->eyeCascades.give(std::move(cascade));
    return std::unique_ptr<FaceModels>(new FaceModels(std::move(p)));
}

bool FaceModels::hasEyeCascade() const
{
    return d->hasEyeCascade;
}

std::vector<QRectF> FaceModels::detect(const QImage &grey) const
{
    if (!isGrey(grey))
        return {};
    try {
        Lease<Detector> detector(d->detectors);
        const cv::Mat pixels = matView(grey);
        const dlib::cv_image<unsigned char> view(pixels);
        dlib::array2d<unsigned char> doubled;
        const dlib::pyramid_down<2> pyramid;
        dlib::pyramid_up(view, doubled, pyramid);
        std::vector<dlib::rect_detection> found;
        (*detector.get())(doubled, found);
        std::vector<QRectF> boxes;
        for (const dlib::rect_detection &hit : found) {
            const dlib::drectangle box = pyramid.rect_down(dlib::drectangle(hit.rect));
            boxes.emplace_back(box.left(), box.top(), box.width(), box.height());
        }
        return boxes;
    } catch (const std::exception &) {
        return {};
    }
}

std::optional<FaceShape> FaceModels::shape(const QImage &grey, const QRectF &box,
                                           bool lookForEyes) const
{
    if (!isGrey(grey) || box.width() < 1 || box.height() < 1)
        return std::nullopt;
    try {
        const cv::Mat pixels = matView(grey);
        const double pad = box.width() / 2;
        const cv::Rect region =
            cv::Rect(int(std::floor(box.left() - pad)), int(std::floor(box.top() - pad)),
                     int(std::ceil(box.width() + 2 * pad)), int(std::ceil(box.height() + 2 * pad)))
            & cv::Rect(0, 0, pixels.cols, pixels.rows);
        if (region.width < 2 || region.height < 2)
            return std::nullopt;
        const double scale = chipFaceWidth / box.width();
        cv::Mat chip;
        cv::resize(pixels(region), chip, cv::Size(), scale, scale,
                   scale < 1 ? cv::INTER_AREA : cv::INTER_CUBIC);
        // cv::resize aligns pixel centres: chip pixel c shows picture (c + 0.5) / s - 0.5.
        const auto toChip = [&](double v, int origin) {
            return long(std::lround((v - origin + 0.5) * scale - 0.5));
        };
        const dlib::rectangle face(toChip(box.left(), region.x), toChip(box.top(), region.y),
                                   toChip(box.right(), region.x), toChip(box.bottom(), region.y));
        const dlib::full_object_detection parts =
            d->predictor(dlib::cv_image<unsigned char>(chip), face);
        if (parts.num_parts() != 68)
            return std::nullopt;
        FaceShape result;
        for (unsigned long i = 0; i < 68; ++i)
            result.points[i] = QPointF(region.x + (parts.part(i).x() + 0.5) / scale - 0.5,
                                       region.y + (parts.part(i).y() + 0.5) / scale - 0.5);
        if (lookForEyes && d->hasEyeCascade)
            result.eyesSeen = d->eyesSeen(chip, parts);
        return result;
    } catch (const std::exception &) {
        return std::nullopt;
    }
}

// Whether the open-eye cascade finds an eye at each landmark eye. The cascade was trained on
// open eyes: a closed lid gives it too little of the dark iris and bright white to fire.
// Nothing when the cascade cannot be had. Throws what OpenCV throws; the caller catches it.
std::optional<std::array<bool, 2>> FaceModels::Private::eyesSeen(
    const cv::Mat &chip, const dlib::full_object_detection &parts)
{
    Lease<cv::CascadeClassifier> cascade(eyeCascades);
    if (!cascade.get())
        return std::nullopt;
    std::array<bool, 2> seen{false, false};
    for (int eye = 0; eye < 2; ++eye) {
        const EyeBox box = eyeBox(parts, 36 + 6 * eye);
        const double side = 2 * eyeSearchHalfSide * box.width;
        const cv::Rect area = cv::Rect(int(box.cx - side / 2), int(box.cy - side / 2), int(side),
                                       int(side))
                              & cv::Rect(0, 0, chip.cols, chip.rows);
        if (area.width < 2 || area.height < 2)
            continue;
        std::vector<cv::Rect> hits;
        const int smallest = int(eyeHitMin * box.width), largest = int(eyeHitMax * box.width);
        // OpenCV's default step (1.1) and grouping (3 neighbours).
        cascade.get()->detectMultiScale(chip(area), hits, 1.1, 3, 0, cv::Size(smallest, smallest),
                                        cv::Size(largest, largest));
        seen[eye] = std::any_of(hits.begin(), hits.end(), [&](const cv::Rect &hit) {
            const double hx = area.x + hit.x + hit.width / 2.0;
            const double hy = area.y + hit.y + hit.height / 2.0;
            return std::abs(hx - box.cx) < eyeHitTolerance * box.width
                   && std::abs(hy - box.cy) < eyeHitTolerance * box.width;
        });
    }
    return seen;
}
