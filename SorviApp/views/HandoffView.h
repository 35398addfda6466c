#pragma once

#include "SorviKit/handoff/HandoffPlan.h"

#include <QDialog>
#include <QFutureWatcher>
#include <QThreadPool>

#include <atomic>
#include <functional>
#include <memory>

class QCheckBox;
class QComboBox;
class QLabel;
class QProgressBar;
class QPushButton;
class QVBoxLayout;
class SorviModel;

/// The hand-off sheet: what to take out to the editor (sidecars, the Lightroom flags list,
/// verified copies, rejects moved aside), remembered between launches, run in the
/// background with a progress bar and reported in plain sentences. It runs the same
/// hand-off plan as `sorvi handoff`, over every photo of the open folder, and touches the
/// disk only off the GUI thread (even to learn whether the card can be written).
/// GUI thread; the model must outlive it.
class HandoffView : public QDialog {
    Q_OBJECT
public:
    // Settings keys of the remembered choices.
    static constexpr char sidecarsKey[] = "HandoffSidecars";
    static constexpr char copyKey[] = "HandoffCopy";
    static constexpr char copyWhatKey[] = "HandoffCopyWhat";
    static constexpr char removeLocationKey[] = "HandoffRemoveLocation";
    static constexpr char moveRejectsKey[] = "HandoffMoveRejects";
    static constexpr char flagsListKey[] = "HandoffLightroomFlags";
    /// The last copy destination: a bookmark where the system keeps folder access in
    /// bookmarks (a sandbox), its path everywhere else.
    static constexpr char destinationBookmarkKey[] = "HandoffDestinationBookmark";
    static constexpr char destinationKey[] = "HandoffDestination";
    static constexpr char secondDestinationKey[] = "HandoffSecondDestination";
    static constexpr char sidecarStyleKey[] = "HandoffSidecarStyle";
    static constexpr char manifestKey[] = "HandoffManifest";

    explicit HandoffView(SorviModel &model, QWidget *parent = nullptr);
    ~HandoffView() override; ///< stops a run between files and waits for it

    HandoffPlan::Choices choices() const { return m_choices; }
    /// The card's state is known (it is learnt off the GUI thread when the sheet opens).
    bool isReady() const { return m_ready; }
    bool isReadOnly() const { return m_readOnly; }
    bool isWorking() const { return m_working; }
    double progress() const { return m_progress; }
    /// The last run's or put-back's sentences and failure.
    HandoffPlan::Report report() const { return m_report; }
    bool canPutBack() const { return m_canPutBack; }
    QString pluginMessage() const;

    /// What the folder choosers set; tests call them directly.
    void setDestination(const QString &folder);
    void setSecondDestination(const QString &folder);
    void setSidecarFolder(const QString &folder);
    /// Test seam: called on the copying thread with each copy's path once it is written,
    /// before it is read back, so that a test can spoil it as a failing drive would.
    void setAfterCopyWritten(std::function<void(const QString &)> seam) { m_afterCopyWritten = std::move(seam); }

    /// "Hand Off": runs the chosen steps in the background.
    void run();
    /// Stops a run between two files; it then reports what it did.
    void cancelRun();
    /// "Put Rejects Back": undoes the moves the record holds.
    void putBack();
    /// Escape and "Cancel": a run is cancelled first (the sheet stays to report it),
    /// otherwise the sheet closes.
    void reject() override;

signals:
    void readyChanged();
    void taskFinished(); ///< a run or put-back ended and its report is shown

private:
    struct Outcome {
        HandoffPlan::Report report;
        bool moved = false; ///< the record holds moves to put back
    };
    struct CardState {
        bool readOnly = false;
        bool destinationExists = false;
        bool secondExists = false;
    };

    /// A toggle bound to one of the choices: remembered under `key`, the sheet follows it,
    /// and it is disabled while a run is under way.
    QCheckBox *choiceToggle(const QString &text, const char *name, bool HandoffPlan::Choices::*choice, const char *key,
                            QWidget *parent);
    void showPluginMessage(const QFuture<QString> &message);
    void build();
    QWidget *makeSidecarsSection();
    QWidget *makeFlagsSection();
    QWidget *makeCopySection();
    QWidget *makeRejectsSection();
    QWidget *makeFooter();

    void loadChoices();
    void remember(const char *key, const QVariant &value);
    void learnCardState();
    void refresh();
    void chooseFolder(const QString &message, const QString &button, const std::function<void(const QString &)> &take);
    void savePlugin();
    void startTask(const std::function<Outcome()> &work);
    void showOutcome(const Outcome &outcome);
    void setProgress(double fraction);

    SorviModel &m_model;
    QString m_folder;
    HandoffPlan::Choices m_choices;
    bool m_ready = false;
    bool m_readOnly = false;
    bool m_working = false;
    bool m_ran = false;
    bool m_canPutBack = false;
    bool m_filesMoved = false; ///< the folder's list is read again when the sheet closes
    double m_progress = 0;
    HandoffPlan::Report m_report;
    std::shared_ptr<std::atomic<bool>> m_cancelled;
    std::function<void(const QString &)> m_afterCopyWritten;
    QThreadPool m_pool;
    QFutureWatcher<Outcome> *m_watcher = nullptr;

    QLabel *m_summary = nullptr;
    QWidget *m_readOnlyWarning = nullptr;
    QCheckBox *m_sidecars = nullptr;
    QLabel *m_sidecarsText = nullptr;
    QComboBox *m_sidecarStyle = nullptr;
    QWidget *m_sidecarFolderRow = nullptr;
    QLabel *m_sidecarFolderName = nullptr;
    QCheckBox *m_flagsList = nullptr;
    QLabel *m_pluginMessage = nullptr;
    QCheckBox *m_copy = nullptr;
    QComboBox *m_copyWhat = nullptr;
    QCheckBox *m_removeLocation = nullptr;
    QLabel *m_copyText = nullptr;
    QLabel *m_destinationName = nullptr;
    QCheckBox *m_second = nullptr;
    QLabel *m_secondName = nullptr;
    QCheckBox *m_manifest = nullptr;
    QWidget *m_copyDetails = nullptr;
    QCheckBox *m_moveRejects = nullptr;
    QLabel *m_rejectsText = nullptr;
    QProgressBar *m_progressBar = nullptr;
    QWidget *m_result = nullptr;
    QLabel *m_reportText = nullptr;
    QLabel *m_failureText = nullptr;
    QPushButton *m_putBack = nullptr;
    QPushButton *m_cancel = nullptr;
    QPushButton *m_handOff = nullptr;
    QPushButton *m_close = nullptr;
    QList<QWidget *> m_choiceWidgets; ///< disabled while working
};
