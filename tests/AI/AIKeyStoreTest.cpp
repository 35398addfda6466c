#include "SorviKit/ai/AIKeyStore.h"
#include "SorviKit/ai/AISettings.h"
#include "KeyringTest.h"

#include <QEventLoop>
#include <QSettings>

#include <qt6keychain/keychain.h>

using AIKeyStoreTest = KeyringTest;

// Setting, testing and removing a key through `sorvi key` is the command's test.
TEST_F(AIKeyStoreTest, KeepsOneKeyPerServiceAndReplacesIt)
{
    const AIProvider anthropic = AIProvider::anthropic;
    const AIProvider openai = AIProvider::openai;
    EXPECT_EQ(AIKeyStore::service(openai), "app.kestrane.sorvi.ai.openai");
    EXPECT_EQ(AIKeyStore::setKey(QStringLiteral("sk-ant-first"), anthropic), std::nullopt);
    EXPECT_EQ(AIKeyStore::setKey(QStringLiteral("sk-proj-\u00e9t\u00e9"), openai), std::nullopt);
    EXPECT_EQ(AIKeyStore::setKey(QStringLiteral("sk-ant-second"), anthropic), std::nullopt);
    EXPECT_EQ(AIKeyStore::key(anthropic), "sk-ant-second");
    EXPECT_EQ(AIKeyStore::key(openai), QStringLiteral("sk-proj-\u00e9t\u00e9")) << "another service's key changed";
    EXPECT_EQ(AIKeyStore::key(AIProvider::xai), std::nullopt);

    EXPECT_EQ(AIKeyStore::setKey(QString(), anthropic), std::nullopt);
    EXPECT_EQ(AIKeyStore::key(anthropic), std::nullopt) << "an empty key removes the stored one";
    EXPECT_EQ(AIKeyStore::setKey(std::nullopt, anthropic), std::nullopt) << "removing no key is no failure";
}

TEST_F(AIKeyStoreTest, ReadsBytesThatAreNotTextAsNoKey)
{
    QKeychain::WritePasswordJob write(AIKeyStore::service(AIProvider::xai));
    write.setAutoDelete(false);
    write.setKey(QStringLiteral("api-key"));
    write.setBinaryData(QByteArray("xai-\xff\xfe\xc3", 7));
    QEventLoop loop;
    QObject::connect(&write, &QKeychain::Job::finished, &loop, &QEventLoop::quit);
    write.start();
    loop.exec();
    ASSERT_EQ(write.error(), QKeychain::NoError) << write.errorString().toStdString();
    EXPECT_EQ(AIKeyStore::key(AIProvider::xai), std::nullopt);
}

TEST_F(AIKeyStoreTest, SettingsKeepAChoicePerServiceAndNeverTheKey)
{
    EXPECT_EQ(AISettings::provider(), AIProvider(AIProvider::anthropic));
    QSettings().setValue("AIProvider", "OpenAI"); // not a service's id
    EXPECT_EQ(AISettings::provider(), AIProvider(AIProvider::anthropic));
    EXPECT_FALSE(AISettings::setProvider(AIProvider::xai).failed());
    EXPECT_EQ(QSettings().value("AIProvider").toString(), "xai");
    EXPECT_EQ(AISettings::provider(), AIProvider(AIProvider::xai));

    EXPECT_FALSE(AISettings::setModel(QString(), AIProvider::xai).failed());
    EXPECT_EQ(AISettings::model(AIProvider::xai), "grok-4");
    EXPECT_FALSE(AISettings::setModel(QStringLiteral("grok-4-fast"), AIProvider::xai).failed());
    EXPECT_EQ(AISettings::model(AIProvider::xai), "grok-4-fast");
    EXPECT_EQ(QSettings().value("AIModel.xai").toString(), "grok-4-fast");

    EXPECT_FALSE(AISettings::consented(AIProvider::openai));
    EXPECT_FALSE(AISettings::setConsent(true, AIProvider::openai).failed());
    EXPECT_TRUE(AISettings::consented(AIProvider::openai));
    EXPECT_FALSE(AISettings::consented(AIProvider::xai));
    EXPECT_TRUE(QSettings().value("AIConsent.openai").toBool());

    // A client needs a key for the chosen service; it reflects what was saved last.
    const auto storedClient = [] { return AISettings::clientWith(AIKeyStore::key(AISettings::provider())); };
    EXPECT_FALSE(storedClient());
    const QByteArray secret = "xai-never-in-a-file-7f3a9c";
    ASSERT_EQ(AIKeyStore::setKey(QString::fromLatin1(secret), AIProvider::xai), std::nullopt);
    std::optional<AIClient> client = storedClient();
    ASSERT_TRUE(client);
    EXPECT_EQ(client->provider, AIProvider(AIProvider::xai));
    EXPECT_EQ(client->model, "grok-4-fast");
    EXPECT_EQ(client->key, QString::fromLatin1(secret));
    // The settings are on the disk now, and no file of the user's holds the key, not even encoded.
    EXPECT_EQ(filesContaining(secret), QStringList());
    EXPECT_EQ(filesContaining(secret.toBase64()), QStringList());

    EXPECT_FALSE(AISettings::setProvider(AIProvider::openai).failed());
    EXPECT_FALSE(storedClient()) << "no OpenAI key is stored";
    EXPECT_TRUE(AISettings::consented(AIProvider::openai)) << "consent is not tied to a key";
}
