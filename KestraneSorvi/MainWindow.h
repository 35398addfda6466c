#pragma once

#include <QMainWindow>

class BrowserView;
class QAction;
class QStackedWidget;
class SorviModel;
class WelcomeView;

/// The one main window: the welcome screen until a folder is open, then the browser, with
/// the File and Edit menus. Wiring only; every decision lives in the model. GUI thread.
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

protected:
    void dragEnterEvent(QDragEnterEvent *event) override;
    void dropEvent(QDropEvent *event) override;

private:
    void buildMenus();
    void showCurrentPage();

    SorviModel &m_model;
    QStackedWidget *m_pages = nullptr;
    WelcomeView *m_welcome = nullptr;
    BrowserView *m_browser = nullptr;
    QAction *m_open = nullptr;
    QAction *m_undo = nullptr;
};
