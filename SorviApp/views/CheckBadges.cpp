#include "SorviApp/views/CheckBadges.h"

#include <QFontMetrics>
#include <QPainter>
#include <QPainterPath>

#include <functional>

namespace {

const QColor softColour(0xF0, 0x8C, 0x2E);
const QColor eyesColour(0x6A, 0xB7, 0xF5);
const QColor bestColour(0xF5, 0xC5, 0x18);

using Symbol = std::function<void(QPainter &, const QRectF &)>;

// A metering frame with a centre spot: the camera's focus is what failed.
void metering(QPainter &painter, const QRectF &box)
{
    painter.setBrush(Qt::NoBrush);
    painter.drawRoundedRect(box.adjusted(1, 2, -1, -2), 2, 2);
    const qreal r = box.width() / 5;
    painter.drawEllipse(box.center(), r, r);
}

void eyeSlash(QPainter &painter, const QRectF &box)
{
    painter.setBrush(Qt::NoBrush);
    QPainterPath eye;
    eye.moveTo(box.left(), box.center().y());
    eye.quadTo(box.center().x(), box.top(), box.right(), box.center().y());
    eye.quadTo(box.center().x(), box.bottom(), box.left(), box.center().y());
    painter.drawPath(eye);
    painter.drawEllipse(box.center(), box.width() / 8, box.width() / 8);
    painter.drawLine(box.topLeft() + QPointF(1, 1), box.bottomRight() - QPointF(1, 1));
}

void crown(QPainter &painter, const QRectF &box)
{
    const qreal w = box.width(), h = box.height();
    QPainterPath path;
    path.moveTo(box.left(), box.top() + h * 0.25);
    path.lineTo(box.left() + w * 0.28, box.top() + h * 0.55);
    path.lineTo(box.left() + w * 0.5, box.top() + h * 0.1);
    path.lineTo(box.left() + w * 0.72, box.top() + h * 0.55);
    path.lineTo(box.right(), box.top() + h * 0.25);
    path.lineTo(box.right() - w * 0.1, box.bottom() - h * 0.1);
    path.lineTo(box.left() + w * 0.1, box.bottom() - h * 0.1);
    path.closeSubpath();
    painter.setBrush(painter.pen().color());
    painter.drawPath(path);
}

// One pill ending at `right`; returns the left edge it took.
qreal pill(QPainter &painter, qreal right, qreal top, qreal height, const QString &text, const QColor &colour,
           const Symbol &symbol)
{
    const QFontMetrics metrics(painter.font());
    const qreal symbolSize = height * 0.6;
    const qreal pad = height * 0.3;
    const qreal width = pad + symbolSize + pad / 2 + metrics.horizontalAdvance(text) + pad;
    const QRectF box(right - width, top, width, height);
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(0, 0, 0, 165));
    painter.drawRoundedRect(box, height / 2, height / 2);
    painter.setPen(QPen(colour, 1.4));
    symbol(painter, QRectF(box.left() + pad, top + (height - symbolSize) / 2, symbolSize, symbolSize));
    painter.setPen(colour);
    painter.drawText(QRectF(box.left() + pad + symbolSize + pad / 2, top, width, height), Qt::AlignVCenter, text);
    return box.left();
}

} // namespace

void CheckBadges::paint(QPainter &painter, const QRect &photo, const Flags &flags)
{
    if (flags.isEmpty() || photo.isEmpty())
        return;
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    const int height = std::clamp(std::min(photo.width(), photo.height()) / 8, 14, 24);
    QFont font = painter.font();
    font.setPixelSize(height * 6 / 10);
    font.setWeight(QFont::DemiBold);
    painter.setFont(font);
    const qreal margin = height / 4.0;
    const qreal top = photo.bottom() - margin - height;
    qreal right = photo.right() - margin;
    if (flags.best)
        right = pill(painter, right, top, height, QStringLiteral("Best"), bestColour, crown) - margin / 2;
    if (flags.eyesClosed)
        right = pill(painter, right, top, height, QStringLiteral("Eyes"), eyesColour, eyeSlash) - margin / 2;
    if (flags.soft)
        pill(painter, right, top, height, QStringLiteral("Soft"), softColour, metering);
    painter.restore();
}
