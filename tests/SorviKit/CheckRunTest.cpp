// The checks over the corpus shoot: soft frames, bursts and their best frames, and
// results that survive a restart.
#include "SorviKit/checks/AssessmentStore.h"
#include "SorviKit/checks/Assessor.h"
#include "SorviKit/checks/Bursts.h"
#include "SorviKit/checks/CheckRun.h"
#include "SorviKit/library/DetailReader.h"
#include "SorviKit/previews/PreviewLoader.h"
#include "SorviKit/library/ShotScanner.h"
#include "TestFiles.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

QString withoutExtension(const QString &path)
{
    return path.left(path.lastIndexOf('.'));
}

} // namespace

TEST(CheckRunCorpus, BlurredFramesAreSoftAndEachBurstsBestIsSharpWithOpenEyes)
{
    SKIP_WITHOUT_CORPUS();
    const QString folder = TestFiles::corpus() + "/shoot";
    const QJsonObject truth = QJsonDocument::fromJson(TestFiles::read(folder + "/truth.json")).object();
    QSet<QString> blurred;
    for (const QJsonValue &file : truth["files"].toArray())
        if (file.toObject()["blurred"].toBool())
            blurred.insert(withoutExtension(file.toObject()["file"].toString()));
    QList<QStringList> truthBursts = TestFiles::truthBursts(truth);
    ASSERT_EQ(blurred.size(), 6);

    const QList<Shot> shots = DetailReader::readAll(ShotScanner::list(folder));
    QTemporaryDir catalogs;
    PreviewLoader loader;
    CheckRun::Outcome outcome;
    {
        AssessmentStore store(folder, catalogs.path());
        outcome = CheckRun::checkPending(shots, store, loader);
    }
    EXPECT_EQ(outcome.checked, shots.size());
    EXPECT_TRUE(outcome.unreadable.isEmpty()) << outcome.unreadable.join(", ").toStdString();

    // A restart finds every result stored and computes nothing.
    AssessmentStore reopened(folder, catalogs.path());
    const QHash<QString, Assessment> results = reopened.results();
    EXPECT_EQ(results.size(), shots.size());
    EXPECT_EQ(CheckRun::checkPending(shots, reopened, loader).checked, 0);

    EXPECT_EQ(Assessor::soft(results, 0.1), blurred);
    const QList<QStringList> bursts = Bursts::group(shots, 1.0);
    EXPECT_EQ(bursts, truthBursts);
    const QSet<QString> best = Assessor::bestOfBursts(bursts, results);
    EXPECT_EQ(best.size(), bursts.size());
    for (const QString &id : best) {
        EXPECT_FALSE(blurred.contains(id)) << id.toStdString();
        EXPECT_EQ(results[id].eyesClosed, 0) << id.toStdString();
    }
}
