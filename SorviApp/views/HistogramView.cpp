#include "SorviApp/views/HistogramView.h"

#include <QPainter>
#include <QPainterPath>

#include <algorithm>

HistogramView::HistogramView(QWidget *parent) : QWidget(parent)
{
    setFixedHeight(64);
    setMinimumWidth(128);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
}

void HistogramView::setCounts(const std::optional<Histogram::Counts> &counts)
{
    m_counts = counts;
    update();
}

void HistogramView::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF frame = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(0x2A, 0x2A, 0x2A));
    painter.drawRoundedRect(frame, 4, 4);
    if (!m_counts)
        return;
    // Scaled to the tallest inner level: clipped blacks or whites pile up in the end bins
    // and would flatten the rest of the curve, so those two may run off the top.
    const Histogram::Counts &counts = *m_counts;
    const quint32 tallest = std::max<quint32>(1, *std::max_element(counts.begin() + 1, counts.end() - 1));
    const QRectF area = frame.adjusted(2, 4, -2, -1);
    QPainterPath curve;
    curve.moveTo(area.bottomLeft());
    for (int level = 0; level < int(counts.size()); ++level) {
        const qreal x = area.left() + area.width() * level / (counts.size() - 1);
        const qreal share = std::min(1.0, double(counts[level]) / tallest);
        curve.lineTo(x, area.bottom() - share * area.height());
    }
    curve.lineTo(area.bottomRight());
    curve.closeSubpath();
    QLinearGradient shade(area.topLeft(), area.topRight());
    shade.setColorAt(0, QColor(0x9A, 0x9A, 0x9A));
    shade.setColorAt(1, QColor(0xE8, 0xE8, 0xE8));
    painter.setClipRect(frame);
    painter.setBrush(shade);
    painter.drawPath(curve);
}
