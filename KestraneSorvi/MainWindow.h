#pragma once

#include <QMainWindow>
#include <QPointer>

#include "SorviApp/views/SettingsWindow.h"

class BrowserView;
class QAction;
class QKeySequence;
class QMenu;
class QStackedWidget;
class SorviModel;
class WelcomeView;

/// The one main window: the welcome screen until a folder is open, then the browser, with
/// the File, Edit and View menus. Wiring only; every decision lives in the model. GUI thread.
class MainWindow : public QMainWindow {
    Q_OBJECT
public:
    /// The window borrows `model`, which must outlive it.
    explicit MainWindow(SorviModel &model, QWidget *parent = nullptr);

    /// Shows the folder picker and opens the chosen folder; cancelling changes nothing.
    void chooseFolder();

    /// The folder picker's message.
    static QString pickerMessage();

    QAction *undoAction() const { return m_undo; }
    QAction *openAction() const { return m_open; }
    QAction *handOffAction() const { return m_handOff; }
    QAction *askAIAction() const { return m_askAI; }
    QAction *settingsAction() const { return m_settings; }
    /// Edit ▸ Preferences…: the settings window, one for the window's lifetime.
    void showSettings();
    SettingsWindow *settingsWindow() const { return m_settingsWindow; }
    QAction *showInspectorAction() const { return m_showInspector; }
    QAction *showClippingAction() const { return m_showClipping; }
    QAction *keepZoomAction() const { return m_keepZoom; }

protected:
    void dragEnterEvent(QDragEnterEvent *event) override;
    void dropEvent(QDropEvent *event) override;

private:
    void buildMenus();
    void showCurrentPage();
    /// A checkable menu item that follows and sets one of the model's switches.
    QAction *toggle(QMenu *menu, const QString &text, const QKeySequence &key, bool on, void (SorviModel::*set)(bool),
                    void (SorviModel::*changed)(), bool (SorviModel::*get)() const);

    SorviModel &m_model;
    QStackedWidget *m_pages = nullptr;
    WelcomeView *m_welcome = nullptr;
    BrowserView *m_browser = nullptr;
    QAction *m_open = nullptr;
    QAction *m_undo = nullptr;
    QAction *m_handOff = nullptr;
    QAction *m_askAI = nullptr;
    QAction *m_settings = nullptr;
    QPointer<SettingsWindow> m_settingsWindow;
    QAction *m_showInspector = nullptr;
    QAction *m_showClipping = nullptr;
    QAction *m_keepZoom = nullptr;
};
