#include "SorviApp/views/ZoomState.h"

void ZoomState::setVisible(const QRectF &visible)
{
    if (visible == m_visible)
        return;
    m_visible = visible;
    emit visibleChanged();
}

void ZoomState::setMagnification(qreal magnification)
{
    if (qFuzzyCompare(magnification, m_magnification))
        return;
    m_magnification = magnification;
    emit magnificationChanged();
}

void ZoomState::requestCentre(QPointF point)
{
    m_centreRequest = point;
    emit centreRequested();
}
