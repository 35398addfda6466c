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

AIClient clientFor(AIProvider provider, const LocalHttpServer &server)
{
    AIClient client(provider, provider.defaultModel(), "sk-test-" + provider.id());
    client.endpointOverride = server.url("/");
    return client;
}

// The AIError that `call` throws; fails the test when it throws none.
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

// The AIError of one choice from a server answering every request with `reply`.
AIError errorFrom(const HttpReply &reply, AIProvider provider = AIProvider::anthropic)
{
    LocalHttpServer server([&](const HttpRequest &) { return reply; });
    return errorOf([&] { clientFor(provider, server).choose(threePhotos(), "x", 1); });
}

} // namespace

TEST(AIClient, SpeaksEachServicesDialect)
{
    const QString picks =
        "{\"picks\":[{\"id\":\"P2\",\"reason\":\"Sharp eyes.\"},{\"id\":\"P1\",\"reason\":\"Good light.\"}]}";
    for (const AIProvider provider : AIProvider::allCases()) {
        SCOPED_TRACE(provider.id().toStdString());
        const bool anthropic = provider == AIProvider::anthropic;
        LocalHttpServer server(
            [&](const HttpRequest &) { return HttpReply{200, anthropic ? anthropicReply({picks}) : chatReply(picks)}; });
        const QList<AIPhoto> photos = threePhotos();
        EXPECT_EQ(clientFor(provider, server).choose(photos, "The best photos.", 2),
                  (QList<AIPick>{{"P2", "Sharp eyes."}, {"P1", "Good light."}}));

        ASSERT_EQ(server.requests().size(), 1);
        const HttpRequest request = server.requests().first();
        EXPECT_EQ(request.method, "POST");
        EXPECT_EQ(request.headers.value("content-type"), "application/json");
        EXPECT_EQ(request.headers.value(anthropic ? "x-api-key" : "authorization"),
                  (anthropic ? "" : "Bearer ") + QByteArray("sk-test-") + provider.id().toUtf8());
        EXPECT_FALSE(request.headers.contains(anthropic ? "authorization" : "x-api-key"));
        EXPECT_EQ(request.headers.value("anthropic-version"), anthropic ? "2023-06-01" : "");

        // No temperature or response format: the model, the messages and for Anthropic its
        // required token limit.
        const QJsonObject body = json(request.body);
        EXPECT_EQ(body.value("model").toString(), provider.defaultModel());
        const QJsonArray messages = body.value("messages").toArray();
        const QJsonArray content = messages.last().toObject().value("content").toArray();
        ASSERT_EQ(content.size(), 7);
        EXPECT_EQ(content[0].toObject(), (QJsonObject{{"type", "text"}, {"text", "P1"}}));
        const QJsonObject image = content[1].toObject();
        if (anthropic) {
            EXPECT_EQ(body.keys(), (QStringList{"max_tokens", "messages", "model", "system"}));
            EXPECT_EQ(body.value("max_tokens").toInt(), 2000);
            EXPECT_EQ(body.value("system").toString(), AIClient::systemPrompt());
            EXPECT_EQ(messages.size(), 1);
            EXPECT_EQ(image.value("type").toString(), "image");
            EXPECT_EQ(image.value("source").toObject().value("type").toString(), "base64");
            EXPECT_EQ(image.value("source").toObject().value("media_type").toString(), "image/jpeg");
            EXPECT_FALSE(image.value("source").toObject().value("data").toString().contains('\n'));
        } else {
            EXPECT_EQ(body.keys(), (QStringList{"messages", "model"}));
            ASSERT_EQ(messages.size(), 2);
            EXPECT_EQ(messages[0].toObject(), (QJsonObject{{"role", "system"}, {"content", AIClient::systemPrompt()}}));
            EXPECT_EQ(image.value("type").toString(), "image_url");
            EXPECT_TRUE(image.value("image_url").toObject().value("url").toString().startsWith("data:image/jpeg;base64,"));
            EXPECT_EQ(image.value("image_url").toObject().value("detail").toString(), "low");
        }
        EXPECT_EQ(messages.last().toObject().value("role").toString(), "user");
        const SentPhotos sent = sentPhotos(request.body);
        EXPECT_EQ(sent.labels, (QStringList{"P1", "P2", "P3"}));
        for (qsizetype i = 0; i < photos.size(); ++i)
            EXPECT_EQ(sent.jpegs.value(i), photos[i].jpeg) << "photo " << i << " arrived changed";
        EXPECT_EQ(sent.requestText, "Request: The best photos.\nChoose up to 2 photos. Use only the ids shown.");
    }
    EXPECT_TRUE(AIClient::systemPrompt().endsWith("\"one short sentence\"}]}"));
    EXPECT_TRUE(AIClient::systemPrompt().contains(QStringLiteral("(P1, P2, \u2026)")));
}

TEST(AIClient, ReadsPicksOutOfProseFencesAndSplitBlocks)
{
    const QSet<QString> sent{"P1", "P2", "P3"};
    // Prose and a code fence around the JSON; a reason padded with blanks and line breaks.
    const QString fenced =
        "Here are my picks:\n```json\n{\"picks\":[{\"id\":\"P2\",\"reason\":\"  Lovely light. \\n\"}]}\n```";
    EXPECT_EQ(AIClient::picks(fenced, sent), (QList<AIPick>{{"P2", "Lovely light."}}));
    EXPECT_THROW(AIClient::picks(fenced + "\nHope that helps {smile}.", sent), AIError)
        << "the last brace belongs to the prose";

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
    EXPECT_EQ(AIClient::picks(AIClient::replyText(split, AIProvider::anthropic), sent),
              (QList<AIPick>{{"P1", "Both halves."}}));
    EXPECT_EQ(AIClient::replyText("{\"content\":\"text\"}", AIProvider::anthropic), "");
}

TEST(AIClient, ReportsUnreadableRepliesWithTheRawBody)
{
    const std::pair<AIProvider, QByteArray> cases[] = {
        {AIProvider::openai, "{\"choices\":[]}"},
        {AIProvider::openai, "{\"choices\":[{\"message\":{\"content\":null}}]}"},
        {AIProvider::xai, "{\"choices\":[{\"message\":\"P1\"}]}"},
        {AIProvider::anthropic, "{\"content\":[{\"type\":\"text\",\"text\":\"I can't choose.\"}]}"},
        {AIProvider::anthropic, "<html>Bad gateway</html>"},
        {AIProvider::openai, "[1,2,3]"},
    };
    for (const auto &[provider, body] : cases) {
        const AIError error = errorFrom({200, body}, provider);
        EXPECT_EQ(error.kind(), AIError::Kind::unreadableReply) << body.constData();
        const bool anthropicText = provider == AIProvider::anthropic && body.startsWith("{");
        const QString shown = anthropicText ? QString("I can't choose.") : QString(body);
        EXPECT_EQ(error.description(), "The AI's reply couldn't be read as a list of picks: " + shown);
    }
}

// 401 is pinned by `sorvi key test`.
TEST(AIClient, TurnsEveryStatusButTwoHundredIntoItsMessageCutByCharacters)
{
    const QByteArray longBody = QByteArray("{\"error\":\"model not found\"}").leftJustified(500, 'x');
    const QByteArray created = anthropicReply({picksJson({"P1"})});
    const QString noKey = "The AI service didn't accept the API key. Check it in Settings \u25B8 AI.";
    const QString noModel = "The AI service doesn't know that model. Check the model name in Settings \u25B8 AI. (";
    const std::tuple<int, QByteArray, QString> cases[] = {
        {201, created, "The AI service returned an error (201): " + QString(created).left(200)},
        {403, "{\"error\":\"forbidden\"}", noKey},
        {404, longBody, noModel + longBody.left(160) + ")"},
        {429, "{\"error\":\"rate_limit\"}",
         "The AI service says you've hit a rate or spending limit. Try again in a minute, or check your account."},
        {500, longBody, "The AI service returned an error (500): " + longBody.left(200)},
        {503, "overloaded", "The AI service returned an error (503): overloaded"},
    };
    for (const auto &[status, body, description] : cases) {
        const AIError error = errorFrom({status, body});
        EXPECT_EQ(error.kind(), AIError::Kind::http) << status;
        EXPECT_EQ(error.status(), status);
        EXPECT_EQ(error.description(), description);
    }
    // "e" + combining acute accent is one character in two code units; a flag is one
    // character in four.
    const QString accented = QString("e\u0301").repeated(300), flags = QString("\U0001F1EB\U0001F1EE").repeated(250);
    EXPECT_EQ(AIError::http(404, accented).description(), noModel + accented.left(320) + ")");
    EXPECT_EQ(AIError::http(500, flags).description(), "The AI service returned an error (500): " + flags.left(800));
}

// Nothing is sent without a key: `sorvi key test` pins that sentence.
TEST(AIClient, ReportsTransportFailuresAsNetworkErrors)
{
    const AIError dropped = errorFrom({200, {}, HttpReply::Behaviour::drop}, AIProvider::openai);
    EXPECT_EQ(dropped.kind(), AIError::Kind::network);
    EXPECT_TRUE(dropped.description().startsWith("Couldn't reach the AI service: ")) << dropped.description().toStdString();
    EXPECT_GT(dropped.payload().size(), 0);

    // A server that never answers, with a short time-out for the test.
    LocalHttpServer hanging([](const HttpRequest &) { return HttpReply{200, {}, HttpReply::Behaviour::hang}; });
    AIClient client = clientFor(AIProvider::anthropic, hanging);
    client.timeout = std::chrono::milliseconds(700);
    EXPECT_EQ(errorOf([&] { client.choose(threePhotos(), "x", 1); }).description(),
              "Couldn't reach the AI service: The request timed out.");
    EXPECT_EQ(hanging.requests().size(), 1);

    // Nothing listening at all.
    client.endpointOverride = QUrl("http://127.0.0.1:9/v1/chat/completions");
    EXPECT_EQ(errorOf([&] { client.choose(threePhotos(), "x", 1); }).kind(), AIError::Kind::network);
}

TEST(AIClient, StopsWhenAskedFromAnotherThread)
{
    LocalHttpServer server([](const HttpRequest &) { return HttpReply{200, {}, HttpReply::Behaviour::hang}; });
    const AIClient client = clientFor(AIProvider::anthropic, server);
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

TEST(AIProvider, HasTheClosedListOfServicesEachOverHttps)
{
    QStringList ids;
    for (const AIProvider provider : AIProvider::allCases()) {
        ids << provider.id();
        EXPECT_EQ(AIProvider::fromRawValue(provider.id()), provider);
        EXPECT_EQ(provider.endpoint().scheme(), "https");
    }
    EXPECT_EQ(ids, (QStringList{"anthropic", "openai", "xai"}));
    EXPECT_FALSE(AIProvider::fromRawValue("OpenAI"));
}
