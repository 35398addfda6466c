#include "AITestSupport.h"

#include <QImage>
#include <QThread>

#include <gtest/gtest.h>

#include <thread>

using namespace AITest;

namespace {

QList<AIPhoto> threePhotos()
{
    return {{"P1", jpeg(768, 512, 1)}, {"P2", jpeg(512, 768, 2)}, {"P3", jpeg(600, 400, 3)}};
}

AIClient clientFor(AIProvider provider, const LocalHttpServer &server, const QString &path)
{
    AIClient client(provider, provider.defaultModel(), "sk-test-" + provider.id());
    client.endpointOverride = server.url(path);
    return client;
}

// The description of the AIError that `call` throws; fails the test when it throws none.
template <typename Call>
AIError errorOf(Call call)
{
    try {
        call();
    } catch (const AIError &error) {
        return error;
    }
    ADD_FAILURE() << "no AIError was thrown";
    return AIError::noKey();
}

void expectPhotosSent(const QByteArray &body, const QList<AIPhoto> &photos)
{
    const SentPhotos sent = sentPhotos(body);
    ASSERT_EQ(sent.labels.size(), photos.size());
    for (qsizetype i = 0; i < photos.size(); ++i) {
        EXPECT_EQ(sent.labels[i], photos[i].id);
        EXPECT_EQ(sent.jpegs[i], photos[i].jpeg) << "photo " << i << " arrived changed";
        const QImage decoded = QImage::fromData(sent.jpegs[i], "JPEG");
        EXPECT_FALSE(decoded.isNull());
        EXPECT_LE(std::max(decoded.width(), decoded.height()), 768);
    }
    EXPECT_EQ(sent.requestText, "Request: The best photos.\nChoose up to 2 photos. Use only the ids shown.");
}

} // namespace

TEST(AIClient, SpeaksAnthropicsMessagesDialect)
{
    LocalHttpServer server([](const HttpRequest &) {
        return HttpReply{200, anthropicReply({"{\"picks\":[{\"id\":\"P2\",\"reason\":\"Sharp eyes.\"},"
                                              "{\"id\":\"P1\",\"reason\":\"Good light.\"}]}"})};
    });
    const QList<AIPhoto> photos = threePhotos();
    const QList<AIPick> picks = clientFor(AIProvider::anthropic, server, "/v1/messages")
                                    .choose(photos, "The best photos.", 2);
    EXPECT_EQ(picks, (QList<AIPick>{{"P2", "Sharp eyes."}, {"P1", "Good light."}}));

    ASSERT_EQ(server.requests().size(), 1);
    const HttpRequest request = server.requests().first();
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.path, "/v1/messages");
    EXPECT_EQ(request.headers.value("content-type"), "application/json");
    EXPECT_EQ(request.headers.value("x-api-key"), "sk-test-anthropic");
    EXPECT_EQ(request.headers.value("anthropic-version"), "2023-06-01");
    EXPECT_FALSE(request.headers.contains("authorization"));

    const QJsonObject body = json(request.body);
    EXPECT_EQ(body.keys(), (QStringList{"max_tokens", "messages", "model", "system"}));
    EXPECT_EQ(body.value("model").toString(), "claude-sonnet-5-5");
    EXPECT_EQ(body.value("max_tokens").toInt(), 2000);
    EXPECT_EQ(body.value("system").toString(), AIClient::systemPrompt());
    EXPECT_TRUE(AIClient::systemPrompt().endsWith("\"one short sentence\"}]}"));
    EXPECT_TRUE(AIClient::systemPrompt().contains(QStringLiteral("(P1, P2, \u2026)")));
    const QJsonArray messages = body.value("messages").toArray();
    ASSERT_EQ(messages.size(), 1);
    EXPECT_EQ(messages[0].toObject().value("role").toString(), "user");
    const QJsonArray content = messages[0].toObject().value("content").toArray();
    ASSERT_EQ(content.size(), 7);
    EXPECT_EQ(content[0].toObject(), (QJsonObject{{"type", "text"}, {"text", "P1"}}));
    const QJsonObject source = content[1].toObject().value("source").toObject();
    EXPECT_EQ(content[1].toObject().value("type").toString(), "image");
    EXPECT_EQ(source.value("type").toString(), "base64");
    EXPECT_EQ(source.value("media_type").toString(), "image/jpeg");
    EXPECT_FALSE(source.value("data").toString().contains('\n'));
    expectPhotosSent(request.body, photos);
}

TEST(AIClient, SpeaksTheChatCompletionsDialectForOpenAIAndXAI)
{
    for (const AIProvider provider : {AIProvider(AIProvider::openai), AIProvider(AIProvider::xai)}) {
        SCOPED_TRACE(provider.id().toStdString());
        LocalHttpServer server([](const HttpRequest &) {
            return HttpReply{200, chatReply("{\"picks\":[{\"id\":\"P3\",\"reason\":\"The moment.\"}]}")};
        });
        const QList<AIPhoto> photos = threePhotos();
        const QList<AIPick> picks =
            clientFor(provider, server, "/v1/chat/completions").choose(photos, "The best photos.", 2);
        EXPECT_EQ(picks, (QList<AIPick>{{"P3", "The moment."}}));

        ASSERT_EQ(server.requests().size(), 1);
        const HttpRequest request = server.requests().first();
        EXPECT_EQ(request.method, "POST");
        EXPECT_EQ(request.path, "/v1/chat/completions");
        EXPECT_EQ(request.headers.value("content-type"), "application/json");
        EXPECT_EQ(request.headers.value("authorization"), "Bearer sk-test-" + provider.id().toUtf8());
        EXPECT_FALSE(request.headers.contains("x-api-key"));

        const QJsonObject body = json(request.body);
        // No temperature, token limit or response format: only the model and the messages.
        EXPECT_EQ(body.keys(), (QStringList{"messages", "model"}));
        EXPECT_EQ(body.value("model").toString(), provider.defaultModel());
        const QJsonArray messages = body.value("messages").toArray();
        ASSERT_EQ(messages.size(), 2);
        EXPECT_EQ(messages[0].toObject(), (QJsonObject{{"role", "system"}, {"content", AIClient::systemPrompt()}}));
        EXPECT_EQ(messages[1].toObject().value("role").toString(), "user");
        const QJsonObject image = messages[1].toObject().value("content").toArray()[1].toObject();
        EXPECT_EQ(image.value("type").toString(), "image_url");
        EXPECT_TRUE(image.value("image_url").toObject().value("url").toString().startsWith("data:image/jpeg;base64,"));
        EXPECT_EQ(image.value("image_url").toObject().value("detail").toString(), "low");
        expectPhotosSent(request.body, photos);
    }
}

TEST(AIClient, ReadsPicksOutOfProseFencesAndSplitBlocks)
{
    const QSet<QString> sent{"P1", "P2", "P3"};
    // Prose and a code fence around the JSON; a reason padded with blanks and line breaks.
    const QString fenced = "Here are my picks:\n```json\n{\"picks\":[{\"id\":\"P2\",\"reason\":\"  Lovely light. \\n\"}]}\n"
                           "```\nHope that helps {smile}.";
    EXPECT_THROW(AIClient::picks(fenced, sent), AIError) << "the last brace belongs to the prose";
    const QString fencedOnly = "Here are my picks:\n```json\n{\"picks\":[{\"id\":\"P2\",\"reason\":\"  Lovely light. \\n\"}]}\n```";
    EXPECT_EQ(AIClient::picks(fencedOnly, sent), (QList<AIPick>{{"P2", "Lovely light."}}));

    // Unknown and repeated ids are skipped, the first occurrence wins, a missing or
    // non-text reason is empty, entries without a text id are skipped.
    EXPECT_EQ(AIClient::picks("{\"picks\":[{\"id\":\"P9\",\"reason\":\"x\"},{\"id\":\"P2\",\"reason\":\"first\"},"
                              "{\"id\":\"P2\",\"reason\":\"again\"},{\"id\":3},{\"id\":\"P1\",\"reason\":7},"
                              "{\"id\":\"P3\"}]}",
                              sent),
              (QList<AIPick>{{"P2", "first"}, {"P1", ""}, {"P3", ""}}));
    EXPECT_TRUE(AIClient::picks("{\"picks\":[]}", sent).isEmpty());

    for (const QString &unreadable : {QString("no json here"), QString("} backwards {"), QString("{\"picks\":\"P1\"}"),
                                      QString("{\"picks\":[\"P1\"]}"), QString("{\"choices\":[]}"), QString("{oops}")}) {
        const AIError error = errorOf([&] { AIClient::picks(unreadable, sent); });
        EXPECT_EQ(error.kind(), AIError::Kind::unreadableReply) << unreadable.toStdString();
        EXPECT_EQ(error.description(), "The AI's reply couldn't be read as a list of picks: " + unreadable);
    }

    // Anthropic's text may be spread over several blocks; non-text blocks are ignored.
    const QByteArray split = QJsonDocument(QJsonObject{
        {"content", QJsonArray{QJsonObject{{"type", "text"}, {"text", "{\"picks\":[{\"id\":\"P1\","}},
                               QJsonObject{{"type", "tool_use"}, {"text", "ignored"}},
                               QJsonObject{{"type", "text"}, {"text", "\"reason\":\"Both halves.\"}]}"}}}}}).toJson();
    const QString text = AIClient::replyText(split, AIProvider::anthropic);
    EXPECT_EQ(AIClient::picks(text, sent), (QList<AIPick>{{"P1", "Both halves."}}));
    EXPECT_EQ(AIClient::replyText("{\"content\":\"text\"}", AIProvider::anthropic), "");
}

TEST(AIClient, ReportsUnreadableRepliesWithTheRawBody)
{
    struct Case {
        AIProvider provider;
        QByteArray body;
    };
    const QList<Case> cases{
        {AIProvider::openai, "{\"choices\":[]}"},
        {AIProvider::openai, "{\"choices\":[{\"message\":{\"content\":null}}]}"},
        {AIProvider::xai, "{\"choices\":[{\"message\":\"P1\"}]}"},
        {AIProvider::anthropic, "{\"content\":[{\"type\":\"text\",\"text\":\"I can't choose.\"}]}"},
        {AIProvider::anthropic, "<html>Bad gateway</html>"},
        {AIProvider::openai, "[1,2,3]"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.body.toStdString());
        LocalHttpServer server([&](const HttpRequest &) { return HttpReply{200, c.body}; });
        const AIError error = errorOf([&] { clientFor(c.provider, server, "/").choose(threePhotos(), "Any.", 1); });
        EXPECT_EQ(error.kind(), AIError::Kind::unreadableReply);
        const QString shown = c.provider == AIProvider::anthropic && c.body.startsWith("{")
            ? QString("I can't choose.") : QString::fromUtf8(c.body);
        EXPECT_EQ(error.description(), "The AI's reply couldn't be read as a list of picks: " + shown);
    }
}

TEST(AIClient, TurnsEveryStatusButTwoHundredIntoItsMessage)
{
    const QByteArray longBody = QByteArray("{\"error\":\"model not found\"}").leftJustified(500, 'x');
    const QString noKey = "The AI service didn't accept the API key. Check it in Settings \u25B8 AI.";
    struct Case {
        int status;
        QByteArray body;
        QString description;
    };
    const QList<Case> cases{
        {201, anthropicReply({picksJson({"P1"})}),
         "The AI service returned an error (201): " + QString::fromUtf8(anthropicReply({picksJson({"P1"})})).left(200)},
        {401, "{\"error\":\"invalid x-api-key\"}", noKey},
        {403, "{\"error\":\"forbidden\"}", noKey},
        {404, longBody,
         "The AI service doesn't know that model. Check the model name in Settings \u25B8 AI. (" + longBody.left(160) + ")"},
        {429, "{\"error\":\"rate_limit\"}",
         "The AI service says you've hit a rate or spending limit. Try again in a minute, or check your account."},
        {500, longBody, "The AI service returned an error (500): " + longBody.left(200)},
        {503, "overloaded", "The AI service returned an error (503): overloaded"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.status);
        LocalHttpServer server([&](const HttpRequest &) { return HttpReply{c.status, c.body}; });
        const AIError error = errorOf([&] { clientFor(AIProvider::anthropic, server, "/").choose(threePhotos(), "x", 1); });
        EXPECT_EQ(error.kind(), AIError::Kind::http);
        EXPECT_EQ(error.status(), c.status);
        EXPECT_EQ(error.description(), c.description);
    }
    EXPECT_EQ(longBody.left(160).size(), 160);
}

TEST(AIClient, CutsBodiesByCharactersNotBytes)
{
    // "e" + combining acute accent is one character in two code units; a flag is one
    // character in four.
    const QString accented = QString("e\u0301").repeated(300);
    const QString flags = QString("\U0001F1EB\U0001F1EE").repeated(250);
    EXPECT_EQ(AIError::http(404, accented).description(),
              "The AI service doesn't know that model. Check the model name in Settings \u25B8 AI. (" + accented.left(320) + ")");
    EXPECT_EQ(AIError::http(500, flags).description(), "The AI service returned an error (500): " + flags.left(800));
    EXPECT_EQ(AIError::unreadableReply("short").description(), "The AI's reply couldn't be read as a list of picks: short");
}

TEST(AIClient, ReportsTransportFailuresAsNetworkErrors)
{
    // A dropped connection.
    {
        LocalHttpServer server([](const HttpRequest &) { return HttpReply{200, {}, HttpReply::Behaviour::drop}; });
        const AIError error = errorOf([&] { clientFor(AIProvider::openai, server, "/").choose(threePhotos(), "x", 1); });
        EXPECT_EQ(error.kind(), AIError::Kind::network);
        EXPECT_TRUE(error.description().startsWith("Couldn't reach the AI service: ")) << error.description().toStdString();
        EXPECT_GT(error.payload().size(), 0);
    }
    // A server that never answers, with a short time-out for the test.
    {
        LocalHttpServer server([](const HttpRequest &) { return HttpReply{200, {}, HttpReply::Behaviour::hang}; });
        AIClient client = clientFor(AIProvider::anthropic, server, "/");
        client.timeout = std::chrono::milliseconds(700);
        const AIError error = errorOf([&] { client.choose(threePhotos(), "x", 1); });
        EXPECT_EQ(error.description(), "Couldn't reach the AI service: The request timed out.");
        EXPECT_EQ(server.requests().size(), 1);
    }
    // Nothing listening at all.
    {
        AIClient client(AIProvider::xai, "grok-4", "key");
        client.endpointOverride = QUrl("http://127.0.0.1:9/v1/chat/completions");
        const AIError error = errorOf([&] { client.choose(threePhotos(), "x", 1); });
        EXPECT_EQ(error.kind(), AIError::Kind::network);
    }
}

TEST(AIClient, StopsWhenAskedFromAnotherThread)
{
    LocalHttpServer server([](const HttpRequest &) { return HttpReply{200, {}, HttpReply::Behaviour::hang}; });
    const AIClient client = clientFor(AIProvider::anthropic, server, "/");
    std::stop_source stop;
    std::thread stopper([&] {
        while (server.requests().isEmpty())
            QThread::msleep(10);
        stop.request_stop();
    });
    const AIError error = errorOf([&] { client.choose(threePhotos(), "x", 1, stop.get_token()); });
    stopper.join();
    EXPECT_EQ(error.kind(), AIError::Kind::network);
    EXPECT_NE(error.description(), "Couldn't reach the AI service: The request timed out.");
}

TEST(AIClient, SendsNothingWithoutAKey)
{
    LocalHttpServer server([](const HttpRequest &) { return HttpReply{200, anthropicReply({picksJson({"P1"})})}; });
    AIClient client = clientFor(AIProvider::anthropic, server, "/");
    client.key.clear();
    const AIError error = errorOf([&] { client.choose(threePhotos(), "x", 1); });
    EXPECT_EQ(error.kind(), AIError::Kind::noKey);
    EXPECT_EQ(error.description(), "Add your API key in Settings \u25B8 AI first.");
    EXPECT_TRUE(server.requests().isEmpty());
}

TEST(AIProvider, HasTheClosedListOfServices)
{
    QStringList ids;
    for (const AIProvider provider : AIProvider::allCases())
        ids << provider.id();
    EXPECT_EQ(ids, (QStringList{"anthropic", "openai", "xai"}));
    EXPECT_EQ(AIProvider::fromRawValue("openai"), AIProvider(AIProvider::openai));
    EXPECT_FALSE(AIProvider::fromRawValue("OpenAI"));
    EXPECT_FALSE(AIProvider::fromRawValue("gemini"));
    EXPECT_EQ(AIProvider(AIProvider::xai).name(), "Grok (xAI)");
    EXPECT_EQ(AIProvider(AIProvider::openai).company(), "OpenAI");
    EXPECT_EQ(AIProvider(AIProvider::anthropic).endpoint().path(), "/v1/messages");
    EXPECT_EQ(AIProvider(AIProvider::openai).privacyPage().path(), "/policies/privacy-policy/");
    EXPECT_EQ(AIProvider(AIProvider::anthropic).keyPage().path(), "/settings/keys");
    for (const AIProvider provider : AIProvider::allCases())
        EXPECT_EQ(provider.endpoint().scheme(), "https");
}
