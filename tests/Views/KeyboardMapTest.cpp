#include "SorviApp/views/KeyboardMap.h"

#include <gtest/gtest.h>

namespace {

using Kind = KeyAction::Kind;
using Mode = SorviModel::Mode;
constexpr auto grid = Mode::grid;
constexpr auto single = Mode::loupe;

struct Case {
    const char *what;
    int key;
    Qt::KeyboardModifiers modifiers;
    QString text;
    Mode mode;
    bool zoomed;
    KeyAction expected;
};

KeyAction act(Kind kind, int amount = 0, Rating::Label label = Rating::Label::none) { return {kind, amount, label}; }

} // namespace

TEST(KeyboardMap, SpecialKeysDependOnModeZoomAndColumns)
{
    const Case cases[] = {
        {"down in a 6-column grid", Qt::Key_Down, {}, {}, grid, false, act(Kind::move, 6)},
        {"up in a 6-column grid", Qt::Key_Up, {}, {}, grid, false, act(Kind::move, -6)},
        {"down in single photo", Qt::Key_Down, {}, {}, single, false, act(Kind::move, 1)},
        {"up in single photo", Qt::Key_Up, {}, {}, single, false, act(Kind::move, -1)},
        {"right", Qt::Key_Right, {}, {}, grid, false, act(Kind::move, 1)},
        {"left", Qt::Key_Left, {}, {}, single, false, act(Kind::move, -1)},
        {"keypad down", Qt::Key_Down, Qt::KeypadModifier, {}, grid, false, act(Kind::move, 6)},
        {"return", Qt::Key_Return, {}, QStringLiteral("\r"), grid, false, act(Kind::toggleMode)},
        {"enter", Qt::Key_Enter, Qt::KeypadModifier, QStringLiteral("\r"), single, true, act(Kind::toggleMode)},
        {"escape zoomed", Qt::Key_Escape, {}, QStringLiteral("\x1b"), single, true, act(Kind::unzoom)},
        {"escape single", Qt::Key_Escape, {}, QStringLiteral("\x1b"), single, false, act(Kind::showGrid)},
        {"escape grid", Qt::Key_Escape, {}, QStringLiteral("\x1b"), grid, false, act(Kind::none)},
        {"space grid", Qt::Key_Space, {}, QStringLiteral(" "), grid, false, act(Kind::showSingle)},
        {"space single", Qt::Key_Space, {}, QStringLiteral(" "), single, false, act(Kind::toggleZoom)},
        {"ctrl+down", Qt::Key_Down, Qt::ControlModifier, {}, grid, false, act(Kind::none)},
        {"ctrl+return", Qt::Key_Return, Qt::ControlModifier, {}, single, false, act(Kind::none)},
    };
    for (const Case &c : cases)
        EXPECT_EQ(KeyboardMap::action(c.key, c.modifiers, c.text, c.mode, c.zoomed, 6), c.expected) << c.what;
    // A grid not laid out yet still moves a row as one place, never zero.
    EXPECT_EQ(KeyboardMap::action(Qt::Key_Down, {}, {}, grid, false, 0), act(Kind::move, 1));
}

TEST(KeyboardMap, TypedCharactersAreMatchedLowerCased)
{
    const Case cases[] = {
        {"0 clears stars", Qt::Key_0, {}, QStringLiteral("0"), grid, false, act(Kind::setStars, 0)},
        {"3 stars", Qt::Key_3, {}, QStringLiteral("3"), single, false, act(Kind::setStars, 3)},
        {"5 stars", Qt::Key_5, {}, QStringLiteral("5"), grid, false, act(Kind::setStars, 5)},
        {"6 red", Qt::Key_6, {}, QStringLiteral("6"), grid, false, act(Kind::setLabel, 0, Rating::Label::red)},
        {"7 yellow", Qt::Key_7, {}, QStringLiteral("7"), grid, false, act(Kind::setLabel, 0, Rating::Label::yellow)},
        {"8 green", Qt::Key_8, {}, QStringLiteral("8"), grid, false, act(Kind::setLabel, 0, Rating::Label::green)},
        {"9 blue", Qt::Key_9, {}, QStringLiteral("9"), grid, false, act(Kind::setLabel, 0, Rating::Label::blue)},
        {"p", Qt::Key_P, {}, QStringLiteral("p"), grid, false, act(Kind::pick)},
        {"caps-lock P", Qt::Key_P, {}, QStringLiteral("P"), grid, false, act(Kind::pick)},
        {"shift X", Qt::Key_X, Qt::ShiftModifier, QStringLiteral("X"), single, false, act(Kind::reject)},
        {"u", Qt::Key_U, {}, QStringLiteral("u"), grid, false, act(Kind::unflag)},
        {"z in the grid", Qt::Key_Z, {}, QStringLiteral("z"), grid, false, act(Kind::none)},
        {"z in single photo", Qt::Key_Z, {}, QStringLiteral("z"), single, false, act(Kind::toggleZoom)},
        {"g", Qt::Key_G, {}, QStringLiteral("g"), single, true, act(Kind::showGrid)},
        {"e", Qt::Key_E, {}, QStringLiteral("e"), grid, false, act(Kind::showSingle)},
        {"ctrl+z is the menu's", Qt::Key_Z, Qt::ControlModifier, QStringLiteral("\x1a"), single, false, act(Kind::none)},
        {"ctrl+p is the menu's", Qt::Key_P, Qt::ControlModifier, QStringLiteral("p"), grid, false, act(Kind::none)},
        {"alt+p still picks", Qt::Key_P, Qt::AltModifier, QStringLiteral("p"), grid, false, act(Kind::pick)},
        {"unmapped letter", Qt::Key_A, {}, QStringLiteral("a"), grid, false, act(Kind::none)},
        {"purple has no key", Qt::Key_Minus, {}, QStringLiteral("-"), grid, false, act(Kind::none)},
        {"two characters", Qt::Key_unknown, {}, QStringLiteral("pp"), grid, false, act(Kind::none)},
        {"no text", Qt::Key_Shift, Qt::ShiftModifier, QString(), grid, false, act(Kind::none)},
    };
    for (const Case &c : cases)
        EXPECT_EQ(KeyboardMap::action(c.key, c.modifiers, c.text, c.mode, c.zoomed, 4), c.expected) << c.what;
}
