#include "BrowserHarness.h"

#include "SorviApp/views/HandoffView.h"
#include "SorviKit/core/UserSettings.h"
#include "SorviKit/core/Wording.h"
#include "SorviKit/handoff/Handoff.h"
#include "HandoffTestFiles.h"

#include <QCheckBox>
#include <QComboBox>
#include <QProgressBar>
#include <QPushButton>
#include <QSettings>
#include <QSignalSpy>

#include <future>

using HandoffTest::TmpfsMount;

namespace {

// A model of its own over `card`, with every hand-off choice at its default as on a first
// launch (and again afterwards, for the next test).
struct Opened {
    explicit Opened(const QString &card) : model(options(store))
    {
        forgetChoices();
        EXPECT_TRUE(ModelTest::openAndWait(model, card));
    }
    ~Opened() { forgetChoices(); }
    static SorviModel::Options options(const QTemporaryDir &store)
    {
        SorviModel::Options options = ModelTest::withoutChecks();
        options.storeDirectory = store.path();
        return options;
    }
    static void forgetChoices()
    {
        QSettings settings;
        for (const QString &key : settings.allKeys())
            if (key.startsWith(QLatin1String("Handoff")))
                settings.remove(key);
    }
    QTemporaryDir store;
    SorviModel model;
};

void rate(SorviModel &model, const QString &id, Rating rating)
{
    model.setSelection(id);
    model.update([rating](Rating &r) { r = rating; }, false);
}

QString text(const HandoffView &view, const char *name)
{
    const auto *label = view.findChild<QLabel *>(QLatin1String(name));
    return label && label->isVisibleTo(&view) ? label->text() : QString();
}

// The sheet as it looks once its layout has caught up with the last change.
void screenshot(HandoffView &view, const QString &name)
{
    view.layout()->activate();
    QCoreApplication::processEvents();
    saveScreenshot(view.grab().toImage(), name);
}

template <typename Widget>
Widget *child(const HandoffView &view, const char *name)
{
    return view.findChild<Widget *>(QLatin1String(name));
}

// The sheet over the open folder, shown, once it knows whether the card can be written.
struct Sheet {
    explicit Sheet(SorviModel &model) : view(model)
    {
        view.resize(600, 700);
        view.show();
        EXPECT_TRUE(QTest::qWaitFor([this] { return view.isReady(); }, 10'000));
    }
    bool handOffEnabled() { return child<QPushButton>(view, "handOff")->isEnabled(); }
    HandoffPlan::Report run()
    {
        QSignalSpy finished(&view, &HandoffView::taskFinished);
        view.run();
        EXPECT_TRUE(finished.wait(60'000)) << "the run never ended";
        return view.report();
    }
    HandoffView view;
};

} // namespace

// The defaults on a writable card, the choices that leave nothing to do, the copy set of
// "Rated 1 star or more", counts of exactly one, moving a reject and putting it back.
TEST(HandoffView, DefaultsChoicesCountsMovesAndPutBack)
{
    QTemporaryDir dir;
    const QString card = ModelTest::demoShoot(dir.filePath("card"), 6);
    Opened opened(card);
    SorviModel &model = opened.model;
    const QList<Shot> shots = model.shots();
    const int raws = HandoffPlan::rawShots(shots);
    ASSERT_GT(raws, 1);
    rate(model, shots[0].id, {0, Rating::Flag::pick, Rating::Label::none});
    rate(model, shots[1].id, {3, Rating::Flag::reject, Rating::Label::none});
    rate(model, shots[2].id, {2, Rating::Flag::none, Rating::Label::red});
    const QStringList before = TestFiles::tree(card);

    Sheet sheet(model);
    HandoffView &view = sheet.view;
    EXPECT_FALSE(view.isReadOnly());
    EXPECT_EQ(text(view, "summary"), QStringLiteral("1 picked, 1 rejected, 2 rated, out of %1").arg(shots.size()));
    EXPECT_EQ(text(view, "readOnlyWarning"), QString());
    EXPECT_TRUE(text(view, "sidecarsText").startsWith(QStringLiteral("Stars and colour labels go into XMP sidecar files next to the %1 RAW files.").arg(raws)));
    EXPECT_EQ(text(view, "rejectsText"), "1 photo, inside this folder. Nothing is deleted, and you can put them back.");
    EXPECT_TRUE(sheet.handOffEnabled());

    // The flags list alone is no reason to run.
    child<QCheckBox>(view, "sidecars")->click();
    EXPECT_FALSE(sheet.handOffEnabled());
    child<QCheckBox>(view, "sidecars")->click();
    EXPECT_TRUE(sheet.handOffEnabled());

    // "Rated 1 star or more" leaves out the rejected 3-star photo and the unrated pick.
    child<QCheckBox>(view, "copy")->click();
    EXPECT_TRUE(text(view, "sidecarsText").endsWith(" They'll go next to the copies."));
    QComboBox *which = child<QComboBox>(view, "copyWhat");
    EXPECT_EQ(which->itemText(0), "Picks (1)");
    which->setCurrentIndex(1);
    emit which->activated(1);
    EXPECT_TRUE(text(view, "copyText").endsWith(" 1 photo selected."));
    EXPECT_EQ(text(view, "destinationName"), "No folder chosen");
    child<QCheckBox>(view, "copy")->click();
    model.waitForWrites();
    EXPECT_EQ(QSettings().value(HandoffView::copyWhatKey).toString(), "rated") << "choices are remembered";

    // A choice is carried to the next sheet at once, though its write waits behind a slow one.
    std::promise<void> slowWriteDone;
    model.writeSettings([done = slowWriteDone.get_future().share()] {
        done.wait();
        return UserSettings::Outcome{};
    });
    child<QCheckBox>(view, "copy")->click();
    {
        Sheet next(model);
        EXPECT_TRUE(child<QCheckBox>(next.view, "copy")->isChecked());
        EXPECT_FALSE(QSettings().value(HandoffView::copyKey).toBool()) << "the write was not held up";
    }
    child<QCheckBox>(view, "copy")->click();
    slowWriteDone.set_value();
    model.waitForWrites();

    // The defaults write sidecars and the flags list beside the photos, nothing else.
    HandoffPlan::Report report = sheet.run();
    ASSERT_EQ(report.lines.size(), 2) << report.failure.toStdString();
    // Sidecars for the rated and picked RAW files (the 3-star reject is no keeper).
    EXPECT_EQ(report.lines[0], "Ratings written for 2 RAW files.");
    EXPECT_TRUE(report.lines[1].startsWith("Picks and rejects marked for Lightroom (3 photos).")) << report.lines[1].toStdString();
    EXPECT_TRUE(text(view, "reportText").contains(report.lines[0]));
    EXPECT_FALSE(child<QPushButton>(view, "putBack")->isVisible());
    QStringList added;
    for (const QString &file : TestFiles::tree(card))
        if (!before.contains(file))
            added << file;
    EXPECT_EQ(added.filter(".xmp").size(), 2);
    EXPECT_EQ(added.size(), 3) << "sidecars and the flags list only: " << added.join(", ").toStdString();

    // One reject moved, then put back; the folder's list follows when the sheet closes.
    Sheet second(model);
    child<QCheckBox>(second.view, "sidecars")->click();
    child<QCheckBox>(second.view, "moveRejects")->click();
    report = second.run();
    EXPECT_EQ(report.lines.value(1), "Moved 1 reject into the Rejected folder.");
    EXPECT_TRUE(second.view.canPutBack());
    QSignalSpy putBack(&second.view, &HandoffView::taskFinished);
    child<QPushButton>(second.view, "putBack")->click();
    ASSERT_TRUE(putBack.wait(30'000));
    EXPECT_EQ(second.view.report().lines, QStringList{"Rejects put back."});
    EXPECT_FALSE(second.view.canPutBack());
    EXPECT_EQ(TestFiles::tree(card).filter("Rejected/"), QStringList());
    child<QPushButton>(second.view, "close")->click();
    EXPECT_TRUE(ModelTest::waitFor([&] { return !model.loading() && model.shots().size() == shots.size(); }));
}

// A card that can't be written: the warning, and "Hand Off" only once a sidecar folder is chosen.
TEST(HandoffView, ReadOnlyCardNeedsASidecarFolder)
{
    QTemporaryDir dir;
    const QString card = dir.filePath("card");
    QDir().mkpath(card);
    TmpfsMount mount(card, "size=64m");
    SKIP_UNLESS_MOUNTED(mount);
    ModelTest::demoShoot(card, 3);
    ASSERT_TRUE(mount.remountReadOnly());
    Opened opened(card);
    rate(opened.model, opened.model.shots()[0].id, {4, Rating::Flag::pick, Rating::Label::none});

    Sheet sheet(opened.model);
    HandoffView &view = sheet.view;
    EXPECT_TRUE(view.isReadOnly());
    EXPECT_EQ(text(view, "readOnlyWarning"),
              "This card can't be written to. Choose a folder for the sidecars, or copy your picks first.");
    EXPECT_EQ(text(view, "rejectsText"), "Can't move rejects: this card can't be written to.");
    EXPECT_EQ(text(view, "sidecarFolderName"), "No folder chosen");
    EXPECT_FALSE(sheet.handOffEnabled());
    view.setSidecarFolder(dir.filePath("sidecars"));
    EXPECT_EQ(text(view, "sidecarFolderName"), "sidecars");
    EXPECT_TRUE(sheet.handOffEnabled());
    const HandoffPlan::Report report = sheet.run();
    EXPECT_TRUE(report.lines.value(0).endsWith(" in sidecars.")) << report.lines.value(0).toStdString();
}

// A copy cancelled part-way reports what it copied and what it left; a second drive that
// fills up is reported in the sheet while the first gets everything; a copy that reads
// back wrong and a drive pulled mid-copy stop the copy. Screenshots before, during and after.
TEST(HandoffView, CopyCancelledPartWayAndDrivesThatFillUpOrGoAway)
{
    QTemporaryDir dir;
    const QString card = dir.filePath("card");
    for (int i = 1; i <= 6; ++i)
        TestFiles::write(QStringLiteral("%1/IMG_%2.JPG").arg(card).arg(i),
                         HandoffTest::noise(3 * Handoff::chunkBytes / 2, i));
    Opened opened(card);
    ASSERT_EQ(opened.model.shots().size(), 6);
    const QMap<QString, QString> originals = TestFiles::snapshot(card);

    Sheet sheet(opened.model);
    HandoffView &view = sheet.view;
    child<QCheckBox>(view, "sidecars")->click();
    child<QCheckBox>(view, "copy")->click();
    QComboBox *which = child<QComboBox>(view, "copyWhat");
    which->setCurrentIndex(2);
    emit which->activated(2);
    view.setDestination(dir.filePath("copies"));
    EXPECT_EQ(text(view, "destinationName"), "copies");
    screenshot(view, "handoff-before");

    // Cancel as soon as the bar first moves: the file in hand is finished, no other begins.
    QList<int> values;
    auto *bar = child<QProgressBar>(view, "progress");
    QObject::connect(bar, &QProgressBar::valueChanged, &view, [&](int value) {
        if (values.isEmpty()) {
            screenshot(view, "handoff-during");
            child<QPushButton>(view, "cancel")->click();
        }
        values << value;
    });
    const HandoffPlan::Report cancelled = sheet.run();
    ASSERT_FALSE(values.isEmpty());
    EXPECT_GT(values.first(), 0);
    EXPECT_LT(values.first(), 1000 / 6) << "the bar moves inside the first file";
    const int copied = int(TestFiles::tree(dir.filePath("copies")).size());
    EXPECT_GE(copied, 1);
    EXPECT_LT(copied, 6) << "the copy did not stop";
    ASSERT_EQ(cancelled.lines.size(), 2);
    EXPECT_EQ(cancelled.lines[0], QStringLiteral("Copied %1 to copies, each checked against the original.")
                                      .arg(Wording::counted(copied, "file")));
    EXPECT_EQ(cancelled.lines[1], QStringLiteral("Cancelled: %1 not copied.").arg(Wording::counted(6 - copied, "file")));
    screenshot(view, "handoff-after");

    // A second drive too small: its failure in the sheet, and the first drive still gets
    // every photo (what stays on the full drive is the engine's tests' business).
    const QString small = dir.filePath("small");
    QDir().mkpath(small);
    TmpfsMount mount(small, "size=8m");
    if (mount.isMounted()) {
        Sheet full(opened.model);
        full.view.setDestination(dir.filePath("whole"));
        full.view.setSecondDestination(small);
        EXPECT_EQ(text(full.view, "secondName"), "small");
        const HandoffPlan::Report report = full.run();
        EXPECT_TRUE(report.failure.startsWith("Stopped on small: Couldn't write ")) << report.failure.toStdString();
        EXPECT_EQ(text(full.view, "failureText"), report.failure);
        QMap<QString, QString> whole = TestFiles::snapshot(dir.filePath("whole"));
        EXPECT_TRUE(whole.remove(Handoff::flagsListName)) << "the first drive's steps after the copy did not run";
        EXPECT_EQ(whole, originals) << "the first drive lost copies";
        screenshot(full.view, "handoff-full");
    }

    // A copy that reads back differently, as from a failing drive: named in the sheet,
    // and the spoilt copy is not left to pass for a good one.
    {
        Sheet sheet(opened.model);
        sheet.view.setDestination(dir.filePath("failing"));
        sheet.view.setSecondDestination({});
        sheet.view.setAfterCopyWritten([](const QString &copy) {
            QFile file(copy);
            if (file.open(QIODevice::ReadWrite) && file.seek(100))
                file.write("spoilt");
        });
        const HandoffPlan::Report report = sheet.run();
        EXPECT_TRUE(report.failure.startsWith("The copy of IMG_1.JPG didn't match the original when read back."))
            << report.failure.toStdString();
        EXPECT_EQ(text(sheet.view, "failureText"), report.failure);
        EXPECT_TRUE(TestFiles::tree(dir.filePath("failing")).isEmpty());
    }

    // A drive pulled during the first photo: the sheet says so, and nothing is written
    // into the empty mount point left behind.
    const QString drive = dir.filePath("drive");
    QDir().mkpath(drive);
    TmpfsMount pulled(drive, "size=64m");
    if (pulled.isMounted()) {
        Sheet sheet(opened.model);
        sheet.view.setDestination(drive);
        sheet.view.setSecondDestination({});
        QObject::connect(child<QProgressBar>(sheet.view, "progress"), &QProgressBar::valueChanged, &sheet.view,
                         [&] { pulled.detach(); });
        const HandoffPlan::Report report = sheet.run();
        EXPECT_EQ(report.failure, "Couldn't copy to " + drive + ": the folder is no longer there. Was the drive removed?");
        EXPECT_EQ(text(sheet.view, "failureText"), report.failure);
        screenshot(sheet.view, "handoff-pulled");
        EXPECT_TRUE(TestFiles::tree(drive).isEmpty()) << "copies landed on the computer's own disk";
    }
    EXPECT_EQ(TestFiles::snapshot(card), originals) << "the photos were changed";
}
