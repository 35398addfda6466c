#pragma once

#include "SorviApp/views/CheckBadges.h"
#include "SorviKit/core/Rating.h"
#include "SorviKit/library/Shot.h"

#include <QImage>
#include <QRect>
#include <QSize>

#include <optional>

class QPainter;
class QPalette;

/// What one grid cell shows, and how it is drawn: the shot's preview with its rating
/// badges, its check badges when they are shown, and its name under the picture. A plain
/// value built afresh for every paint; drawing happens on the GUI thread.
struct GridCell {
    /// A cell's size in logical pixels, and the picture area inside it.
    static constexpr QSize size{180, 160};
    static constexpr QSize photoSize{168, 126};

    Shot shot;
    bool selected = false;
    std::optional<int> burst;                 ///< the shot's burst number, when in one
    Rating rating;
    std::optional<CheckBadges::Flags> checks; ///< none while check badges are hidden

    friend bool operator==(const GridCell &, const GridCell &) = default;

    /// Where the picture area lies in a cell placed at `cell`.
    static QRect photoArea(const QRect &cell);

    /// Draws the cell into `cell` with `preview` (already fitted to the picture area in
    /// device pixels; null while it loads, `failed` when there is none to load).
    void paint(QPainter &painter, const QRect &cell, const QImage &preview, bool failed,
               const QPalette &palette) const;
};
