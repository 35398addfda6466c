// Filters, selection and the rating actions with undo, on an opened demo card; the
// catalog file says what the model says.
#include "ModelTestFiles.h"
#include "SorviKit/checks/AssessmentStore.h"

#include <QSettings>
#include <QSignalSpy>

using namespace ModelTest;
using Flag = Rating::Flag;
using Label = Rating::Label;
using Filter = SorviModel::Filter;

namespace {

class OpenedShoot : public ::testing::Test {
protected:
    void SetUp() override
    {
        QSettings().remove(SorviModel::autoAdvanceKey);
        folder = demoShoot(dir.filePath("card"), DemoShoot::minimumCount);
        model = std::make_unique<SorviModel>(withoutChecks());
        ASSERT_TRUE(openAndWait(*model, folder));
        ids = idsOf(model->shots());
        ASSERT_EQ(ids.size(), DemoShoot::minimumCount);
    }

    void select(int index) { model->setSelection(ids[index]); }

    QTemporaryDir dir;
    QString folder;
    std::unique_ptr<SorviModel> model;
    QStringList ids;
};

} // namespace

TEST(SorviModelFilter, VisibilityTableAndNames)
{
    struct Row {
        Filter filter;
        Rating rating;
        int minimum;
        bool aiPicked;
        bool visible;
    };
    const Row rows[] = {
        {Filter::all, {5, Flag::reject, Label::none}, 0, false, true},
        {Filter::all, {5, Flag::reject, Label::none}, 1, false, false},
        {Filter::all, {2, Flag::pick, Label::none}, 3, false, false},
        {Filter::all, {3, Flag::pick, Label::none}, 3, false, true},
        {Filter::picks, {0, Flag::pick, Label::none}, 0, false, true},
        {Filter::picks, {1, Flag::pick, Label::none}, 2, false, false},
        {Filter::picks, {5, Flag::none, Label::none}, 0, false, false},
        {Filter::unrated, {0, Flag::none, Label::red}, 0, false, true},
        {Filter::unrated, {0, Flag::none, Label::none}, 1, false, false},
        {Filter::unrated, {1, Flag::none, Label::none}, 0, false, false},
        {Filter::unrated, {0, Flag::reject, Label::none}, 0, false, false},
        {Filter::rejects, {0, Flag::reject, Label::none}, 0, false, true},
        {Filter::rejects, {2, Flag::reject, Label::none}, 3, false, false},
        {Filter::rejects, {0, Flag::pick, Label::none}, 0, false, false},
        {Filter::ai, {0, Flag::none, Label::none}, 0, true, true},
        {Filter::ai, {0, Flag::none, Label::none}, 0, false, false},
        {Filter::ai, {1, Flag::reject, Label::none}, 2, true, false},
    };
    for (const Row &row : rows)
        EXPECT_EQ(SorviModel::isVisible(row.filter, row.rating, row.minimum, row.aiPicked), row.visible)
            << SorviModel::rawValue(row.filter).toStdString() << " minimum " << row.minimum << " "
            << ::testing::PrintToString(row.rating);

    QStringList names;
    for (const Filter filter : SorviModel::allFilters)
        names << SorviModel::rawValue(filter);
    EXPECT_EQ(names, (QStringList{"All", "Picks", "Unrated", "Rejects", "AI Picks"}));
}

TEST_F(OpenedShoot, TheSelectionFollowsWhatFiltersAndTheStarMinimumLeaveVisible)
{
    EXPECT_EQ(model->stepStatus(), "Pick with P, reject with X, rate with 1–5. Arrow keys move; Return switches "
                                   "between grid and single photo.");
    model->setAutoAdvance(false);
    select(0);
    model->setStars(5);
    model->reject();
    EXPECT_EQ(model->stepStatus(), "0 picked, 1 rejected, 1 rated, out of 12. Hand off when you're done.");

    // With a minimum the only starred shot is a reject, so nothing is left to select.
    QSignalSpy visible(model.get(), &SorviModel::visibleShotsChanged);
    model->setMinimumStars(1);
    EXPECT_TRUE(model->visibleShots().isEmpty());
    EXPECT_TRUE(model->selection().isEmpty());
    EXPECT_EQ(visible.size(), 1);
    model->setMinimumStars(0);
    EXPECT_EQ(model->selection(), ids[0]);

    model->setFilter(Filter::rejects);
    EXPECT_EQ(idsOf(model->visibleShots()), QStringList{ids[0]});
    model->setFilter(Filter::all);
    select(3);
    model->setLabel(Label::blue);
    model->setFilter(Filter::unrated);
    EXPECT_EQ(model->selection(), ids[3]) << "a labelled shot is still unrated";
    model->setFilter(Filter::picks);
    EXPECT_TRUE(model->selection().isEmpty());
    model->setAIPicks({{ids[7], "in focus"}});
    model->setFilter(Filter::ai);
    EXPECT_EQ(model->selection(), ids[7]);
}

TEST_F(OpenedShoot, MoveClampsWithoutWrappingAndPrefetchesNeighbours)
{
    // Moving warms the cache three ahead and one behind.
    model->move(+4);
    ASSERT_EQ(model->selection(), ids[4]);
    const int pixels = SorviModel::screenPixels();
    const QList<Shot> shots = model->shots();
    for (const int i : {3, 5, 6, 7})
        EXPECT_TRUE(waitFor([&] { return model->previews().cached(shots[i], pixels).has_value(); }))
            << shots[i].id.toStdString();
    EXPECT_FALSE(model->previews().cached(shots[8], pixels));
    EXPECT_FALSE(model->previews().cached(shots[2], pixels));

    select(0);
    model->move(-1);
    EXPECT_EQ(model->selection(), ids[0]);
    model->setZoomed(true);
    model->move(+100);
    EXPECT_EQ(model->selection(), ids.last());
    EXPECT_FALSE(model->zoomed());
    model->setZoomed(true);
    model->move(+1);
    EXPECT_EQ(model->selection(), ids.last());
    EXPECT_FALSE(model->zoomed()) << "at the end the selection stays, and zoom still goes";
    model->setKeepZoom(true);
    model->setZoomed(true);
    model->setSelection(ids[0]);
    EXPECT_TRUE(model->zoomed()) << "Keep Zoom takes zoom to another photo";
    model->setKeepZoom(false);
    model->setSelection({});
    model->move(-1);
    EXPECT_EQ(model->selection(), ids[0]);
}

TEST_F(OpenedShoot, AutoAdvanceFollowsTheFilterAndIsRemembered)
{
    EXPECT_TRUE(model->autoAdvance());
    for (const int i : {2, 5, 8}) {
        select(i);
        model->pick();
        EXPECT_EQ(model->selection(), ids[i + 1]);
    }
    model->setFilter(Filter::picks);
    EXPECT_EQ(model->selection(), ids[2]);

    // Taking back the first pick moves on to the next pick, not past it.
    model->pick();
    EXPECT_EQ(model->selection(), ids[5]);
    select(8);
    model->pick();
    EXPECT_EQ(model->selection(), ids[5]);
    model->setLabel(Label::red);
    EXPECT_EQ(model->selection(), ids[5]) << "a label stays on the photo";

    model->setAutoAdvance(false);
    model->setFilter(Filter::all);
    select(0);
    model->reject();
    EXPECT_EQ(model->selection(), ids[0]);
    model->setShowChecks(false);
    model->waitForWrites();
    SorviModel later;
    EXPECT_FALSE(later.autoAdvance());
    EXPECT_FALSE(later.showChecks());
    QSettings().remove(SorviModel::showChecksKey);
}

TEST_F(OpenedShoot, EachActionHasOneUndoAndTheCatalogFollows)
{
    model->setAutoAdvance(false);
    QSignalSpy canUndo(model.get(), &SorviModel::canUndoChanged);
    select(1);
    model->pick();
    model->pick();
    EXPECT_FALSE(model->ratings().contains(ids[1])) << "an emptied rating is dropped";
    EXPECT_EQ(catalogOnDisk(*model, folder), model->ratings());
    model->undo();
    EXPECT_EQ(model->rating(ids[1]).flag, Flag::pick);
    EXPECT_EQ(catalogOnDisk(*model, folder), model->ratings());
    model->undo();
    EXPECT_EQ(model->rating(ids[1]), Rating());
    EXPECT_FALSE(model->canUndo());
    EXPECT_EQ(canUndo.size(), 2);

    // Stars un-reject; undo gives back the reject with its old stars.
    model->setStars(1);
    model->reject();
    model->setStars(3);
    EXPECT_EQ(model->rating(ids[1]), (Rating{3, Flag::none, Label::none}));
    model->undo();
    EXPECT_EQ(model->rating(ids[1]), (Rating{1, Flag::reject, Label::none}));

    select(2);
    model->setLabel(Label::red);
    model->setLabel(Label::red);
    EXPECT_EQ(model->rating(ids[2]).label, Label::none);
    model->setLabel(Label::yellow);
    model->setLabel(Label::purple);
    EXPECT_EQ(model->rating(ids[2]).label, Label::purple);

    // An action that changed nothing still has its undo, which changes nothing.
    model->unflag();
    const RatingMap before = model->ratings();
    model->setFilter(Filter::unrated);
    select(5);
    model->undo();
    EXPECT_EQ(model->ratings(), before);
    model->undo();
    EXPECT_EQ(model->rating(ids[2]).label, Label::yellow);
    EXPECT_EQ(model->selection(), ids[5]);
    EXPECT_EQ(model->filter(), Filter::unrated);
    EXPECT_EQ(catalogOnDisk(*model, folder), model->ratings());
}

TEST(SorviModelBulk, BulkActionsSkipFlaggedShotsAndUndoInOneStep)
{
    // Thirty demo photos hold a burst of five; stored results decide its best frame and
    // the soft and closed-eyes shots, so no check has to run.
    constexpr int count = 30;
    QTemporaryDir dir;
    const QString folder = demoShoot(dir.filePath("card"), count);
    const QString best = "DCIM/101NIKON/DSC_0011", picked = "DCIM/101NIKON/DSC_0012";
    const QString blurry = "DCIM/100KSRVI/KSR_0001", blinked = "DCIM/100KSRVI/KSR_0006";
    {
        AssessmentStore store(folder, Catalog::defaultDirectory());
        for (const Shot &shot : ShotScanner::list(folder)) {
            const QString &id = shot.id;
            store.set(Assessment{id == best ? 200.0 : id == blurry ? 5.0 : 100.0, id == blinked ? 1 : 0,
                                 id == blinked ? 1 : 0, std::nullopt, {}},
                      id);
        }
        store.save();
        Catalog catalog(folder);
        catalog.set(Rating{0, Flag::pick, Label::none}, picked);
        catalog.set(Rating{3, Flag::none, Label::green}, blurry);
    }
    SorviModel model;
    ASSERT_TRUE(openAndWait(model, folder));
    const QStringList five{"DCIM/101NIKON/DSC_0009", "DCIM/101NIKON/DSC_0010", best, picked,
                           "DCIM/101NIKON/DSC_0013"};
    ASSERT_TRUE(model.burstGroups().contains(five));
    ASSERT_TRUE(model.bestOfBurst().contains(best));
    EXPECT_EQ(model.soft(), IdSet{blurry});
    EXPECT_EQ(model.eyesClosed(), IdSet{blinked});

    const RatingMap start = model.ratings();
    EXPECT_EQ(model.count(model.restOfBursts()), model.restOfBursts().size() - 1);
    model.rejectRestOfBursts();
    QStringList rejectedInFive;
    for (const QString &id : five)
        if (model.rating(id).flag == Flag::reject)
            rejectedInFive << id;
    EXPECT_EQ(rejectedInFive, (QStringList{five[0], five[1], five[4]}));
    EXPECT_EQ(model.count(model.restOfBursts()), 0);
    model.undo();
    EXPECT_EQ(model.ratings(), start);

    model.rejectRestOfBursts();
    const RatingMap burstsRejected = model.ratings();
    model.rejectSoft();
    EXPECT_EQ(model.rating(blurry), (Rating{3, Flag::reject, Label::green}));
    // Everything soft is flagged now: nothing to change, nothing to undo.
    model.rejectSoft();
    model.undo();
    EXPECT_EQ(model.ratings(), burstsRejected);

    model.setSelection(model.burstGroups().first().first());
    model.setAutoAdvance(false);
    const QString firstBest = model.selection();
    ASSERT_TRUE(model.bestOfBurst().contains(firstBest));
    model.reject();
    model.pickBestOfBursts();
    for (const QString &id : model.bestOfBurst())
        EXPECT_EQ(model.rating(id).flag, id == firstBest ? Flag::reject : Flag::pick) << id.toStdString();
    EXPECT_EQ(model.selection(), firstBest);

    model.rejectEyesClosed();
    EXPECT_EQ(model.rating(blinked).flag, Flag::reject);
    const QString chosen = "DCIM/100KSRVI/KSR_0005";
    model.setAIPicks({{blinked, "first"}, {chosen, "sharp"}, {blinked, "second"}});
    EXPECT_EQ(model.aiPicks().value(blinked), "second");
    EXPECT_EQ(model.aiPicks().size(), 2);
    model.pickAIPicks();
    EXPECT_EQ(model.rating(chosen).flag, Flag::pick);
    EXPECT_EQ(model.rating(blinked).flag, Flag::reject);
    EXPECT_EQ(catalogOnDisk(model, folder), model.ratings());
    model.setAutoAdvance(true);
}
