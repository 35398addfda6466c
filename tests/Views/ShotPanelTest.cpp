#include "BrowserHarness.h"

#include "SorviApp/views/FaceCrops.h"
#include "SorviApp/views/ShotPanel.h"
#include "SorviKit/checks/AssessmentStore.h"

#include <QCheckBox>
#include <QToolButton>

#include <numeric>

namespace {

constexpr int photos = 12;

/// The panel alone in a window, over `model`.
struct Panel {
    explicit Panel(SorviModel &model) : view(model)
    {
        view.resize(ShotPanel::panelWidth, 900);
        view.show();
        EXPECT_TRUE(QTest::qWaitForWindowExposed(&view));
    }
    QToolButton *button(const char *name) const { return view.findChild<QToolButton *>(QLatin1String(name)); }

    ShotPanel view;
};

} // namespace

TEST(ShotPanel, FactsRatingButtonsUndoAndHistogram)
{
    QTemporaryDir dir;
    SorviModel model(ModelTest::withoutChecks());
    Panel panel(model);
    auto *noSelection = panel.view.findChild<QLabel *>(QStringLiteral("noSelection"));
    ASSERT_TRUE(noSelection);
    EXPECT_TRUE(noSelection->isVisible());
    EXPECT_EQ(noSelection->text(), QStringLiteral("No photo selected"));
    EXPECT_FALSE(panel.view.findChild<QWidget *>(QStringLiteral("details"))->isVisible()) << "nothing but the line";

    ASSERT_TRUE(ModelTest::openAndWait(model, ModelTest::demoShoot(dir.path(), photos)));
    EXPECT_FALSE(noSelection->isVisible());
    // A RAW+JPEG pair in a burst shows both files and the burst's length.
    const QList<Shot> shots = model.shots();
    const BurstMap bursts = model.bursts();
    const auto pair = std::find_if(shots.begin(), shots.end(),
                                   [&](const Shot &s) { return s.isPair() && bursts.contains(s.id) && s.camera; });
    ASSERT_NE(pair, shots.end());
    model.setSelection(pair->id);
    EXPECT_EQ(panel.view.value("Files").split('\n'),
              QStringList({QFileInfo(pair->files[0]).fileName(), QFileInfo(pair->files[1]).fileName()}));
    EXPECT_EQ(panel.view.value("Camera"), *pair->camera);
    EXPECT_EQ(panel.view.value("Exposure"), pair->exposure.value_or(QString()));
    const bool turned = pair->orientation >= 5;
    EXPECT_EQ(panel.view.value("Size"), QStringLiteral("%1 × %2").arg(turned ? pair->height : pair->width)
                                             .arg(turned ? pair->width : pair->height));
    EXPECT_EQ(panel.view.value("Burst"), QStringLiteral("%1 frames").arg(bursts.values().count(bursts[pair->id])));
    EXPECT_EQ(panel.view.checksState(), QStringLiteral("Not checked"));
    EXPECT_EQ(panel.view.value("Focus"), QString());

    // Every button leaves the keys with the browser.
    for (QAbstractButton *button : panel.view.findChildren<QAbstractButton *>())
        EXPECT_EQ(button->focusPolicy(), Qt::NoFocus) << button->objectName().toStdString();

    // The checkbox is the model's switch; with it off, a rating stays on this photo.
    auto *advance = panel.view.findChild<QCheckBox *>(QStringLiteral("autoAdvance"));
    ASSERT_TRUE(advance->isChecked());
    QTest::mouseClick(advance, Qt::LeftButton);
    EXPECT_FALSE(model.autoAdvance());
    QTest::mouseClick(panel.button("pickButton"), Qt::LeftButton);
    EXPECT_EQ(model.rating(pair->id).flag, Rating::Flag::pick);
    EXPECT_TRUE(panel.button("pickButton")->isChecked());
    QTest::mouseClick(panel.button("star3"), Qt::LeftButton);
    QTest::mouseClick(panel.button("labelGreen"), Qt::LeftButton);
    EXPECT_EQ(model.rating(pair->id), (Rating{3, Rating::Flag::pick, Rating::Label::green}));
    EXPECT_TRUE(panel.button("star3")->isChecked() && !panel.button("star4")->isChecked());
    EXPECT_EQ(panel.view.findChild<QLabel *>(QStringLiteral("starCount"))->text(), QStringLiteral("3 stars"));
    model.undo();
    model.undo();
    EXPECT_EQ(panel.view.findChild<QLabel *>(QStringLiteral("starCount"))->text(), QStringLiteral("0 stars"));
    model.undo();
    EXPECT_TRUE(model.rating(pair->id).isEmpty());
    EXPECT_FALSE(panel.button("pickButton")->isChecked()) << "the button follows an undo";
    model.setAutoAdvance(true);
    EXPECT_TRUE(advance->isChecked());

    // The histogram counts every pixel of the preview it was made from.
    ASSERT_TRUE(ModelTest::waitFor([&] { return panel.view.histogram().has_value(); }));
    const std::optional<ShotPreview> preview = model.previews().cached(*pair, ShotImage::mediumTier);
    ASSERT_TRUE(preview);
    const Histogram::Counts counts = *panel.view.histogram();
    EXPECT_EQ(std::accumulate(counts.begin(), counts.end(), quint64(0)),
              quint64(preview->image.width()) * quint64(preview->image.height()));
    EXPECT_GT(std::count_if(counts.begin(), counts.end(), [](quint32 n) { return n > 0; }), 16) << "a photo has tones";
}

// Stored check results as a folder checked before has them: faces with closed eyes, a
// soft frame, then an AI pick; the faces are cut from the full picture.
TEST(ShotPanel, CheckResultsFaceCloseUpsAndScreenshot)
{
    QTemporaryDir dir, store;
    const QString folder = ModelTest::demoShoot(dir.path(), photos);
    const QList<Shot> listed = ShotScanner::list(folder);
    ASSERT_GE(listed.size(), 3);
    const QString withFaces = listed[0].id, soft = listed[1].id, eyesOpen = listed[2].id;
    {
        AssessmentStore results(folder, store.path());
        for (const Shot &shot : listed)
            results.set({100, 0, 0, std::nullopt, {}}, shot.id);
        const QList<FaceMark> marks{{QRectF(0.1, 0.2, 0.15, 0.2), false},
                                    {QRectF(0.45, 0.25, 0.12, 0.18), true},
                                    {QRectF(0.9, 0.85, 0.1, 0.15), false}};
        results.set({100, 3, 1, 0.8, marks}, withFaces);
        results.set({1, 0, 0, std::nullopt, {}}, soft);
        results.set({100, 2, 0, 0.9, {}}, eyesOpen);
        results.save();
        results.flush();
    }
    SorviModel::Options options;
    options.storeDirectory = store.path();
    SorviModel model(options);
    Panel panel(model);
    ASSERT_TRUE(ModelTest::openAndWait(model, folder, ModelTest::checksTimeoutMs));

    model.setSelection(soft);
    EXPECT_EQ(panel.view.value("Focus"), QStringLiteral("Soft: much less sharp than the rest of the shoot"));
    EXPECT_EQ(panel.view.value("Faces"), QStringLiteral("None found"));
    EXPECT_EQ(panel.view.checksState(), QString());
    EXPECT_EQ(panel.view.faceCount(), 0);
    model.setSelection(eyesOpen);
    EXPECT_EQ(panel.view.value("Faces"), QStringLiteral("2 · eyes open"));
    model.setSelection(withFaces);
    EXPECT_EQ(panel.view.value("Focus"), QStringLiteral("Sharp"));
    EXPECT_EQ(panel.view.value("Faces"), QStringLiteral("3 · eyes closed on 1"));
    EXPECT_EQ(panel.view.value("Chosen"), QString());
    model.setAIPicks({{withFaces, QStringLiteral("Sharp eyes and the best light")}});
    EXPECT_EQ(panel.view.value("Chosen"), QStringLiteral("Chosen: Sharp eyes and the best light"));
    // Frames of a burst say whether they are its best.
    for (const QString &id : model.bursts().keys()) {
        model.setSelection(id);
        ASSERT_EQ(panel.view.value("Frame"), model.bestOfBurst().contains(id) ? QStringLiteral("Best of this burst")
                                                                              : QStringLiteral("Another frame is better"));
    }

    // A box is padded a quarter on each side into a square, kept inside the picture.
    EXPECT_EQ(FaceCrops::cropRect(QRectF(0.4, 0.4, 0.2, 0.1), QSize(1000, 500)), QRect(350, 75, 300, 300));
    EXPECT_EQ(FaceCrops::cropRect(QRectF(0.9, 0.85, 0.1, 0.15), QSize(1000, 500)), QRect(850, 350, 150, 150));

    model.setSelection(withFaces);
    EXPECT_EQ(panel.view.faceCount(), 3);
    ASSERT_TRUE(ModelTest::waitFor([&] { return panel.view.loadedFaceCount() == 3; }));
    for (const QLabel *picture : panel.view.findChild<QWidget *>(QStringLiteral("faces"))->findChildren<QLabel *>())
        if (!picture->pixmap().isNull()) {
            EXPECT_EQ(picture->pixmap().deviceIndependentSize().toSize(), QSize(ShotPanel::faceSide, ShotPanel::faceSide));
        }

    model.update([](Rating &r) { r = {4, Rating::Flag::pick, Rating::Label::blue}; }, false);
    ASSERT_TRUE(ModelTest::waitFor([&] { return panel.view.histogram().has_value(); }));
    saveScreenshot(panel.view.widget()->grab().toImage(), QStringLiteral("inspector"));
}
