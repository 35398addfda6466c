#include "BrowserHarness.h"

#include <QElapsedTimer>

namespace {

constexpr int photos = 24;
using Mode = SorviModel::Mode;

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

TEST(BrowserKeys, ArrowsMoveByTheRealColumnsInTheGridAndByOneInSinglePhoto)
{
    QTemporaryDir dir;
    BrowserHarness h;
    ASSERT_TRUE(ModelTest::openAndWait(h.model, ModelTest::demoShoot(dir.path(), photos)));
    const int columns = h.browser->gridColumns();
    ASSERT_GT(columns, 1) << "the grid should show several columns at 1240 pixels";
    EXPECT_EQ(columns, h.grid->columns());
    // The columns really are laid out that way: the next row starts under the first cell.
    EXPECT_EQ(h.grid->cellRect(columns).left(), h.grid->cellRect(0).left());
    EXPECT_GT(h.grid->cellRect(columns).top(), h.grid->cellRect(columns - 1).top());

    ASSERT_EQ(h.selectedIndex(), 0);
    h.press(Qt::Key_Down);
    EXPECT_EQ(h.selectedIndex(), columns);
    h.press(Qt::Key_Right);
    EXPECT_EQ(h.selectedIndex(), columns + 1);
    h.press(Qt::Key_Up);
    EXPECT_EQ(h.selectedIndex(), 1);
    h.press(Qt::Key_Left);
    h.press(Qt::Key_Left); // no wrapping past the first
    EXPECT_EQ(h.selectedIndex(), 0);

    h.press(Qt::Key_Return, QStringLiteral("\r"));
    ASSERT_EQ(h.model.mode(), Mode::loupe);
    h.press(Qt::Key_Down);
    EXPECT_EQ(h.selectedIndex(), 1);
    h.press(Qt::Key_Up);
    EXPECT_EQ(h.selectedIndex(), 0);

    // Narrower, the grid holds fewer columns, and the arrows follow.
    h.press(Qt::Key_G, QStringLiteral("g"));
    h.window.resize(560, 700);
    ASSERT_TRUE(QTest::qWaitFor([&] { return h.browser->gridColumns() < columns; }));
    h.press(Qt::Key_Down);
    EXPECT_EQ(h.selectedIndex(), h.grid->columns());
}

TEST(BrowserKeys, EscapeSpaceAndZFollowModeAndZoom)
{
    QTemporaryDir dir;
    BrowserHarness h;
    ASSERT_TRUE(ModelTest::openAndWait(h.model, ModelTest::demoShoot(dir.path(), photos)));
    h.press(Qt::Key_Z, QStringLiteral("z"));
    EXPECT_EQ(h.model.mode(), Mode::grid);
    EXPECT_FALSE(h.model.zoomed()) << "z does nothing in the grid";

    h.press(Qt::Key_Space, QStringLiteral(" "));
    ASSERT_EQ(h.model.mode(), Mode::loupe);
    EXPECT_FALSE(h.model.zoomed());
    h.model.setZoomAnchor(QPointF(0.1, 0.9));
    h.press(Qt::Key_Space, QStringLiteral(" "));
    EXPECT_TRUE(h.model.zoomed());
    EXPECT_EQ(h.model.zoomAnchor(), QPointF(0.5, 0.5));

    h.press(Qt::Key_Escape);
    EXPECT_FALSE(h.model.zoomed());
    EXPECT_EQ(h.model.mode(), Mode::loupe) << "the first Escape only leaves zoom";
    h.press(Qt::Key_Escape);
    EXPECT_EQ(h.model.mode(), Mode::grid);
    const QString selection = h.model.selection();
    h.press(Qt::Key_Escape);
    EXPECT_EQ(h.model.mode(), Mode::grid);
    EXPECT_FALSE(h.model.zoomed());
    EXPECT_EQ(h.model.selection(), selection);

    h.press(Qt::Key_E, QStringLiteral("e"));
    h.press(Qt::Key_Z, QStringLiteral("z"));
    EXPECT_TRUE(h.model.zoomed());
    h.press(Qt::Key_Return, QStringLiteral("\r"));
    EXPECT_EQ(h.model.mode(), Mode::grid);
    EXPECT_FALSE(h.model.zoomed()) << "Return leaves zoom along with the single photo";
}

TEST(BrowserKeys, RatingKeysReachTheCellsAndCtrlZIsTheWindows)
{
    QTemporaryDir dir;
    BrowserHarness h;
    ASSERT_TRUE(ModelTest::openAndWait(h.model, ModelTest::demoShoot(dir.path(), photos)));
    ASSERT_TRUE(QTest::qWaitFor([&] { return h.grid->isScreenLoaded(); }, ModelTest::loadTimeoutMs));
    const QRect firstPhoto = GridCell::photoArea(h.grid->cellRect(0));
    const QRect badgeCorner(firstPhoto.topLeft(), QSize(32, 32));
    EXPECT_EQ(greenPixels(h.grid->viewport()->grab().toImage(), badgeCorner), 0);

    // Caps lock sends "P" without Shift: it picks like "p" and moves on.
    h.press(Qt::Key_P, QStringLiteral("P"));
    EXPECT_EQ(h.model.rating(h.grid->cell(0).shot.id).flag, Rating::Flag::pick);
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

    // The browser leaves Ctrl+Z alone, so the window's undo command gets it.
    QKeyEvent override(QEvent::ShortcutOverride, Qt::Key_Z, Qt::ControlModifier, QStringLiteral("\x1a"));
    override.setAccepted(false);
    QCoreApplication::sendEvent(h.browser, &override);
    EXPECT_FALSE(override.isAccepted());
    QKeyEvent ours(QEvent::ShortcutOverride, Qt::Key_P, Qt::NoModifier, QStringLiteral("p"));
    ours.setAccepted(false);
    QCoreApplication::sendEvent(h.browser, &ours);
    EXPECT_TRUE(ours.isAccepted()) << "the browser's own keys are claimed before any shortcut";

    h.press(Qt::Key_E, QStringLiteral("e"));
    h.press(Qt::Key_Z, QStringLiteral("\x1a"), Qt::ControlModifier);
    EXPECT_FALSE(h.model.zoomed()) << "Ctrl+Z must not zoom";
    EXPECT_EQ(h.model.mode(), Mode::loupe);
    EXPECT_EQ(h.model.rating(h.grid->cell(1).shot.id).stars, 3) << "Ctrl+Z should undo the 0 through the window";
}

TEST(BrowserKeys, KeysAreAnsweredWhileAFolderIsStillListed)
{
    QTemporaryDir dir;
    QTemporaryDir slowDir;
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
    QElapsedTimer timer;
    qint64 worstMs = 0;
    for (const Qt::Key key : {Qt::Key_Right, Qt::Key_Right, Qt::Key_Down, Qt::Key_Return, Qt::Key_Left,
                              Qt::Key_Return}) {
        timer.start();
        h.press(key, key == Qt::Key_Return ? QStringLiteral("\r") : QString());
        QCoreApplication::processEvents();
        worstMs = std::max(worstMs, timer.elapsed());
    }
    EXPECT_FALSE(gate.listed());
    EXPECT_EQ(h.selectedIndex(), 1 + h.browser->gridColumns()); // right, right, down, left
    EXPECT_EQ(h.model.mode(), Mode::grid);
    // Generous for sanitizer builds on a busy machine; a blocked loop would wait for ever.
    EXPECT_LT(worstMs, 2000);
    gate.open();
    ASSERT_TRUE(ModelTest::waitFor([&] { return !h.model.loading(); }));
    EXPECT_EQ(h.model.folder(), slow);
}
