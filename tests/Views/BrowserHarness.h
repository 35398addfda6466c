#pragma once

#include "SorviApp/views/BrowserView.h"
#include "SorviApp/views/GridView.h"
#include "ModelTestFiles.h"
#include "SorviApp/views/ShotImage.h"
#include "SorviApp/views/SinglePhotoView.h"
#include "SorviApp/model/SorviModel.h"
#include "KestraneStyle/StepBar.h"

#include <QAction>
#include <QKeyEvent>
#include <QLabel>
#include <QMenu>
#include <QTest>
#include <QVBoxLayout>
#include <QWidget>

/// A real browser in a window of the size the application opens with, over a real model,
/// with the window's undo command on Ctrl+Z as the main window has it.
struct BrowserHarness {
    explicit BrowserHarness(SorviModel::Options options = ModelTest::withoutChecks())
        : model(std::move(options))
    {
        auto *column = new QVBoxLayout(&window);
        column->setContentsMargins(0, 0, 0, 0);
        browser = new BrowserView(model, &window);
        column->addWidget(browser);
        undo = new QAction(QStringLiteral("Undo"), &window);
        undo->setShortcut(QKeySequence::Undo);
        window.addAction(undo);
        QObject::connect(undo, &QAction::triggered, &model, &SorviModel::undo);
        window.resize(1240, 820);
        window.show();
        window.activateWindow();
        EXPECT_TRUE(QTest::qWaitForWindowActive(&window));
        browser->setFocus();
        grid = browser->findChild<GridView *>();
        single = browser->findChild<SinglePhotoView *>();
    }

    /// A press and release as the keyboard sends them, shortcut override first.
    void press(Qt::Key key, const QString &text = {}, Qt::KeyboardModifiers modifiers = Qt::NoModifier)
    {
        QTest::sendKeyEvent(QTest::Click, browser, key, text, modifiers);
    }

    int selectedIndex() const
    {
        const QList<Shot> visible = model.visibleShots();
        for (int i = 0; i < visible.size(); ++i)
            if (visible[i].id == model.selection())
                return i;
        return -1;
    }

    QString countLine() const { return browser->findChild<QLabel *>(QStringLiteral("countLine"))->text(); }
    QString burstLabel() const { return browser->findChild<QLabel *>(QStringLiteral("burstLabel"))->text(); }
    QString status() const { return browser->findChild<StepBar *>()->status(); }

    SorviModel model;
    QWidget window;
    BrowserView *browser = nullptr;
    GridView *grid = nullptr;
    SinglePhotoView *single = nullptr;
    QAction *undo = nullptr;
};

/// The first item of `menu` whose text starts with `startingWith`; nullptr when none does.
inline QAction *menuItem(const QMenu *menu, const QString &startingWith)
{
    for (QAction *action : menu->actions())
        if (action->text().startsWith(startingWith))
            return action;
    return nullptr;
}
