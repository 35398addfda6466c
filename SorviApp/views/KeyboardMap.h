#pragma once

#include "SorviKit/core/Rating.h"
#include "SorviApp/model/SorviModel.h"

#include <QString>
#include <Qt>

/// What one key press asks the browser to do. A plain value; `none` means the press is
/// not the browser's and travels on (to menus, shortcuts or the parent).
struct KeyAction {
    enum class Kind {
        none,
        move,        ///< move the selection `amount` places through the shown photos
        toggleMode,  ///< grid ↔ single photo, then leave zoom
        showGrid,    ///< mode = grid
        showSingle,  ///< mode = single photo
        unzoom,      ///< zoomed = false
        toggleZoom,  ///< zoomAnchor = centre, then toggle zoomed
        magnify,     ///< while zoomed, magnify by 2^(`amount` / 2): + and − step by half a doubling
        setStars,    ///< stars = `amount` (0 clears); advances
        setLabel,    ///< toggle `label`; stays
        pick,        ///< toggle pick; advances
        reject,      ///< toggle reject; advances
        unflag,      ///< clear the flag; stays
    };

    Kind kind = Kind::none;
    int amount = 0; ///< places for move, stars for setStars
    Rating::Label label = Rating::Label::none;

    friend bool operator==(const KeyAction &, const KeyAction &) = default;
};

/// The browser's keyboard map: which key does what in which view. Pure functions, no
/// state; the browser applies the answer to the model.
namespace KeyboardMap {

/// The action for a press of `key` with `modifiers` that typed `text`, while the browser
/// shows `mode` (zoomed or not) with `gridColumns` columns in the grid (values below 1
/// count as 1). Presses with Ctrl (the command key on macOS) are never the browser's, so
/// menu commands such as undo always get them. Typed characters are compared lower-cased,
/// so a caps-locked "P" picks as "p" does.
KeyAction action(int key, Qt::KeyboardModifiers modifiers, const QString &text, SorviModel::Mode mode,
                 bool zoomed, int gridColumns);

} // namespace KeyboardMap
