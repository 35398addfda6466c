#include "BrowserHarness.h"

#include <QDir>
#include <QMenu>
#include <QPainter>
#include <QToolButton>

namespace {

constexpr int photos = 12;

// Screenshots for people to look at, written only when SORVI_SCREENSHOTS names a folder
// (outside the repository).
void save(const QImage &image, const QString &name)
{
    const QString dir = qEnvironmentVariable("SORVI_SCREENSHOTS");
    if (dir.isEmpty())
        return;
    QDir().mkpath(dir);
    const QString path = dir + QLatin1Char('/') + name;
    EXPECT_TRUE(image.save(path)) << path.toStdString();
}

} // namespace

// Runs the real checks on a generated shoot, then shows their badges, the Checks menu
// with its counts and a bulk action, and saves screenshots of each state.
TEST(BrowserScreenshots, CheckBadgesChecksMenuAndSinglePhoto)
{
    QTemporaryDir dir;
    BrowserHarness h(SorviModel::Options{});
    ASSERT_TRUE(ModelTest::openAndWait(h.model, ModelTest::demoShoot(dir.path(), photos), ModelTest::checksTimeoutMs));
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
    h.press(Qt::Key_P, QStringLiteral("p"));
    h.press(Qt::Key_5, QStringLiteral("5"));
    h.press(Qt::Key_8, QStringLiteral("8"));
    h.press(Qt::Key_Right);
    h.press(Qt::Key_X, QStringLiteral("x"));
    h.press(Qt::Key_3, QStringLiteral("3"));
    h.press(Qt::Key_9, QStringLiteral("9"));
    h.press(Qt::Key_Right);
    h.press(Qt::Key_Right);
    ASSERT_TRUE(QTest::qWaitFor([&] { return h.grid->isScreenLoaded(); }, ModelTest::loadTimeoutMs));
    save(h.window.grab().toImage(), QStringLiteral("browser-grid.png"));

    // The Checks menu counts what each bulk action would change.
    QToolButton *checks = h.browser->findChild<QToolButton *>(QStringLiteral("checksButton"));
    ASSERT_TRUE(checks);
    EXPECT_EQ(checks->text(), QStringLiteral("Checks"));
    QMenu *menu = checks->menu();
    menu->popup(h.window.mapToGlobal(checks->geometry().bottomLeft() + QPoint(0, 8)));
    ASSERT_TRUE(QTest::qWaitForWindowExposed(menu));
    const int softCount = h.model.count(h.model.soft());
    QAction *rejectSoft = menuItem(menu, QStringLiteral("Reject Soft Photos ("));
    ASSERT_TRUE(rejectSoft);
    EXPECT_EQ(rejectSoft->text(), QStringLiteral("Reject Soft Photos (%1)").arg(softCount));
    EXPECT_EQ(menuItem(menu, QStringLiteral("Reject the Rest of Each Burst"))->text(),
              QStringLiteral("Reject the Rest of Each Burst (%1)").arg(h.model.count(h.model.restOfBursts())));
    EXPECT_EQ(menuItem(menu, QStringLiteral("Pick the Best of Each Burst"))->text(),
              QStringLiteral("Pick the Best of Each Burst (%1)").arg(h.model.count(h.model.bestOfBurst())));
    EXPECT_TRUE(menuItem(menu, QStringLiteral("Reject Photos with Closed Eyes (")));
    EXPECT_TRUE(menuItem(menu, QStringLiteral("Changes only photos you haven't picked or rejected · Ctrl+Z undoes")));
    QImage withMenu = h.window.grab().toImage();
    {
        QPainter painter(&withMenu);
        painter.drawImage(h.window.mapFromGlobal(menu->pos()), menu->grab().toImage());
    }
    save(withMenu, QStringLiteral("browser-checks-menu.png"));
    menu->close();

    // A bulk action changes only unflagged soft shots, and the window's Ctrl+Z undoes it.
    const RatingMap before = h.model.ratings();
    rejectSoft->trigger();
    int rejected = 0;
    for (const QString &id : h.model.soft())
        rejected += h.model.rating(id).flag == Rating::Flag::reject && before.value(id).flag == Rating::Flag::none;
    EXPECT_EQ(rejected, softCount);
    h.press(Qt::Key_Z, QStringLiteral("\x1a"), Qt::ControlModifier);
    EXPECT_EQ(h.model.ratings(), before);

    QAction *showBadges = menuItem(menu, QStringLiteral("Show Check Badges"));
    ASSERT_TRUE(showBadges);
    EXPECT_TRUE(showBadges->isChecked());
    showBadges->trigger();
    EXPECT_FALSE(h.model.showChecks());
    EXPECT_FALSE(h.grid->cell(0).checks);
    showBadges->trigger();

    // The single photo: the selection fitted and upright, with its badges.
    h.model.setSelection(h.grid->cell(0).shot.id);
    h.press(Qt::Key_Return, QStringLiteral("\r"));
    ASSERT_TRUE(QTest::qWaitFor([&] { return !h.single->image().image().isNull(); }, ModelTest::loadTimeoutMs));
    QCoreApplication::processEvents();
    h.single->repaint();
    const QRect photo = h.single->photoRect();
    EXPECT_FALSE(photo.isEmpty());
    EXPECT_TRUE(h.single->rect().contains(photo));
    save(h.window.grab().toImage(), QStringLiteral("browser-single-photo.png"));
}
