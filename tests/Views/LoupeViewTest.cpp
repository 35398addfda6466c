#include "BrowserHarness.h"
#include "SorviApp/views/Clipping.h"
#include "SorviApp/views/Filmstrip.h"
#include "SorviApp/views/Navigator.h"
#include "SorviApp/views/NeighbourPictures.h"
#include "SorviApp/views/ShotPanel.h"
#include "SorviApp/views/ZoomGeometry.h"
#include "SorviApp/views/ZoomScrollView.h"
#include "SorviApp/views/ZoomState.h"
#include "SorviApp/views/ZoomView.h"

#include <QTemporaryDir>

namespace {

Shot sized(int width, int height, int orientation = 1)
{
    Shot shot(QStringLiteral("a"), {QStringLiteral("/a.jpg")});
    shot.width = width;
    shot.height = height;
    shot.orientation = orientation;
    return shot;
}

bool near(QPointF a, QPointF b) { return std::abs(a.x() - b.x()) < 1e-6 && std::abs(a.y() - b.y()) < 1e-6; }

bool nearRect(QRectF a, QRectF b, qreal tolerance)
{
    return std::abs(a.x() - b.x()) < tolerance && std::abs(a.y() - b.y()) < tolerance &&
           std::abs(a.width() - b.width()) < tolerance && std::abs(a.height() - b.height()) < tolerance;
}

// Opens the demo shoot in single-photo mode at `index` and waits for its real picture. The
// demo's shots 4 to 7 are JPEGs alone, whose full pictures are 1600 pixels wide (a DNG's
// own sensor data is a small mosaic).
void openInLoupe(BrowserHarness &h, const QString &folder, int index)
{
    ASSERT_TRUE(ModelTest::openAndWait(h.model, folder));
    ASSERT_FALSE(h.model.visibleShots().at(index).raw());
    h.model.setSelection(h.model.visibleShots().at(index).id);
    h.press(Qt::Key_Return, QStringLiteral("\r"));
    ASSERT_TRUE(QTest::qWaitFor([&] { return h.loupe->isShowingFullQuality(); }, ModelTest::loadTimeoutMs));
}

bool waitForFull(const BrowserHarness &h)
{
    return QTest::qWaitFor([&] { return h.loupe->zoomView()->isShowingFull(); }, ModelTest::loadTimeoutMs);
}

} // namespace

// Where clicks land and pictures sit, in a 1028 × 828 loupe (a 1000 × 800 area inside the
// 14-pixel inset).
TEST(ZoomGeometry, ClicksFramesAndVisibleParts)
{
    const QSizeF view(1028, 828);
    const Shot landscape = sized(6000, 4000); // fitted 1000 × 666.7, 66.7 above and below
    EXPECT_TRUE(near(ZoomGeometry::normalized({514, 414}, view, landscape), {0.5, 0.5}));
    EXPECT_TRUE(near(ZoomGeometry::normalized({14, 14 + 200.0 / 3}, view, landscape), {0, 0}));
    // The letterbox margin clamps to the nearest edge.
    EXPECT_TRUE(near(ZoomGeometry::normalized({1020, 20}, view, landscape), {1, 0}));
    EXPECT_TRUE(near(ZoomGeometry::normalized({3, 820}, view, landscape), {0, 1}));
    // Orientation 6 swaps the sides before fitting: a 4000 × 6000 upright picture is
    // 533.3 wide in the area, so x = 14 + 233.3 is its left edge.
    const Shot portrait = sized(6000, 4000, 6);
    EXPECT_EQ(ZoomGeometry::displayedSize(portrait), QSizeF(4000, 6000));
    EXPECT_TRUE(near(ZoomGeometry::normalized({14 + 700.0 / 3, 414}, view, portrait), {0, 0.5}));
    EXPECT_EQ(ZoomGeometry::fittedRect(ZoomGeometry::displayedSize(portrait), {300, 300}), QRectF(50, 0, 200, 300));
    // Unknown sizes and views too small for the inset give the centre and the full frame.
    EXPECT_TRUE(near(ZoomGeometry::normalized({0, 0}, view, sized(0, 0)), {0.5, 0.5}));
    EXPECT_TRUE(near(ZoomGeometry::normalized({5, 5}, {20, 20}, landscape), {0.5, 0.5}));
    EXPECT_EQ(ZoomGeometry::fittedRect({}, {200, 150}), QRectF(0, 0, 200, 150));

    // At a device pixel ratio of 2, a 6000-pixel picture is 3000 logical pixels at 100 %.
    EXPECT_EQ(ZoomGeometry::frameSize({6000, 4000}, 2), QSizeF(3000, 2000));
    EXPECT_EQ(ZoomGeometry::fitMagnification({3000, 2000}, {1000, 800}), 1.0 / 3);
    EXPECT_EQ(ZoomGeometry::fitMagnification({1e6, 1e6}, {100, 100}), ZoomGeometry::minimumMagnification);
    EXPECT_EQ(ZoomGeometry::clampMagnification(9, 0.3), ZoomGeometry::maximumMagnification);
    EXPECT_EQ(ZoomGeometry::clampMagnification(0.1, 0.3), 0.3);
    // A picture smaller than the view is centred; a larger one stops at its edges.
    EXPECT_EQ(ZoomGeometry::originFor({0.9, 0.1}, {600, 400}, {1000, 800}), QPointF(-200, -200));
    EXPECT_EQ(ZoomGeometry::originFor({0.9, 0.1}, {3000, 2000}, {1000, 800}), QPointF(2000, 0));
    EXPECT_EQ(ZoomGeometry::visibleRect({1500, 600}, {3000, 2000}, {1000, 800}), QRectF(0.5, 0.3, 1.0 / 3, 0.4));
    EXPECT_EQ(ZoomGeometry::visibleRect({-200, -200}, {600, 400}, {1000, 800}), QRectF(0, 0, 1, 1));
}

TEST(Clipping, MarksBurntHighlightsAndCrushedShadowsOnly)
{
    QImage picture(3, 1, QImage::Format_RGB32);
    picture.setPixel(0, 0, qRgb(255, 120, 40)); // one channel burnt out
    picture.setPixel(1, 0, qRgb(1, 2, 0));
    picture.setPixel(2, 0, qRgb(128, 128, 128));
    const QImage marks = Clipping::overlay(picture);
    EXPECT_GT(qRed(marks.pixel(0, 0)), 200);
    EXPECT_GT(qBlue(marks.pixel(1, 0)), 200);
    EXPECT_EQ(qAlpha(marks.pixel(2, 0)), 0);
    EXPECT_TRUE(Clipping::overlay({}).isNull());
}

// The real browser over a demo shoot: the loupe with its filmstrip and prepared neighbours,
// zoom by double-click with its navigator, and back.
TEST(LoupeView, NeighboursReadyZoomNavigatorAndBack)
{
    QTemporaryDir dir;
    BrowserHarness h;
    openInLoupe(h, ModelTest::demoShoot(dir.path(), 12), 4);
    const QList<Shot> visible = h.model.visibleShots();
    EXPECT_EQ(h.loupe->filmstrip()->count(), visible.size());
    EXPECT_TRUE(h.loupe->filmstrip()->viewport()->rect().contains(h.loupe->filmstrip()->cellRect(4)));

    // The next photo is prepared while this one is shown, so moving paints it at once.
    ASSERT_TRUE(QTest::qWaitFor([&] {
        return !h.loupe->neighbours().fitted(visible[5]).isNull() && !h.loupe->neighbours().fitted(visible[6]).isNull() &&
               !h.loupe->neighbours().fitted(visible[3]).isNull();
    }, ModelTest::loadTimeoutMs));
    h.press(Qt::Key_Right);
    h.loupe->photoArea()->repaint();
    EXPECT_TRUE(h.loupe->isShowingFullQuality()) << "the next photo was not ready when the key went down";
    const qint64 fittedBytes = h.loupe->neighbours().bytes();
    EXPECT_GT(fittedBytes, 0);
    EXPECT_LT(fittedBytes, 4 * 4 * 2600 * 1800) << "more than four screen-sized pictures kept";

    // A single click does nothing; a double-click zooms at that spot, 100 % once decoded.
    QWidget *area = h.loupe->photoArea();
    const QRect photo = h.loupe->photoRect();
    QTest::mouseClick(area, Qt::LeftButton, {}, photo.topLeft() + QPoint(photo.width() / 4, photo.height() / 4));
    EXPECT_FALSE(h.model.zoomed());
    QTest::mouseDClick(area, Qt::LeftButton, {}, photo.topLeft() + QPoint(photo.width() / 4, photo.height() / 4));
    ASSERT_TRUE(h.model.zoomed());
    EXPECT_NEAR(h.model.zoomAnchor().x(), 0.25, 0.01);
    ASSERT_TRUE(waitForFull(h));
    ZoomView *zoom = h.loupe->zoomView();
    ZoomScrollView *scroll = zoom->scrollView();
    EXPECT_EQ(scroll->magnification(), 1.0);
    EXPECT_EQ(zoom->navigator()->magnificationText(), QStringLiteral("100%"));
    EXPECT_TRUE(zoom->navigator()->isVisible());
    const QRectF visibleAt100 = zoom->state()->visible();
    EXPECT_LT(visibleAt100.width(), 1);
    EXPECT_NEAR(visibleAt100.center().x(), std::max(0.25, visibleAt100.width() / 2), 0.01);
    saveScreenshot(h.window.grab().toImage(), QStringLiteral("loupe-zoom-navigator"));

    // The keys magnify within fit…4; the navigator moves the view; a single click in the
    // picture changes nothing.
    for (int i = 0; i < 8; ++i)
        h.press(Qt::Key_Plus, QStringLiteral("+"));
    EXPECT_EQ(scroll->magnification(), ZoomGeometry::maximumMagnification);
    for (int i = 0; i < 20; ++i)
        h.press(Qt::Key_Minus, QStringLiteral("-"));
    EXPECT_EQ(scroll->magnification(), scroll->minimumMagnification());
    EXPECT_EQ(zoom->state()->visible(), QRectF(0, 0, 1, 1)) << "at the fit the whole picture is in view";
    h.press(Qt::Key_Equal, QStringLiteral("="));
    h.press(Qt::Key_Equal, QStringLiteral("="));
    Navigator *navigator = zoom->navigator();
    const QRectF fitted = navigator->fittedRect(QSizeF(navigator->width() - 16, navigator->height() - 34));
    QTest::mousePress(navigator, Qt::LeftButton, {}, (fitted.topLeft() + QPointF(8, 8) + QPointF(fitted.width() * 0.9, fitted.height() * 0.5)).toPoint());
    EXPECT_GT(zoom->state()->visible().center().x(), 0.6);
    QTest::mouseRelease(navigator, Qt::LeftButton);
    const QRectF before = zoom->state()->visible();
    QTest::mouseClick(scroll->viewport(), Qt::LeftButton, {}, scroll->viewport()->rect().center());
    EXPECT_TRUE(h.model.zoomed());
    EXPECT_EQ(zoom->state()->visible(), before);
    QTest::mouseDClick(scroll->viewport(), Qt::LeftButton, {}, scroll->viewport()->rect().center());
    EXPECT_FALSE(h.model.zoomed());
    EXPECT_EQ(h.loupe->photoArea()->isVisible(), true);
}

// With Keep Zoom, ← opens the previous photo at the same place and magnification; without
// it, moving leaves zoom. Clipping marks are drawn over the loupe when asked for.
TEST(LoupeView, KeepZoomAcrossPhotosAndClippingMarks)
{
    QTemporaryDir dir;
    BrowserHarness h;
    openInLoupe(h, ModelTest::demoShoot(dir.path(), 12), 5);
    const QList<Shot> visible = h.model.visibleShots();

    h.model.setShowClipping(true);
    h.model.setShowInspector(true); // the side panel narrows the loupe, which fits again
    ASSERT_TRUE(QTest::qWaitFor([&] { return !h.loupe->clippingOverlay().isNull() && h.loupe->isShowingFullQuality(); },
                                ModelTest::loadTimeoutMs));
    EXPECT_LT(h.loupe->photoRect().right(), h.browser->findChild<ShotPanel *>()->geometry().left());
    saveScreenshot(h.window.grab().toImage(), QStringLiteral("loupe-clipping-panel"));
    h.model.setShowClipping(false);
    h.model.setShowInspector(false);
    EXPECT_TRUE(h.loupe->clippingOverlay().isNull());

    h.press(Qt::Key_Space, QStringLiteral(" "));
    ASSERT_TRUE(waitForFull(h));
    // Without Keep Zoom another photo (here a click in the filmstrip) leaves zoom.
    Filmstrip *strip = h.loupe->filmstrip();
    QTest::mouseClick(strip->viewport(), Qt::LeftButton, {}, strip->cellRect(6).center());
    EXPECT_FALSE(h.model.zoomed());
    EXPECT_EQ(h.model.selection(), visible[6].id);

    h.model.setKeepZoom(true);
    h.press(Qt::Key_Space, QStringLiteral(" "));
    ASSERT_TRUE(waitForFull(h));
    ZoomView *zoom = h.loupe->zoomView();
    h.press(Qt::Key_Plus, QStringLiteral("+"));
    zoom->state()->requestCentre({0.3, 0.7});
    const QRectF looked = zoom->state()->visible();
    const qreal magnification = zoom->scrollView()->magnification();
    // The neighbours' full pictures are decoded while this one is looked at.
    ASSERT_TRUE(QTest::qWaitFor([&] { return h.loupe->neighbours().full(visible[5], false).isFinished(); }, ModelTest::loadTimeoutMs));
    h.press(Qt::Key_Left);
    EXPECT_TRUE(h.model.zoomed());
    EXPECT_EQ(zoom->shot().id, visible[5].id);
    EXPECT_TRUE(zoom->isShowingFull()) << "the previous photo's full picture was not ready";
    EXPECT_EQ(zoom->scrollView()->magnification(), magnification);
    EXPECT_TRUE(nearRect(zoom->state()->visible(), looked, 0.002)) << "visible part moved across ←";
    h.model.setKeepZoom(false);

    // Out of zoom, every full picture is let go, those still decoding once they are done.
    h.press(Qt::Key_Escape);
    EXPECT_FALSE(h.model.zoomed());
    EXPECT_TRUE(QTest::qWaitFor([&] { return h.loupe->neighbours().fullBytes() == 0; }, ModelTest::loadTimeoutMs));
}
