#pragma once

#include <QPointF>
#include <QRectF>
#include <QSizeF>

struct Shot;

/// The arithmetic of the single photo and its zoom: where a click lands on the picture,
/// where a fitted picture sits, what part of a magnified picture a view shows. Pure
/// functions of sizes and points; the views only feed them and draw the answers.
namespace ZoomGeometry {

/// Room kept around the fitted photo in the loupe, on every side, in logical pixels.
constexpr qreal loupeInset = 14;
/// The largest magnification: four screen pixels per picture pixel.
constexpr qreal maximumMagnification = 4.0;
/// The smallest magnification, whatever the fit would ask for.
constexpr qreal minimumMagnification = 0.02;

/// The shot as it is seen: its stored width × height, swapped for the quarter-turn EXIF
/// orientations (5 to 8). Empty when the size is unknown.
QSizeF displayedSize(const Shot &shot);

/// Where a click at `point` in a loupe of `viewSize` falls on `shot`'s fitted picture, as
/// fractions of its displayed width and height, clamped to 0…1 (a click in the margin takes
/// the nearest edge). The centre on an axis whose size is not usable, or for a shot without
/// a known size.
QPointF normalized(QPointF point, QSizeF viewSize, const Shot &shot);

/// The rectangle a picture of `pictureSize` takes when fitted, shape kept, and centred in
/// `area`. A picture without a usable size takes the whole `area` (at its origin).
QRectF fittedRect(QSizeF pictureSize, QSizeF area);

/// A picture's frame in logical pixels at magnification 1, where one picture pixel covers
/// one device pixel: its pixel size divided by the screen's device pixel ratio (2 when the
/// ratio is unknown).
QSizeF frameSize(QSize pixels, qreal devicePixelRatio);

/// The magnification at which a picture frame of `frame` fits `view`, never below
/// minimumMagnification.
qreal fitMagnification(QSizeF frame, QSizeF view);

/// The magnification kept within fit…maximum; when the fit is above the maximum (a tiny
/// picture), the fit wins so that the picture still fills the view.
qreal clampMagnification(qreal magnification, qreal fit);

/// The scroll position (top-left of the view in magnified content pixels) that puts the
/// normalized point `centre` in the middle of `view`, kept within the content; on an axis
/// where the content is smaller than the view the position is negative and centres it.
QPointF originFor(QPointF centre, QSizeF content, QSizeF view);

/// The part of the picture a view of `view` shows from scroll position `origin` over
/// `content`, as fractions (0…1) of the picture.
QRectF visibleRect(QPointF origin, QSizeF content, QSizeF view);

} // namespace ZoomGeometry
