#include "SorviKit/ai/AICuller.h"
#include "AITestSupport.h"
#include "SorviKit/previews/PreviewLoader.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace AITest;

namespace {

// A folder of `count` real JPEG files, 1200 × 800, as shots "photo_001" …; the shots whose
// 1-based positions are in `broken` hold bytes no decoder accepts.
class Shoot {
public:
    explicit Shoot(int count, const QSet<int> &broken = {})
    {
        for (int i = 1; i <= count; ++i) {
            const QString id = QStringLiteral("photo_%1").arg(i, 3, 10, QLatin1Char('0'));
            const QString path = m_folder.filePath(id + ".jpg");
            QFile file(path);
            if (file.open(QIODevice::WriteOnly))
                file.write(broken.contains(i) ? QByteArray("\xFF\xD8\xFF not a picture") : jpeg(1200, 800, i));
            shots.append(Shot(id, {path}));
        }
    }
    QList<Shot> shots;

private:
    QTemporaryDir m_folder;
};

// Answers every request by picking the first N of the photos it was sent, where N is what
// the request asked for (or all of them when `overAnswer` is set).
LocalHttpServer::Handler picksTheFirst(bool overAnswer = false)
{
    return [overAnswer](const HttpRequest &request) {
        const SentPhotos sent = sentPhotos(request.body);
        const qsizetype n = overAnswer ? sent.labels.size() : std::min<qsizetype>(sent.askedFor, sent.labels.size());
        return HttpReply{200, anthropicReply({picksJson(sent.labels.mid(0, n))})};
    };
}

struct CullRun {
    QList<AIResult> results;
    QStringList progress;
    QList<SentPhotos> requests;
};

CullRun cull(const QList<Shot> &shots, int count, const LocalHttpServer::Handler &handler, PreviewLoader *loader = nullptr)
{
    LocalHttpServer server(handler);
    AIClient client(AIProvider::anthropic, "claude-sonnet-5-5", "sk-test");
    client.endpointOverride = server.url();
    PreviewLoader ownLoader(200'000'000);
    CullRun run;
    run.results = AICuller(client).run(shots, "Best ones.", count, loader ? *loader : ownLoader,
                                       [&run](const QString &status) { run.progress << status; });
    for (const HttpRequest &request : server.requests())
        run.requests << sentPhotos(request.body);
    return run;
}

QStringList labels(int first, int last)
{
    QStringList list;
    for (int i = first; i <= last; ++i)
        list << QStringLiteral("P%1").arg(i);
    return list;
}

} // namespace

TEST(AICuller, SendsNinetyFiveInThreeBatchesThenAFinalPass)
{
    const Shoot shoot(95);
    PreviewLoader loader(200'000'000);
    const CullRun run = cull(shoot.shots, 20, picksTheFirst(), &loader);

    ASSERT_EQ(run.requests.size(), 4);
    EXPECT_EQ(run.requests[0].labels, labels(1, 40));
    EXPECT_EQ(run.requests[1].labels, labels(41, 80));
    EXPECT_EQ(run.requests[2].labels, labels(81, 95));
    for (int b = 0; b < 3; ++b)
        EXPECT_EQ(run.requests[b].askedFor, 20) << "batch " << b;
    // The shortlist (20 + 20 + 15 picks) goes back in the order the photos were first sent.
    const QStringList shortlist = labels(1, 20) + labels(41, 60) + labels(81, 95);
    EXPECT_EQ(run.requests[3].labels, shortlist);
    EXPECT_EQ(run.requests[3].askedFor, 20);
    EXPECT_EQ(run.requests[3].requestText, "Request: Best ones.\nChoose up to 20 photos. Use only the ids shown.");
    EXPECT_EQ(run.progress, (QStringList{QStringLiteral("Looking at photos 1\u201340 of 95\u2026"),
                                         QStringLiteral("Looking at photos 41\u201380 of 95\u2026"),
                                         QStringLiteral("Looking at photos 81\u201395 of 95\u2026"),
                                         QStringLiteral("Choosing the final 20 from 55\u2026")}));

    ASSERT_EQ(run.results.size(), 20);
    EXPECT_EQ(run.results.first(), (AIResult{"photo_001", "Chosen: P1"}));
    EXPECT_EQ(run.results.last(), (AIResult{"photo_020", "Chosen: P20"}));

    // Every preview sent is a real JPEG of 768 pixels, and stays cached for the next ask.
    for (const QByteArray &sent : run.requests[0].jpegs)
        EXPECT_EQ(QImage::fromData(sent, "JPEG").size(), QSize(768, 512));
    for (const Shot &shot : shoot.shots)
        EXPECT_TRUE(loader.cached(shot, 768)) << shot.id.toStdString();
}

TEST(AICuller, AsksEachOfTwoBatchesForThreeMoreThanTheCountEvenZero)
{
    const Shoot shoot(60);
    const CullRun run = cull(shoot.shots, 10, picksTheFirst());
    ASSERT_EQ(run.requests.size(), 3);
    EXPECT_EQ(run.requests[0].labels.size(), 40);
    EXPECT_EQ(run.requests[1].labels.size(), 20);
    EXPECT_EQ(run.requests[0].askedFor, 13);
    EXPECT_EQ(run.requests[1].askedFor, 13);
    EXPECT_EQ(run.requests[2].labels, labels(1, 13) + labels(41, 53));
    EXPECT_EQ(run.progress.last(), QStringLiteral("Choosing the final 10 from 26\u2026"));
    EXPECT_EQ(run.results.size(), 10);

    // Three picks per batch make a shortlist longer than a count of 0.
    const CullRun zero = cull(shoot.shots.mid(0, 45), 0, picksTheFirst());
    ASSERT_EQ(zero.requests.size(), 3);
    EXPECT_EQ(zero.requests[1].askedFor, 3);
    EXPECT_EQ(zero.requests[2].labels, (QStringList{"P1", "P2", "P3", "P41", "P42", "P43"}));
    EXPECT_TRUE(zero.results.isEmpty());
}

TEST(AICuller, SendsASmallShootOnceAndCutsAnOverlongAnswer)
{
    const Shoot shoot(12);
    const CullRun run = cull(shoot.shots, 5, picksTheFirst(true));
    ASSERT_EQ(run.requests.size(), 1);
    EXPECT_EQ(run.requests[0].askedFor, 5);
    EXPECT_EQ(run.progress, (QStringList{QStringLiteral("Looking at 12 photos\u2026")}));
    ASSERT_EQ(run.results.size(), 5) << "the AI answered with all 12";
    EXPECT_EQ(run.results[4].shotID, "photo_005");

    // A count of zero is still asked for, and answers nothing.
    const CullRun zero = cull(shoot.shots, 0, picksTheFirst(true));
    ASSERT_EQ(zero.requests.size(), 1);
    EXPECT_EQ(zero.requests[0].askedFor, 0);
    EXPECT_TRUE(zero.results.isEmpty());
}

TEST(AICuller, LeavesOutShotsWithoutAPreviewButKeepsTheirNumbers)
{
    const Shoot shoot(3, {2});
    const CullRun run = cull(shoot.shots, 3, picksTheFirst());
    ASSERT_EQ(run.requests.size(), 1);
    EXPECT_EQ(run.requests[0].labels, (QStringList{"P1", "P3"}));
    EXPECT_EQ(run.results, (QList<AIResult>{{"photo_001", "Chosen: P1"}, {"photo_003", "Chosen: P3"}}));

    // Nothing decodes: no request at all, no progress, an empty result.
    const Shoot hopeless(2, {1, 2});
    const CullRun none = cull(hopeless.shots, 3, picksTheFirst());
    EXPECT_TRUE(none.requests.isEmpty());
    EXPECT_TRUE(none.progress.isEmpty());
    EXPECT_TRUE(none.results.isEmpty());
}

TEST(AICuller, EndsAtTheFirstErrorAndDropsUnknownIds)
{
    const Shoot shoot(50);
    int answered = 0;
    const LocalHttpServer::Handler failsSecond = [&answered](const HttpRequest &request) {
        if (answered++ == 1)
            return HttpReply{429, "{\"error\":\"rate_limit_error\"}"};
        return picksTheFirst()(request);
    };
    LocalHttpServer server(failsSecond);
    AIClient client(AIProvider::anthropic, "claude-sonnet-5-5", "sk-test");
    client.endpointOverride = server.url();
    PreviewLoader loader(200'000'000);
    try {
        AICuller(client).run(shoot.shots, "x", 5, loader, {});
        ADD_FAILURE() << "the 429 was not passed on";
    } catch (const AIError &error) {
        EXPECT_EQ(error.status(), 429);
    }
    EXPECT_EQ(server.requests().size(), 2) << "no batch is sent after a failure";

    // The final pass answers with an id it was not sent: it survives the cut but has no
    // shot, so the result is shorter than the count.
    int calls = 0;
    const CullRun run = cull(shoot.shots, 2, [&calls](const HttpRequest &request) {
        if (++calls < 3)
            return picksTheFirst()(request);
        return HttpReply{200, anthropicReply({picksJson({"P2"})})};
    });
    EXPECT_EQ(run.results, (QList<AIResult>{{"photo_002", "Chosen: P2"}}));
}
