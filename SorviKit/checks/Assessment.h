#pragma once

#include <QList>
#include <QRectF>

#include <optional>

/// One counted face as the checks saw it: where it is and how its eyes were judged.
struct FaceMark {
    /// The face's box in the upright picture, as fractions of its width and height (0…1,
    /// origin top-left), so that it fits a picture of any size of the same shot.
    QRectF box;
    bool eyesClosed = false;
    /// The face was too small, too blurred or turned too far for its eyes to be judged; such
    /// a face counts as a face but never as one with closed eyes.
    bool eyesUnclear = false;

    friend bool operator==(const FaceMark &, const FaceMark &) = default;
};

/// The result of the on-device checks of one shot. A plain value.
struct Assessment {
    double sharpness = 0;  ///< larger is sharper; 0 when it could not be measured
    int faces = 0;         ///< faces of at least 4 % of the picture's width
    int eyesClosed = 0;    ///< faces with both eyes closed
    std::optional<double> faceQuality; ///< best face quality 0…1, absent when no face was seen
    /// The counted faces, for showing them; empty in results stored before faces were kept
    /// (which still carry their counts above).
    QList<FaceMark> faceMarks;

    friend bool operator==(const Assessment &, const Assessment &) = default;
};
