#include "BrowserHarness.h"
#include "SorviApp/views/KeyboardMap.h"

namespace {

using Kind = KeyAction::Kind;
using Mode = SorviModel::Mode;
constexpr auto grid = Mode::grid;
constexpr auto single = Mode::loupe;

KeyAction act(Kind kind, int amount = 0, Rating::Label label = Rating::Label::none) { return {kind, amount, label}; }

constexpr int photos = 24;

// Pixels close to the pick badge's green inside `area` of a grab of the grid.
int greenPixels(const QImage &grab, const QRect &area)
{
    int count = 0;
    for (int y = area.top(); y <= area.bottom(); ++y)
        for (int x = area.left(); x <= area.right(); ++x) {
            const QColor c = grab.pixelColor(x, y);
            count += c.green() > 150 && c.red() < 90 && c.blue() < 130;
        }
    return count;
}

} // namespace

// Special keys depend on the mode, zoom and the grid's columns (6 here); typed characters
// are matched lower-cased, and menu shortcuts are left alone. The keys the browser tests
// press are pinned there.
TEST(KeyboardMap, KeysMapToActions)
{
    const std::tuple<const char *, int, Qt::KeyboardModifiers, QString, Mode, bool, KeyAction> cases[] = {
        {"up in a 6-column grid", Qt::Key_Up, {}, {}, grid, false, act(Kind::move, -6)},
        {"up in single photo", Qt::Key_Up, {}, {}, single, false, act(Kind::move, -1)},
        {"keypad down", Qt::Key_Down, Qt::KeypadModifier, {}, grid, false, act(Kind::move, 6)},
        {"enter", Qt::Key_Enter, Qt::KeypadModifier, QStringLiteral("\r"), single, true, act(Kind::toggleMode)},
        {"escape grid", Qt::Key_Escape, {}, QStringLiteral("\x1b"), grid, false, act(Kind::none)},
        {"ctrl+down", Qt::Key_Down, Qt::ControlModifier, {}, grid, false, act(Kind::none)},
        {"5 stars", Qt::Key_5, {}, QStringLiteral("5"), grid, false, act(Kind::setStars, 5)},
        {"7 yellow", Qt::Key_7, {}, QStringLiteral("7"), grid, false, act(Kind::setLabel, 0, Rating::Label::yellow)},
        {"8 green", Qt::Key_8, {}, QStringLiteral("8"), grid, false, act(Kind::setLabel, 0, Rating::Label::green)},
        {"9 blue", Qt::Key_9, {}, QStringLiteral("9"), grid, false, act(Kind::setLabel, 0, Rating::Label::blue)},
        {"p", Qt::Key_P, {}, QStringLiteral("p"), grid, false, act(Kind::pick)},
        {"shift X", Qt::Key_X, Qt::ShiftModifier, QStringLiteral("X"), single, false, act(Kind::reject)},
        {"z in the grid", Qt::Key_Z, {}, QStringLiteral("z"), grid, false, act(Kind::none)},
        {"z in single photo", Qt::Key_Z, {}, QStringLiteral("z"), single, false, act(Kind::toggleZoom)},
        {"g", Qt::Key_G, {}, QStringLiteral("g"), single, true, act(Kind::showGrid)},
        {"ctrl+p is the menu's", Qt::Key_P, Qt::ControlModifier, QStringLiteral("p"), grid, false, act(Kind::none)},
        {"alt+p still picks", Qt::Key_P, Qt::AltModifier, QStringLiteral("p"), grid, false, act(Kind::pick)},
        {"purple has no key", Qt::Key_Minus, {}, QStringLiteral("-"), grid, false, act(Kind::none)},
        {"= zooms in while zoomed", Qt::Key_Equal, {}, QStringLiteral("="), single, true, act(Kind::magnify, 1)},
        {"- zooms out while zoomed", Qt::Key_Minus, {}, QStringLiteral("-"), single, true, act(Kind::magnify, -1)},
        {"+ only while zoomed", Qt::Key_Plus, {}, QStringLiteral("+"), single, false, act(Kind::none)},
        {"two characters", Qt::Key_unknown, {}, QStringLiteral("pp"), grid, false, act(Kind::none)},
        {"no text", Qt::Key_Shift, Qt::ShiftModifier, QString(), grid, false, act(Kind::none)},
    };
    for (const auto &[what, key, modifiers, text, mode, zoomed, expected] : cases)
        EXPECT_EQ(KeyboardMap::action(key, modifiers, text, mode, zoomed, 6), expected) << what;
    // A grid not laid out yet still moves a row as one place, never zero.
    EXPECT_EQ(KeyboardMap::action(Qt::Key_Down, {}, {}, grid, false, 0), act(Kind::move, 1));
}

// What each key means is KeyboardMap's table; here, that the browser carries it out.
TEST(BrowserKeys, ArrowsMoveByTheRealColumnsAndModeAndZoomKeysReachTheModel)
{
    QTemporaryDir dir;
    BrowserHarness h;
    ASSERT_TRUE(ModelTest::openAndWait(h.model, ModelTest::demoShoot(dir.path(), photos)));
    const int columns = h.browser->gridColumns();
    ASSERT_GT(columns, 1) << "the grid should show several columns at 1240 pixels";
    // The columns really are laid out that way: the next row starts under the first cell.
    EXPECT_EQ(h.grid->cellRect(columns).left(), h.grid->cellRect(0).left());
    EXPECT_GT(h.grid->cellRect(columns).top(), h.grid->cellRect(columns - 1).top());

    ASSERT_EQ(h.selectedIndex(), 0);
    for (const auto &[key, index] : {std::pair{Qt::Key_Down, columns}, {Qt::Key_Right, columns + 1}, {Qt::Key_Up, 1},
                                     {Qt::Key_Left, 0}, {Qt::Key_Left, 0}}) { // no wrapping past the first
        h.press(key);
        EXPECT_EQ(h.selectedIndex(), index) << key;
    }

    h.press(Qt::Key_Space, QStringLiteral(" "));
    ASSERT_EQ(h.model.mode(), Mode::loupe);
    EXPECT_FALSE(h.model.zoomed());
    h.press(Qt::Key_Down);
    EXPECT_EQ(h.selectedIndex(), 1) << "one photo at a time in the single photo";
    h.model.setZoomAnchor(QPointF(0.1, 0.9));
    h.press(Qt::Key_Space, QStringLiteral(" "));
    EXPECT_TRUE(h.model.zoomed());
    EXPECT_EQ(h.model.zoomAnchor(), QPointF(0.5, 0.5)) << "a key zooms into the middle";
    h.press(Qt::Key_Escape);
    EXPECT_FALSE(h.model.zoomed());
    EXPECT_EQ(h.model.mode(), Mode::loupe) << "the first Escape only leaves zoom";
    h.press(Qt::Key_Space, QStringLiteral(" "));
    h.press(Qt::Key_Return, QStringLiteral("\r"));
    EXPECT_EQ(h.model.mode(), Mode::grid);
    EXPECT_FALSE(h.model.zoomed()) << "Return leaves zoom along with the single photo";
    h.press(Qt::Key_E, QStringLiteral("e"));
    h.press(Qt::Key_Escape);
    EXPECT_EQ(h.model.mode(), Mode::grid);

    // Narrower, the grid holds fewer columns, and the arrows follow.
    h.window.resize(560, 700);
    ASSERT_TRUE(QTest::qWaitFor([&] { return h.browser->gridColumns() < columns; }));
    h.press(Qt::Key_Down);
    EXPECT_EQ(h.selectedIndex(), 1 + h.grid->columns());
}

TEST(BrowserKeys, RatingKeysReachTheCellsAndCtrlZIsLeftToTheWindow)
{
    QTemporaryDir dir;
    BrowserHarness h;
    ASSERT_TRUE(ModelTest::openAndWait(h.model, ModelTest::demoShoot(dir.path(), photos)));
    ASSERT_TRUE(QTest::qWaitFor([&] { return h.grid->isScreenLoaded(); }, ModelTest::loadTimeoutMs));
    const QRect badgeCorner(GridCell::photoArea(h.grid->cellRect(0)).topLeft(), QSize(32, 32));
    EXPECT_EQ(greenPixels(h.grid->viewport()->grab().toImage(), badgeCorner), 0);

    // Caps lock sends "P" without Shift: it picks like "p" and moves on.
    h.press(Qt::Key_P, QStringLiteral("P"));
    EXPECT_EQ(h.grid->cell(0).rating.flag, Rating::Flag::pick);
    EXPECT_EQ(h.selectedIndex(), 1);
    EXPECT_GT(greenPixels(h.grid->viewport()->grab().toImage(), badgeCorner), 20) << "no pick flag drawn";

    h.press(Qt::Key_3, QStringLiteral("3"));
    EXPECT_EQ(h.grid->cell(1).rating.stars, 3);
    EXPECT_EQ(h.selectedIndex(), 2);
    h.press(Qt::Key_6, QStringLiteral("6"));
    EXPECT_EQ(h.grid->cell(2).rating.label, Rating::Label::red);
    EXPECT_EQ(h.selectedIndex(), 2) << "a colour label stays on the photo";
    h.press(Qt::Key_X, QStringLiteral("x"));
    EXPECT_EQ(h.grid->cell(2).rating.flag, Rating::Flag::reject);
    h.press(Qt::Key_Left);
    h.press(Qt::Key_U, QStringLiteral("u"));
    EXPECT_EQ(h.grid->cell(2).rating.flag, Rating::Flag::none);
    EXPECT_EQ(h.grid->cell(2).rating.label, Rating::Label::red);
    h.press(Qt::Key_Left);
    h.press(Qt::Key_0, QStringLiteral("0"));
    EXPECT_EQ(h.grid->cell(1).rating.stars, 0);
    EXPECT_EQ(h.selectedIndex(), 2) << "0 clears the stars and moves on";

    // The browser claims its own keys before any shortcut, but leaves Ctrl+Z to the
    // window's undo command (driven in the main window's test).
    for (const auto &[key, modifiers, text, claimed] : {std::tuple{Qt::Key_Z, Qt::ControlModifier, "\x1a", false},
                                                        std::tuple{Qt::Key_P, Qt::NoModifier, "p", true}}) {
        QKeyEvent override(QEvent::ShortcutOverride, key, modifiers, QString::fromLatin1(text));
        override.setAccepted(false);
        QCoreApplication::sendEvent(h.browser, &override);
        EXPECT_EQ(override.isAccepted(), claimed) << text;
    }
}

TEST(BrowserKeys, KeysAreAnsweredWhileAFolderIsStillListed)
{
    QTemporaryDir dir, slowDir;
    const QString shown = ModelTest::demoShoot(dir.path(), photos);
    const QString slow = ModelTest::demoShoot(slowDir.path(), photos);
    ModelTest::ListingGate gate;
    SorviModel::Options options = ModelTest::withoutChecks();
    options.list = gate.listing(slow);
    BrowserHarness h(options);
    ASSERT_TRUE(ModelTest::openAndWait(h.model, shown));

    // The second folder's listing is held in its worker; the first folder's photos stay
    // on screen meanwhile, and every key is handled without waiting for the listing.
    h.model.open(slow);
    ASSERT_TRUE(gate.waitEntered());
    ASSERT_TRUE(h.model.loading());
    for (const Qt::Key key : {Qt::Key_Right, Qt::Key_Right, Qt::Key_Down, Qt::Key_Return, Qt::Key_Left, Qt::Key_Return})
        h.press(key, key == Qt::Key_Return ? QStringLiteral("\r") : QString());
    EXPECT_FALSE(gate.listed());
    EXPECT_EQ(h.selectedIndex(), 1 + h.browser->gridColumns()); // right, right, down, left
    EXPECT_EQ(h.model.mode(), Mode::grid);
    gate.open();
    ASSERT_TRUE(ModelTest::waitFor([&] { return !h.model.loading(); }));
    EXPECT_EQ(h.model.folder(), slow);
}
