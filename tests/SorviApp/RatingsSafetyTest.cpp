// A photographer's ratings are never lost to us: a catalog we could not read survives,
// a write that fails reaches the window, and no key press waits for the disk.
#include "ModelTestFiles.h"
#include "SorviKit/checks/AssessmentStore.h"
#include "SorviKit/core/OwnFile.h"

#include <QSettings>

using namespace ModelTest;

namespace {

// The files in `directory` whose names say they were kept aside.
QStringList keptAside(const QString &directory)
{
    return QDir(directory).entryList({QStringLiteral("*.unreadable-*")}, QDir::Files, QDir::Name);
}

} // namespace

TEST(RatingsSafety, AnUnreadableCatalogOrChecksFileSurvivesByteForByte)
{
    QTemporaryDir dir;
    const QString folder = demoShoot(dir.filePath("card"), DemoShoot::minimumCount);
    const QString catalogs = dir.filePath("catalogs");
    const QString file = Catalog(folder, catalogs).file();
    // What another tool half wrote: ratings in it that we cannot read, but someone might.
    const QByteArray damaged = R"({"version":1,"folder":"/card","ratings":{"IMG_0001":{"stars":4,"flag":"pick")";
    TestFiles::write(file, damaged);

    SorviModel::Options options = withoutChecks();
    options.storeDirectory = catalogs;
    SorviModel model(options);
    ASSERT_TRUE(openAndWait(model, folder));
    EXPECT_TRUE(model.ratings().isEmpty()) << "an unreadable catalog starts empty";
    EXPECT_TRUE(model.warning().isEmpty()) << "nothing has been written over it yet";
    model.setAutoAdvance(false);
    model.pick();
    model.setStars(2);
    model.waitForWrites();
    const QStringList aside = keptAside(catalogs);
    ASSERT_EQ(aside.size(), 1) << "kept once, however many writes follow";
    EXPECT_TRUE(aside.first().startsWith(QFileInfo(file).completeBaseName() + ".unreadable-"));
    EXPECT_EQ(TestFiles::read(catalogs + "/" + aside.first()), damaged);
    EXPECT_EQ(Catalog(folder, catalogs).ratings(), model.ratings());
    EXPECT_TRUE(waitFor([&] { return model.warning().contains(aside.first()); }, 10'000)) << model.warning().toStdString();
    model.close();
    EXPECT_TRUE(model.warning().isEmpty()) << "the next folder starts without the notice";

    // Check results follow the same rule.
    const QString checks = dir.filePath("checks");
    const QByteArray newer = R"({"version":3,"results":{"IMG_0001":{"sharpness":1.5}}})";
    TestFiles::write(AssessmentStore(folder, checks).file(), newer);
    AssessmentStore store(folder, checks);
    store.set(Assessment{2.0, 0, 0, std::nullopt, {}}, "IMG_0001");
    store.save();
    ASSERT_EQ(keptAside(checks).size(), 1);
    EXPECT_EQ(TestFiles::read(checks + "/" + keptAside(checks).first()), newer);
    EXPECT_FALSE(store.storeFile().keptAsideNotice().isEmpty());
    EXPECT_TRUE(AssessmentStore(folder, checks).result("IMG_0001"));
}

TEST(RatingsSafety, AFailedWriteIsShownUntilTheNextGoodOne)
{
    QTemporaryDir dir;
    const QString folder = demoShoot(dir.filePath("card"), DemoShoot::minimumCount);
    const QString store = dir.filePath("catalogs");
    const QString file = Catalog(folder, store).file();
    // A folder where the catalog file must go refuses the write even to root.
    ASSERT_TRUE(QDir().mkpath(file));

    SorviModel::Options options = withoutChecks();
    options.storeDirectory = store;
    SorviModel model(options);
    ASSERT_TRUE(openAndWait(model, folder));
    model.setAutoAdvance(false);
    model.pick();
    EXPECT_EQ(model.rating(model.selection()).flag, Rating::Flag::pick) << "the rating stands in memory";
    EXPECT_TRUE(waitFor([&] { return model.warning().startsWith("Couldn't save the ratings to " + file); }, 10'000))
        << model.warning().toStdString();

    ASSERT_TRUE(QDir(file).removeRecursively());
    model.setStars(3);
    EXPECT_TRUE(waitFor([&] { return model.warning().isEmpty(); }, 10'000)) << model.warning().toStdString();
    model.waitForWrites();
    EXPECT_EQ(Catalog(folder, store).ratings(), model.ratings()) << "the good write carries every earlier change";

    // The settings file too: a switch that could not be remembered is said, then cleared.
    const QString settingsFile = QSettings().fileName();
    const QString saved = settingsFile + ".saved";
    QFile::rename(settingsFile, saved);
    ASSERT_TRUE(QDir().mkpath(settingsFile));
    model.setShowChecks(!model.showChecks());
    EXPECT_TRUE(waitFor([&] { return model.warning().contains(settingsFile); }, 10'000)) << model.warning().toStdString();
    ASSERT_TRUE(QDir(settingsFile).removeRecursively());
    QFile::rename(saved, settingsFile);
    model.setShowChecks(!model.showChecks());
    EXPECT_TRUE(waitFor([&] { return model.warning().isEmpty(); }, 10'000)) << model.warning().toStdString();
}

TEST(RatingsSafety, KeyPressesNeverWaitForTheDiskAndQuittingWaitsForTheLastWrite)
{
    QTemporaryDir dir;
    const QString folder = demoShoot(dir.filePath("card"), DemoShoot::minimumCount);
    const QString store = dir.filePath("catalogs");
    QSemaphore disk;             // a disk that takes as long as the test wants
    std::atomic<int> writes = 0; // writes that reached the disk
    SorviModel::Options options = withoutChecks();
    options.storeDirectory = store;
    options.writeFile = [&](const QString &path, const QByteArray &bytes) {
        disk.acquire();
        ++writes;
        return OwnFile::write(path, bytes);
    };
    auto model = std::make_unique<SorviModel>(options);
    ASSERT_TRUE(openAndWait(*model, folder));
    const QStringList ids = idsOf(model->shots());

    // Every press is answered at once although no write can finish: a waiting press
    // would hang here for good.
    model->setAutoAdvance(true);
    for (int i = 0; i < 6; ++i)
        model->pick();
    EXPECT_EQ(model->selection(), ids[6]);
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(model->rating(ids[i]).flag, Rating::Flag::pick) << i;
    EXPECT_EQ(writes, 0);

    const RatingMap last = model->ratings();
    disk.release(100);
    model.reset();
    EXPECT_GE(writes, 1);
    EXPECT_LE(writes, 3) << "changes waiting together are written once";
    EXPECT_EQ(Catalog(folder, store).ratings(), last);
}
