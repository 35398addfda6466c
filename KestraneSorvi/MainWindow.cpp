#include "MainWindow.h"

#include "SorviApp/views/BrowserView.h"
#include "SorviApp/views/ChecksSettingsView.h"
#include "SorviApp/views/SettingsWindow.h"
#include "SorviApp/model/SorviModel.h"
#include "SorviApp/views/WelcomeView.h"

#include <QAction>
#include <QApplication>
#include <QDragEnterEvent>
#include <QFileDialog>
#include <QMenuBar>
#include <QStackedWidget>

MainWindow::MainWindow(SorviModel &model, QWidget *parent) : QMainWindow(parent), m_model(model)
{
    setObjectName(QStringLiteral("main"));
    setWindowTitle(QStringLiteral("Kestrane Sorvi"));
    setUnifiedTitleAndToolBarOnMac(true);
    setAcceptDrops(true);
    resize(1240, 820);

    m_pages = new QStackedWidget(this);
    m_welcome = new WelcomeView(m_model, m_pages);
    m_browser = new BrowserView(m_model, m_pages);
    m_pages->addWidget(m_welcome);
    m_pages->addWidget(m_browser);
    setCentralWidget(m_pages);
    buildMenus();

    connect(m_welcome, &WelcomeView::openFolderRequested, this, &MainWindow::chooseFolder);
    connect(m_welcome, &WelcomeView::folderChosen, &m_model, &SorviModel::open);
    connect(m_browser, &BrowserView::openFolderRequested, this, &MainWindow::chooseFolder);
    connect(m_browser, &BrowserView::settingsRequested, this, &MainWindow::showSettings);
    connect(m_browser, &BrowserView::folderCloseRequested, &m_model, &SorviModel::close);
    connect(&m_model, &SorviModel::folderChanged, this, &MainWindow::showCurrentPage);
    showCurrentPage();
}

QString MainWindow::pickerMessage()
{
    return QStringLiteral("Choose a folder of photos, a card, or an Ostrale folder. Sorvi only reads the photos.");
}

void MainWindow::showSettings()
{
    if (!m_settingsWindow) {
        m_settingsWindow = new SettingsWindow(this);
        m_settingsWindow->addPage(new ChecksSettingsView(m_model), QStringLiteral("Checks"));
    }
    m_settingsWindow->show();
    m_settingsWindow->raise();
    m_settingsWindow->activateWindow();
}

void MainWindow::buildMenus()
{
    QMenu *file = menuBar()->addMenu(QStringLiteral("&File"));
    m_open = file->addAction(QStringLiteral("Open Folder…"), this, &MainWindow::chooseFolder);
    m_open->setShortcut(QKeySequence::Open);
    m_handOff = file->addAction(QStringLiteral("Hand Off…"), this, [this] { m_model.setShowHandoff(true); });
    // The shortcut editors use for export.
    m_handOff->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_E));
    m_askAI = file->addAction(QStringLiteral("Ask an AI…"), this, [this] { m_model.setShowAskAI(true); });
    m_askAI->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_A));
    const auto needFolder = [this] {
        for (QAction *action : {m_handOff, m_askAI})
            action->setEnabled(!m_model.folder().isEmpty());
    };
    needFolder();
    connect(&m_model, &SorviModel::folderChanged, this, needFolder);
    file->addSeparator();
    QAction *quit = file->addAction(QStringLiteral("Quit"), qApp, &QApplication::closeAllWindows);
    quit->setShortcut(QKeySequence::Quit);

    // The only undo is the rating undo, so Ctrl+Z undoes the last rating action whatever
    // has focus; there is no redo.
    QMenu *edit = menuBar()->addMenu(QStringLiteral("&Edit"));
    m_undo = edit->addAction(QStringLiteral("Undo"), &m_model, &SorviModel::undo);
    m_undo->setShortcut(QKeySequence::Undo);
    m_undo->setShortcutContext(Qt::ApplicationShortcut);
    m_undo->setEnabled(m_model.canUndo());
    connect(&m_model, &SorviModel::canUndoChanged, this, [this] { m_undo->setEnabled(m_model.canUndo()); });
    edit->addSeparator();
    m_settings = edit->addAction(QStringLiteral("Preferences…"), this, &MainWindow::showSettings);
    m_settings->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Comma));
    m_settings->setMenuRole(QAction::PreferencesRole);

    // Switches of the single photo and the side panel. Their single-letter keys reach the
    // menu because the browser leaves them alone.
    QMenu *view = menuBar()->addMenu(QStringLiteral("&View"));
    m_showInspector = toggle(view, QStringLiteral("Show Inspector"), QKeySequence(Qt::Key_I), m_model.showInspector(),
                             &SorviModel::setShowInspector, &SorviModel::showInspectorChanged, &SorviModel::showInspector);
    m_showClipping = toggle(view, QStringLiteral("Show Clipped Highlights and Shadows"), QKeySequence(Qt::Key_J),
                            m_model.showClipping(), &SorviModel::setShowClipping, &SorviModel::showClippingChanged,
                            &SorviModel::showClipping);
    m_keepZoom = toggle(view, QStringLiteral("Keep Zoom When Moving"), QKeySequence(), m_model.keepZoom(),
                        &SorviModel::setKeepZoom, &SorviModel::keepZoomChanged, &SorviModel::keepZoom);
}

QAction *MainWindow::toggle(QMenu *menu, const QString &text, const QKeySequence &key, bool on,
                            void (SorviModel::*set)(bool), void (SorviModel::*changed)(),
                            bool (SorviModel::*get)() const)
{
    QAction *action = menu->addAction(text);
    action->setCheckable(true);
    action->setChecked(on);
    action->setShortcut(key);
    connect(action, &QAction::toggled, &m_model, set);
    connect(&m_model, changed, action, [this, action, get] { action->setChecked((m_model.*get)()); });
    return action;
}

void MainWindow::showCurrentPage()
{
    const bool hasFolder = !m_model.folder().isEmpty();
    m_pages->setCurrentWidget(hasFolder ? static_cast<QWidget *>(m_browser) : m_welcome);
    if (hasFolder)
        m_browser->setFocus();
}

void MainWindow::chooseFolder()
{
    QFileDialog picker(this, pickerMessage());
    picker.setFileMode(QFileDialog::Directory);
    picker.setOption(QFileDialog::ShowDirsOnly);
    picker.setLabelText(QFileDialog::Accept, QStringLiteral("Open"));
    if (!m_model.folder().isEmpty())
        picker.setDirectory(m_model.folder());
    if (picker.exec() != QDialog::Accepted || picker.selectedFiles().isEmpty())
        return;
    m_model.open(picker.selectedFiles().first());
}

void MainWindow::dragEnterEvent(QDragEnterEvent *event)
{
    if (!WelcomeView::droppedFolder(event->mimeData()).isEmpty())
        event->acceptProposedAction();
}

void MainWindow::dropEvent(QDropEvent *event)
{
    const QString folder = WelcomeView::droppedFolder(event->mimeData());
    if (folder.isEmpty())
        return;
    event->acceptProposedAction();
    m_model.open(folder);
}
