#include "SorviApp/views/AISettingsView.h"
#include "SorviApp/views/SheetParts.h"

#include "SorviKit/ai/AICuller.h"
#include "SorviKit/ai/AIKeyStore.h"
#include "SorviKit/ai/AIKeyTest.h"
#include "SorviKit/ai/AISettings.h"

#include <QComboBox>
#include <QFormLayout>
#include <QFutureWatcher>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QtConcurrent>

namespace {

// A model name is trimmed of blanks only: a line break in it is the user's to see.
QString trimmedOfBlanks(const QString &text)
{
    qsizetype start = 0, end = text.size();
    const auto blank = [](QChar c) { return c == QLatin1Char(' ') || c == QLatin1Char('\t'); };
    while (start < end && blank(text[start]))
        ++start;
    while (end > start && blank(text[end - 1]))
        --end;
    return text.mid(start, end - start);
}

QString footerText(AIProvider provider)
{
    if (!provider.hosted())
        return QStringLiteral("Ask an AI is the one part of Sorvi that sends anything off your computer: small previews "
                              "(about %1 pixels wide) of the photos you choose, sent to your own server, only when you "
                              "ask. Its key, if it needs one, is kept in your system's keyring.")
            .arg(AICuller::previewPixels);
    return QStringLiteral("Ask an AI is the one part of Sorvi that sends anything off your computer: small previews "
                          "(about %1 pixels wide) of the photos you choose, sent to %2 with your key, only when you "
                          "ask. Your key is kept in your system's keyring. %2 bills your account for what you use.")
        .arg(AICuller::previewPixels)
        .arg(provider.company());
}

// The sentence of a settings write that failed; empty when it worked.
QString failureOf(const UserSettings::Outcome &outcome)
{
    return outcome.failed() ? outcome.message() : QString();
}

} // namespace

// What the tab shows for one service, read or written on the tab's thread.
struct AISettingsView::State {
    AIProvider provider = AIProvider::anthropic;
    bool keyring = true;
    std::optional<QString> key; ///< none when the keyring was not read
    bool consented = false;
    QString model;
    QString address;
    QString status;
};

AISettingsView::AISettingsView(QWidget *parent) : QWidget(parent), m_provider(AIProvider::anthropic)
{
    m_pool.setMaxThreadCount(1);
    build();
}

AISettingsView::~AISettingsView()
{
    // A test request may wait minutes for a slow service; quitting abandons it.
    m_stop.request_stop();
    m_pool.waitForDone();
}

void AISettingsView::build()
{
    auto *form = new QFormLayout(this);
    form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);

    m_service = new QComboBox(this);
    m_service->setObjectName(QStringLiteral("service"));
    for (const AIProvider provider : AIProvider::allCases())
        m_service->addItem(provider.name(), provider.id());
    connect(m_service, &QComboBox::activated, this, &AISettingsView::chooseProvider);
    form->addRow(QStringLiteral("Service"), m_service);

    m_key = new QLineEdit(this);
    m_key->setObjectName(QStringLiteral("key"));
    // Dots, and no copying out: a saved key is never shown again.
    m_key->setEchoMode(QLineEdit::Password);
    form->addRow(QStringLiteral("API key"), m_key);

    auto *linkRow = new QHBoxLayout;
    m_keyLink = new QLabel(this);
    m_keyLink->setObjectName(QStringLiteral("keyLink"));
    m_keyLink->setOpenExternalLinks(true);
    m_removeKey = new QPushButton(QStringLiteral("Remove Key"), this);
    m_removeKey->setObjectName(QStringLiteral("removeKey"));
    connect(m_removeKey, &QPushButton::clicked, this, &AISettingsView::removeKey);
    linkRow->addWidget(m_keyLink, 1);
    linkRow->addWidget(m_removeKey);
    form->addRow(QString(), linkRow);

    m_address = new QLineEdit(this);
    m_address->setObjectName(QStringLiteral("address"));
    m_address->setPlaceholderText(QStringLiteral("http://localhost:8080/v1"));
    m_addressLabel = new QLabel(QStringLiteral("Server address"), this);
    form->addRow(m_addressLabel, m_address);

    m_model = new QLineEdit(this);
    m_model->setObjectName(QStringLiteral("model"));
    form->addRow(QStringLiteral("Model"), m_model);

    auto *saveRow = new QHBoxLayout;
    m_saveAndTest = new QPushButton(QStringLiteral("Save and Test"), this);
    m_saveAndTest->setObjectName(QStringLiteral("saveAndTest"));
    connect(m_saveAndTest, &QPushButton::clicked, this, &AISettingsView::saveAndTest);
    m_status = new QLabel(this);
    m_status->setObjectName(QStringLiteral("status"));
    m_status->setWordWrap(true);
    m_status->setTextInteractionFlags(Qt::TextSelectableByMouse);
    saveRow->addWidget(m_saveAndTest);
    saveRow->addWidget(m_status, 1);
    form->addRow(QString(), saveRow);

    m_consentRow = new QWidget(this);
    m_consentRow->setObjectName(QStringLiteral("consentRow"));
    auto *consent = new QHBoxLayout(m_consentRow);
    consent->setContentsMargins(0, 0, 0, 0);
    m_consentText = new QLabel(m_consentRow);
    m_consentText->setWordWrap(true);
    auto *revokeButton = new QPushButton(QStringLiteral("Revoke"), m_consentRow);
    revokeButton->setObjectName(QStringLiteral("revoke"));
    connect(revokeButton, &QPushButton::clicked, this, &AISettingsView::revoke);
    consent->addWidget(m_consentText, 1);
    consent->addWidget(revokeButton);
    form->addRow(QString(), m_consentRow);

    m_noKeyring = SheetParts::failureText(this, "noKeyring");
    m_noKeyring->setText(QStringLiteral("No keyring is running, so Sorvi can't keep an API key: keys are kept only "
                                            "in your system's keyring (GNOME Keyring, KWallet or another Secret "
                                            "Service). Start one, then open Settings again."));
    form->addRow(m_noKeyring);

    m_footer = SheetParts::secondaryText(QString(), this, "footer");
    m_footer->setTextFormat(Qt::RichText);
    m_footer->setOpenExternalLinks(true);
    form->addRow(m_footer);
    refreshTexts();
}

void AISettingsView::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    if (m_loaded)
        return;
    m_loaded = true;
    load(AISettings::provider());
}

QString AISettingsView::status() const { return m_status->text(); }

void AISettingsView::chooseProvider(int index)
{
    const std::optional<AIProvider> chosen = AIProvider::fromRawValue(m_service->itemData(index).toString());
    if (!chosen)
        return;
    // The choice is stored first, so the fields then show that service's own values.
    const AIProvider provider = *chosen;
    m_provider = provider;
    inBackground([provider] { return failureOf(AISettings::setProvider(provider)); },
                 [this, provider](const QString &status) { load(provider, status); });
}

void AISettingsView::inBackground(std::function<QString()> work, std::function<void(const QString &)> then)
{
    begin();
    auto *watcher = new QFutureWatcher<QString>(this);
    connect(watcher, &QFutureWatcherBase::finished, this, [this, watcher, then = std::move(then)] {
        watcher->deleteLater();
        then(watcher->result());
        end();
    });
    watcher->setFuture(QtConcurrent::run(&m_pool, std::move(work)));
}

void AISettingsView::begin()
{
    ++m_pending;
    m_saveAndTest->setEnabled(false);
}

void AISettingsView::end()
{
    if (--m_pending > 0)
        return;
    m_saveAndTest->setText(QStringLiteral("Save and Test"));
    m_saveAndTest->setEnabled(true);
    emit idleChanged();
}

// The keyring answers in its own time; the fields show the service's values once it has.
void AISettingsView::load(AIProvider provider, const QString &status)
{
    m_provider = provider;
    begin();
    AIKeyStore::readKey(provider, this, [this, provider, status](const std::optional<QString> &key, bool reachable) {
        State state;
        state.provider = provider;
        state.keyring = reachable;
        state.key = key.value_or(QString());
        state.consented = AISettings::consented(provider);
        state.model = AISettings::storedModel(provider);
        state.address = AISettings::serverAddress(provider);
        state.status = status;
        display(state);
        end();
    });
}

void AISettingsView::save(bool thenTest)
{
    const AIProvider provider = m_provider;
    const QString key = m_key->text().trimmed();
    const QString model = trimmedOfBlanks(m_model->text());
    const QString address = m_address->text().trimmed();
    if (thenTest) {
        m_saveAndTest->setText(QStringLiteral("Testing…"));
        m_status->clear();
    }
    begin();
    const bool keyring = m_keyring;
    const std::stop_token stop = m_stop.get_token();
    // The settings file and the test request wait on the disk and the network: on the
    // tab's thread.
    const auto afterKey = [=, this](const std::optional<QString> &keyFailure) {
        inBackground(
            [=] {
                QStringList failures;
                if (keyFailure)
                    failures << *keyFailure;
                for (const UserSettings::Outcome &outcome :
                     {AISettings::setModel(model, provider),
                      provider.hosted() ? UserSettings::Outcome{} : AISettings::setServerAddress(address, provider),
                      AISettings::setProvider(provider)})
                    if (outcome.failed())
                        failures << outcome.message();
                if (!failures.isEmpty())
                    return failures.join(QLatin1Char(' '));
                if (!thenTest)
                    return key.isEmpty() ? QStringLiteral("Key removed.") : QStringLiteral("Saved.");
                const std::optional<AIClient> client =
                    AISettings::clientWith(key.isEmpty() || !keyring ? std::nullopt : std::optional(key));
                return client ? AIKeyTest::run(*client, stop) : AIError::noKey().description();
            },
            [this, provider](const QString &status) { load(provider, status); });
        end();
    };
    // Without a keyring there is nowhere to keep a key, and nowhere else it may go.
    if (m_keyring)
        AIKeyStore::writeKey(key, provider, this, afterKey);
    else
        afterKey(std::nullopt);
}

void AISettingsView::saveAndTest() { save(true); }

void AISettingsView::removeKey()
{
    m_key->clear();
    save(false);
}

void AISettingsView::revoke()
{
    m_consented = false;
    m_consentRow->hide();
    const AIProvider provider = m_provider;
    inBackground([provider] { return failureOf(AISettings::setConsent(false, provider)); },
                 [this](const QString &failure) {
                     if (!failure.isEmpty())
                         m_status->setText(failure);
                 });
}

void AISettingsView::display(const State &state)
{
    m_provider = state.provider;
    m_service->setCurrentIndex(m_service->findData(state.provider.id()));
    m_keyring = state.keyring;
    m_keyStored = state.key && !state.key->isEmpty();
    m_key->setText(state.key.value_or(QString()));
    m_consented = state.consented;
    m_model->setText(state.model);
    m_address->setText(state.address);
    m_status->setText(state.status);
    refreshTexts();
}

void AISettingsView::refreshTexts()
{
    const AIProvider provider = m_provider;
    const bool hosted = provider.hosted();
    m_key->setPlaceholderText(hosted ? QStringLiteral("Paste your %1 API key").arg(provider.company())
                                     : QStringLiteral("Paste your server's API key, if it needs one"));
    m_key->setEnabled(m_keyring);
    m_keyLink->setText(hosted ? QStringLiteral("<a href=\"%1\">Get a key from %2…</a>")
                                    .arg(provider.keyPage().toString(QUrl::FullyEncoded), provider.company())
                              : QString());
    m_keyLink->setVisible(hosted);
    m_removeKey->setVisible(m_keyStored);
    m_address->setVisible(!hosted);
    m_addressLabel->setVisible(!hosted);
    m_model->setPlaceholderText(provider.defaultModel());
    m_consentText->setText(QStringLiteral("You've allowed Sorvi to send previews to %1.").arg(provider.company()));
    m_consentRow->setVisible(m_consented);
    m_noKeyring->setVisible(!m_keyring);
    QString footer = footerText(provider).toHtmlEscaped();
    if (hosted)
        footer += QStringLiteral("<br><a href=\"%1\">%2's privacy policy</a>")
                      .arg(provider.privacyPage().toString(QUrl::FullyEncoded), provider.company());
    m_footer->setText(footer);
}
