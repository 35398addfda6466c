#include "SorviApp/views/RatingBadges.h"

#include <QFontMetrics>
#include <QPainter>
#include <QPainterPath>

namespace {

// Badges scale a little with the photo so they stay readable in a large single photo
// without covering a small grid cell.
int badgeSize(const QRect &photo)
{
    return std::clamp(std::min(photo.width(), photo.height()) / 6, 20, 34);
}

// A dark rounded backing keeps the marks visible on bright and dark photos alike.
void paintBacking(QPainter &painter, const QRectF &box)
{
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(0, 0, 0, 150));
    painter.drawRoundedRect(box, box.height() / 2, box.height() / 2);
}

void paintStars(QPainter &painter, const QRect &photo, int stars, int size)
{
    QFont font = painter.font();
    font.setPixelSize(std::max(10, size * 2 / 3));
    painter.setFont(font);
    const QString text(stars, QChar(0x2605));
    const QFontMetrics metrics(font);
    const int margin = size / 4;
    const QRectF box(photo.left() + margin, photo.bottom() - margin - size * 0.8,
                     metrics.horizontalAdvance(text) + size / 2.0, size * 0.8);
    paintBacking(painter, box);
    painter.setPen(RatingBadges::starColour);
    painter.drawText(box, Qt::AlignCenter, text);
}

} // namespace

QColor RatingBadges::labelColour(Rating::Label label)
{
    switch (label) {
    case Rating::Label::red: return QColor(0xE5, 0x3E, 0x3E);
    case Rating::Label::yellow: return QColor(0xF2, 0xC9, 0x1E);
    case Rating::Label::green: return QColor(0x3C, 0xB0, 0x4A);
    case Rating::Label::blue: return QColor(0x2F, 0x7C, 0xF6);
    case Rating::Label::purple: return QColor(0x9B, 0x4D, 0xE0);
    case Rating::Label::none: break;
    }
    return {};
}

void RatingBadges::paintReject(QPainter &painter, const QRectF &box)
{
    painter.setPen(Qt::NoPen);
    painter.setBrush(rejectColour);
    painter.drawEllipse(box);
    const qreal inset = box.width() * 0.3;
    const QRectF cross = box.adjusted(inset, inset, -inset, -inset);
    painter.setPen(QPen(Qt::white, std::max<qreal>(1.5, box.width() / 9), Qt::SolidLine, Qt::RoundCap));
    painter.drawLine(cross.topLeft(), cross.bottomRight());
    painter.drawLine(cross.topRight(), cross.bottomLeft());
}

void RatingBadges::paintPick(QPainter &painter, const QRectF &box)
{
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(0, 0, 0, 150));
    painter.drawEllipse(box);
    const qreal w = box.width();
    const QPointF pole(box.left() + w * 0.32, box.top() + w * 0.22);
    QPainterPath flag;
    flag.moveTo(pole);
    flag.cubicTo(pole + QPointF(w * 0.15, -w * 0.06), pole + QPointF(w * 0.28, w * 0.08), pole + QPointF(w * 0.45, 0));
    flag.lineTo(pole + QPointF(w * 0.45, w * 0.32));
    flag.cubicTo(pole + QPointF(w * 0.28, w * 0.4), pole + QPointF(w * 0.15, w * 0.26), pole + QPointF(0, w * 0.32));
    flag.closeSubpath();
    painter.setBrush(pickColour);
    painter.drawPath(flag);
    painter.setPen(QPen(pickColour, std::max<qreal>(1.5, w / 12), Qt::SolidLine, Qt::RoundCap));
    painter.drawLine(pole, pole + QPointF(0, w * 0.58));
}

void RatingBadges::paint(QPainter &painter, const QRect &photo, const Rating &rating)
{
    if (rating.isEmpty() || photo.isEmpty())
        return;
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    const int size = badgeSize(photo);
    const int margin = size / 4;
    const QRectF corner(photo.left() + margin, photo.top() + margin, size, size);
    if (rating.flag == Rating::Flag::reject)
        paintReject(painter, corner);
    else if (rating.flag == Rating::Flag::pick)
        paintPick(painter, corner);
    if (rating.label != Rating::Label::none) {
        const qreal dot = size * 0.6;
        const QRectF box(photo.right() - margin - dot, photo.top() + margin + (size - dot) / 2, dot, dot);
        painter.setPen(QPen(Qt::white, 1.5));
        painter.setBrush(labelColour(rating.label));
        painter.drawEllipse(box);
    }
    if (rating.stars > 0)
        paintStars(painter, photo, rating.stars, size);
    painter.restore();
}
