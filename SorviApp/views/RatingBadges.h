#pragma once

#include "SorviKit/core/Rating.h"

#include <QColor>
#include <QRect>

class QPainter;

/// The marks a rating leaves on a photo: a red circled × for a reject, a green flag for a
/// pick, yellow ★ once per star and a dot in the colour label's colour. Drawn with the
/// painter only (no icon files). GUI thread.
namespace RatingBadges {

inline const QColor rejectColour{0xE5, 0x48, 0x4D};
inline const QColor pickColour{0x2F, 0xB3, 0x5F};
inline const QColor starColour{0xF5, 0xC5, 0x18};

/// The colour of a label's dot; invalid for Label::none.
QColor labelColour(Rating::Label label);

/// Draws `rating`'s marks over `photo` (the picture's rectangle on screen): the flag in
/// the top-left corner, the label dot in the top-right corner and the stars along the
/// bottom-left edge. An empty rating draws nothing. Leaves the painter's state as found.
void paint(QPainter &painter, const QRect &photo, const Rating &rating);

/// The pieces, for views that lay them out themselves; `box` is the square to fill.
void paintReject(QPainter &painter, const QRectF &box);
void paintPick(QPainter &painter, const QRectF &box);

} // namespace RatingBadges
