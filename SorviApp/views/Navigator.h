#pragma once

#include "SorviKit/library/Shot.h"

#include <QImage>
#include <QWidget>

class ZoomState;

/// The small overlay over a zoomed picture: the whole shot, an outline of the part in
/// view, and the magnification in per cent. Pressing or dragging in it moves the zoomed
/// view there. GUI thread; the state must outlive it.
class Navigator : public QWidget {
    Q_OBJECT
public:
    /// The overlay's size in logical pixels.
    static constexpr QSize overlaySize{200, 150};

    Navigator(ZoomState &state, QWidget *parent = nullptr);

    /// The shot shown and its picture (any size; may be null while it loads).
    void setShot(const Shot &shot, const QImage &picture);

    /// The rectangle the shot's displayed size takes, fitted and centred in `size`; the
    /// whole of `size` (at the origin) for a shot without a known size.
    QRectF fittedRect(QSizeF size) const;
    /// The per-cent text under the picture: "100%".
    QString magnificationText() const;

protected:
    void paintEvent(QPaintEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseDoubleClickEvent(QMouseEvent *event) override;

private:
    QRectF pictureArea() const; ///< the part of the overlay the picture may use
    void requestCentre(QPointF at);

    ZoomState &m_state;
    Shot m_shot;
    QImage m_picture;
};
