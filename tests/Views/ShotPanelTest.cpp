#include "BrowserHarness.h"

#include "SorviApp/views/ChecksSettingsView.h"
#include "SorviApp/views/FaceCrops.h"
#include "SorviApp/views/ShotPanel.h"
#include "SorviKit/checks/AssessmentStore.h"

#include <QCheckBox>
#include <QDoubleSpinBox>
#include <QPushButton>
#include <QSettings>
#include <QSpinBox>
#include <QToolButton>

#include <numeric>

namespace {

// The panel alone in a window, shown as the browser shows it.
void show(ShotPanel &panel)
{
    panel.resize(ShotPanel::panelWidth, 900);
    panel.show();
    EXPECT_TRUE(QTest::qWaitForWindowExposed(&panel));
}

} // namespace

// Before any check: facts, the rating buttons and their undo, the histogram.
TEST(ShotPanel, FactsButtonsUndoAndHistogram)
{
    QTemporaryDir dir;
    SorviModel model(ModelTest::withoutChecks());
    ShotPanel panel(model);
    show(panel);
    const auto button = [&](const char *name) { return panel.findChild<QToolButton *>(QLatin1String(name)); };
    EXPECT_TRUE(panel.findChild<QLabel *>(QStringLiteral("noSelection"))->isVisible());
    EXPECT_FALSE(panel.findChild<QWidget *>(QStringLiteral("details"))->isVisible()) << "nothing but the line";
    ASSERT_TRUE(ModelTest::openAndWait(model, ModelTest::demoShoot(dir.path(), 12)));

    // A RAW+JPEG pair in a burst: both files, the burst's length.
    const BurstMap bursts = model.bursts();
    const QList<Shot> shots = model.shots();
    const auto pair = std::find_if(shots.begin(), shots.end(), [&](const Shot &s) { return s.isPair() && bursts.contains(s.id); });
    ASSERT_NE(pair, shots.end());
    model.setSelection(pair->id);
    EXPECT_EQ(panel.value("Files").split('\n'),
              QStringList({QFileInfo(pair->files[0]).fileName(), QFileInfo(pair->files[1]).fileName()}));
    EXPECT_EQ(panel.value("Burst"), QStringLiteral("%1 frames").arg(bursts.values().count(bursts[pair->id])));
    EXPECT_EQ(panel.checksState(), QStringLiteral("Not checked"));
    EXPECT_EQ(panel.value("Focus"), QString());
    for (QAbstractButton *each : panel.findChildren<QAbstractButton *>())
        EXPECT_EQ(each->focusPolicy(), Qt::NoFocus) << "the browser keeps the keys: " << each->objectName().toStdString();

    // The buttons rate through the model (with auto-advance off, on this photo) and follow undo.
    auto *advance = panel.findChild<QCheckBox *>(QStringLiteral("autoAdvance"));
    QTest::mouseClick(advance, Qt::LeftButton);
    EXPECT_FALSE(model.autoAdvance());
    QTest::mouseClick(button("pickButton"), Qt::LeftButton);
    QTest::mouseClick(button("star3"), Qt::LeftButton);
    QTest::mouseClick(button("labelGreen"), Qt::LeftButton);
    EXPECT_EQ(model.rating(pair->id), (Rating{3, Rating::Flag::pick, Rating::Label::green}));
    EXPECT_TRUE(button("pickButton")->isChecked() && button("star3")->isChecked() && !button("star4")->isChecked());
    EXPECT_EQ(panel.findChild<QLabel *>(QStringLiteral("starCount"))->text(), QStringLiteral("3 stars"));
    for (int i = 0; i < 3; ++i)
        model.undo();
    EXPECT_TRUE(model.rating(pair->id).isEmpty());
    EXPECT_FALSE(button("pickButton")->isChecked()) << "the button follows an undo";
    model.setAutoAdvance(true);
    EXPECT_TRUE(advance->isChecked());

    // The histogram counts every pixel of the preview it was made from.
    ASSERT_TRUE(ModelTest::waitFor([&] { return panel.histogram().has_value(); }));
    const std::optional<ShotPreview> preview = model.previews().cached(*pair, ShotImage::mediumTier);
    ASSERT_TRUE(preview);
    const Histogram::Counts counts = *panel.histogram();
    EXPECT_EQ(std::accumulate(counts.begin(), counts.end(), quint64(0)),
              quint64(preview->image.width()) * quint64(preview->image.height()));

}

// A folder checked before: every line the stored results give, and the face close-ups.
TEST(ShotPanel, StoredChecksAndFaceCloseUps)
{
    QTemporaryDir dir, store;
    const QString folder = ModelTest::demoShoot(dir.path(), 12);
    const QList<Shot> listed = ShotScanner::list(folder);
    const QString withFaces = listed[0].id, soft = listed[1].id, eyesOpen = listed[2].id;
    const QList<FaceMark> marks{{QRectF(0.1, 0.2, 0.15, 0.2), false},
                                {QRectF(0.45, 0.25, 0.12, 0.18), true},
                                {QRectF(0.9, 0.85, 0.1, 0.15), false, true}};
    {
        AssessmentStore results(folder, store.path());
        for (const Shot &shot : listed)
            results.set({100, 0, 0, std::nullopt, {}}, shot.id);
        results.set({100, 3, 1, 0.8, marks}, withFaces);
        results.set({5, 0, 0, std::nullopt, {}}, soft);
        results.set({100, 2, 0, 0.9, {}}, eyesOpen);
        results.save();
        results.flush();
    }
    SorviModel::Options options;
    options.storeDirectory = store.path();
    SorviModel model(options);
    ShotPanel panel(model);
    show(panel);
    ASSERT_TRUE(ModelTest::openAndWait(model, folder, ModelTest::checksTimeoutMs));
    const BurstMap bursts = model.bursts();

    model.setSelection(soft);
    EXPECT_EQ(panel.value("Focus"), QStringLiteral("Soft: 5 % of the shoot's typical sharpness"));
    EXPECT_EQ(panel.value("Faces"), QStringLiteral("None found"));
    EXPECT_EQ(panel.checksState(), QString());
    ASSERT_TRUE(bursts.contains(soft) && bursts[soft] == bursts.value(eyesOpen)) << "the demo's first burst";
    EXPECT_TRUE(panel.value("Frame").startsWith(QStringLiteral("Another frame is better: "))) << panel.value("Frame").toStdString();
    model.setSelection(eyesOpen);
    EXPECT_EQ(panel.value("Faces"), QStringLiteral("2 · eyes open"));
    EXPECT_TRUE(panel.value("Frame").startsWith(QStringLiteral("Best of this burst: "))) << panel.value("Frame").toStdString();
    model.setSelection(withFaces);
    EXPECT_EQ(panel.value("Focus"), QStringLiteral("Sharp: 100 % of the shoot's typical sharpness"));
    EXPECT_EQ(panel.value("Faces"), QStringLiteral("3 · eyes closed on 1: the 2nd from the left · eyes not clear on 1"));
    // The settings page marks the stored results again by its thresholds, checking nothing anew.
    ChecksSettingsView page(model);
    page.resize(480, 300);
    page.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&page));
    EXPECT_EQ(page.softPercent()->value(), 10) << "the default";
    EXPECT_FALSE(page.defaultsButton()->isEnabled());
    const QString before = page.summary();
    EXPECT_TRUE(before.startsWith(QStringLiteral("In this folder: 1 soft photo, "))) << before.toStdString();
    page.softPercent()->setValue(page.softPercent()->minimum());
    EXPECT_FALSE(model.soft().contains(soft)) << "5 is not below 2 % of 100";
    model.waitForWrites();
    EXPECT_EQ(QSettings().value(CheckSettings::softFractionKey).toDouble(), 0.02);
    model.setSelection(soft);
    EXPECT_EQ(panel.value("Focus"), QStringLiteral("Sharp: 5 % of the shoot's typical sharpness"));
    page.burstGap()->setValue(0.1);
    EXPECT_TRUE(model.bursts().isEmpty()) << "the demo's frames are further apart";
    EXPECT_EQ(panel.value("Frame"), QString());
    saveScreenshot(page.grab().toImage(), QStringLiteral("checks-settings"));
    page.defaultsButton()->click();
    EXPECT_EQ(model.checkThresholds(), CheckThresholds());
    EXPECT_EQ(page.burstGap()->value(), 1.0);
    EXPECT_EQ(model.bursts(), bursts);
    EXPECT_EQ(page.summary(), before);
    model.setSelection(withFaces);
    EXPECT_EQ(panel.value("Chosen"), QString());
    model.setAIPicks({{withFaces, QStringLiteral("Sharp eyes and the best light")}});
    EXPECT_EQ(panel.value("Chosen"), QStringLiteral("Chosen: Sharp eyes and the best light"));

    // One close-up per face: a square padded a quarter on each side, kept inside the picture.
    EXPECT_EQ(FaceCrops::cropRect(QRectF(0.4, 0.4, 0.2, 0.1), QSize(1000, 500)), QRect(350, 75, 300, 300));
    EXPECT_EQ(FaceCrops::cropRect(QRectF(0.9, 0.85, 0.1, 0.15), QSize(1000, 500)), QRect(850, 350, 150, 150));
    // A face under the close-up's size in the preview is cut from the full picture instead.
    const QList<FaceMark> small{{QRectF(0.5, 0.5, 0.05, 0.05), true}};
    EXPECT_TRUE(FaceCrops::needsMorePixels(small, QSize(1000, 500), 96));
    EXPECT_FALSE(FaceCrops::needsMorePixels(small, QSize(4000, 2000), 96));
    EXPECT_EQ(panel.faceCount(), 3);
    ASSERT_TRUE(ModelTest::waitFor([&] { return panel.loadedFaceCount() == 3 && panel.histogram(); }));
    for (const QLabel *picture : panel.findChild<QWidget *>(QStringLiteral("faces"))->findChildren<QLabel *>())
        if (!picture->pixmap().isNull()) {
            EXPECT_EQ(picture->pixmap().deviceIndependentSize().toSize(), QSize(ShotPanel::faceSide, ShotPanel::faceSide));
        }
    model.update([](Rating &r) { r = {4, Rating::Flag::pick, Rating::Label::blue}; }, false);
    saveScreenshot(panel.widget()->grab().toImage(), QStringLiteral("shot-panel"));
}

// Real faces from the corpus (one of them stored sideways): a close-up for each face the
// checks found, its eye state beside it.
TEST(ShotPanel, CloseUpsOfRealFaces)
{
    SKIP_WITHOUT_CORPUS();
    QTemporaryDir dir;
    QTemporaryDir store;
    for (const char *name : {"dlib/2008_001322.jpg", "other/portrait-orientation-6.jpg"})
        ASSERT_TRUE(QFile::copy(TestFiles::corpus() + "/faces/" + name, dir.filePath(QFileInfo(name).fileName())));
    SorviModel::Options options;
    options.storeDirectory = store.path();
    SorviModel model(options);
    ShotPanel panel(model);
    show(panel);
    ASSERT_TRUE(ModelTest::openAndWait(model, dir.path(), ModelTest::checksTimeoutMs));
    for (const Shot &shot : model.shots()) {
        model.setSelection(shot.id);
        ASSERT_GE(panel.faceCount(), 1) << shot.id.toStdString();
        ASSERT_TRUE(ModelTest::waitFor([&] { return panel.loadedFaceCount() == panel.faceCount() && panel.histogram(); })) << shot.id.toStdString();
        saveScreenshot(panel.widget()->grab().toImage(), QStringLiteral("shot-panel-faces-") + shot.id);
    }
}
