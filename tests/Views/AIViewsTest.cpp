#include "BrowserHarness.h"

#include "SorviApp/views/AISettingsView.h"
#include "SorviApp/views/AskAIView.h"
#include "SorviApp/views/SettingsWindow.h"
#include "SorviKit/ai/AIKeyStore.h"
#include "SorviKit/ai/AISettings.h"
#include "SorviKit/ai/AIWording.h"
#include "AITestSupport.h"
#include "KeyringTest.h"
#include "LocalHttpServer.h"

#include <QComboBox>
#include <QElapsedTimer>
#include <QLineEdit>
#include <QProcess>
#include <QPushButton>
#include <QRegularExpression>
#include <QSettings>
#include <QSignalSpy>

#include <atomic>
#include <thread>

namespace {

using AIViewsTest = KeyringTest;

// A folder of small photos opened in a model of its own.
struct Shoot {
    explicit Shoot(int photos) : model(options(store))
    {
        for (int i = 1; i <= photos; ++i)
            TestFiles::write(dir.filePath(QStringLiteral("IMG_%1.JPG").arg(i, 4, 10, QLatin1Char('0'))),
                             AITest::jpeg(160, 120, i));
        EXPECT_TRUE(ModelTest::openAndWait(model, dir.path()));
    }
    static SorviModel::Options options(const QTemporaryDir &store)
    {
        SorviModel::Options options = ModelTest::withoutChecks();
        options.storeDirectory = store.path();
        return options;
    }
    QTemporaryDir dir;
    QTemporaryDir store;
    SorviModel model;
};

// The chat-completions reply choosing, of the labels a request carried, those `choose` keeps.
HttpReply choosing(const HttpRequest &request, const std::function<bool(int)> &choose)
{
    QStringList ids;
    const QRegularExpression label(QStringLiteral("\"text\":\"(P(\\d+))\""));
    for (auto match = label.globalMatch(QString::fromUtf8(request.body)); match.hasNext();) {
        const QRegularExpressionMatch found = match.next();
        if (choose(found.captured(2).toInt()))
            ids << found.captured(1);
    }
    return {200, AITest::chatReply(AITest::picksJson(ids))};
}

void useService(AIProvider provider, const QString &address, const std::optional<QString> &key)
{
    ASSERT_FALSE(AISettings::setProvider(provider).failed());
    ASSERT_FALSE(AISettings::setServerAddress(address, provider).failed());
    ASSERT_EQ(AIKeyStore::setKey(key, provider), std::nullopt);
}

// The sheet over the model, shown, once it has read the service's set-up.
struct Sheet {
    explicit Sheet(SorviModel &model) : view(model)
    {
        view.resize(560, 620);
        view.show();
        EXPECT_TRUE(QTest::qWaitFor([this] { return view.isReady(); }, 10'000));
    }
    template <typename Press>
    void pressAndWait(Press press)
    {
        QSignalSpy finished(&view, &AskAIView::runFinished);
        press();
        EXPECT_TRUE(finished.wait(30'000)) << "the ask never ended";
    }
    QPushButton *button(const char *name) { return view.findChild<QPushButton *>(QLatin1String(name)); }
    QString text(const char *name)
    {
        const auto *label = view.findChild<QLabel *>(QLatin1String(name));
        return label && label->isVisibleTo(&view) ? label->text() : QString();
    }
    void screenshot(const QString &name)
    {
        view.layout()->activate();
        QCoreApplication::processEvents();
        saveScreenshot(view.grab().toImage(), name);
    }
    AskAIView view;
};

} // namespace

// The set-up block without a key; the summary and its numbers; consent once per service;
// a result listed and handed to the model; failures mid-run that apply nothing; stopping
// after the batch in flight; picks undone; the photographer's own server, from the sheet
// and from sorvi. The key is never written anywhere but the keyring.
TEST_F(AIViewsTest, AskSheetFromSetUpToPicks)
{
    Shoot shoot(44);
    {
        Sheet none(shoot.model);
        EXPECT_FALSE(none.view.hasClient());
        EXPECT_EQ(none.text("providerName"), "No AI service set up yet");
        EXPECT_TRUE(none.button("setUp")->isVisibleTo(&none.view));
        none.screenshot("askai-setup");
    }

    std::atomic<int> failAt = 0, failStatus = 0, asked = 0;
    std::atomic<bool> holdFirst = false, released = false;
    LocalHttpServer server([&](const HttpRequest &request) {
        const int number = ++asked;
        if (holdFirst && number == 1)
            while (!released)
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
        if (number == failAt)
            return failStatus == 200 ? HttpReply{200, AITest::chatReply("Sorry, I can't help with that.")}
                                     : HttpReply{failStatus, "{\"error\":\"busy\"}"};
        return choosing(request, [](int n) { return n <= 2 || n == 41; });
    });
    useService(AIProvider::openai, server.url().toString(), QStringLiteral("sk-open-secret-1"));

    Sheet sheet(shoot.model);
    AskAIView &view = sheet.view;
    ASSERT_TRUE(view.hasClient());
    EXPECT_EQ(sheet.text("providerName"), "ChatGPT (OpenAI)");
    EXPECT_EQ(view.summary(), AIWording::summary(44, AIProvider::openai));
    EXPECT_TRUE(view.summary().contains("to OpenAI using your key: roughly " + AIWording::grouped(26'800)));
    EXPECT_EQ(sheet.button("send")->text(), "Send 44 Previews");

    // A reject is never sent; "only the photos shown" follows the filter at once.
    shoot.model.setSelection(shoot.model.shots().first().id);
    shoot.model.update([](Rating &r) { r.flag = Rating::Flag::reject; }, false);
    EXPECT_EQ(sheet.button("send")->text(), "Send 43 Previews");
    shoot.model.setFilter(SorviModel::Filter::picks);
    view.setOnlyShown(true);
    EXPECT_EQ(sheet.button("send")->text(), "Send 0 Previews");
    EXPECT_FALSE(sheet.button("send")->isEnabled());
    view.setOnlyShown(false);
    shoot.model.setFilter(SorviModel::Filter::all);
    view.setPreset(AIPreset::Preset::custom);
    EXPECT_FALSE(sheet.button("send")->isEnabled()) << "an empty request of one's own";
    view.setCustomText("the sharpest ones");
    EXPECT_EQ(view.request(), "the sharpest ones");
    sheet.screenshot("askai-before");

    // First send: consent, then the ask in two batches.
    view.send();
    ASSERT_TRUE(view.isAskingConsent());
    EXPECT_EQ(sheet.text("consentTitle"), "Send previews to OpenAI?");
    EXPECT_TRUE(sheet.text("privacyLink").contains("https://openai.com/policies/privacy-policy/"));
    EXPECT_EQ(asked, 0) << "sent before consent";
    sheet.screenshot("askai-consent");
    sheet.pressAndWait([&] { view.allow(); });
    EXPECT_TRUE(QTest::qWaitFor([] { return AISettings::consented(AIProvider::openai); }, 5000));
    EXPECT_EQ(asked, 2);
    ASSERT_EQ(view.results().size(), 3);
    EXPECT_EQ(sheet.text("resultsHeader"), "3 photos chosen");
    EXPECT_EQ(shoot.model.aiPicks().size(), 3);
    EXPECT_EQ(shoot.model.aiPicks().value(view.results().first().shotID), "Chosen: P1");
    sheet.screenshot("askai-after");

    // Failures in the second batch, or the only one: the service's words, nothing applied,
    // the earlier result still listed. Consent is not asked again.
    const QList<std::pair<int, QString>> failures{
        {429, AIError::http(429, {}).description()},
        {500, "The AI service returned an error (500): {\"error\":\"busy\"}"},
        {200, "The AI's reply couldn't be read as a list of picks: Sorry, I can't help with that."}};
    for (const auto &[status, words] : failures) {
        asked = 0;
        failAt = status == 429 ? 2 : 1;
        failStatus = status;
        sheet.pressAndWait([&] { view.send(); });
        EXPECT_FALSE(view.isAskingConsent());
        EXPECT_EQ(view.error(), words);
        EXPECT_EQ(sheet.text("errorText"), QStringLiteral("⚠ ") + words);
        EXPECT_EQ(view.results().size(), 3);
        EXPECT_EQ(shoot.model.aiPicks().size(), 3);
    }
    sheet.screenshot("askai-error");

    // Stop while the first batch is in flight: no second batch, the first batch's picks kept.
    asked = 0;
    failAt = 0;
    holdFirst = true;
    sheet.pressAndWait([&] {
        view.send();
        ASSERT_TRUE(QTest::qWaitFor([&] { return asked == 1; }, 10'000));
        sheet.screenshot("askai-during");
        view.stopAfterBatch();
        released = true;
    });
    EXPECT_EQ(asked, 1);
    EXPECT_EQ(view.results().size(), 2);
    EXPECT_EQ(shoot.model.aiPicks().size(), 2);

    // "Pick These" is one undoable change.
    EXPECT_EQ(sheet.button("pick")->text(), "Pick These (2)");
    view.pickThese();
    for (const AIResult &result : view.results())
        EXPECT_EQ(shoot.model.ratings().value(result.shotID).flag, Rating::Flag::pick);
    shoot.model.undo();
    for (const AIResult &result : view.results())
        EXPECT_EQ(shoot.model.ratings().value(result.shotID).flag, Rating::Flag::none);

    // A first send to another company asks again; cancelling sends nothing.
    asked = 0;
    useService(AIProvider::xai, server.url().toString(), QStringLiteral("sk-xai-secret-2"));
    {
        Sheet other(shoot.model);
        other.view.send();
        EXPECT_TRUE(other.view.isAskingConsent());
        EXPECT_EQ(other.text("consentTitle"), "Send previews to xAI?");
        other.button("cancel")->click();
        EXPECT_EQ(asked, 0);
    }

    // The photographer's own server, without a key: named by its address, nothing about a
    // company, and no key header.
    const QString base = server.url().toString().section("/v1/", 0, 0) + "/v1";
    useService(AIProvider::compatible, base, std::nullopt);
    {
        Sheet own(shoot.model);
        ASSERT_TRUE(own.view.hasClient());
        EXPECT_TRUE(own.view.summary().contains("to your own server: roughly"));
        own.view.send();
        ASSERT_TRUE(own.view.isAskingConsent());
        EXPECT_TRUE(own.text("consentText").contains("to the server at " + base + "/chat/completions"));
        EXPECT_FALSE(own.text("consentText").contains("bills"));
        EXPECT_EQ(own.text("privacyLink"), "");
        own.screenshot("askai-own-server");
        own.pressAndWait([&] { own.view.allow(); });
        EXPECT_EQ(own.view.error(), "");
        EXPECT_EQ(own.view.results().size(), 3);
        EXPECT_FALSE(server.requests().last().headers.contains("authorization"));
    }
    QProcess sorvi;
    sorvi.start(SORVI_EXECUTABLE, {"ask", shoot.dir.path(), "--count", "20", "--preset", "album", "--provider",
                                   "compatible", "--endpoint", base, "--yes"});
    ASSERT_TRUE(sorvi.waitForFinished(60'000));
    EXPECT_EQ(sorvi.exitCode(), 0) << sorvi.readAllStandardError().toStdString();
    EXPECT_TRUE(sorvi.readAllStandardOutput().startsWith("3 photos chosen"));

    const QString store = shoot.store.path();
    for (const QByteArray &secret : {QByteArray("sk-open-secret-1"), QByteArray("sk-xai-secret-2")}) {
        EXPECT_EQ(filesContaining(secret), QStringList()) << "a key outside the keyring";
        for (const QString &file : TestFiles::tree(store))
            EXPECT_FALSE(TestFiles::read(store + '/' + file).contains(secret)) << file.toStdString();
    }
}

// The AI tab: each service's own key, model and consent; the key trimmed and kept only in
// the keyring; the test's result or the service's refusal; revoking; removing the key.
TEST_F(AIViewsTest, SettingsTabKeepsEachServicesOwnKey)
{
    std::atomic<int> status = 200;
    std::atomic<bool> silent = false;
    LocalHttpServer server([&](const HttpRequest &request) {
        if (silent)
            return HttpReply{200, {}, HttpReply::Behaviour::hang};
        return status == 200 ? choosing(request, [](int) { return true; }) : HttpReply{status, "{}"};
    });
    ASSERT_FALSE(AISettings::setServerAddress(server.url().toString(), AIProvider::openai).failed());

    SettingsWindow window;
    window.show();
    AISettingsView &tab = *window.aiSettings();
    const auto idle = [&] { return QTest::qWaitFor([&] { return tab.isIdle(); }, 20'000); };
    ASSERT_TRUE(idle());
    auto *service = tab.findChild<QComboBox *>("service");
    auto *key = tab.findChild<QLineEdit *>("key");
    auto *model = tab.findChild<QLineEdit *>("model");
    const auto choose = [&](AIProvider provider) {
        service->setCurrentIndex(service->findData(provider.id()));
        emit service->activated(service->currentIndex());
        ASSERT_TRUE(idle());
    };
    EXPECT_EQ(service->currentText(), "Claude (Anthropic)");
    EXPECT_FALSE(tab.findChild<QLabel *>("noKeyring")->isVisibleTo(&tab));

    choose(AIProvider::openai);
    EXPECT_EQ(key->placeholderText(), "Paste your OpenAI API key");
    EXPECT_EQ(model->placeholderText(), "gpt-5");
    EXPECT_EQ(key->echoMode(), QLineEdit::Password);
    key->setText("  sk-open-secret-3\n");
    model->setText("   ");
    tab.saveAndTest();
    ASSERT_TRUE(idle());
    EXPECT_EQ(tab.status(), "Works: OpenAI answered with gpt-5.");
    EXPECT_EQ(AIKeyStore::key(AIProvider::openai), QStringLiteral("sk-open-secret-3"));
    EXPECT_EQ(QSettings().value("AIModel.openai"), QString());
    EXPECT_EQ(AISettings::provider(), AIProvider::openai);
    saveScreenshot(window.grab().toImage(), "settings-ai");

    choose(AIProvider::xai);
    EXPECT_EQ(key->text(), "");
    choose(AIProvider::openai);
    EXPECT_EQ(key->text(), "sk-open-secret-3");

    status = 401;
    tab.saveAndTest();
    ASSERT_TRUE(idle());
    EXPECT_EQ(tab.status(), "The AI service didn't accept the API key. Check it in Settings ▸ AI.");

    // Closing a window whose test waits on a silent service abandons the request, rather
    // than holding the application for the client's five-minute limit.
    silent = true;
    {
        auto closing = std::make_unique<SettingsWindow>();
        closing->show();
        AISettingsView &waiting = *closing->aiSettings();
        ASSERT_TRUE(QTest::qWaitFor([&] { return waiting.isIdle(); }, 20'000));
        ASSERT_EQ(waiting.findChild<QLineEdit *>("key")->text(), "sk-open-secret-3");
        const qsizetype asked = server.requests().size();
        waiting.saveAndTest();
        ASSERT_TRUE(QTest::qWaitFor([&] { return server.requests().size() > asked; }, 20'000));
        QElapsedTimer closingTime;
        closingTime.start();
        closing.reset();
        EXPECT_LT(closingTime.elapsed(), 20'000) << "closing waited for the service";
    }
    silent = false;

    ASSERT_FALSE(AISettings::setConsent(true, AIProvider::openai).failed());
    choose(AIProvider::openai);
    auto *consentRow = tab.findChild<QWidget *>("consentRow");
    EXPECT_TRUE(consentRow->isVisibleTo(&tab));
    tab.revoke();
    EXPECT_FALSE(consentRow->isVisibleTo(&tab)) << "the line stays until the write ends";
    ASSERT_TRUE(idle());
    EXPECT_FALSE(AISettings::consented(AIProvider::openai));

    EXPECT_EQ(filesContaining("sk-open-secret-3"), QStringList());
    tab.removeKey();
    ASSERT_TRUE(idle());
    EXPECT_EQ(tab.status(), "Key removed.");
    EXPECT_EQ(AIKeyStore::key(AIProvider::openai), std::nullopt);
}
