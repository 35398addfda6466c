#include "SorviApp/views/ZoomGeometry.h"

#include "SorviKit/library/Shot.h"

#include <algorithm>

namespace ZoomGeometry {

QSizeF displayedSize(const Shot &shot)
{
    if (shot.width < 1 || shot.height < 1)
        return {};
    const bool quarterTurn = shot.orientation >= 5 && shot.orientation <= 8;
    return quarterTurn ? QSizeF(shot.height, shot.width) : QSizeF(shot.width, shot.height);
}

QPointF normalized(QPointF point, QSizeF viewSize, const Shot &shot)
{
    const QSizeF picture = displayedSize(shot);
    const qreal areaWidth = viewSize.width() - 2 * loupeInset, areaHeight = viewSize.height() - 2 * loupeInset;
    if (picture.isEmpty() || areaWidth <= 0 || areaHeight <= 0)
        return {0.5, 0.5};
    const qreal scale = std::min(areaWidth / picture.width(), areaHeight / picture.height());
    const qreal fittedWidth = scale * picture.width(), fittedHeight = scale * picture.height();
    const qreal x = (point.x() - ((areaWidth - fittedWidth) / 2 + loupeInset)) / fittedWidth;
    const qreal y = (point.y() - ((areaHeight - fittedHeight) / 2 + loupeInset)) / fittedHeight;
    return {std::clamp(x, 0.0, 1.0), std::clamp(y, 0.0, 1.0)};
}

QRectF fittedRect(QSizeF pictureSize, QSizeF area)
{
    if (pictureSize.width() < 1 || pictureSize.height() < 1)
        return QRectF(QPointF(0, 0), area);
    const QSizeF fitted = pictureSize.scaled(area, Qt::KeepAspectRatio);
    return QRectF(QPointF((area.width() - fitted.width()) / 2, (area.height() - fitted.height()) / 2), fitted);
}

QSizeF frameSize(QSize pixels, qreal devicePixelRatio)
{
    return QSizeF(pixels) / (devicePixelRatio > 0 ? devicePixelRatio : 2.0);
}

qreal fitMagnification(QSizeF frame, QSizeF view)
{
    const qreal fit = std::min(view.width() / std::max<qreal>(frame.width(), 1),
                               view.height() / std::max<qreal>(frame.height(), 1));
    return std::max(fit, minimumMagnification);
}

qreal clampMagnification(qreal magnification, qreal fit)
{
    return std::clamp(magnification, std::min(fit, maximumMagnification), std::max(fit, maximumMagnification));
}

QPointF originFor(QPointF centre, QSizeF content, QSizeF view)
{
    const auto axis = [](qreal fraction, qreal length, qreal shown) {
        if (length <= shown)
            return (length - shown) / 2; // smaller than the view: centred
        return std::clamp(fraction * length - shown / 2, 0.0, length - shown);
    };
    return {axis(centre.x(), content.width(), view.width()), axis(centre.y(), content.height(), view.height())};
}

QRectF visibleRect(QPointF origin, QSizeF content, QSizeF view)
{
    if (content.width() <= 0 || content.height() <= 0)
        return QRectF(0, 0, 1, 1);
    const qreal x = std::max<qreal>(0, origin.x() / content.width());
    const qreal y = std::max<qreal>(0, origin.y() / content.height());
    return QRectF(x, y, std::min<qreal>(1, view.width() / content.width()),
                  std::min<qreal>(1, view.height() / content.height()));
}

} // namespace ZoomGeometry
