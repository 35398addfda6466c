#pragma once

#include "SorviKit/ai/AIClient.h"
#include "SorviKit/ai/AICuller.h"
#include "SorviKit/ai/AIPreset.h"
#include "SorviKit/library/Shot.h"

#include <QDialog>
#include <QImage>
#include <QPointer>

#include <memory>
#include <optional>
#include <stop_token>

class QCheckBox;
class QComboBox;
class QLabel;
class QListWidget;
class QPlainTextEdit;
class QProgressBar;
class QPushButton;
class QSpinBox;
class QStackedWidget;
class SorviModel;

/// The sheet in which the photographer asks their AI service to choose photos of the open
/// folder: a ready-made request or their own words, how many, exactly what will be sent
/// and roughly what it costs, consent once per service, the run in the background, and
/// the chosen photos with the AI's reasons, handed to the model as the "AI Picks". The
/// keyring is read and the ask runs off the GUI thread; an ask still running when the
/// sheet closes finishes and reaches the model. GUI thread.
class AskAIView : public QDialog {
    Q_OBJECT
public:
    explicit AskAIView(SorviModel &model, QWidget *parent = nullptr);
    ~AskAIView() override;

    /// The service's set-up has been read (the key from the keyring).
    bool isReady() const { return m_ready; }
    bool hasClient() const { return m_client.has_value(); }
    bool isRunning() const { return m_running; }
    bool isAskingConsent() const;
    /// The shots that would be sent now: all or the shown ones, rejects left out.
    QList<Shot> photos() const;
    QString request() const;
    QString summary() const;
    QString error() const { return m_error; }
    QList<AIResult> results() const { return m_results; }

    void setPreset(AIPreset::Preset preset);
    void setCustomText(const QString &text);
    void setCount(int count);
    void setOnlyShown(bool onlyShown);

    /// "Send N Previews": asks for consent first when the service has none.
    void send();
    /// The consent's "Allow": remembers it for the service and sends.
    void allow();
    /// "Stop": no batch after the one in flight; the picks so far are kept.
    void stopAfterBatch();
    /// "Show Only These": the "AI Picks" filter, and the sheet closes.
    void showOnlyThese();
    /// "Pick These (N)": one undoable bulk pick, and the sheet closes.
    void pickThese();

signals:
    void readyChanged();
    void runFinished(); ///< an ask ended, with a result or an error shown
    void settingsRequested(); ///< "Set Up in Settings…"

private:
    struct Outcome;
    void build();
    QWidget *makeSetUpPage();
    QWidget *makeFormPage();
    QWidget *makeConsentPage();
    void readSetUp();
    void run();
    void finish(const Outcome &outcome);
    void refresh();
    void refreshResults();

    SorviModel &m_model;
    std::optional<AIClient> m_client;
    bool m_ready = false;
    bool m_running = false;
    bool m_answered = false; ///< an ask in this sheet has come back with a result
    QString m_error;
    QList<AIResult> m_results;
    QList<QImage> m_thumbnails;
    std::shared_ptr<std::stop_source> m_wrapUp;

    QLabel *m_provider = nullptr;
    QStackedWidget *m_pages = nullptr;
    QWidget *m_setUpPage = nullptr;
    QWidget *m_formPage = nullptr;
    QWidget *m_consentPage = nullptr;
    QComboBox *m_preset = nullptr;
    QLabel *m_presetText = nullptr;
    QLabel *m_customLabel = nullptr;
    QPlainTextEdit *m_custom = nullptr;
    QSpinBox *m_count = nullptr;
    QCheckBox *m_onlyShown = nullptr;
    QLabel *m_summary = nullptr;
    QLabel *m_consentTitle = nullptr;
    QLabel *m_consentText = nullptr;
    QLabel *m_privacyLink = nullptr;
    QProgressBar *m_busy = nullptr;
    QLabel *m_status = nullptr;
    QLabel *m_errorText = nullptr;
    QLabel *m_resultsHeader = nullptr;
    QListWidget *m_resultList = nullptr;
    QPushButton *m_cancel = nullptr;
    QPushButton *m_stop = nullptr;
    QPushButton *m_send = nullptr;
    QPushButton *m_showOnly = nullptr;
    QPushButton *m_pick = nullptr;
    QPushButton *m_done = nullptr;
    QPushButton *m_allow = nullptr;
};
