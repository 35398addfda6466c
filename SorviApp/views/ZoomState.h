#pragma once

#include <QObject>
#include <QPointF>
#include <QRectF>

#include <optional>

/// What the zoomed picture and its navigator share: the part of the picture in view, the
/// magnification, and a point the navigator asks the picture to centre on. Every field's
/// signal is emitted only when its value changed. GUI thread.
class ZoomState : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

    /// The part of the picture shown, as fractions (0…1, origin top-left).
    QRectF visible() const { return m_visible; }
    qreal magnification() const { return m_magnification; }
    /// A point (fractions of the picture) to centre on, until the picture has done it.
    std::optional<QPointF> centreRequest() const { return m_centreRequest; }

    void setVisible(const QRectF &visible);
    void setMagnification(qreal magnification);
    void requestCentre(QPointF point);
    void clearCentreRequest() { m_centreRequest.reset(); }

signals:
    void visibleChanged();
    void magnificationChanged();
    void centreRequested();

private:
    QRectF m_visible{0, 0, 1, 1};
    qreal m_magnification = 1;
    std::optional<QPointF> m_centreRequest;
};
