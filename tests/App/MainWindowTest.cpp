#include "SorviApp/views/BrowserView.h"
#include "MainWindow.h"
#include "ModelTestFiles.h"
#include "SorviApp/model/SorviModel.h"
#include "SorviApp/views/WelcomeView.h"

#include <QAbstractButton>
#include <QAction>
#include <QApplication>
#include <QDir>
#include <QLabel>
#include <QMimeData>
#include <QSettings>
#include <QSignalSpy>
#include <QStackedWidget>
#include <QTest>
#include <QToolButton>

namespace {

// Screenshots for people to look at, written only when SORVI_SCREENSHOTS names a folder.
void screenshot(QWidget &widget, const QString &name)
{
    const QString folder = qEnvironmentVariable("SORVI_SCREENSHOTS");
    if (!folder.isEmpty() && QDir().mkpath(folder))
        widget.grab().save(folder + QLatin1Char('/') + name + QStringLiteral(".png"));
}

QStringList texts(const QWidget &root)
{
    QStringList all;
    for (const QLabel *label : root.findChildren<QLabel *>())
        if (label->isVisibleTo(&root))
            all << label->text();
    for (const QAbstractButton *button : root.findChildren<QAbstractButton *>())
        if (button->isVisibleTo(&root))
            all << button->text() + QStringLiteral(" | ") + button->toolTip();
    return all;
}

bool anyContains(const QStringList &list, const QString &part)
{
    return std::any_of(list.begin(), list.end(), [&](const QString &text) { return text.contains(part); });
}

} // namespace

TEST(MainWindowTest, WelcomesThenBrowsesAndUndoesFromTheMenu)
{
    QSettings().clear();
    QTemporaryDir scratch;
    const QString folder = ModelTest::demoShoot(scratch.filePath("shoot"), 12);
    SorviModel model(ModelTest::withoutChecks());
    MainWindow window(model);
    window.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    EXPECT_EQ(window.windowTitle(), "Kestrane Sorvi");
    EXPECT_EQ(window.size(), QSize(1240, 820));
    auto *pages = window.findChild<QStackedWidget *>();
    ASSERT_TRUE(pages);
    EXPECT_TRUE(qobject_cast<WelcomeView *>(pages->currentWidget()));
    for (const char *line : {"Drop a folder of photos", "A shoot on your computer, a card",
                             "P picks, X rejects, 1–5 rates, 6–9 colour labels. Arrow keys move."})
        EXPECT_TRUE(anyContains(texts(window), QString::fromUtf8(line))) << line;
    EXPECT_FALSE(window.undoAction()->isEnabled()) << "nothing to undo right after launch";
    EXPECT_EQ(window.openAction()->shortcut(), QKeySequence(QKeySequence::Open));
    screenshot(window, "welcome");

    model.open(folder);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !model.loading() && !model.shots().isEmpty(); }, ModelTest::loadTimeoutMs));
    auto *browser = qobject_cast<BrowserView *>(pages->currentWidget());
    ASSERT_TRUE(browser) << "the browser replaces the welcome screen once a folder is open";

    const QString first = model.selection();
    browser->setFocus();
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_P);
    EXPECT_EQ(model.rating(first).flag, Rating::Flag::pick);
    EXPECT_TRUE(window.undoAction()->isEnabled());
    // Ctrl+Z reaches the menu item whatever has focus, and there is only one undo.
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Z, Qt::ControlModifier);
    EXPECT_EQ(model.rating(first).flag, Rating::Flag::none);
    EXPECT_FALSE(window.undoAction()->isEnabled());
    if (QTest::qWaitFor([&] { return model.previews().cached(model.shots().last(), 256).has_value(); }, 10000))
        screenshot(window, "browser");

    // The long keyboard hint in the status bar must neither keep the window from being
    // made narrower nor squeeze the labels at the right ends of the toolbar and the status
    // bar until their text is cut off.
    window.resize(900, 700);
    EXPECT_TRUE(QTest::qWaitFor([&] { return window.width() == 900; }, 2000));
    QCoreApplication::processEvents(); // the layouts settle
    for (const char *name : {"countLine", "burstLabel"}) {
        const QLabel *label = browser->findChild<QLabel *>(QString::fromLatin1(name));
        ASSERT_TRUE(label) << name;
        EXPECT_GE(label->width(), label->sizeHint().width()) << name << ": " << label->text().toStdString();
    }
    screenshot(window, "browser-narrow");

    // Closing the folder goes back to the welcome screen, which now lists it as recent.
    model.close();
    EXPECT_TRUE(qobject_cast<WelcomeView *>(pages->currentWidget()));
    EXPECT_TRUE(anyContains(texts(window), QDir(folder).dirName()));
}

TEST(MainWindowTest, OpensADroppedFolderAndShowsCardsThatAreGone)
{
    QSettings().clear();
    QTemporaryDir scratch;
    const QString folder = ModelTest::demoShoot(scratch.filePath("dropped"), 12);
    const QString gone = scratch.filePath("EOS_DIGITAL");
    QDir().mkpath(gone);
    SorviModel model(ModelTest::withoutChecks());
    model.remember(gone);
    QDir(gone).removeRecursively();
    MainWindow window(model);
    window.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    emit model.recentFoldersChanged();
    QCoreApplication::processEvents(); // the new rows are shown by a queued call
    const QStringList shown = texts(window);
    EXPECT_TRUE(anyContains(shown, "EOS_DIGITAL · Not connected")) << shown.join("\n").toStdString();
    EXPECT_TRUE(anyContains(shown, "Plug in the card or drive to open EOS_DIGITAL again."));
    screenshot(window, "welcome-recent");

    auto *welcome = window.findChild<WelcomeView *>();
    QMimeData data;
    data.setUrls({QUrl::fromLocalFile(folder)});
    // A drag enters, highlights the drop area, and drops.
    QDragEnterEvent enter(QPoint(100, 100), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(welcome, &enter);
    EXPECT_TRUE(enter.isAccepted());
    EXPECT_TRUE(welcome->isTargeted());
    QDropEvent drop(QPointF(100, 100), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QSignalSpy chosen(welcome, &WelcomeView::folderChosen);
    QApplication::sendEvent(welcome, &drop);
    ASSERT_EQ(chosen.size(), 1) << "drop accepted: " << drop.isAccepted();
    EXPECT_EQ(QDir(model.folder()).canonicalPath(), QDir(folder).canonicalPath());
}
