#include "BrowserHarness.h"
#include "MainWindow.h"
#include "SorviApp/views/AskAIView.h"
#include "SorviApp/views/SettingsWindow.h"
#include "SorviApp/views/WelcomeView.h"

#include <QAbstractButton>
#include <QAction>
#include <QApplication>
#include <QDir>
#include <QLabel>
#include <QMimeData>
#include <QSettings>
#include <QSpinBox>
#include <QTabWidget>
#include <QStackedWidget>
#include <QTest>

namespace {

// The visible labels' texts and buttons' texts and tips, a line each.
QString texts(const QWidget &root)
{
    QStringList all;
    for (const QLabel *label : root.findChildren<QLabel *>())
        if (label->isVisibleTo(&root))
            all << label->text();
    for (const QAbstractButton *button : root.findChildren<QAbstractButton *>())
        if (button->isVisibleTo(&root))
            all << button->text() + QStringLiteral(" | ") + button->toolTip();
    return all.join(QLatin1Char('\n'));
}

} // namespace

TEST(MainWindowTest, WelcomesOpensADroppedFolderAndUndoesFromTheMenu)
{
    QSettings().clear();
    // No keyring of the user's may be read here: the Ask-AI sheet below must find no key.
    qputenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/sorvi-bus");
    QTemporaryDir scratch;
    const QString folder = ModelTest::demoShoot(scratch.filePath("shoot"), 12);
    const QString gone = scratch.filePath("EOS_DIGITAL");
    QDir().mkpath(gone);
    SorviModel model(ModelTest::withoutChecks());
    model.remember(gone);
    QDir(gone).removeRecursively();
    MainWindow window(model);
    window.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    auto *pages = window.findChild<QStackedWidget *>();
    ASSERT_TRUE(pages);
    auto *welcome = qobject_cast<WelcomeView *>(pages->currentWidget());
    ASSERT_TRUE(welcome);
    emit model.recentFoldersChanged();
    QCoreApplication::processEvents(); // the new rows are shown by a queued call
    const QString shown = texts(window);
    for (const char *line : {"Drop a folder of photos", "A shoot on your computer, a card",
                             "P picks, X rejects, 1–5 rates, 6–9 colour labels. Arrow keys move.",
                             "EOS_DIGITAL · Not connected", "Plug in the card or drive to open EOS_DIGITAL again."})
        EXPECT_TRUE(shown.contains(QString::fromUtf8(line))) << line << " is not in\n" << shown.toStdString();
    EXPECT_FALSE(window.undoAction()->isEnabled()) << "nothing to undo right after launch";
    saveScreenshot(window.grab().toImage(), "welcome");

    // A drag enters, highlights the drop area, and drops.
    QMimeData data;
    data.setUrls({QUrl::fromLocalFile(folder)});
    QDragEnterEvent enter(QPoint(100, 100), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(welcome, &enter);
    EXPECT_TRUE(enter.isAccepted());
    EXPECT_TRUE(welcome->isTargeted());
    QDropEvent drop(QPointF(100, 100), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(welcome, &drop);
    EXPECT_EQ(QDir(model.folder()).canonicalPath(), QDir(folder).canonicalPath());
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
        saveScreenshot(window.grab().toImage(), "browser");

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
    saveScreenshot(window.grab().toImage(), "browser-narrow");

    // The menu opens the Ask-AI sheet over the folder, and its "Set Up in Settings…" the
    // settings window at its AI tab (no service is set up in a fresh settings file).
    window.askAIAction()->trigger();
    ASSERT_TRUE(browser->askAIView());
    ASSERT_TRUE(QTest::qWaitFor([&] { return browser->askAIView()->isReady(); }, 20'000));
    browser->askAIView()->findChild<QAbstractButton *>("setUp")->click();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !browser->askAIView() && !model.showAskAI(); }, 2000));
    ASSERT_TRUE(window.settingsWindow());
    EXPECT_TRUE(window.settingsWindow()->isVisible());
    EXPECT_EQ(window.settingsAction()->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_Comma));
    // The thresholds of the checks have their own tab.
    QTabWidget *tabs = window.settingsWindow()->findChild<QTabWidget *>();
    ASSERT_TRUE(tabs);
    QStringList labels;
    for (int i = 0; i < tabs->count(); ++i)
        labels << tabs->tabText(i);
    ASSERT_TRUE(labels.contains("Checks")) << labels.join(", ").toStdString();
    tabs->setCurrentIndex(int(labels.indexOf("Checks")));
    EXPECT_TRUE(tabs->currentWidget()->findChild<QSpinBox *>("softPercent"));
    saveScreenshot(window.settingsWindow()->grab().toImage(), "settings-checks");
    window.settingsWindow()->close();

    // Closing the folder goes back to the welcome screen, which now lists it as recent.
    model.close();
    EXPECT_TRUE(qobject_cast<WelcomeView *>(pages->currentWidget()));
    EXPECT_TRUE(texts(window).contains(QDir(folder).dirName()));
}
