#pragma once

#include <QRect>

class QPainter;

/// The marks the on-device checks leave on a photo: "Soft" with a metering symbol,
/// "Eyes" with a crossed-out eye and "Best" with a crown. Drawn with the painter only.
/// GUI thread.
namespace CheckBadges {

/// Which check marks a shot carries. A plain value; all false means no mark.
struct Flags {
    bool soft = false;       ///< much less sharp than the rest of the shoot
    bool eyesClosed = false; ///< at least one face with closed eyes
    bool best = false;       ///< the best frame of its burst

    bool isEmpty() const { return !soft && !eyesClosed && !best; }
    friend bool operator==(const Flags &, const Flags &) = default;
};

/// Draws the marks of `flags` as small pills along the bottom-right edge of `photo`,
/// right to left. Nothing for empty flags. Leaves the painter's state as found.
void paint(QPainter &painter, const QRect &photo, const Flags &flags);

} // namespace CheckBadges
