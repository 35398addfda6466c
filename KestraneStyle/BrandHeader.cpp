#include "KestraneStyle/BrandHeader.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QPainterPath>
#include <QVBoxLayout>

namespace {

// The Kestrane mark: a falcon's wing as two strokes on a rounded square, drawn so no
// image file has to ship with the style.
QPixmap brandMark(int size, qreal devicePixelRatio)
{
    QPixmap mark(QSize(size, size) * devicePixelRatio);
    mark.setDevicePixelRatio(devicePixelRatio);
    mark.fill(Qt::transparent);
    QPainter painter(&mark);
    painter.setRenderHint(QPainter::Antialiasing);
    QLinearGradient sky(0, 0, size, size);
    sky.setColorAt(0, QColor(0x2f, 0x6f, 0xb5));
    sky.setColorAt(1, QColor(0x1b, 0x3f, 0x6b));
    painter.setBrush(sky);
    painter.setPen(Qt::NoPen);
    painter.drawRoundedRect(QRectF(0, 0, size, size), size * 0.22, size * 0.22);
    QPen wing(QColor(0xf2, 0xa5, 0x3a), size * 0.09, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
    painter.setPen(wing);
    painter.setBrush(Qt::NoBrush);
    QPainterPath path(QPointF(size * 0.2, size * 0.68));
    path.quadTo(QPointF(size * 0.45, size * 0.25), QPointF(size * 0.82, size * 0.3));
    path.moveTo(QPointF(size * 0.35, size * 0.75));
    path.quadTo(QPointF(size * 0.55, size * 0.5), QPointF(size * 0.8, size * 0.52));
    painter.drawPath(path);
    return mark;
}

} // namespace

BrandHeader::BrandHeader(const QString &title, const QString &subtitle, QWidget *parent) : QWidget(parent)
{
    m_row = new QHBoxLayout(this);
    m_row->setContentsMargins(24, 18, 24, 14);
    m_row->setSpacing(14);
    auto *mark = new QLabel(this);
    mark->setPixmap(brandMark(44, devicePixelRatioF()));
    m_row->addWidget(mark, 0, Qt::AlignTop);

    auto *texts = new QVBoxLayout;
    texts->setSpacing(2);
    auto *titleLabel = new QLabel(title, this);
    QFont titleFont = titleLabel->font();
    titleFont.setPointSizeF(titleFont.pointSizeF() * 1.7);
    titleFont.setWeight(QFont::DemiBold);
    titleLabel->setFont(titleFont);
    titleLabel->setAccessibleName(title);
    auto *subtitleLabel = new QLabel(subtitle, this);
    subtitleLabel->setStyleSheet(QStringLiteral("QLabel { color: palette(dark); }"));
    texts->addWidget(titleLabel);
    texts->addWidget(subtitleLabel);
    m_row->addLayout(texts, 1);
}

void BrandHeader::setTrailing(QWidget *trailing)
{
    delete m_trailing;
    m_trailing = trailing;
    if (trailing)
        m_row->addWidget(trailing, 0, Qt::AlignVCenter);
}
