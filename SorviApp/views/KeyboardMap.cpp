#include "SorviApp/views/KeyboardMap.h"

#include <algorithm>
#include <optional>

namespace {

using Kind = KeyAction::Kind;
using Mode = SorviModel::Mode;

KeyAction make(Kind kind, int amount = 0, Rating::Label label = Rating::Label::none)
{
    return KeyAction{kind, amount, label};
}

// Keys that are not characters: arrows, Return, Escape and Space.
std::optional<KeyAction> specialKey(int key, Mode mode, bool zoomed, int gridColumns)
{
    const bool grid = mode == Mode::grid;
    const int rowStep = grid ? std::max(1, gridColumns) : 1;
    switch (key) {
    case Qt::Key_Right:
        return make(Kind::move, 1);
    case Qt::Key_Left:
        return make(Kind::move, -1);
    case Qt::Key_Down:
        return make(Kind::move, rowStep);
    case Qt::Key_Up:
        return make(Kind::move, -rowStep);
    case Qt::Key_Return:
    case Qt::Key_Enter:
        return make(Kind::toggleMode);
    case Qt::Key_Escape:
        if (zoomed)
            return make(Kind::unzoom);
        return grid ? make(Kind::none) : make(Kind::showGrid);
    case Qt::Key_Space:
        return grid ? make(Kind::showSingle) : make(Kind::toggleZoom);
    default:
        return std::nullopt;
    }
}

KeyAction typed(const QString &text, Mode mode, bool zoomed)
{
    if (text.size() != 1)
        return {};
    const QChar c = text.front().toLower();
    if (zoomed && mode == Mode::loupe) {
        // "=" shares the plus key on most layouts, so it zooms in unshifted.
        if (c == QLatin1Char('+') || c == QLatin1Char('='))
            return make(Kind::magnify, 1);
        if (c == QLatin1Char('-'))
            return make(Kind::magnify, -1);
    }
    if (c >= QLatin1Char('0') && c <= QLatin1Char('5'))
        return make(Kind::setStars, c.digitValue());
    switch (c.unicode()) {
    case '6': return make(Kind::setLabel, 0, Rating::Label::red);
    case '7': return make(Kind::setLabel, 0, Rating::Label::yellow);
    case '8': return make(Kind::setLabel, 0, Rating::Label::green);
    case '9': return make(Kind::setLabel, 0, Rating::Label::blue);
    case 'p': return make(Kind::pick);
    case 'x': return make(Kind::reject);
    case 'u': return make(Kind::unflag);
    case 'z': return mode == Mode::loupe ? make(Kind::toggleZoom) : make(Kind::none);
    case 'g': return make(Kind::showGrid);
    case 'e': return make(Kind::showSingle);
    default: return {};
    }
}

} // namespace

KeyAction KeyboardMap::action(int key, Qt::KeyboardModifiers modifiers, const QString &text, SorviModel::Mode mode,
                              bool zoomed, int gridColumns)
{
    if (modifiers & Qt::ControlModifier)
        return {};
    if (const std::optional<KeyAction> special = specialKey(key, mode, zoomed, gridColumns))
        return *special;
    return typed(text, mode, zoomed);
}
