#include "SorviApp/views/ZoomScrollView.h"

#include "SorviApp/views/ZoomGeometry.h"
#include "SorviApp/views/ZoomState.h"

#include <QGestureEvent>
#include <QMouseEvent>
#include <QNativeGestureEvent>
#include <QPainter>
#include <QPinchGesture>
#include <QScrollBar>
#include <QWheelEvent>

#include <algorithm>
#include <cmath>

namespace {

// Behind the picture: the loupe's dark grey, so the edge of a small picture reads.
const QColor background(0x1E, 0x1E, 0x1E);
// One wheel notch (120 units) magnifies by a quarter of a doubling.
constexpr qreal wheelUnitsPerDoubling = 480;

} // namespace

ZoomScrollView::ZoomScrollView(ZoomState &state, QWidget *parent) : QAbstractScrollArea(parent), m_state(state)
{
    setFocusPolicy(Qt::NoFocus);
    setFrameShape(QFrame::NoFrame);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    setVerticalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    viewport()->setCursor(Qt::OpenHandCursor);
    viewport()->grabGesture(Qt::PinchGesture);
    viewport()->setAttribute(Qt::WA_OpaquePaintEvent);
    connect(&m_state, &ZoomState::centreRequested, this, [this] {
        if (const std::optional<QPointF> point = m_state.centreRequest()) {
            m_state.clearCentreRequest();
            centre(*point);
        }
    });
}

void ZoomScrollView::showPicture(const QImage &image, const QImage &smaller, QPointF anchor, qreal magnification)
{
    m_image = image;
    m_smaller = smaller;
    m_pending = Pending{anchor, magnification};
    // Before the first real layout the view's size means nothing; resizeEvent applies it.
    if (viewport()->width() > 0 && isVisible())
        applyPending();
}

void ZoomScrollView::applyPending()
{
    if (!m_pending || viewport()->width() <= 0)
        return;
    const Pending pending = *m_pending;
    m_pending.reset();
    m_frame = ZoomGeometry::frameSize(m_image.size(), devicePixelRatioF());
    m_minimum = ZoomGeometry::fitMagnification(m_frame, viewport()->size());
    m_magnification = ZoomGeometry::clampMagnification(pending.magnification, m_minimum);
    syncScrollBars();
    centre(pending.anchor);
}

void ZoomScrollView::centre(QPointF point)
{
    setOrigin(ZoomGeometry::originFor(point, content(), viewport()->size()));
}

void ZoomScrollView::magnifyBy(qreal factor, std::optional<QPointF> at)
{
    if (m_frame.isEmpty() || factor <= 0)
        return;
    const QPointF where = at.value_or(QPointF(viewport()->width() / 2.0, viewport()->height() / 2.0));
    const QSizeF before = content();
    const QPointF fraction((where.x() + m_origin.x()) / before.width(), (where.y() + m_origin.y()) / before.height());
    m_magnification = ZoomGeometry::clampMagnification(m_magnification * factor, m_minimum);
    const QSizeF after = content();
    syncScrollBars();
    setOrigin(QPointF(fraction.x() * after.width() - where.x(), fraction.y() * after.height() - where.y()));
}

void ZoomScrollView::setOrigin(QPointF origin)
{
    const QSizeF shown = content(), view = viewport()->size();
    const auto axis = [](qreal value, qreal length, qreal visible) {
        return length <= visible ? (length - visible) / 2 : std::clamp(value, 0.0, length - visible);
    };
    m_origin = QPointF(axis(origin.x(), shown.width(), view.width()), axis(origin.y(), shown.height(), view.height()));
    m_syncing = true;
    horizontalScrollBar()->setValue(qRound(std::max<qreal>(0, m_origin.x())));
    verticalScrollBar()->setValue(qRound(std::max<qreal>(0, m_origin.y())));
    m_syncing = false;
    viewport()->update();
    changed();
}

void ZoomScrollView::syncScrollBars()
{
    const QSizeF shown = content();
    const QSize view = viewport()->size();
    m_syncing = true;
    horizontalScrollBar()->setRange(0, std::max(0, qRound(shown.width() - view.width())));
    horizontalScrollBar()->setPageStep(view.width());
    verticalScrollBar()->setRange(0, std::max(0, qRound(shown.height() - view.height())));
    verticalScrollBar()->setPageStep(view.height());
    m_syncing = false;
}

void ZoomScrollView::changed()
{
    if (m_frame.width() <= 0 || m_frame.height() <= 0)
        return;
    m_state.setVisible(ZoomGeometry::visibleRect(m_origin, content(), viewport()->size()));
    m_state.setMagnification(m_magnification);
}

void ZoomScrollView::resizeEvent(QResizeEvent *event)
{
    QAbstractScrollArea::resizeEvent(event);
    if (m_pending) {
        applyPending();
        return;
    }
    if (m_frame.isEmpty())
        return;
    // Keep the middle of what was in view in the middle.
    const QRectF visible = m_state.visible();
    m_minimum = ZoomGeometry::fitMagnification(m_frame, viewport()->size());
    m_magnification = ZoomGeometry::clampMagnification(m_magnification, m_minimum);
    syncScrollBars();
    centre(visible.center());
}

void ZoomScrollView::showEvent(QShowEvent *event)
{
    QAbstractScrollArea::showEvent(event);
    // A view laid out while hidden gets no resize when it appears.
    applyPending();
}

void ZoomScrollView::scrollContentsBy(int, int)
{
    if (m_syncing)
        return;
    setOrigin(QPointF(horizontalScrollBar()->value(), verticalScrollBar()->value()));
}

void ZoomScrollView::paintEvent(QPaintEvent *event)
{
    QPainter painter(viewport());
    painter.fillRect(event->rect(), background);
    if (m_image.isNull() || m_frame.isEmpty())
        return;
    const QSizeF shown = content();
    const QRectF target(-m_origin, shown);
    const QRectF exposed = target.intersected(QRectF(event->rect()));
    if (exposed.isEmpty())
        return;
    // One picture pixel covers `magnification` device pixels; a smaller copy with at least
    // that many pixels looks the same and costs far less to scale.
    const bool smallerWillDo = !m_smaller.isNull() && m_smaller.width() >= m_magnification * m_image.width();
    const QImage &source = smallerWillDo ? m_smaller : m_image;
    const qreal sx = source.width() / shown.width(), sy = source.height() / shown.height();
    const QRectF from((exposed.x() - target.x()) * sx, (exposed.y() - target.y()) * sy, exposed.width() * sx,
                      exposed.height() * sy);
    // Below 100 % smooth; above, the pixels themselves are what the photographer checks.
    painter.setRenderHint(QPainter::SmoothPixmapTransform, m_magnification < 1 || smallerWillDo);
    painter.drawImage(exposed, source, from);
}

void ZoomScrollView::mousePressEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton)
        return QAbstractScrollArea::mousePressEvent(event);
    m_lastDrag = event->position();
    viewport()->setCursor(Qt::ClosedHandCursor);
}

void ZoomScrollView::mouseMoveEvent(QMouseEvent *event)
{
    if (!m_lastDrag)
        return QAbstractScrollArea::mouseMoveEvent(event);
    const QPointF moved = event->position() - *m_lastDrag;
    m_lastDrag = event->position();
    setOrigin(m_origin - moved);
}

void ZoomScrollView::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton)
        return QAbstractScrollArea::mouseReleaseEvent(event);
    m_lastDrag.reset();
    viewport()->setCursor(Qt::OpenHandCursor);
}

void ZoomScrollView::mouseDoubleClickEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton)
        emit zoomOutRequested();
}

void ZoomScrollView::wheelEvent(QWheelEvent *event)
{
    if (!(event->modifiers() & Qt::ControlModifier))
        return QAbstractScrollArea::wheelEvent(event);
    magnifyBy(std::pow(2.0, event->angleDelta().y() / wheelUnitsPerDoubling), event->position());
    event->accept();
}

bool ZoomScrollView::event(QEvent *event)
{
    if (event->type() == QEvent::NativeGesture) {
        const auto *gesture = static_cast<QNativeGestureEvent *>(event);
        if (gesture->gestureType() == Qt::ZoomNativeGesture) {
            magnifyBy(1 + gesture->value(), viewport()->mapFromGlobal(gesture->globalPosition()));
            return true;
        }
    }
    return QAbstractScrollArea::event(event);
}

bool ZoomScrollView::viewportEvent(QEvent *event)
{
    if (event->type() == QEvent::Gesture) {
        auto *gestures = static_cast<QGestureEvent *>(event);
        if (auto *pinch = static_cast<QPinchGesture *>(gestures->gesture(Qt::PinchGesture))) {
            if (pinch->changeFlags() & QPinchGesture::ScaleFactorChanged)
                magnifyBy(pinch->scaleFactor(), viewport()->mapFromGlobal(pinch->centerPoint()));
            return true;
        }
    }
    return QAbstractScrollArea::viewportEvent(event);
}
