#include "SorviKit/ai/AICuller.h"
#include "AITestSupport.h"
#include "SorviKit/previews/PreviewLoader.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace AITest;

namespace {

// A folder of `count` real JPEG files, 1200 × 800, as shots "photo_001" …; the shots whose
// 1-based positions are in `broken` hold bytes no decoder accepts.
struct Shoot {
    explicit Shoot(int count, const QSet<int> &broken = {})
    {
        for (int i = 1; i <= count; ++i) {
            const QString id = QStringLiteral("photo_%1").arg(i, 3, 10, QLatin1Char('0'));
            TestFiles::write(folder.filePath(id + ".jpg"),
                             broken.contains(i) ? QByteArray("\xFF\xD8\xFF not a picture") : jpeg(1200, 800, i));
            shots.append(Shot(id, {folder.filePath(id + ".jpg")}));
        }
    }
    QTemporaryDir folder;
    QList<Shot> shots;
};

// Answers every request by picking the first N of the photos it was sent, where N is what
// the request asked for (or all of them when `overAnswer` is set).
LocalHttpServer::Handler picksTheFirst(bool overAnswer = false)
{
    return [overAnswer](const HttpRequest &request) {
        const SentPhotos sent = sentPhotos(request.body);
        const qsizetype n = overAnswer ? sent.labels.size() : std::min<qsizetype>(sent.askedFor, sent.labels.size());
        return HttpReply{200, anthropicReply(picksJson(sent.labels.mid(0, n)))};
    };
}

struct CullRun {
    QList<AIResult> results;
    QStringList progress;
    QList<SentPhotos> requests;
    std::optional<AIError> error;
};

CullRun cull(const QList<Shot> &shots, int count, const LocalHttpServer::Handler &handler, PreviewLoader *loader = nullptr)
{
    LocalHttpServer server(handler);
    AIClient client(AIProvider::anthropic, "claude-sonnet-5-5", "sk-test");
    client.endpointOverride = server.url();
    PreviewLoader ownLoader(200'000'000);
    CullRun run;
    try {
        run.results = AICuller(client).run(shots, "Best ones.", count, loader ? *loader : ownLoader,
                                           [&run](const QString &status) { run.progress << status; });
    } catch (const AIError &error) {
        run.error = error;
    }
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
    for (const SentPhotos &sent : run.requests)
        EXPECT_EQ(sent.askedFor, 20);
    // The shortlist (20 + 20 + 15 picks) goes back in the order the photos were first sent.
    EXPECT_EQ(run.requests[3].labels, labels(1, 20) + labels(41, 60) + labels(81, 95));
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

// Split into batches, each is asked for the count, or for three more than its share of
// twice the count when that is more, but never for more photos than it holds.
TEST(AICuller, AsksEachBatchForItsShareWithRoomToSpare)
{
    const std::tuple<int, int, int, int> cases[] = {
        {20, 3, 40, 20}, {10, 2, 40, 13}, {10, 2, 11, 11}, {0, 2, 40, 3}, {0, 2, 2, 2}, {5, 1, 12, 5}, {0, 1, 12, 0},
    };
    for (const auto &[count, batches, photos, asked] : cases)
        EXPECT_EQ(AICuller::askedPerBatch(count, batches, photos), asked) << count << " in " << batches << " batches";
}

// One batch; a shot without a preview is left out but keeps its number, and an answer
// longer than the count is cut.
TEST(AICuller, SendsASmallShootOnceLeavingOutShotsWithoutAPreview)
{
    const Shoot shoot(8, {2});
    const CullRun run = cull(shoot.shots, 3, picksTheFirst(true));
    ASSERT_EQ(run.requests.size(), 1);
    EXPECT_EQ(run.requests[0].labels, (QStringList{"P1", "P3", "P4", "P5", "P6", "P7", "P8"}));
    EXPECT_EQ(run.requests[0].askedFor, 3);
    EXPECT_EQ(run.progress, (QStringList{QStringLiteral("Looking at 7 photos\u2026")}));
    EXPECT_EQ(run.results, (QList<AIResult>{{"photo_001", "Chosen: P1"}, {"photo_003", "Chosen: P3"},
                                            {"photo_004", "Chosen: P4"}}));

    // Nothing decodes: no request at all, no progress, an empty result.
    const Shoot hopeless(2, {1, 2});
    const CullRun none = cull(hopeless.shots, 3, picksTheFirst());
    EXPECT_TRUE(none.requests.isEmpty());
    EXPECT_TRUE(none.progress.isEmpty());
    EXPECT_TRUE(none.results.isEmpty());
}

TEST(AICuller, EndsAtTheFirstError)
{
    const Shoot shoot(50);
    int calls = 0;
    const CullRun run = cull(shoot.shots, 5, [&calls](const HttpRequest &request) {
        return ++calls == 2 ? HttpReply{429, "{\"error\":\"rate_limit_error\"}"} : picksTheFirst()(request);
    });
    ASSERT_TRUE(run.error);
    EXPECT_EQ(run.error->status(), 429);
    EXPECT_EQ(run.requests.size(), 2) << "no final pass after a failure";
    EXPECT_TRUE(run.results.isEmpty());
}
