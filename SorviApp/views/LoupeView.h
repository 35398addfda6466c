#pragma once

#include "SorviKit/library/Shot.h"

#include <QFutureWatcher>
#include <QImage>
#include <QPointF>
#include <QThreadPool>
#include <QWidget>

#include <optional>

class Filmstrip;
class NeighbourPictures;
class QStackedWidget;
class ShotImage;
class SorviModel;
class ZoomView;

/// The single-photo mode: the selected photo fitted into its area inset by 14 pixels,
/// upright, with its rating and check badges (and, when asked, its clipped highlights and
/// shadows marked), the Filmstrip below, and the ZoomView in its place while the model is
/// zoomed. A double-click on the photo zooms to 100 % at that spot; a double-click in the
/// zoomed picture comes back. The photos on either side are prepared ahead (fitted, and at
/// full resolution while zoomed), so moving shows the next photo at once. With Keep Zoom,
/// moving while zoomed opens the next photo at the same place and magnification; without
/// it, moving leaves zoom. The view takes no keyboard focus: the browser owns the keys.
/// GUI thread; the model must outlive it.
class LoupeView : public QWidget {
    Q_OBJECT
public:
    explicit LoupeView(SorviModel &model, QWidget *parent = nullptr);
    ~LoupeView() override; ///< waits for its decodes

    /// Where a click at `point` in a photo area of `size` falls on `shot`, as fractions of
    /// the displayed picture, clamped to 0…1 (see ZoomGeometry::normalized).
    static QPointF normalized(QPointF point, QSizeF size, const Shot &shot);

    /// The area the photo is fitted into, and where it is drawn now (its coordinates;
    /// empty while nothing is shown).
    QWidget *photoArea() const;
    QRect photoRect() const { return m_photoRect; }
    /// Whether the photo drawn now is the selected shot's full-quality picture rather
    /// than a stand-in while it loads.
    bool isShowingFullQuality() const { return m_showingFullQuality; }
    /// Whether no file of the selected shot decodes ("No preview for this photo").
    bool hasNoPicture() const;
    ZoomView *zoomView() const { return m_zoom; }
    Filmstrip *filmstrip() const { return m_filmstrip; }
    NeighbourPictures &neighbours() const { return *m_neighbours; }
    /// The clipping overlay drawn now (null when none is).
    QImage clippingOverlay() const { return m_clipping; }

    /// Magnifies the zoomed picture by `factor` about its middle; nothing unless zoomed.
    void magnifyBy(qreal factor);

signals:
    /// The photo area was painted; `fullQuality` as isShowingFullQuality().
    void photoPainted(bool fullQuality);

protected:
    void showEvent(QShowEvent *event) override;

private:
    friend class LoupeCanvas;
    void paintPhoto(QPainter &painter);
    void zoomAt(QPointF point);
    void selectionChanged();
    void refresh();
    void refreshZoom();
    void refreshClipping();
    void imageArrived();
    QList<Shot> neighboursOf(const Shot &shot, const QList<int> &offsets) const;
    QImage pictureFor(const Shot &shot) const; ///< the best picture at hand, possibly a stand-in

    struct Carried {
        QPointF centre;
        qreal magnification = 1;
    };

    SorviModel &m_model;
    QThreadPool m_pool;
    ShotImage *m_image = nullptr;
    NeighbourPictures *m_neighbours = nullptr;
    QWidget *m_canvas = nullptr;
    ZoomView *m_zoom = nullptr;
    QStackedWidget *m_stack = nullptr;
    Filmstrip *m_filmstrip = nullptr;
    Shot m_shownShot;
    QImage m_shown; ///< the fitted full-quality picture of m_shownShot
    QRect m_photoRect;
    bool m_showingFullQuality = false;
    std::optional<Carried> m_carried; ///< Keep Zoom's place for the next zoom
    QImage m_clipping;
    qint64 m_clippingOf = 0; ///< cacheKey of the picture m_clipping belongs to
    QFutureWatcher<QImage> *m_clippingWatcher = nullptr;
};
