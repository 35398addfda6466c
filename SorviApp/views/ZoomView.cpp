#include "SorviApp/views/ZoomView.h"

#include "SorviApp/views/Navigator.h"
#include "SorviApp/views/ZoomGeometry.h"
#include "SorviApp/views/ZoomScrollView.h"
#include "SorviApp/views/ZoomState.h"

#include <QPainter>
#include <QPainterPath>

namespace {

constexpr int navigatorMargin = 12;

} // namespace

ZoomView::ZoomView(QWidget *parent) : QWidget(parent)
{
    setFocusPolicy(Qt::NoFocus);
    setAutoFillBackground(true);
    QPalette dark = palette();
    dark.setColor(QPalette::Window, QColor(0x1E, 0x1E, 0x1E));
    setPalette(dark);
}

void ZoomView::open(const Shot &shot, QPointF anchor, qreal magnification, const QImage &preview,
                    const QFuture<QImage> &full)
{
    close();
    m_shot = shot;
    m_anchor = anchor;
    m_magnification = magnification;
    m_preview = preview;
    m_open = true;
    // A new zoom: new state, new picture view and navigator bound to it.
    m_state = new ZoomState(this);
    m_scroll = new ZoomScrollView(*m_state, this);
    m_scroll->setGeometry(rect());
    m_scroll->hide();
    connect(m_scroll, &ZoomScrollView::zoomOutRequested, this, &ZoomView::zoomOutRequested);
    m_navigator = new Navigator(*m_state, this);
    m_navigator->setShot(shot, preview);
    m_navigator->hide();

    if (full.isFinished()) {
        showFull(full.result());
        return;
    }
    m_watcher = new QFutureWatcher<QImage>(this);
    QFutureWatcher<QImage> *watcher = m_watcher;
    connect(watcher, &QFutureWatcherBase::finished, this, [this, watcher] {
        if (watcher == m_watcher)
            showFull(watcher->result());
    });
    watcher->setFuture(full);
    update();
}

void ZoomView::close()
{
    if (m_watcher) {
        m_watcher->disconnect(this);
        m_watcher->deleteLater();
        m_watcher = nullptr;
    }
    delete m_navigator;
    delete m_scroll;
    delete m_state;
    m_navigator = nullptr;
    m_scroll = nullptr;
    m_state = nullptr;
    m_open = m_shown = m_failed = false;
    m_shot = Shot();
    m_preview = QImage();
    update();
}

void ZoomView::showFull(const QImage &full)
{
    if (m_watcher) {
        m_watcher->deleteLater();
        m_watcher = nullptr;
    }
    if (full.isNull()) {
        m_failed = true;
        update();
        return;
    }
    m_shown = true;
    m_scroll->setGeometry(rect());
    m_scroll->show();
    m_scroll->showPicture(full, m_preview, m_anchor, m_magnification);
    placeNavigator();
    m_navigator->show();
    m_navigator->raise();
    emit fullShown();
}

void ZoomView::placeNavigator()
{
    if (m_navigator)
        m_navigator->move(width() - m_navigator->width() - navigatorMargin, navigatorMargin);
}

void ZoomView::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    if (m_scroll)
        m_scroll->setGeometry(rect());
    placeNavigator();
}

void ZoomView::paintEvent(QPaintEvent *)
{
    if (m_shown || !m_open)
        return;
    QPainter painter(this);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    const qreal inset = ZoomGeometry::loupeInset;
    const QRectF area = QRectF(rect()).adjusted(inset, inset, -inset, -inset);
    if (!m_preview.isNull())
        painter.drawImage(ZoomGeometry::fittedRect(m_preview.size(), area.size()).translated(area.topLeft()), m_preview);
    // The note sits on a dark pill so it reads over any photo.
    const QString text = m_failed ? failedText() : decodingText();
    const QFontMetrics metrics(font());
    const QRectF pill(QPointF(0, 0), QSizeF(metrics.horizontalAdvance(text) + 28, metrics.height() + 14));
    const QRectF placed = pill.translated(rect().center() - pill.center());
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(0, 0, 0, 180));
    painter.drawRoundedRect(placed, pill.height() / 2, pill.height() / 2);
    painter.setPen(Qt::white);
    painter.drawText(placed, Qt::AlignCenter, text);
}
