#include "SorviApp/views/Navigator.h"

#include "SorviApp/views/ZoomGeometry.h"
#include "SorviApp/views/ZoomState.h"

#include <QMouseEvent>
#include <QPainter>

#include <cmath>

namespace {

constexpr qreal padding = 8;
constexpr qreal labelHeight = 18;

} // namespace

Navigator::Navigator(ZoomState &state, QWidget *parent) : QWidget(parent), m_state(state)
{
    setObjectName(QStringLiteral("navigator"));
    setFixedSize(overlaySize);
    setFocusPolicy(Qt::NoFocus);
    setCursor(Qt::PointingHandCursor);
    for (auto signal : {&ZoomState::visibleChanged, &ZoomState::magnificationChanged})
        connect(&m_state, signal, this, qOverload<>(&QWidget::update));
}

void Navigator::setShot(const Shot &shot, const QImage &picture)
{
    m_shot = shot;
    m_picture = picture;
    update();
}

QRectF Navigator::fittedRect(QSizeF size) const
{
    return ZoomGeometry::fittedRect(ZoomGeometry::displayedSize(m_shot), size);
}

QString Navigator::magnificationText() const
{
    return QString::number(std::lround(m_state.magnification() * 100)) + QLatin1Char('%');
}

QRectF Navigator::pictureArea() const
{
    return QRectF(padding, padding, width() - 2 * padding, height() - 2 * padding - labelHeight);
}

void Navigator::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(0, 0, 0, 170));
    painter.drawRoundedRect(QRectF(rect()), 8, 8);

    const QRectF area = pictureArea();
    const QRectF fitted = fittedRect(area.size()).translated(area.topLeft());
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    if (!m_picture.isNull())
        painter.drawImage(fitted, m_picture);
    const QRectF visible = m_state.visible();
    const QRectF outline(fitted.x() + visible.x() * fitted.width(), fitted.y() + visible.y() * fitted.height(),
                         visible.width() * fitted.width(), visible.height() * fitted.height());
    painter.setBrush(Qt::NoBrush);
    painter.setPen(QPen(QColor(0, 0, 0, 140), 3));
    painter.drawRect(outline);
    painter.setPen(QPen(Qt::white, 1.5));
    painter.drawRect(outline);

    painter.setPen(QColor(0xE8, 0xE8, 0xE8));
    painter.drawText(QRectF(0, height() - padding - labelHeight, width(), labelHeight), Qt::AlignCenter,
                     magnificationText());
}

void Navigator::requestCentre(QPointF at)
{
    const QRectF area = pictureArea();
    const QRectF fitted = fittedRect(area.size()).translated(area.topLeft());
    if (fitted.width() <= 0 || fitted.height() <= 0)
        return;
    m_state.requestCentre(QPointF(std::clamp((at.x() - fitted.x()) / fitted.width(), 0.0, 1.0),
                                  std::clamp((at.y() - fitted.y()) / fitted.height(), 0.0, 1.0)));
}

void Navigator::mousePressEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton)
        requestCentre(event->position());
}

void Navigator::mouseMoveEvent(QMouseEvent *event)
{
    if (event->buttons() & Qt::LeftButton)
        requestCentre(event->position());
}

void Navigator::mouseDoubleClickEvent(QMouseEvent *event)
{
    // A quick second press is one more move, never a way out of zoom.
    mousePressEvent(event);
}
