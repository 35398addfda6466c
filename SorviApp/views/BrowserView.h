#pragma once

#include "SorviApp/views/KeyboardMap.h"

#include <QPointer>
#include <QWidget>

class GridView;
class AskAIView;
class HandoffView;
class ShotPanel;
class LoupeView;
class QActionGroup;
class QComboBox;
class QLabel;
class QMenu;
class QStackedWidget;
class QToolButton;
class SorviModel;
class StepBar;

/// The main window's content while a folder is open: a toolbar (close the folder, which
/// photos to show, a star minimum, grid or single photo, the checks' bulk actions), the
/// count line and "Hand Off" (which opens the hand-off sheet while the model's
/// showHandoff is on), the photos as a grid or one at a time (or the scan's empty states) with the
/// inspector beside them when it is shown, and a status bar with the step bar and the
/// selected shot's burst. It holds no state of its own beyond the grid's column count: it
/// reads the model and calls its operations, and with keyboard focus it rates and moves
/// through the shoot by the keyboard map. Presses with Ctrl are never taken, so the
/// window's menu shortcuts (undo) always get them.
/// GUI thread; the model must outlive the view.
class BrowserView : public QWidget {
    Q_OBJECT
public:
    explicit BrowserView(SorviModel &model, QWidget *parent = nullptr);

    /// The columns the grid shows now; the up and down arrows move by this many.
    int gridColumns() const { return m_gridColumns; }
    /// The action a key press gets in the current state (none when it is not ours).
    KeyAction actionFor(const QKeyEvent &press) const;
    /// The hand-off sheet while it is open.
    HandoffView *handoffView() const;
    /// The Ask-AI sheet while it is open.
    AskAIView *askAIView() const;

signals:
    /// "Folders" was pressed: close this folder and show the welcome screen.
    void folderCloseRequested();
    /// "Open Another Folder…" was pressed after a scan that found nothing.
    void openFolderRequested();
    /// "Set Up in Settings…" was pressed in the Ask-AI sheet.
    void settingsRequested();

protected:
    bool event(QEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;

private:
    QWidget *makeToolbar();
    QWidget *makeLookingPage();
    QWidget *makeNothingFoundPage();
    QWidget *makeStatusBar();
    QToolButton *makeStarButton();
    QToolButton *makeChecksButton();
    void apply(const KeyAction &action);
    void refreshPage();
    void refreshCount();
    void refreshBurst();
    void refreshStepBar();
    void refreshWarning();
    void refreshFilter();
    void refreshStars();
    void refreshChecksButton();
    void refreshChecksMenu();
    void refreshHandoff();
    void refreshAskAI();

    SorviModel &m_model;
    int m_gridColumns = 1;
    GridView *m_grid = nullptr;
    LoupeView *m_loupe = nullptr;
    ShotPanel *m_inspector = nullptr;
    QPointer<HandoffView> m_handoff; ///< the open hand-off sheet
    QPointer<AskAIView> m_askAI;     ///< the open Ask-AI sheet
    QStackedWidget *m_stack = nullptr;
    QWidget *m_lookingPage = nullptr;
    QWidget *m_nothingFoundPage = nullptr;
    QComboBox *m_showPicker = nullptr;
    QToolButton *m_starButton = nullptr;
    QActionGroup *m_starGroup = nullptr;
    QComboBox *m_viewPicker = nullptr;
    QToolButton *m_checksButton = nullptr;
    QMenu *m_checksMenu = nullptr;
    QList<QAction *> m_bulkActions; ///< soft, closed eyes, best of bursts, rest of bursts
    QAction *m_showBadges = nullptr;
    QLabel *m_countLine = nullptr;
    QLabel *m_warningLine = nullptr;
    QLabel *m_burstLabel = nullptr;
    StepBar *m_stepBar = nullptr;
};
