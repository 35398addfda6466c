#pragma once

#include "SorviKit/ai/AIProvider.h"

#include <QThreadPool>
#include <QWidget>

#include <functional>
#include <stop_token>

class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;

/// The "AI" tab of the settings window: the service, its API key (kept only in the
/// system's keyring), the model, a test of the saved key, and revoking the consent to
/// send previews. Only "Save and Test" and "Remove Key" write. The keyring is asked
/// without blocking and the test request runs on the tab's own thread, so a slow keyring
/// or service never freezes the window. GUI thread.
class AISettingsView : public QWidget {
    Q_OBJECT
public:
    explicit AISettingsView(QWidget *parent = nullptr);
    ~AISettingsView() override;

    /// No keyring read, save or test is under way.
    bool isIdle() const { return m_pending == 0; }
    QString status() const;

    /// "Save and Test": stores the key, model and service, then sends the test picture.
    void saveAndTest();
    /// "Remove Key": empties the key field and saves.
    void removeKey();
    /// "Revoke": the next ask to the service asks for consent again.
    void revoke();

signals:
    void idleChanged();

protected:
    void showEvent(QShowEvent *event) override;

private:
    struct State;
    void build();
    void chooseProvider(int index);
    void load(AIProvider provider, const QString &status = {});
    void save(bool thenTest);
    /// Runs `work` on the tab's thread, then `then` with its result on this one.
    void inBackground(std::function<QString()> work, std::function<void(const QString &)> then);
    void begin(); ///< a keyring job or test starts
    void end();   ///< …and ends
    void display(const State &state);
    void refreshTexts();

    AIProvider m_provider;
    bool m_keyring = true;
    bool m_keyStored = false;
    bool m_consented = false;
    int m_pending = 0;
    bool m_loaded = false;
    QThreadPool m_pool;
    std::stop_source m_stop; ///< stops a test request when the tab goes

    QComboBox *m_service = nullptr;
    QLineEdit *m_key = nullptr;
    QLabel *m_keyLink = nullptr;
    QPushButton *m_removeKey = nullptr;
    QLineEdit *m_address = nullptr;
    QLabel *m_addressLabel = nullptr;
    QLineEdit *m_model = nullptr;
    QPushButton *m_saveAndTest = nullptr;
    QLabel *m_status = nullptr;
    QWidget *m_consentRow = nullptr;
    QLabel *m_consentText = nullptr;
    QLabel *m_noKeyring = nullptr;
    QLabel *m_footer = nullptr;
};
