#pragma once

#include "SorviKit/checks/Assessment.h"

#include <QHash>
#include <QImage>
#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>

#include <functional>
#include <optional>
#include <utility>

/// The on-device checks of one picture (sharpness, faces, closed eyes, face quality) and
/// the marks made from many results (soft shots, the best frame of each burst). Pure
/// functions, safe on any thread; the only shared state is the lazily loaded face models.
namespace Assessor {

/// The long side of the preview the checks run on.
inline constexpr int workingPixels = 1024;

/// A picture with the EXIF orientation it still needs for display.
using OrientedImage = std::pair<QImage, int>;

/// The whole check of one picture. `image` is the shot's preview at workingPixels and
/// `orientation` its EXIF orientation. `larger` is called at most once, and only when a
/// face was found, for the same shot with the asked long side, for the eyes (see
/// FaceCheck::check). Never throws.
Assessment assess(const QImage &image, int orientation,
                  const std::function<std::optional<OrientedImage>(int longSide)> &larger = {});

/// Variance of the 4-neighbour Laplacian of the picture in grey at most 1024 px on its
/// long side (at least 8 × 8), taken per tile of a 4 × 4 grid; the best tile counts, so a
/// sharp subject in a small part of the frame scores as sharp. 0 for a flat picture.
/// Orientation plays no part.
double sharpness(const QImage &image);

/// For every face with both eye regions, "[left/right wWIDTH]" (eye openness and the
/// face box width as a fraction of the picture's), joined into one line. For diagnosis.
QString eyeReport(const QImage &image, int orientation);

/// What makes one frame of a burst better than another, in the order it is asked.
enum class Edge {
    none,        ///< not better: the earlier of the two is kept
    eyesOpen,    ///< the other has closed eyes, this one not
    betterFaces, ///< a face quality more than 0.05 higher
    sharper,     ///< strictly greater sharpness
};

/// What makes `candidate` better than `other`; Edge::none when it is not better.
Edge edge(const Assessment &candidate, const Assessment &other);

/// The best frame of each burst whose frames are all assessed: open eyes beat closed
/// eyes, then a face quality more than 0.05 higher, then strictly greater sharpness;
/// ties keep the earlier frame.
QSet<QString> bestOfBursts(const QList<QStringList> &bursts, const QHash<QString, Assessment> &results);

/// The shoot's typical sharpness that soft shots are measured against: the median of the
/// results (the upper middle value for an even count); none for 4 or fewer results.
std::optional<double> typicalSharpness(const QHash<QString, Assessment> &results);

/// Shots whose sharpness is below `fraction` of the shoot's median (the upper middle
/// value for an even count). Nothing is soft among 4 or fewer assessed shots.
QSet<QString> soft(const QHash<QString, Assessment> &results, double fraction);

} // namespace Assessor
