#pragma once

#include "SorviApp/views/BrowserView.h"
#include "SorviApp/views/GridView.h"
#include "ModelTestFiles.h"
#include "SorviApp/views/ShotImage.h"
#include "SorviApp/views/LoupeView.h"
#include "SorviApp/model/SorviModel.h"
#include "KestraneStyle/StepBar.h"

#include <QAction>
#include <QKeyEvent>
#include <QLabel>
#include <QMenu>
#include <QTest>
#include <QVBoxLayout>
#include <QWidget>

/// A real browser in a window of the size the application opens with, over a real model.
struct BrowserHarness {
    explicit BrowserHarness(SorviModel::Options options = ModelTest::withoutChecks())
        : model(std::move(options))
    {
        auto *column = new QVBoxLayout(&window);
        column->setContentsMargins(0, 0, 0, 0);
        browser = new BrowserView(model, &window);
        column->addWidget(browser);
        window.resize(1240, 820);
        window.show();
        window.activateWindow();
        EXPECT_TRUE(QTest::qWaitForWindowActive(&window));
        browser->setFocus();
        grid = browser->findChild<GridView *>();
        loupe = browser->findChild<LoupeView *>();
    }

    /// A press and release as the keyboard sends them, shortcut override first.
    void press(Qt::Key key, const QString &text = {}, Qt::KeyboardModifiers modifiers = Qt::NoModifier)
    {
        QTest::sendKeyEvent(QTest::Click, browser, key, text, modifiers);
    }

    int selectedIndex() const { return int(ModelTest::idsOf(model.visibleShots()).indexOf(model.selection())); }

    QString countLine() const { return browser->findChild<QLabel *>(QStringLiteral("countLine"))->text(); }
    QString burstLabel() const { return browser->findChild<QLabel *>(QStringLiteral("burstLabel"))->text(); }
    QString status() const { return browser->findChild<StepBar *>()->status(); }

    SorviModel model;
    QWidget window;
    BrowserView *browser = nullptr;
    GridView *grid = nullptr;
    LoupeView *loupe = nullptr;
};

/// Saves a screenshot for people to look at as NAME.png, only when SORVI_SCREENSHOTS names a
/// folder (outside the repository).
inline void saveScreenshot(const QImage &image, const QString &name)
{
    const QString folder = qEnvironmentVariable("SORVI_SCREENSHOTS");
    if (!folder.isEmpty()) {
        EXPECT_TRUE(QDir().mkpath(folder) && image.save(folder + QLatin1Char('/') + name + ".png")) << name.toStdString();
    }
}

/// The first item of `menu` whose text starts with `startingWith`; nullptr when none does.
inline QAction *menuItem(const QMenu *menu, const QString &startingWith)
{
    for (QAction *action : menu->actions())
        if (action->text().startsWith(startingWith))
            return action;
    return nullptr;
}
