#include "SorviApp/views/AskAIView.h"

#include "SorviApp/model/SorviModel.h"
#include "SorviApp/views/SheetParts.h"
#include "SorviApp/views/Symbols.h"
#include "SorviKit/ai/AIKeyStore.h"
#include "SorviKit/ai/AISettings.h"
#include "SorviKit/ai/AIWording.h"
#include "SorviKit/core/Wording.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFutureWatcher>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QSpinBox>
#include <QStackedWidget>
#include <QVBoxLayout>
#include <QtConcurrent>

namespace {

constexpr int thumbnailPixels = 96;

QLabel *wrapped(const QString &text, QWidget *parent, const char *name = nullptr)
{
    auto *label = new QLabel(text, parent);
    label->setWordWrap(true);
    if (name)
        label->setObjectName(QLatin1String(name));
    return label;
}

} // namespace

// How an ask ended, made on the ask's thread.
struct AskAIView::Outcome {
    QList<AIResult> results;
    QList<QImage> thumbnails;
    QString error;
};

AskAIView::AskAIView(SorviModel &model, QWidget *parent) : QDialog(parent), m_model(model)
{
    setWindowTitle(QStringLiteral("Ask an AI"));
    setWindowModality(Qt::WindowModal);
    build();
    readSetUp();
}

AskAIView::~AskAIView() = default;

void AskAIView::build()
{
    auto *column = new QVBoxLayout(this);

    auto *header = new QHBoxLayout;
    auto *symbol = new QLabel(this);
    symbol->setPixmap(Symbols::sparklesIcon().pixmap(24, 24));
    auto *title = SheetParts::heading(QStringLiteral("Ask an AI"), this, nullptr, SheetParts::titleScale);
    m_provider = SheetParts::secondaryText(QString(), this, "providerName");
    m_provider->setWordWrap(false);
    header->addWidget(symbol);
    header->addWidget(title);
    header->addStretch(1);
    header->addWidget(m_provider);
    column->addLayout(header);

    m_pages = new QStackedWidget(this);
    m_setUpPage = makeSetUpPage();
    m_formPage = makeFormPage();
    m_consentPage = makeConsentPage();
    for (QWidget *page : {m_setUpPage, m_formPage, m_consentPage})
        m_pages->addWidget(page);
    m_pages->setCurrentWidget(m_formPage);
    column->addWidget(m_pages);

    auto *progress = new QHBoxLayout;
    m_busy = new QProgressBar(this);
    m_busy->setObjectName(QStringLiteral("busy"));
    m_busy->setRange(0, 0);
    m_busy->setMaximumWidth(120);
    m_status = SheetParts::secondaryText(QString(), this, "status");
    progress->addWidget(m_busy);
    progress->addWidget(m_status, 1);
    column->addLayout(progress);

    m_errorText = SheetParts::failureText(this, "errorText");
    column->addWidget(m_errorText);

    m_resultsHeader = SheetParts::heading(QString(), this, "resultsHeader");
    column->addWidget(m_resultsHeader);
    m_resultList = new QListWidget(this);
    m_resultList->setObjectName(QStringLiteral("results"));
    m_resultList->setIconSize(QSize(thumbnailPixels, thumbnailPixels));
    m_resultList->setWordWrap(true);
    m_resultList->setSelectionMode(QAbstractItemView::NoSelection);
    column->addWidget(m_resultList, 1);
    column->addStretch(0);

    auto *buttons = new QHBoxLayout;
    m_cancel = SheetParts::button(QStringLiteral("Cancel"), this, "cancel");
    m_stop = SheetParts::button(QStringLiteral("Stop"), this, "stop");
    m_stop->setToolTip(QStringLiteral("Send no more batches; keep what the AI chose so far"));
    m_send = SheetParts::button(QString(), this, "send");
    m_showOnly = SheetParts::button(QStringLiteral("Show Only These"), this, "showOnly");
    m_pick = SheetParts::button(QString(), this, "pick");
    m_done = SheetParts::button(QStringLiteral("Done"), this, "done");
    m_allow = SheetParts::button(QStringLiteral("Allow"), this, "allow");
    connect(m_cancel, &QPushButton::clicked, this, &QDialog::reject);
    connect(m_stop, &QPushButton::clicked, this, &AskAIView::stopAfterBatch);
    connect(m_send, &QPushButton::clicked, this, &AskAIView::send);
    connect(m_showOnly, &QPushButton::clicked, this, &AskAIView::showOnlyThese);
    connect(m_pick, &QPushButton::clicked, this, &AskAIView::pickThese);
    connect(m_done, &QPushButton::clicked, this, &QDialog::accept);
    connect(m_allow, &QPushButton::clicked, this, &AskAIView::allow);
    buttons->addWidget(m_cancel);
    buttons->addWidget(m_stop);
    buttons->addStretch(1);
    for (QPushButton *b : {m_showOnly, m_pick, m_done, m_allow, m_send})
        buttons->addWidget(b);
    column->addLayout(buttons);

    for (auto signal : {&SorviModel::visibleShotsChanged, &SorviModel::shotsChanged, &SorviModel::ratingsChanged})
        connect(&m_model, signal, this, &AskAIView::refresh);
    resize(560, 600);
    refresh();
}

QWidget *AskAIView::makeSetUpPage()
{
    auto *page = new QWidget(this);
    auto *column = new QVBoxLayout(page);
    column->setContentsMargins(0, 8, 0, 0);
    column->addWidget(wrapped(QStringLiteral("Connect your own Claude, ChatGPT or Grok account to ask for judgement "
                                             "calls: the best photos for an album, a set that tells the story, the "
                                             "strongest portraits."),
                              page));
    column->addWidget(SheetParts::secondaryText(QStringLiteral("You'll need an API key from the AI company; they bill your account "
                                               "for what you use. Sorvi adds no charge."),
                                page));
    auto *setUp = SheetParts::button(QStringLiteral("Set Up in Settings…"), page, "setUp");
    connect(setUp, &QPushButton::clicked, this, [this] {
        emit settingsRequested();
        reject();
    });
    column->addWidget(setUp, 0, Qt::AlignLeft);
    column->addStretch(1);
    return page;
}

QWidget *AskAIView::makeFormPage()
{
    auto *page = new QWidget(this);
    auto *column = new QVBoxLayout(page);
    column->setContentsMargins(0, 8, 0, 0);

    auto *askFor = new QHBoxLayout;
    askFor->addWidget(new QLabel(QStringLiteral("Ask for"), page));
    m_preset = new QComboBox(page);
    m_preset->setObjectName(QStringLiteral("preset"));
    for (const AIPreset::Preset preset : AIPreset::allCases)
        m_preset->addItem(AIPreset::label(preset), int(preset));
    connect(m_preset, &QComboBox::currentIndexChanged, this, &AskAIView::refresh);
    askFor->addWidget(m_preset, 1);
    column->addLayout(askFor);

    m_presetText = SheetParts::secondaryText(QString(), page, "presetText");
    column->addWidget(m_presetText);
    m_customLabel = new QLabel(QStringLiteral("What should it choose?"), page);
    column->addWidget(m_customLabel);
    m_custom = new QPlainTextEdit(page);
    m_custom->setObjectName(QStringLiteral("custom"));
    m_custom->setPlaceholderText(QStringLiteral("e.g. the photos where the couple is laughing"));
    m_custom->setMaximumHeight(80);
    connect(m_custom, &QPlainTextEdit::textChanged, this, &AskAIView::refresh);
    column->addWidget(m_custom);

    auto *countRow = new QHBoxLayout;
    m_count = new QSpinBox(page);
    m_count->setObjectName(QStringLiteral("count"));
    m_count->setRange(1, 200);
    m_count->setValue(20);
    m_count->setPrefix(QStringLiteral("Up to "));
    m_count->setSuffix(QStringLiteral(" photos"));
    countRow->addWidget(m_count);
    countRow->addStretch(1);
    column->addLayout(countRow);

    m_onlyShown = new QCheckBox(page);
    m_onlyShown->setObjectName(QStringLiteral("onlyShown"));
    connect(m_onlyShown, &QCheckBox::toggled, this, &AskAIView::refresh);
    column->addWidget(m_onlyShown);

    m_summary = SheetParts::secondaryText(QString(), page, "summary");
    column->addWidget(m_summary);
    column->addStretch(1);
    return page;
}

QWidget *AskAIView::makeConsentPage()
{
    auto *page = new QWidget(this);
    auto *column = new QVBoxLayout(page);
    column->setContentsMargins(0, 8, 0, 0);
    m_consentTitle = SheetParts::heading(QString(), page, "consentTitle");
    column->addWidget(m_consentTitle);
    m_consentText = wrapped(QString(), page, "consentText");
    column->addWidget(m_consentText);
    m_privacyLink = new QLabel(page);
    m_privacyLink->setObjectName(QStringLiteral("privacyLink"));
    m_privacyLink->setOpenExternalLinks(true);
    column->addWidget(m_privacyLink);
    column->addStretch(1);
    return page;
}

// The key lives in the keyring, which may be slow to answer: the form (or the set-up)
// shows once it has.
void AskAIView::readSetUp()
{
    AIKeyStore::readKey(AISettings::provider(), this, [this](const std::optional<QString> &key, bool) {
        m_client = AISettings::clientWith(key);
        m_ready = true;
        m_pages->setCurrentWidget(m_client ? m_formPage : m_setUpPage);
        refresh();
        emit readyChanged();
    });
}

bool AskAIView::isAskingConsent() const { return m_pages->currentWidget() == m_consentPage; }

QList<Shot> AskAIView::photos() const
{
    const RatingMap ratings = m_model.ratings();
    QList<Shot> kept;
    for (const Shot &shot : m_onlyShown->isChecked() ? m_model.visibleShots() : m_model.shots())
        if (ratings.value(shot.id).flag != Rating::Flag::reject)
            kept << shot;
    return kept;
}

QString AskAIView::request() const
{
    const auto preset = AIPreset::Preset(m_preset->currentData().toInt());
    return preset == AIPreset::Preset::custom ? m_custom->toPlainText() : AIPreset::requestText(preset);
}

QString AskAIView::summary() const { return m_summary->text(); }

void AskAIView::setPreset(AIPreset::Preset preset) { m_preset->setCurrentIndex(m_preset->findData(int(preset))); }
void AskAIView::setCustomText(const QString &text) { m_custom->setPlainText(text); }
void AskAIView::setCount(int count) { m_count->setValue(count); }
void AskAIView::setOnlyShown(bool onlyShown) { m_onlyShown->setChecked(onlyShown); }

void AskAIView::send()
{
    if (!m_send->isVisible() || !m_send->isEnabled() || !m_client)
        return;
    if (!AISettings::consented(m_client->provider)) {
        const AIProvider provider = m_client->provider;
        m_consentTitle->setText(AIWording::consentTitle(provider));
        m_consentText->setText(AIWording::consentText(provider, m_client->target()).join(QStringLiteral("\n\n")));
        m_privacyLink->setText(provider.hosted() ? QStringLiteral("<a href=\"%1\">%2's privacy policy</a>")
                                                       .arg(provider.privacyPage().toString(QUrl::FullyEncoded),
                                                            provider.company())
                                                 : QString());
        m_pages->setCurrentWidget(m_consentPage);
        refresh();
        return;
    }
    run();
}

void AskAIView::allow()
{
    if (!isAskingConsent() || !m_client)
        return;
    m_pages->setCurrentWidget(m_formPage);
    run();
    // The yes is for this ask; remembering it writes the settings file, off this thread.
    // One that could not be remembered is said, and asked again next time.
    auto *watcher = new QFutureWatcher<UserSettings::Outcome>(this);
    connect(watcher, &QFutureWatcherBase::finished, this, [this, watcher] {
        watcher->deleteLater();
        if (watcher->result().failed())
            m_error = watcher->result().message() + QStringLiteral(" You will be asked again next time.");
        refresh();
    });
    watcher->setFuture(
        QtConcurrent::run([provider = m_client->provider] { return AISettings::setConsent(true, provider); }));
}

void AskAIView::run()
{
    if (!m_client || m_running)
        return;
    m_running = true;
    m_error.clear();
    m_status->setText(QStringLiteral("Preparing previews…"));
    m_wrapUp = std::make_shared<std::stop_source>();
    AICuller culler(*m_client);
    culler.finishEarly = m_wrapUp->get_token();
    const QList<Shot> shots = photos();
    const QString asked = request();
    const int count = m_count->value();
    refresh();

    // The ask outlives the sheet if it is closed: its result still reaches the model.
    QPointer<AskAIView> view(this);
    QPointer<SorviModel> model(&m_model);
    PreviewLoader *previews = &m_model.previews();
    auto *watcher = new QFutureWatcher<Outcome>(&m_model);
    // Picks belong to the folder they were asked about: none reach a folder opened since.
    connect(watcher, &QFutureWatcherBase::finished, &m_model, [watcher, view, model, folder = m_model.folder()] {
        watcher->deleteLater();
        const Outcome outcome = watcher->result();
        if (outcome.error.isEmpty() && model && model->folder() == folder) {
            QList<std::pair<QString, QString>> picks;
            for (const AIResult &result : outcome.results)
                picks.append({result.shotID, result.reason});
            model->setAIPicks(picks);
        }
        if (view)
            view->finish(outcome);
    });
    watcher->setFuture(QtConcurrent::run([culler, shots, asked, count, previews, view] {
        Outcome outcome;
        const auto progress = [view](const QString &text) {
            QMetaObject::invokeMethod(qApp, [view, text] {
                if (view && view->m_running)
                    view->m_status->setText(text);
            });
        };
        try {
            outcome.results = culler.run(shots, asked, count, *previews, progress);
        } catch (const AIError &error) {
            outcome.error = error.description();
            return outcome;
        } catch (const std::exception &error) {
            outcome.error = QString::fromLocal8Bit(error.what());
            return outcome;
        }
        // Row pictures from the previews the ask just made, still in the loader's cache.
        QHash<QString, Shot> byId;
        for (const Shot &shot : shots)
            byId.insert(shot.id, shot);
        for (const AIResult &result : outcome.results) {
            const std::optional<ShotPreview> preview = previews->preview(byId.value(result.shotID),
                                                                         AICuller::previewPixels);
            outcome.thumbnails << (preview ? preview->image.scaled(thumbnailPixels, thumbnailPixels,
                                                                   Qt::KeepAspectRatio, Qt::SmoothTransformation)
                                           : QImage());
        }
        return outcome;
    }));
}

void AskAIView::finish(const Outcome &outcome)
{
    m_running = false;
    m_wrapUp.reset();
    // Only a stop is worth saying after the ask; the batch counts were for while it ran.
    if (!m_status->text().startsWith(QLatin1String("Stopped")))
        m_status->clear();
    if (outcome.error.isEmpty()) {
        m_results = outcome.results;
        m_thumbnails = outcome.thumbnails;
        m_answered = true;
        refreshResults();
    } else {
        m_error = outcome.error;
    }
    refresh();
    emit runFinished();
}

void AskAIView::stopAfterBatch()
{
    if (m_running && m_wrapUp) {
        m_wrapUp->request_stop();
        m_status->setText(QStringLiteral("Stopping after this batch…"));
        m_stop->setEnabled(false);
    }
}

void AskAIView::showOnlyThese()
{
    m_model.setFilter(SorviModel::Filter::ai);
    m_model.keepSelectionVisible();
    accept();
}

void AskAIView::pickThese()
{
    m_model.pickAIPicks();
    accept();
}

void AskAIView::refreshResults()
{
    m_resultList->clear();
    for (qsizetype i = 0; i < m_results.size(); ++i) {
        const AIResult &result = m_results[i];
        auto *item = new QListWidgetItem(m_resultList);
        const QString name = result.shotID.section(QLatin1Char('/'), -1);
        item->setText(name.isEmpty() ? result.reason : name + QLatin1Char('\n') + result.reason);
        if (i < m_thumbnails.size() && !m_thumbnails[i].isNull())
            item->setIcon(QIcon(QPixmap::fromImage(m_thumbnails[i])));
    }
}

void AskAIView::refresh()
{
    const QString providerName = m_client ? m_client->provider.name() : QStringLiteral("No AI service set up yet");
    m_provider->setText(m_ready ? providerName : QString());

    const auto preset = AIPreset::Preset(m_preset->currentData().toInt());
    const bool custom = preset == AIPreset::Preset::custom;
    m_presetText->setText(AIPreset::requestText(preset));
    m_presetText->setVisible(!custom);
    m_customLabel->setVisible(custom);
    m_custom->setVisible(custom);

    const int sendable = int(photos().size());
    m_onlyShown->setText(QStringLiteral("Only the photos shown now (%1)").arg(m_model.visibleShots().size()));
    m_summary->setText(AIWording::summary(sendable, m_client ? std::optional(m_client->provider) : std::nullopt));

    const bool form = m_ready && m_client && m_pages->currentWidget() == m_formPage;
    const bool consent = isAskingConsent();
    m_formPage->setEnabled(!m_running);
    m_send->setText(QStringLiteral("Send %1 Previews").arg(sendable));
    m_send->setVisible(form);
    m_send->setEnabled(!m_running && sendable > 0 && !request().trimmed().isEmpty());
    m_send->setDefault(form);
    m_allow->setVisible(consent);
    m_allow->setDefault(consent);
    m_stop->setVisible(m_running);
    m_stop->setEnabled(m_running && m_wrapUp && !m_wrapUp->stop_requested());
    m_busy->setVisible(m_running);
    m_status->setVisible(m_running || !m_status->text().isEmpty());
    m_errorText->setText(m_error.isEmpty() ? QString() : QStringLiteral("⚠ ") + m_error);
    m_errorText->setVisible(!m_error.isEmpty());

    const bool answered = m_answered;
    m_resultsHeader->setVisible(answered);
    m_resultList->setVisible(answered);
    m_resultsHeader->setText(Wording::counted(int(m_results.size()), QStringLiteral("photo")) + QStringLiteral(" chosen"));
    QSet<QString> ids;
    for (const AIResult &result : m_results)
        ids.insert(result.shotID);
    m_pick->setText(QStringLiteral("Pick These (%1)").arg(m_model.count(ids)));
    for (QPushButton *b : {m_showOnly, m_pick, m_done})
        b->setVisible(answered && !consent);
}
