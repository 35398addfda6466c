#include "SorviKit/ai/AIKeyStore.h"
#include "SorviKit/ai/AISettings.h"
#include "AITestSupport.h"
#include "KeyringTest.h"
#include "SorviKit/library/ShotScanner.h"

#include <QDir>
#include <QProcess>
#include <QTemporaryDir>

namespace {

using AICommandTest = KeyringTest;

struct CommandRun {
    int exitCode = -1;
    QString out;
    QString err;
};

// Runs the real `sorvi` program in the keyring session, with the given standard input and
// extra environment.
CommandRun sorvi(const QStringList &args, const QByteArray &input = {}, const QStringList &environment = {})
{
    QProcess process;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    for (const QString &assignment : environment)
        env.insert(assignment.section('=', 0, 0), assignment.section('=', 1));
    process.setProcessEnvironment(env);
    process.start(SORVI_EXECUTABLE, args);
    process.write(input);
    process.closeWriteChannel();
    process.waitForFinished(180000);
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            QString::fromUtf8(process.readAllStandardOutput()), QString::fromUtf8(process.readAllStandardError())};
}

} // namespace

TEST_F(AICommandTest, KeepsTestsAndRemovesAKey)
{
    int status = 200;
    LocalHttpServer server([&status](const HttpRequest &) {
        return HttpReply{status, AITest::anthropicReply(AITest::picksJson({"P1"}))};
    });
    const QString endpoint = server.url().toString();

    const CommandRun set = sorvi({"key", "set", "anthropic"}, "  sk-ant-cli-42\n");
    EXPECT_EQ(set.exitCode, 0) << set.err.toStdString();
    EXPECT_EQ(set.out, "Saved.\n");
    EXPECT_EQ(AIKeyStore::key(AIProvider::anthropic), QStringLiteral("sk-ant-cli-42"));

    // Without a Secret Service to reach, neither saving nor removing claims to have worked,
    // and the stored key stays as it was.
    for (const QString action : {"set", "remove"}) {
        const CommandRun failed = sorvi({"key", action, "anthropic"}, "sk-ant-lost\n",
                                        {"DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent/sorvi-bus"});
        EXPECT_EQ(failed.exitCode, 1);
        EXPECT_EQ(failed.out, "");
        EXPECT_TRUE(failed.err.startsWith(action == "set" ? "sorvi: Couldn't save the key in the keyring: "
                                                          : "sorvi: Couldn't remove the key from the keyring: "))
            << failed.err.toStdString();
    }
    EXPECT_EQ(AIKeyStore::key(AIProvider::anthropic), QStringLiteral("sk-ant-cli-42"));

    const CommandRun works = sorvi({"key", "test", "anthropic", "--endpoint", endpoint});
    EXPECT_EQ(works.exitCode, 0) << works.err.toStdString();
    EXPECT_EQ(works.out, "Works: Anthropic answered with claude-sonnet-5-5.\n");
    ASSERT_EQ(server.requests().size(), 1);
    const HttpRequest request = server.requests().first();
    EXPECT_EQ(request.headers.value("x-api-key"), "sk-ant-cli-42");
    EXPECT_EQ(QImage::fromData(AITest::sentPhotos(request.body).jpegs.value(0), "JPEG").size(), QSize(64, 48));

    status = 401;
    const CommandRun refused = sorvi({"key", "test", "anthropic", "--endpoint", endpoint});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_EQ(refused.err, "The AI service didn't accept the API key. Check it in Settings \u25B8 AI.\n");

    const CommandRun removed = sorvi({"key", "remove", "anthropic"});
    EXPECT_EQ(removed.out, "Key removed.\n");
    EXPECT_EQ(AIKeyStore::key(AIProvider::anthropic), std::nullopt);
    const CommandRun none = sorvi({"key", "test", "anthropic", "--endpoint", endpoint});
    EXPECT_EQ(none.exitCode, 1);
    EXPECT_EQ(none.err, "Add your API key in Settings \u25B8 AI first.\n");
    EXPECT_EQ(server.requests().size(), 2) << "nothing is sent without a key";
    EXPECT_EQ(sorvi({"key", "set", "gemini"}, "x\n").exitCode, 2);
}

TEST_F(AICommandTest, AsksAboutARealShootLeavingOutRejects)
{
    SKIP_WITHOUT_CORPUS();
    const QString shoot = TestFiles::corpus() + "/shoot";
    const QList<Shot> shots = ShotScanner::list(QDir(shoot).canonicalPath());
    ASSERT_GE(shots.size(), 5);
    ASSERT_EQ(sorvi({"rate", shoot, shots[1].id, "--reject"}).exitCode, 0);

    // Batching is the culler's own test; here every request picks its first three.
    LocalHttpServer server([](const HttpRequest &request) {
        return HttpReply{200, AITest::anthropicReply(AITest::picksJson(AITest::sentPhotos(request.body).labels.mid(0, 3)))};
    });
    const QStringList ask{"ask", shoot, "--count", "3", "--preset", "portraits", "--endpoint", server.url().toString(), "--json"};
    const QStringList key{"ANTHROPIC_API_KEY=sk-from-environment"};

    // Without consent, a "no" sends nothing.
    const CommandRun declined = sorvi(ask, "n\n", key);
    EXPECT_EQ(declined.exitCode, 1);
    EXPECT_TRUE(declined.err.contains("Send previews to Anthropic?")) << declined.err.toStdString();
    EXPECT_TRUE(declined.err.contains("Nothing was sent."));
    EXPECT_TRUE(server.requests().isEmpty());
    EXPECT_FALSE(AISettings::consented(AIProvider::anthropic));

    const CommandRun asked = sorvi(ask, "y\n", key);
    ASSERT_EQ(asked.exitCode, 0) << asked.err.toStdString();
    const qsizetype sendable = shots.size() - 1;
    QLocale grouped = QLocale::c();
    grouped.setNumberOptions({}); // "27,400"
    EXPECT_TRUE(asked.err.contains(QStringLiteral("Sends %1 small previews (about 768 pixels wide, rejects left out) to "
                                                  "Anthropic using your key: roughly %2 input tokens.")
                                       .arg(sendable)
                                       .arg(grouped.toString(600 * int(sendable) + 400))))
        << asked.err.toStdString();
    EXPECT_EQ(server.requests().first().headers.value("x-api-key"), "sk-from-environment");
    EXPECT_EQ(AITest::sentPhotos(server.requests().last().body).requestText,
              "Request: The strongest portraits: expression, eyes open and sharp, flattering light.\n"
              "Choose up to 3 photos. Use only the ids shown.");
    // P1, P2, P3 are the first three shots that are not rejected: the reject is left out.
    QStringList picks;
    for (const QJsonValue pick : QJsonDocument::fromJson(asked.out.toUtf8()).array())
        picks << pick["id"].toString() + ": " + pick["reason"].toString();
    EXPECT_EQ(picks, (QStringList{shots[0].id + ": Chosen: P1", shots[2].id + ": Chosen: P2", shots[3].id + ": Chosen: P3"}));
    EXPECT_TRUE(AISettings::consented(AIProvider::anthropic));

    EXPECT_EQ(sorvi(ask, {}, key).exitCode, 0) << "consent is asked for once";

    // A yes that can't be remembered still sends, and says it will be asked again.
    QTemporaryDir config;
    TestFiles::write(config.filePath("Kestrane"), "where the settings folder should be");
    const CommandRun unsaved = sorvi(ask + QStringList{"--yes"}, {}, {key.first(), "XDG_CONFIG_HOME=" + config.path()});
    EXPECT_EQ(unsaved.exitCode, 0) << unsaved.err.toStdString();
    EXPECT_TRUE(unsaved.err.contains("sorvi: Couldn't save the settings in " + config.filePath("Kestrane/Sorvi.conf")))
        << unsaved.err.toStdString();
    EXPECT_TRUE(unsaved.err.contains("you will be asked again"));
    EXPECT_EQ(QJsonDocument::fromJson(unsaved.out.toUtf8()).array().size(), 3);
}

TEST_F(AICommandTest, ExplainsWhatIsMissing)
{
    QTemporaryDir empty;
    const CommandRun noKey = sorvi({"ask", empty.path(), "--count", "3", "--preset", "album"});
    EXPECT_EQ(noKey.exitCode, 1);
    EXPECT_TRUE(noKey.err.contains("Add your API key in Settings \u25B8 AI first.")) << noKey.err.toStdString();
    EXPECT_TRUE(noKey.err.contains("ANTHROPIC_API_KEY"));

    const QStringList key{"XAI_API_KEY=xai-env"};
    const CommandRun nothing = sorvi({"ask", empty.path(), "--count", "3", "--request", "Dogs.", "--provider", "xai"}, {}, key);
    EXPECT_EQ(nothing.exitCode, 1);
    EXPECT_TRUE(nothing.err.contains("Sends 0 small previews")) << nothing.err.toStdString();

    for (const QStringList &bad : {QStringList{"ask", empty.path(), "--count", "3"},
                                   QStringList{"ask", empty.path(), "--count", "0", "--preset", "album"},
                                   QStringList{"ask", empty.path(), "--count", "3", "--preset", "selfies"},
                                   QStringList{"ask", empty.path(), "--count", "3", "--preset", "album", "--request", "x"}})
        EXPECT_EQ(sorvi(bad, {}, key).exitCode, 2) << bad.join(' ').toStdString();
}
