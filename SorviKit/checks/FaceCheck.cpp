#include "SorviKit/checks/FaceCheck.h"

#include "SorviKit/checks/FaceModels.h"

#include <QRectF>
#include <QStringList>

#include <algorithm>
#include <cmath>

namespace {

// Below this eye aspect ratio the lids are together whatever else is seen; a squint stays
// above it.
constexpr double clearlyClosedRatio = 0.15;
// Near the usual blink threshold of the eye aspect ratio: open eyes measure about 0.25–0.35.
// Squinting and winking eyes fall below it too, so alone it is not enough: the open-eye
// cascade must not see the eye.
constexpr double closedRatio = 0.22;
// Both eyes below this, and within evenPairDifference of each other, are closed whatever the
// cascade says: it fires on some closed lids whose lashes look like an iris. A wink's open
// eye stays above it or differs more from the closed one.
constexpr double lowPairRatio = 0.21;
constexpr double evenPairDifference = 0.035;
// The larger picture must show the same frame: the face boxes are carried over by scale.
constexpr double sameProportionsTolerance = 0.02;
// Face crops are measured at this width so that sharpness does not depend on face size.
constexpr int sharpnessWidth = 128;
// A little below the Laplacian variance of a face in focus at sharpnessWidth (about 130 to
// 500 in sharp portraits), so that a sharp face scores above one half; a blur of a few
// pixels brings the variance down to about 10.
constexpr double sharpnessScale = 100.0;
// A face this wide (fraction of the picture) or wider is large enough for full marks.
constexpr double fullSizeWidth = 0.10;

enum class EyeVerdict { open, closed, unclear };

struct Face {
    QRectF box;
    std::optional<FaceShape> shape;
};

std::vector<QPointF> eyePoints(const FaceShape &shape, int first)
{
    return std::vector<QPointF>(shape.points.begin() + first, shape.points.begin() + first + 6);
}

double clamp01(double value)
{
    return std::clamp(value, 0.0, 1.0);
}

// Variance of the 4-neighbour Laplacian over the interior of a grey picture.
double laplacianVariance(const QImage &grey)
{
    double sum = 0, squares = 0;
    long count = 0;
    for (int y = 1; y + 1 < grey.height(); ++y) {
        const uchar *above = grey.constScanLine(y - 1);
        const uchar *row = grey.constScanLine(y);
        const uchar *below = grey.constScanLine(y + 1);
        for (int x = 1; x + 1 < grey.width(); ++x) {
            const double l = above[x] + below[x] + row[x - 1] + row[x + 1] - 4.0 * row[x];
            sum += l;
            squares += l * l;
            ++count;
        }
    }
    if (count == 0)
        return 0;
    const double mean = sum / double(count);
    return squares / double(count) - mean * mean;
}

// The detail of a face: the Laplacian variance of its box scaled to sharpnessWidth.
double laplacianVarianceOf(const QImage &grey, const QRectF &box)
{
    const QRect area = box.toAlignedRect() & grey.rect();
    if (area.width() < 2 || area.height() < 2)
        return 0;
    return laplacianVariance(grey.copy(area).scaledToWidth(sharpnessWidth, Qt::SmoothTransformation));
}

double sharpnessTerm(const QImage &grey, const QRectF &box)
{
    const double variance = laplacianVarianceOf(grey, box);
    return variance / (variance + sharpnessScale);
}

// How evenly the nose tip (30) sits between the jaw's ends (0 and 16): 1 when the face looks
// straight at the camera, towards 0 as it turns away.
double poseTerm(const FaceShape &shape)
{
    const double left = std::abs(shape.points[30].x() - shape.points[0].x());
    const double right = std::abs(shape.points[16].x() - shape.points[30].x());
    if (left + right <= 0)
        return 0;
    return 1.0 - std::abs(left - right) / (left + right);
}

double quality(const QImage &grey, const Face &face)
{
    double eyes = 0, pose = 0;
    if (face.shape) {
        const double ratio = (FaceCheck::eyeAspectRatio(eyePoints(*face.shape, 36))
                              + FaceCheck::eyeAspectRatio(eyePoints(*face.shape, 42)))
                             / 2;
        eyes = clamp01((ratio - clearlyClosedRatio) / clearlyClosedRatio);
        pose = poseTerm(*face.shape);
    }
    const double size = clamp01(face.box.width() / grey.width() / fullSizeWidth);
    return 0.40 * sharpnessTerm(grey, face.box) + 0.25 * eyes + 0.20 * pose + 0.15 * size;
}

std::vector<Face> findFaces(const FaceModels &models, const QImage &grey)
{
    std::vector<Face> faces;
    for (const QRectF &box : models.detect(grey))
        faces.push_back({box, models.shape(grey, box, false)});
    return faces;
}

QString eyeReport(const std::vector<Face> &faces, int pictureWidth)
{
    QStringList entries;
    for (const Face &face : faces) {
        if (!face.shape)
            continue;
        entries << QString::asprintf("[%.2f/%.2f w%.2f]",
                                     FaceCheck::openness(eyePoints(*face.shape, 36)),
                                     FaceCheck::openness(eyePoints(*face.shape, 42)),
                                     face.box.width() / pictureWidth);
    }
    return entries.join(QLatin1Char(' '));
}

bool wideEnough(const QRectF &box, int pictureWidth)
{
    return box.width() >= FaceCheck::minimumFaceWidth * pictureWidth;
}

// The larger picture, grey, when there is one that shows the same frame; else nothing.
std::optional<QImage> largerGrey(const QImage &grey, const FaceCheck::LargerPicture &larger, double narrowestFace)
{
    std::optional<QImage> picture;
    try {
        if (larger)
            picture = larger(FaceCheck::eyePictureLongSide(std::max(grey.width(), grey.height()), narrowestFace));
    } catch (const std::exception &) {
        return std::nullopt; // the caller's failure; the working picture will do
    }
    if (!picture || picture->isNull())
        return std::nullopt;
    const double working = double(grey.width()) / grey.height();
    const double other = double(picture->width()) / picture->height();
    if (std::abs(other / working - 1) > sameProportionsTolerance)
        return std::nullopt;
    return picture->convertToFormat(QImage::Format_Grayscale8);
}

// The eye pass: the counted faces carried over to `eyes` and judged there, one verdict per
// face; none for a face whose landmarks or open-eye evidence could not be had there.
std::vector<std::optional<EyeVerdict>> judgeEyes(const FaceModels &models, const QImage &eyes,
                                                 const std::vector<Face> &counted, double scale)
{
    std::vector<std::optional<EyeVerdict>> verdicts;
    for (const Face &face : counted) {
        const QRectF box(face.box.topLeft() * scale, face.box.size() * scale);
        if (box.width() < FaceCheck::minimumEyeFacePixels) {
            verdicts.push_back(EyeVerdict::unclear);
            continue;
        }
        const std::optional<FaceShape> shape = models.shape(eyes, box, true);
        if (shape && (poseTerm(*shape) < FaceCheck::minimumFrontal
                      || laplacianVarianceOf(eyes, box) < FaceCheck::minimumFaceDetail)) {
            verdicts.push_back(EyeVerdict::unclear);
            continue;
        }
        if (!shape || !shape->eyesSeen) {
            verdicts.push_back(std::nullopt);
            continue;
        }
        const FaceCheck::EyeEvidence evidence{FaceCheck::eyeAspectRatio(eyePoints(*shape, 36)),
                                              FaceCheck::eyeAspectRatio(eyePoints(*shape, 42)),
                                              (*shape->eyesSeen)[0], (*shape->eyesSeen)[1]};
        verdicts.push_back(FaceCheck::bothEyesClosed(evidence) ? EyeVerdict::closed : EyeVerdict::open);
    }
    return verdicts;
}

bool closedByOpenness(const Face &face)
{
    return face.shape
           && FaceCheck::openness(eyePoints(*face.shape, 36)) < FaceCheck::opennessThreshold
           && FaceCheck::openness(eyePoints(*face.shape, 42)) < FaceCheck::opennessThreshold;
}

// The box as fractions of the picture, so that it fits any size of the same frame; the
// detector's boxes may reach past the edges.
QRectF fractionOf(const QRectF &box, QSize picture)
{
    const QRectF fraction(box.x() / picture.width(), box.y() / picture.height(),
                          box.width() / picture.width(), box.height() / picture.height());
    return fraction & QRectF(0, 0, 1, 1);
}

} // namespace

namespace FaceCheck {

int eyePictureLongSide(int workingLongSide, double narrowestFace)
{
    const double wanted = narrowestFace > 0 ? std::ceil(workingLongSide * eyeFacePixels / narrowestFace) : 0;
    return int(std::clamp<double>(wanted, leastEyePicturePixels, mostEyePicturePixels));
}

FaceFindings check(const QImage &working, const LargerPicture &larger)
{
    const FaceModels *models = FaceModels::shared();
    return models ? check(*models, working, larger) : FaceFindings();
}

FaceFindings check(const FaceModels &models, const QImage &working, const LargerPicture &larger)
{
    FaceFindings findings;
    if (working.isNull())
        return findings;
    const QImage grey = working.convertToFormat(QImage::Format_Grayscale8);
    const std::vector<Face> faces = findFaces(models, grey);
    std::vector<Face> counted;
    for (const Face &face : faces) {
        const double q = quality(grey, face);
        findings.faceQuality = std::max(findings.faceQuality.value_or(0.0), q);
        if (wideEnough(face.box, grey.width()))
            counted.push_back(face);
    }
    findings.eyeReport = eyeReport(faces, grey.width());
    if (counted.empty())
        return findings;

    double narrowest = counted.front().box.width();
    for (const Face &face : counted)
        narrowest = std::min(narrowest, face.box.width());
    const std::optional<QImage> big = largerGrey(grey, larger, narrowest);
    const QImage &eyes = big ? *big : grey;
    const std::vector<std::optional<EyeVerdict>> verdicts =
        judgeEyes(models, eyes, counted, double(eyes.width()) / grey.width());
    // Once the eye pass judged any face it decides for all (a face whose landmarks it could
    // not find there is not clear); only when it could judge none (no eye cascade) does the
    // working picture's openness decide. The counts are taken from the marks so that the two
    // can never disagree.
    const bool eyePassJudged = std::any_of(verdicts.begin(), verdicts.end(), [](const std::optional<EyeVerdict> &v) {
        return v && *v != EyeVerdict::unclear;
    });
    for (std::size_t i = 0; i < counted.size(); ++i) {
        const EyeVerdict verdict = verdicts[i]    ? *verdicts[i]
                                   : eyePassJudged ? EyeVerdict::unclear
                                   : closedByOpenness(counted[i]) ? EyeVerdict::closed
                                                                  : EyeVerdict::open;
        findings.faceMarks.append({fractionOf(counted[i].box, grey.size()), verdict == EyeVerdict::closed,
                                   verdict == EyeVerdict::unclear});
        findings.eyesClosed += verdict == EyeVerdict::closed ? 1 : 0;
    }
    findings.faces = int(findings.faceMarks.size());
    return findings;
}

double openness(const std::vector<QPointF> &points)
{
    if (points.empty())
        return 1;
    const auto [left, right] = std::minmax_element(
        points.begin(), points.end(), [](const QPointF &a, const QPointF &b) { return a.x() < b.x(); });
    const auto [top, bottom] = std::minmax_element(
        points.begin(), points.end(), [](const QPointF &a, const QPointF &b) { return a.y() < b.y(); });
    const double width = right->x() - left->x();
    if (width <= 0)
        return 1;
    return (bottom->y() - top->y()) / width;
}

double eyeAspectRatio(const std::vector<QPointF> &points)
{
    if (points.size() != 6)
        return 1;
    const auto distance = [&](int a, int b) {
        const QPointF d = points[a] - points[b];
        return std::hypot(d.x(), d.y());
    };
    const double corners = distance(0, 3);
    if (corners <= 0)
        return 1;
    return (distance(1, 5) + distance(2, 4)) / (2 * corners);
}

bool bothEyesClosed(const EyeEvidence &eyes)
{
    const auto closed = [](double ratio, bool seen) { return ratio < clearlyClosedRatio || (!seen && ratio < closedRatio); };
    if (closed(eyes.leftRatio, eyes.leftSeen) && closed(eyes.rightRatio, eyes.rightSeen))
        return true;
    // Lowered lids on both sides alike, even where the cascade took them for open eyes; a
    // wink narrows the open eye too, but less than the closed one, and the cascade tells
    // its two eyes apart.
    return eyes.leftSeen == eyes.rightSeen && std::max(eyes.leftRatio, eyes.rightRatio) < lowPairRatio
           && std::abs(eyes.leftRatio - eyes.rightRatio) < evenPairDifference;
}

} // namespace FaceCheck
