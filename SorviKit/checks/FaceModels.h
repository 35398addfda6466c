#pragma once

#include <QPointF>
#include <QRectF>
#include <QString>

#include <array>
#include <memory>
#include <optional>
#include <vector>

class QImage;

/// One face as the landmark model sees it, in the pixels of the picture it was found in.
struct FaceShape {
    /// The 68 points of the iBUG 300-W layout: jaw 0–16, nose 27–35, the image-left eye
    /// 36–41 and the image-right eye 42–47 (each from its outer or inner corner round).
    std::array<QPointF, 68> points{};
    /// Whether the open-eye detector found an eye at the image-left / image-right eye;
    /// absent when it was not asked or could not run.
    std::optional<std::array<bool, 2>> eyesSeen;
};

/// The face models: dlib's HOG frontal face detector, dlib's 68-point shape predictor and
/// OpenCV's Haar cascade for open eyes (optional: without it eyes are judged by landmarks).
/// They are loaded once and shared; every function is thread-safe, because the detectors
/// that keep scratch state are handed out one per concurrent call from a pool that grows to
/// the number of calling threads. No function throws: library exceptions are caught here
/// and read as "nothing found".
class FaceModels {
public:
    /// The shape predictor Debian's libdlib-data installs (about 100 MB).
    static const QString defaultPredictorPath;
    /// The open-eye cascade Debian's opencv-data installs.
    static const QString defaultEyeCascadePath;

    /// The process-wide models from the default paths, loaded on first use (about a
    /// second); nullptr when the shape predictor is missing or unreadable. Either missing
    /// file gives one warning in the log.
    static const FaceModels *shared();

    /// Models loaded from the given files; nullptr when the shape predictor does not load.
    /// An eye cascade that does not load leaves hasEyeCascade() false.
    static std::unique_ptr<FaceModels> load(const QString &predictorPath,
                                            const QString &eyeCascadePath);

    ~FaceModels();
    FaceModels(const FaceModels &) = delete;
    FaceModels &operator=(const FaceModels &) = delete;

    /// Boxes of the frontal faces in `grey` (Format_Grayscale8), in its pixels, most
    /// confident first. The picture is doubled before the search, so faces down to about
    /// 40 pixels wide are found (the detector's own window is 80). Empty on failure.
    std::vector<QRectF> detect(const QImage &grey) const;

    /// Whether the open-eye cascade loaded, so that shape() can look for eyes.
    bool hasEyeCascade() const;

    /// The landmarks of the face in `box` (pixels of `grey`, Format_Grayscale8), located
    /// on a copy of the face scaled to a fixed size so that small faces keep sub-pixel
    /// precision; with `lookForEyes` and the eye cascade, also whether an open eye is seen
    /// at each eye.
    /// Nothing on failure.
    std::optional<FaceShape> shape(const QImage &grey, const QRectF &box, bool lookForEyes) const;

private:
    struct Private;
    explicit FaceModels(std::unique_ptr<Private> d);
    std::unique_ptr<Private> d;
};
