#include "AITestSupport.h"

#include <QThread>

#include <gtest/gtest.h>

#include <thread>

using namespace AITest;

namespace {

const QString cannotRead = QStringLiteral("The AI's reply couldn't be read as a list of picks: ");

QList<AIPhoto> aPhoto()
{
    return {{"P1", jpeg(768, 512, 1)}};
}

AIClient clientFor(AIProvider provider, const LocalHttpServer &server)
{
    AIClient client(provider, provider.defaultModel(), "sk-test-" + provider.id());
    client.endpointOverride = server.url();
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
    return errorOf([&] { clientFor(provider, server).choose(aPhoto(), "x", 1); });
}

} // namespace

// Each service's whole request, the photo byte for byte, and its reply read back.
TEST(AIClient, SpeaksEachServicesDialect)
{
    const QList<AIPhoto> photos = aPhoto();
    const QString data = QString::fromLatin1(photos[0].jpeg.toBase64());
    const QJsonObject label{{"type", "text"}, {"text", "P1"}};
    const QJsonObject anthropicImage{
        {"type", "image"}, {"source", QJsonObject{{"type", "base64"}, {"media_type", "image/jpeg"}, {"data", data}}}};
    const QJsonObject chatImage{
        {"type", "image_url"}, {"image_url", QJsonObject{{"url", "data:image/jpeg;base64," + data}, {"detail", "low"}}}};
    const QJsonObject request{{"type", "text"},
                              {"text", "Request: The best photos.\nChoose up to 2 photos. Use only the ids shown."}};
    const QJsonObject system{{"role", "system"}, {"content", AIClient::systemPrompt()}};
    for (const AIProvider provider : AIProvider::allCases()) {
        SCOPED_TRACE(provider.id().toStdString());
        EXPECT_EQ(provider.endpoint().scheme(), provider.hosted() ? "https" : "");
        const bool anthropic = provider == AIProvider::anthropic;
        const QString picks = picksJson({"P1"});
        LocalHttpServer server(
            [&](const HttpRequest &) { return HttpReply{200, anthropic ? anthropicReply(picks) : chatReply(picks)}; });
        EXPECT_EQ(clientFor(provider, server).choose(photos, "The best photos.", 2),
                  (QList<AIPick>{{"P1", "Chosen: P1"}}));

        ASSERT_EQ(server.requests().size(), 1);
        const HttpRequest sent = server.requests().first();
        EXPECT_EQ(sent.method, "POST");
        EXPECT_EQ(sent.headers.value("content-type"), "application/json");
        EXPECT_EQ(sent.headers.value(anthropic ? "x-api-key" : "authorization"),
                  (anthropic ? "" : "Bearer ") + QByteArray("sk-test-") + provider.id().toUtf8());
        EXPECT_FALSE(sent.headers.contains(anthropic ? "authorization" : "x-api-key"));
        EXPECT_EQ(sent.headers.value("anthropic-version"), anthropic ? "2023-06-01" : "");
        // Nothing more than these fields: no temperature or response format.
        const QJsonObject user{{"role", "user"}, {"content", QJsonArray{label, anthropic ? anthropicImage : chatImage, request}}};
        const QJsonObject expected =
            anthropic ? QJsonObject{{"model", provider.defaultModel()}, {"max_tokens", 2000},
                                    {"system", AIClient::systemPrompt()}, {"messages", QJsonArray{user}}}
                      : QJsonObject{{"model", provider.defaultModel()}, {"messages", QJsonArray{system, user}}};
        EXPECT_EQ(QJsonDocument::fromJson(sent.body).object(), expected);
    }

    // A server of one's own: its address as typed, and no key sent when it has none.
    EXPECT_EQ(AIProvider::completionsEndpoint(" http://box:8080/v1/ "), QUrl("http://box:8080/v1/chat/completions"));
    EXPECT_EQ(AIProvider::completionsEndpoint("https://box/v1/chat/completions"),
              QUrl("https://box/v1/chat/completions"));
    EXPECT_TRUE(AIProvider::completionsEndpoint("box:8080").isEmpty());
    LocalHttpServer server([](const HttpRequest &) { return HttpReply{200, chatReply(picksJson({"P1"}))}; });
    AIClient own(AIProvider::compatible, "llava", {});
    own.endpointOverride = server.url();
    EXPECT_EQ(own.choose(photos, "x", 1).size(), 1);
    EXPECT_FALSE(server.requests().first().headers.contains("authorization"));
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

    // Anthropic's text may be spread over several blocks; non-text blocks are ignored.
    const QByteArray split = QJsonDocument(QJsonObject{
        {"content", QJsonArray{QJsonObject{{"type", "text"}, {"text", "{\"picks\":[{\"id\":\"P1\","}},
                               QJsonObject{{"type", "tool_use"}, {"text", "ignored"}},
                               QJsonObject{{"type", "text"}, {"text", "\"reason\":\"Both halves.\"}]}"}}}}}).toJson();
    EXPECT_EQ(AIClient::picks(AIClient::replyText(split, AIProvider::anthropic), sent),
              (QList<AIPick>{{"P1", "Both halves."}}));
    EXPECT_EQ(AIClient::replyText("{\"content\":\"text\"}", AIProvider::anthropic), "");
}

// A reply without a list of picks shows the model's text, or the raw body when it has none.
TEST(AIClient, ReportsUnreadableRepliesWithWhatCameBack)
{
    for (const QString text : {"no json here", "} backwards {", "{\"picks\":\"P1\"}", "{\"picks\":[\"P1\"]}", "{oops}"})
        EXPECT_EQ(errorFrom({200, anthropicReply(text)}).description(), cannotRead + text);
    const std::pair<AIProvider, QByteArray> bodies[] = {
        {AIProvider::openai, "{\"choices\":[]}"},
        {AIProvider::openai, "{\"choices\":[{\"message\":{\"content\":null}}]}"},
        {AIProvider::xai, "{\"choices\":[{\"message\":\"P1\"}]}"},
        {AIProvider::anthropic, "<html>Bad gateway</html>"},
        {AIProvider::openai, "[1,2,3]"},
    };
    for (const auto &[provider, body] : bodies)
        EXPECT_EQ(errorFrom({200, body}, provider).description(), cannotRead + body);
}

// 401 is pinned by `sorvi key test`.
TEST(AIClient, TurnsEveryStatusButTwoHundredIntoItsMessageCutByCharacters)
{
    const QByteArray longBody = QByteArray("{\"error\":\"model not found\"}").leftJustified(500, 'x');
    const QByteArray created = anthropicReply(picksJson({"P1"}));
    const QString noModel = "The AI service doesn't know that model. Check the model name in Settings \u25B8 AI. (";
    const std::tuple<int, QByteArray, QString> cases[] = {
        {201, created, "The AI service returned an error (201): " + QString(created).left(200)},
        {403, "{\"error\":\"forbidden\"}", "The AI service didn't accept the API key. Check it in Settings \u25B8 AI."},
        {404, longBody, noModel + longBody.left(160) + ")"},
        {429, "{\"error\":\"rate_limit\"}",
         "The AI service says you've hit a rate or spending limit. Try again in a minute, or check your account."},
        {500, longBody, "The AI service returned an error (500): " + longBody.left(200)},
    };
    for (const auto &[status, body, description] : cases) {
        const AIError error = errorFrom({status, body});
        EXPECT_EQ(error.status(), status);
        EXPECT_EQ(error.description(), description);
    }
    // "e" + combining acute accent is one character in two code units; a flag is one
    // character in four.
    const QString accented = QString("e\u0301").repeated(300), flags = QString("\U0001F1EB\U0001F1EE").repeated(250);
    EXPECT_EQ(AIError::http(404, accented).description(), noModel + accented.left(320) + ")");
    EXPECT_EQ(AIError::http(500, flags).description(), "The AI service returned an error (500): " + flags.left(800));
}

TEST(AIClient, ReportsTransportFailuresAsNetworkErrorsAndStopsWhenAsked)
{
    const AIError dropped = errorFrom({200, {}, HttpReply::Behaviour::drop}, AIProvider::openai);
    EXPECT_TRUE(dropped.description().startsWith("Couldn't reach the AI service: ")) << dropped.description().toStdString();

    // A server that never answers, with a short time-out for the test.
    LocalHttpServer hanging([](const HttpRequest &) { return HttpReply{200, {}, HttpReply::Behaviour::hang}; });
    AIClient client = clientFor(AIProvider::anthropic, hanging);
    client.timeout = std::chrono::milliseconds(700);
    const QString timedOut = QStringLiteral("Couldn't reach the AI service: The request timed out.");
    EXPECT_EQ(errorOf([&] { client.choose(aPhoto(), "x", 1); }).description(), timedOut);
    EXPECT_EQ(hanging.requests().size(), 1);

    // Asked from another thread to stop, it gives up before the time-out.
    std::stop_source stop;
    std::thread stopper([&] {
        while (hanging.requests().size() < 2)
            QThread::msleep(10);
        stop.request_stop();
    });
    const AIError stopped = errorOf([&] { client.choose(aPhoto(), "x", 1, stop.get_token()); });
    stopper.join();
    EXPECT_EQ(stopped.kind(), AIError::Kind::network);
    EXPECT_NE(stopped.description(), timedOut);

    // Nothing listening at all.
    client.endpointOverride = QUrl("http://127.0.0.1:9/v1/chat/completions");
    EXPECT_EQ(errorOf([&] { client.choose(aPhoto(), "x", 1); }).kind(), AIError::Kind::network);
}
