#include "SorviApp/views/GridCell.h"

#include "SorviApp/views/RatingBadges.h"

#include <QPainter>
#include <QPalette>

namespace {

constexpr int padding = 6;
constexpr int captionGap = 4;
// Rejected photos stay in view under "All" so they can be reviewed, but recede.
constexpr qreal rejectedOpacity = 0.45;

// The preview is fitted in device pixels; on a high-density screen it covers fewer
// logical pixels.
QRect pictureRect(const QRect &area, const QImage &preview, qreal ratio)
{
    QSize shown = (QSizeF(preview.size()) / ratio).toSize();
    if (shown.width() > area.width() || shown.height() > area.height() ||
        (shown.width() < area.width() && shown.height() < area.height()))
        shown = shown.scaled(area.size(), Qt::KeepAspectRatio);
    return QRect(area.left() + (area.width() - shown.width()) / 2, area.top() + (area.height() - shown.height()) / 2,
                 shown.width(), shown.height());
}

void paintCaption(QPainter &painter, const QRect &cell, const GridCell &data, const QPalette &palette)
{
    const QRect caption(cell.left() + padding, GridCell::photoArea(cell).bottom() + 1 + captionGap,
                        cell.width() - 2 * padding, cell.bottom() - padding - GridCell::photoArea(cell).bottom());
    QString burst;
    if (data.burst)
        burst = QStringLiteral("Burst %1").arg(*data.burst);
    const QFontMetrics metrics(painter.font());
    const int burstWidth = burst.isEmpty() ? 0 : metrics.horizontalAdvance(burst) + padding;
    painter.setPen(data.selected ? palette.color(QPalette::HighlightedText) : palette.color(QPalette::Text));
    painter.drawText(caption.adjusted(0, 0, -burstWidth, 0), Qt::AlignLeft | Qt::AlignVCenter,
                     metrics.elidedText(data.shot.name(), Qt::ElideMiddle, caption.width() - burstWidth));
    if (!burst.isEmpty()) {
        painter.setPen(data.selected ? palette.color(QPalette::HighlightedText) : palette.color(QPalette::PlaceholderText));
        painter.drawText(caption, Qt::AlignRight | Qt::AlignVCenter, burst);
    }
}

} // namespace

QRect GridCell::photoArea(const QRect &cell)
{
    return QRect(cell.left() + (cell.width() - photoSize.width()) / 2, cell.top() + padding, photoSize.width(),
                 photoSize.height());
}

void GridCell::paint(QPainter &painter, const QRect &cell, const QImage &preview, bool failed,
                     const QPalette &palette) const
{
    painter.save();
    if (selected) {
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(Qt::NoPen);
        painter.setBrush(palette.color(QPalette::Highlight));
        painter.drawRoundedRect(QRectF(cell).adjusted(1, 1, -1, -1), 8, 8);
    }
    const QRect area = photoArea(cell);
    QRect picture = area;
    if (rating.flag == Rating::Flag::reject)
        painter.setOpacity(rejectedOpacity);
    if (preview.isNull()) {
        painter.fillRect(area, palette.color(QPalette::AlternateBase).darker(115));
        if (failed) {
            painter.setPen(palette.color(QPalette::PlaceholderText));
            painter.drawText(area, Qt::AlignCenter, QStringLiteral("No preview"));
        }
    } else {
        picture = pictureRect(area, preview, painter.device()->devicePixelRatioF());
        painter.setRenderHint(QPainter::SmoothPixmapTransform);
        painter.drawImage(QRectF(picture), preview);
    }
    painter.setOpacity(1.0);
    RatingBadges::paint(painter, picture, rating);
    if (checks)
        CheckBadges::paint(painter, picture, *checks);
    paintCaption(painter, cell, *this, palette);
    painter.restore();
}
