#include "BrowserHarness.h"

#include <QActionGroup>
#include <QComboBox>
#include <QMenu>
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

QToolButton *button(const BrowserHarness &h, const QString &text)
{
    for (QToolButton *b : h.browser->findChildren<QToolButton *>())
        if (b->text() == text)
            return b;
    return nullptr;
}

} // namespace

TEST(BrowserView, FiltersHideAndShowCellsAndTheCountLineFollows)
{
    QTemporaryDir dir;
    BrowserHarness h;
    ASSERT_TRUE(ModelTest::openAndWait(h.model, ModelTest::demoShoot(dir.path(), photos)));
    EXPECT_EQ(h.countLine(), QStringLiteral("24 of 24 photos"));
    EXPECT_EQ(h.grid->count(), photos);
    EXPECT_EQ(currentPage(h), h.grid);

    h.press(Qt::Key_P, QStringLiteral("p"));  // shot 0 picked
    h.press(Qt::Key_4, QStringLiteral("4"));  // shot 1: 4 stars
    h.press(Qt::Key_X, QStringLiteral("x"));  // shot 2 rejected
    const QList<Shot> all = h.model.visibleShots();

    auto *show = h.browser->findChild<QComboBox *>();
    ASSERT_EQ(show->toolTip(), QStringLiteral("Which photos to show"));
    ASSERT_EQ(show->count(), 5);
    EXPECT_EQ(show->itemText(4), QStringLiteral("AI Picks"));
    emit show->activated(1); // "Picks"
    EXPECT_EQ(h.model.filter(), Filter::picks);
    ASSERT_EQ(h.grid->count(), 1);
    EXPECT_EQ(h.grid->cell(0).shot.id, all[0].id);
    EXPECT_EQ(h.countLine(), QStringLiteral("1 of 24 photos"));

    emit show->activated(3); // "Rejects"
    ASSERT_EQ(h.grid->count(), 1);
    EXPECT_EQ(h.grid->cell(0).shot.id, all[2].id);
    EXPECT_EQ(h.model.selection(), all[2].id);

    h.model.setFilter(Filter::all);
    EXPECT_EQ(show->currentText(), QStringLiteral("All")) << "the picker follows the model";
    EXPECT_EQ(h.grid->count(), photos) << "rejects stay visible under All";

    QToolButton *stars = h.browser->findChild<QToolButton *>(QStringLiteral("starButton"));
    ASSERT_EQ(stars->text(), QStringLiteral("Any rating"));
    QAction *threeUp = menuItem(stars->menu(), QStringLiteral("3 and up"));
    ASSERT_TRUE(threeUp);
    threeUp->trigger();
    EXPECT_EQ(h.model.minimumStars(), 3);
    ASSERT_EQ(h.grid->count(), 1);
    EXPECT_EQ(h.grid->cell(0).shot.id, all[1].id);
    EXPECT_EQ(h.countLine(), QStringLiteral("1 of 24 photos"));
    EXPECT_TRUE(stars->text().endsWith(QStringLiteral("3 and up")));
    menuItem(stars->menu(), QStringLiteral("Any rating"))->trigger();
    EXPECT_EQ(h.countLine(), QStringLiteral("24 of 24 photos"));
}

TEST(BrowserView, StatusStepBarBurstAndViewPicker)
{
    QTemporaryDir dir;
    BrowserHarness h;
    ASSERT_TRUE(ModelTest::openAndWait(h.model, ModelTest::demoShoot(dir.path(), photos)));
    EXPECT_EQ(h.status(), QStringLiteral("Pick with P, reject with X, rate with 1–5. Arrow keys move; "
                                         "Return switches between grid and single photo."));
    h.press(Qt::Key_P, QStringLiteral("p"));
    h.press(Qt::Key_2, QStringLiteral("2"));
    EXPECT_EQ(h.status(), QStringLiteral("1 picked, 0 rejected, 1 rated, out of 24. Hand off when you're done."));
    EXPECT_EQ(h.browser->findChild<StepBar *>()->current(), 1);

    // The burst label names the selected shot's burst, and only for a shot in one.
    const BurstMap bursts = h.model.bursts();
    ASSERT_FALSE(bursts.isEmpty());
    for (const Shot &shot : h.model.visibleShots()) {
        h.model.setSelection(shot.id);
        const QString expected = bursts.contains(shot.id) ? QStringLiteral("Burst %1").arg(bursts[shot.id]) : QString();
        ASSERT_EQ(h.burstLabel(), expected) << shot.id.toStdString();
        ASSERT_EQ(h.grid->cell(h.selectedIndex()).burst.has_value(), bursts.contains(shot.id));
        ASSERT_TRUE(h.grid->cell(h.selectedIndex()).selected);
    }

    // The grid scrolls to a selection made elsewhere.
    const QList<Shot> visible = h.model.visibleShots();
    h.model.setSelection(visible.last().id);
    const QRect last = h.grid->cellRect(int(visible.size()) - 1);
    EXPECT_TRUE(h.grid->viewport()->rect().contains(last)) << "the selected cell is out of view";

    QComboBox *view = h.browser->findChildren<QComboBox *>().at(1);
    EXPECT_EQ(view->toolTip(), QStringLiteral("Grid or single photo (Return)"));
    emit view->activated(1);
    EXPECT_EQ(h.model.mode(), SorviModel::Mode::loupe);
    EXPECT_EQ(currentPage(h), h.single);
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

    QToolButton *folders = button(h, QStringLiteral("Folders"));
    ASSERT_TRUE(folders);
    EXPECT_EQ(folders->toolTip(), QStringLiteral("Close this folder and open another"));
    QTest::mouseClick(folders, Qt::LeftButton);
    EXPECT_EQ(closeRequested.count(), 1);
}
