#pragma once

#include <QAbstractScrollArea>
#include <QImage>
#include <QPointF>

#include <optional>

class ZoomState;

/// The magnified picture: one decoded image drawn at a magnification where 1 puts one
/// picture pixel on one device pixel (100 %), from the fit of the view (at least 0.02) up
/// to 4. Scroll bars appear when the picture is larger than the view, and a picture
/// smaller than the view stays centred. Ctrl+wheel, a pinch and magnifyBy() zoom about a
/// point; dragging with the open hand pans; a double-click asks to leave zoom. Only what
/// is in view is drawn, from a smaller copy when it has enough pixels for the current
/// magnification. The view publishes what it shows into a ZoomState and follows that
/// state's centre requests. It takes no keyboard focus. GUI thread.
class ZoomScrollView : public QAbstractScrollArea {
    Q_OBJECT
public:
    explicit ZoomScrollView(ZoomState &state, QWidget *parent = nullptr);

    /// Shows `image` (upright, full size) centred on `anchor` (fractions of the picture)
    /// at `magnification` (1 = 100 %, clamped to the view's range). `smaller` is the same
    /// picture at screen size (may be null). Waits for the view's first real size.
    void showPicture(const QImage &image, const QImage &smaller, QPointF anchor, qreal magnification = 1.0);
    /// Centres the picture on `point` (fractions of the picture) as far as its edges allow.
    void centre(QPointF point);
    /// Multiplies the magnification by `factor`, keeping the picture point under `at`
    /// (viewport coordinates; the middle when absent) where it is.
    void magnifyBy(qreal factor, std::optional<QPointF> at = std::nullopt);

    qreal magnification() const { return m_magnification; }
    qreal minimumMagnification() const { return m_minimum; }
    /// The picture's size in logical pixels at magnification 1 (its pixels ÷ device ratio).
    QSizeF frame() const { return m_frame; }
    QImage image() const { return m_image; }

signals:
    /// A double-click in the picture: leave zoom.
    void zoomOutRequested();

protected:
    bool event(QEvent *event) override;
    bool viewportEvent(QEvent *event) override;
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void scrollContentsBy(int dx, int dy) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void mouseDoubleClickEvent(QMouseEvent *event) override;
    void wheelEvent(QWheelEvent *event) override;

private:
    struct Pending {
        QPointF anchor;
        qreal magnification = 1;
    };
    void applyPending();
    QSizeF content() const { return m_frame * m_magnification; }
    void setOrigin(QPointF origin); ///< clamped; updates scroll bars, repaints, publishes
    void syncScrollBars();
    void changed();

    ZoomState &m_state;
    QImage m_image;
    QImage m_smaller;
    QSizeF m_frame;
    qreal m_magnification = 1;
    qreal m_minimum = 1;
    QPointF m_origin; ///< the view's top-left in magnified content pixels (negative: centred)
    std::optional<Pending> m_pending;
    std::optional<QPointF> m_lastDrag;
    bool m_syncing = false;
};
