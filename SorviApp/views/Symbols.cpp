#include "SorviApp/views/Symbols.h"

#include <QPainter>
#include <QPainterPath>
#include <QPixmap>

#include <functional>

// Symbols drawn here rather than shipped as files, in the grey of the toolbar's text.
namespace {

QIcon drawnIcon(const std::function<void(QPainter &)> &draw)
{
    QPixmap pixmap(QSize(32, 32));
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(QColor(0x60, 0x60, 0x60), 3, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    draw(painter);
    return QIcon(pixmap);
}

void spark(QPainter &p, QPointF centre, qreal r)
{
    QPainterPath star;
    star.moveTo(centre.x(), centre.y() - r);
    star.quadTo(centre, QPointF(centre.x() + r, centre.y()));
    star.quadTo(centre, QPointF(centre.x(), centre.y() + r));
    star.quadTo(centre, QPointF(centre.x() - r, centre.y()));
    star.quadTo(centre, QPointF(centre.x(), centre.y() - r));
    p.fillPath(star, p.pen().color());
}

} // namespace

namespace Symbols {

QIcon chevronIcon()
{
    return drawnIcon([](QPainter &p) { p.drawPolyline(QPolygonF({{20, 6}, {10, 16}, {20, 26}})); });
}

QIcon wandIcon()
{
    return drawnIcon([](QPainter &p) {
        p.drawLine(QPointF(5, 27), QPointF(19, 13));
        spark(p, {23, 8}, 6);
        spark(p, {11, 7}, 3.5);
        spark(p, {25, 20}, 3.5);
    });
}

// A tray with an arrow leaving it.
QIcon handOffIcon()
{
    return drawnIcon([](QPainter &p) {
        p.drawPolyline(QPolygonF({{5, 18}, {5, 27}, {27, 27}, {27, 18}}));
        p.drawLine(QPointF(16, 21), QPointF(16, 5));
        p.drawPolyline(QPolygonF({{10, 11}, {16, 5}, {22, 11}}));
    });
}

// Three sparks, large to small: the mark of what the AI does.
QIcon sparklesIcon()
{
    return drawnIcon([](QPainter &p) {
        spark(p, {13, 18}, 10);
        spark(p, {25, 7}, 5);
        spark(p, {25, 25}, 4);
    });
}

} // namespace Symbols
