#pragma once

#include "SorviKit/checks/Assessment.h"

#include <QImage>
#include <QList>
#include <QRect>
#include <QSize>

/// Square close-ups of the faces the checks found, for judging eyes and expression at a
/// glance. Pure functions; any thread.
namespace FaceCrops {

/// How much room is left around a face's box on every side, as a fraction of its size,
/// so that hair and chin show too.
inline constexpr double padding = 0.25;

/// The square of `picture` pixels to cut for a face whose box is `box` (fractions of the
/// upright picture): centred on the box, its longer side grown by `padding` on each side,
/// moved (and, only when the picture is smaller, shrunk) to lie inside the picture.
/// Empty for an empty box or picture.
QRect cropRect(const QRectF &box, QSize picture);

/// Whether some face of `marks` covers fewer than `side` pixels of `picture`, so that
/// its close-up would be enlarged, soft, and a larger picture should be cut instead.
bool needsMorePixels(const QList<FaceMark> &marks, QSize picture, int side);

/// The close-up of each of `marks` cut from the upright `picture`, scaled to `side`
/// pixels square; a null image for a mark whose crop is empty.
QList<QImage> cut(const QImage &picture, const QList<FaceMark> &marks, int side);

} // namespace FaceCrops
