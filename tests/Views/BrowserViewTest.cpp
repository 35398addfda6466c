#include "BrowserHarness.h"

#include <QComboBox>
#include <QMenu>
#include <QPainter>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollBar>
#include <QSignalSpy>
#include <QStackedWidget>
#include <QToolButton>

namespace {

constexpr int photos = 24;
using Filter = SorviModel::Filter;

QWidget *currentPage(const BrowserHarness &h) { return h.browser->findChild<QStackedWidget *>()->currentWidget(); }

} // namespace

TEST(BrowserView, FiltersStatusBurstLabelViewPickerAndMouse)
{
    QTemporaryDir dir;
    BrowserHarness h;
    ASSERT_TRUE(ModelTest::openAndWait(h.model, ModelTest::demoShoot(dir.path(), photos)));
    EXPECT_EQ(h.countLine(), QStringLiteral("24 of 24 photos"));
    h.press(Qt::Key_P, QStringLiteral("p")); // shot 0 picked
    h.press(Qt::Key_4, QStringLiteral("4")); // shot 1: 4 stars
    h.press(Qt::Key_X, QStringLiteral("x")); // shot 2 rejected
    EXPECT_EQ(h.status(), QStringLiteral("1 picked, 1 rejected, 1 rated, out of 24. Hand off when you're done."));
    EXPECT_EQ(h.browser->findChild<StepBar *>()->current(), 1);
    const QList<Shot> visible = h.model.visibleShots();

    auto *show = h.browser->findChild<QComboBox *>();
    emit show->activated(3); // "Rejects"
    EXPECT_EQ(h.model.filter(), Filter::rejects);
    ASSERT_EQ(h.grid->count(), 1);
    EXPECT_EQ(h.grid->cell(0).shot.id, visible[2].id);
    EXPECT_EQ(h.model.selection(), visible[2].id);
    EXPECT_EQ(h.countLine(), QStringLiteral("1 of 24 photos"));
    h.model.setFilter(Filter::all);
    EXPECT_EQ(show->currentText(), QStringLiteral("All")) << "the picker follows the model";
    EXPECT_EQ(h.grid->count(), photos);

    QToolButton *stars = h.browser->findChild<QToolButton *>(QStringLiteral("starButton"));
    ASSERT_EQ(stars->text(), QStringLiteral("Any rating"));
    QAction *threeUp = menuItem(stars->menu(), QStringLiteral("3 and up"));
    ASSERT_TRUE(threeUp);
    threeUp->trigger();
    EXPECT_EQ(h.model.minimumStars(), 3);
    ASSERT_EQ(h.grid->count(), 1);
    EXPECT_EQ(h.grid->cell(0).shot.id, visible[1].id);
    EXPECT_TRUE(stars->text().endsWith(QStringLiteral("3 and up")));
    menuItem(stars->menu(), QStringLiteral("Any rating"))->trigger();
    EXPECT_EQ(h.countLine(), QStringLiteral("24 of 24 photos"));

    // The burst label names the selected shot's burst, and only for a shot in one.
    const BurstMap bursts = h.model.bursts();
    ASSERT_FALSE(bursts.isEmpty());
    for (const Shot &shot : visible) {
        h.model.setSelection(shot.id);
        const QString expected = bursts.contains(shot.id) ? QStringLiteral("Burst %1").arg(bursts[shot.id]) : QString();
        ASSERT_EQ(h.burstLabel(), expected) << shot.id.toStdString();
        ASSERT_EQ(h.grid->cell(h.selectedIndex()).burst.has_value(), bursts.contains(shot.id));
        ASSERT_TRUE(h.grid->cell(h.selectedIndex()).selected);
    }
    // The grid has scrolled to that last selection, made elsewhere.
    EXPECT_TRUE(h.grid->viewport()->rect().contains(h.grid->cellRect(photos - 1))) << "the selected cell is out of view";

    QComboBox *view = h.browser->findChildren<QComboBox *>().at(1);
    emit view->activated(1);
    EXPECT_EQ(h.model.mode(), SorviModel::Mode::loupe);
    EXPECT_EQ(currentPage(h), h.loupe);
    h.press(Qt::Key_Return, QStringLiteral("\r"));
    EXPECT_EQ(view->currentText(), QStringLiteral("Grid"));
    EXPECT_EQ(currentPage(h), h.grid);

    // A click selects, a double-click opens the single photo.
    h.grid->verticalScrollBar()->setValue(0);
    QTest::mouseClick(h.grid->viewport(), Qt::LeftButton, {}, GridCell::photoArea(h.grid->cellRect(1)).center());
    EXPECT_EQ(h.model.selection(), visible[1].id);
    EXPECT_TRUE(h.browser->hasFocus()) << "clicking the grid keeps the keys in the browser";
    QTest::mouseDClick(h.grid->viewport(), Qt::LeftButton, {}, GridCell::photoArea(h.grid->cellRect(2)).center());
    EXPECT_EQ(h.model.selection(), visible[2].id);
    EXPECT_EQ(h.model.mode(), SorviModel::Mode::loupe);
}

TEST(BrowserView, EmptyStatesAndTheButtonsThatLeave)
{
    QTemporaryDir empty;
    ModelTest::ListingGate gate;
    SorviModel::Options options = ModelTest::withoutChecks();
    options.list = gate.listing(empty.path());
    BrowserHarness h(options);
    QSignalSpy closeRequested(h.browser, &BrowserView::folderCloseRequested);
    QSignalSpy openRequested(h.browser, &BrowserView::openFolderRequested);

    h.model.open(empty.path());
    ASSERT_TRUE(gate.waitEntered());
    QWidget *looking = currentPage(h);
    ASSERT_TRUE(looking->findChild<QLabel *>());
    EXPECT_EQ(looking->findChild<QLabel *>()->text(), QStringLiteral("Looking for photos…"));
    EXPECT_TRUE(looking->findChild<QProgressBar *>());
    gate.open();
    ASSERT_TRUE(ModelTest::waitFor([&] { return !h.model.loading(); }));
    QWidget *nothing = currentPage(h);
    ASSERT_NE(nothing, looking);
    EXPECT_EQ(nothing->findChild<QLabel *>()->text(), QStringLiteral("No photos found in this folder."));
    auto *another = nothing->findChild<QPushButton *>();
    ASSERT_TRUE(another);
    EXPECT_EQ(another->text(), QStringLiteral("Open Another Folder…"));
    QTest::mouseClick(another, Qt::LeftButton);
    EXPECT_EQ(openRequested.count(), 1);
    EXPECT_EQ(h.countLine(), QStringLiteral("0 of 0 photos"));

    QToolButton *folders = nullptr;
    for (QToolButton *button : h.browser->findChildren<QToolButton *>())
        folders = button->text() == "Folders" ? button : folders;
    ASSERT_TRUE(folders);
    EXPECT_EQ(folders->toolTip(), QStringLiteral("Close this folder and open another"));
    QTest::mouseClick(folders, Qt::LeftButton);
    EXPECT_EQ(closeRequested.count(), 1);
}

// Runs the real checks on a generated shoot, then shows their badges, the Checks menu
// with its counts and a bulk action, and saves screenshots of each state.
TEST(BrowserScreenshots, CheckBadgesChecksMenuAndSinglePhoto)
{
    QTemporaryDir dir;
    BrowserHarness h(SorviModel::Options{});
    ASSERT_TRUE(ModelTest::openAndWait(h.model, ModelTest::demoShoot(dir.path(), 12), ModelTest::checksTimeoutMs));
    ASSERT_FALSE(h.model.soft().isEmpty()) << "the demo shoot has blurred frames";
    ASSERT_FALSE(h.model.bestOfBurst().isEmpty());

    // Every cell's check flags say what the model found; hiding the badges removes them.
    for (int i = 0; i < h.grid->count(); ++i) {
        const GridCell cell = h.grid->cell(i);
        ASSERT_TRUE(cell.checks);
        EXPECT_EQ(cell.checks->soft, h.model.soft().contains(cell.shot.id));
        EXPECT_EQ(cell.checks->best, h.model.bestOfBurst().contains(cell.shot.id));
    }

    // Some ratings to show, then the grid once its previews are in.
    for (const auto &[key, text] : {std::pair{Qt::Key_P, "p"}, {Qt::Key_5, "5"}, {Qt::Key_8, "8"}, {Qt::Key_Right, ""},
                                    {Qt::Key_X, "x"}, {Qt::Key_3, "3"}, {Qt::Key_9, "9"}, {Qt::Key_Right, ""},
                                    {Qt::Key_Right, ""}})
        h.press(key, QString::fromLatin1(text));
    ASSERT_TRUE(QTest::qWaitFor([&] { return h.grid->isScreenLoaded(); }, ModelTest::loadTimeoutMs));
    saveScreenshot(h.window.grab().toImage(), QStringLiteral("browser-grid"));

    // The Checks menu counts what each bulk action would change.
    QToolButton *checks = h.browser->findChild<QToolButton *>(QStringLiteral("checksButton"));
    ASSERT_TRUE(checks);
    EXPECT_EQ(checks->text(), QStringLiteral("Checks"));
    QMenu *menu = checks->menu();
    menu->popup(h.window.mapToGlobal(checks->geometry().bottomLeft() + QPoint(0, 8)));
    ASSERT_TRUE(QTest::qWaitForWindowExposed(menu));
    const int softCount = h.model.count(h.model.soft());
    ASSERT_GT(softCount, 0) << "some soft frames are still unflagged";
    for (const auto &[item, count] : {std::pair{"Reject Soft Photos", softCount},
                                      {"Reject the Rest of Each Burst", h.model.count(h.model.restOfBursts())},
                                      {"Pick the Best of Each Burst", h.model.count(h.model.bestOfBurst())}}) {
        QAction *action = menuItem(menu, QString::fromLatin1(item) + " (");
        ASSERT_TRUE(action) << item;
        EXPECT_EQ(action->text(), QStringLiteral("%1 (%2)").arg(QLatin1String(item)).arg(count));
    }
    QAction *rejectSoft = menuItem(menu, QStringLiteral("Reject Soft Photos ("));
    EXPECT_TRUE(menuItem(menu, QStringLiteral("Reject Photos with Closed Eyes (")));
    EXPECT_TRUE(menuItem(menu, QStringLiteral("Changes only photos you haven't picked or rejected · Ctrl+Z undoes")));
    QImage withMenu = h.window.grab().toImage();
    QPainter(&withMenu).drawImage(h.window.mapFromGlobal(menu->pos()), menu->grab().toImage());
    saveScreenshot(withMenu, QStringLiteral("browser-checks-menu"));
    menu->close();

    // What a bulk action changes is the model's own test; here, that the item runs it.
    rejectSoft->trigger();
    EXPECT_EQ(h.model.count(h.model.soft()), 0);

    QAction *showBadges = menuItem(menu, QStringLiteral("Show Check Badges"));
    ASSERT_TRUE(showBadges && showBadges->isChecked());
    showBadges->trigger();
    EXPECT_FALSE(h.model.showChecks());
    EXPECT_FALSE(h.grid->cell(0).checks);
    showBadges->trigger();

    // The single photo: the selection fitted and upright, with its badges.
    h.model.setSelection(h.grid->cell(0).shot.id);
    h.press(Qt::Key_Return, QStringLiteral("\r"));
    ASSERT_TRUE(QTest::qWaitFor([&] { return h.loupe->isShowingFullQuality(); }, ModelTest::loadTimeoutMs));
    const QRect photo = h.loupe->photoRect();
    EXPECT_FALSE(photo.isEmpty());
    EXPECT_TRUE(h.loupe->photoArea()->rect().contains(photo));
    saveScreenshot(h.window.grab().toImage(), QStringLiteral("browser-single-photo"));
}
