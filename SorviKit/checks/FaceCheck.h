#pragma once

#include "SorviKit/checks/Assessment.h"

#include <QImage>
#include <QPointF>
#include <QString>

#include <functional>
#include <optional>
#include <vector>

class FaceModels;

/// What the face check found in one picture.
struct FaceFindings {
    /// Faces at least `FaceCheck::minimumFaceWidth` of the picture wide.
    int faces = 0;
    /// Of those, the faces with both eyes closed.
    int eyesClosed = 0;
    /// The counted faces, most confident first: their boxes as fractions of the picture
    /// (clipped to it) and whether their eyes were judged closed. There are `faces` marks,
    /// `eyesClosed` of them closed.
    QList<FaceMark> faceMarks;
    /// The best face quality (0…1, see FaceCheck::check) among all faces found, the narrow
    /// ones too; absent when no face was found.
    std::optional<double> faceQuality;
    /// A diagnostic line: "[%.2f/%.2f w%.2f]" for each face found with both eyes located
    /// (image-left eye's openness, image-right eye's openness, box width as a fraction of
    /// the picture width), separated by spaces; empty when there is none.
    QString eyeReport;

    friend bool operator==(const FaceFindings &, const FaceFindings &) = default;
};

/// Counts faces and faces with closed eyes, and rates how well faces were caught.
namespace FaceCheck {

/// Faces narrower than this fraction of the picture width are not counted (too small to judge
/// their eyes) but still give a face quality. A little below 40 pixels of a 1024-pixel
/// preview, so that the detector's boxes of faces that wide are all counted.
constexpr double minimumFaceWidth = 0.035;
/// An eye whose openness is below this is closed when only the working picture's landmarks
/// can judge it.
constexpr double opennessThreshold = 0.12;

/// Gives the shot at about the asked long side, upright and with the same proportions
/// (smaller when the shot has no more pixels), or nothing.
using LargerPicture = std::function<std::optional<QImage>(int longSide)>;

/// Eyes are judged on a picture where the narrowest counted face is about this wide.
constexpr double eyeFacePixels = 128;
/// The long side asked of the larger picture: at least the first, at most the second.
constexpr int leastEyePicturePixels = 2048;
constexpr int mostEyePicturePixels = 4096;

/// The long side to ask the larger picture for, for eyes in a working picture whose long
/// side is `workingLongSide` and whose narrowest counted face is `narrowestFace` wide:
/// enough for that face to be eyeFacePixels wide, within the bounds above.
int eyePictureLongSide(int workingLongSide, double narrowestFace);

/// Checks one shot. `working`: the shot's preview, about 1024 pixels on its long side,
/// already upright, any format. `larger`: called at most once, and only when a face of at
/// least the minimum width was found, with eyePictureLongSide; it may yield the same shot
/// at about that size; without it, or when it throws or does not match, the working
/// picture is used. A face of 40 pixels in a 1024-pixel preview of a 24-megapixel shot is
/// so judged at about 120 pixels, where closed lids are told from open eyes.
///
/// Faces are found on the working picture (dlib's HOG detector on the picture doubled) and
/// each gets 68 landmarks and a quality. Eyes are then judged on the larger picture: closed
/// when the landmarks' aspect ratios say so (see bothEyesClosed), using OpenCV's open-eye
/// cascade as the second witness. A face too small there (a shot with no more pixels), too
/// blurred or turned too far is marked eyesUnclear and never counts as closed. When that
/// pass judges no face (without the eye cascade), the working picture's landmark openness
/// decides (both eyes below opennessThreshold).
///
/// Face quality ranks captures of the same face (the better frame of a burst scores higher);
/// it is not comparable between different people. It is
///   0.40 · sharpness + 0.25 · eyes open + 0.20 · frontal pose + 0.15 · size,
/// each term in 0…1: sharpness v / (v + 100) where v is the variance of the Laplacian of the
/// face box scaled to 128 pixels wide; eyes open (mean aspect ratio − 0.15) / 0.15; pose the
/// balance of the nose tip between the two sides of the jaw; size the box width / 10 % of
/// the picture width. All clamped to 0…1.
///
/// Thread-safe; callable from many threads at once; blocking (a few hundred ms); never
/// throws. Without the face models (see FaceModels::shared) it finds nothing.
FaceFindings check(const QImage &working, const LargerPicture &larger);

/// The same check with the given models instead of the shared ones.
FaceFindings check(const FaceModels &models, const QImage &working, const LargerPicture &larger);

/// Openness of an eye from its landmark points: (max y − min y) / (max x − min x); 1 when
/// there are no points or max x <= min x.
double openness(const std::vector<QPointF> &points);

/// The eye aspect ratio of six eye landmarks in the 68-point order (outer corner, two upper
/// lid points, inner corner, two lower lid points): (|p1 − p5| + |p2 − p4|) / (2 |p0 − p3|).
/// Unlike openness it uses only the lid points, so a tilted head does not open the eye.
/// 1 when there are not six points or the corners coincide.
double eyeAspectRatio(const std::vector<QPointF> &points);

/// What the eye pass knows of one face's eyes: each eye's aspect ratio (see eyeAspectRatio)
/// and whether the open-eye cascade sees it, image-left then image-right.
struct EyeEvidence {
    double leftRatio = 1, rightRatio = 1;
    bool leftSeen = true, rightSeen = true;
};

/// Whether a face has both eyes closed: each eye's aspect ratio below 0.15, or below 0.22
/// while the open-eye cascade does not see it; or both below 0.21 and within 0.035 of each
/// other, the cascade seeing both or neither (lids lowered alike). A wink, one eye shut and the other open, is not closed.
bool bothEyesClosed(const EyeEvidence &eyes);

/// Below this width in the picture the eyes are judged on (pixels), a face's eyes are too
/// small to tell apart open from closed: it counts as a face with eyes not clear.
constexpr double minimumEyeFacePixels = 48;
/// A face turned further than this (the balance of the nose between the two sides of the jaw,
/// 1 frontal, about 0.3 at a half profile) has eyes not clear.
constexpr double minimumFrontal = 0.3;
/// A face whose Laplacian variance at 128 px wide is below this is too blurred for its eyes.
constexpr double minimumFaceDetail = 8;

} // namespace FaceCheck
