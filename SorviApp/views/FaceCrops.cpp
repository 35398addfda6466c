#include "SorviApp/views/FaceCrops.h"

#include <algorithm>
#include <cmath>

QRect FaceCrops::cropRect(const QRectF &box, QSize picture)
{
    if (box.isEmpty() || picture.isEmpty())
        return {};
    const QRectF pixels(box.x() * picture.width(), box.y() * picture.height(), box.width() * picture.width(),
                        box.height() * picture.height());
    const int side = std::min({int(std::lround(std::max(pixels.width(), pixels.height()) * (1 + 2 * padding))),
                               picture.width(), picture.height()});
    if (side <= 0)
        return {};
    const QPointF centre = pixels.center();
    const int left = std::clamp(int(std::lround(centre.x() - side / 2.0)), 0, picture.width() - side);
    const int top = std::clamp(int(std::lround(centre.y() - side / 2.0)), 0, picture.height() - side);
    return QRect(left, top, side, side);
}

bool FaceCrops::needsMorePixels(const QList<FaceMark> &marks, QSize picture, int side)
{
    return std::any_of(marks.cbegin(), marks.cend(), [&](const FaceMark &mark) {
        const QRect crop = cropRect(mark.box, picture);
        return !crop.isEmpty() && crop.width() < side;
    });
}

QList<QImage> FaceCrops::cut(const QImage &picture, const QList<FaceMark> &marks, int side)
{
    QList<QImage> crops;
    for (const FaceMark &mark : marks) {
        const QRect crop = cropRect(mark.box, picture.size());
        crops << (crop.isEmpty() ? QImage()
                                 : picture.copy(crop).scaled(side, side, Qt::IgnoreAspectRatio,
                                                             Qt::SmoothTransformation));
    }
    return crops;
}
