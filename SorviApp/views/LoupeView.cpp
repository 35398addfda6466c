#include "SorviApp/views/LoupeView.h"

#include "SorviApp/views/CheckBadges.h"
#include "SorviApp/views/Clipping.h"
#include "SorviApp/views/Filmstrip.h"
#include "SorviApp/views/NeighbourPictures.h"
#include "SorviApp/views/RatingBadges.h"
#include "SorviApp/views/ShotImage.h"
#include "SorviApp/views/ZoomGeometry.h"
#include "SorviApp/views/ZoomScrollView.h"
#include "SorviApp/views/ZoomState.h"
#include "SorviApp/views/ZoomView.h"
#include "SorviApp/model/SorviModel.h"

#include <QMouseEvent>
#include <QPainter>
#include <QStackedWidget>
#include <QVBoxLayout>
#include <QtConcurrent/qtconcurrentrun.h>

#include <algorithm>

/// The photo area: paints through the loupe and turns a double-click into zoom.
class LoupeCanvas : public QWidget {
public:
    LoupeCanvas(LoupeView &loupe, QWidget *parent) : QWidget(parent), m_loupe(loupe)
    {
        setObjectName(QStringLiteral("loupePhoto"));
        setFocusPolicy(Qt::NoFocus);
        setAttribute(Qt::WA_OpaquePaintEvent);
    }

protected:
    void paintEvent(QPaintEvent *) override
    {
        QPainter painter(this);
        m_loupe.paintPhoto(painter);
    }
    void resizeEvent(QResizeEvent *event) override
    {
        QWidget::resizeEvent(event);
        m_loupe.refresh();
    }
    void mouseDoubleClickEvent(QMouseEvent *event) override
    {
        if (event->button() == Qt::LeftButton)
            m_loupe.zoomAt(event->position());
    }

private:
    LoupeView &m_loupe;
};

namespace {

const QColor background(0x1E, 0x1E, 0x1E);
// Which neighbours are prepared, nearest first: the next two and the previous one.
const QList<int> fittedNeighbours{1, 2, -1};
const QList<int> fullNeighbours{1, -1};

} // namespace

LoupeView::LoupeView(SorviModel &model, QWidget *parent) : QWidget(parent), m_model(model)
{
    setObjectName(QStringLiteral("loupe"));
    setFocusPolicy(Qt::NoFocus);
    m_pool.setMaxThreadCount(1); // a newer selection supersedes the older anyway
    m_image = new ShotImage(model.previews(), m_pool, 0, this);
    m_neighbours = new NeighbourPictures(model.previews(), this);
    m_canvas = new LoupeCanvas(*this, this);
    m_zoom = new ZoomView(this);
    m_stack = new QStackedWidget(this);
    m_stack->addWidget(m_canvas);
    m_stack->addWidget(m_zoom);
    m_filmstrip = new Filmstrip(model, this);
    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(0);
    column->addWidget(m_stack, 1);
    column->addWidget(m_filmstrip);

    connect(m_image, &ShotImage::imageReady, this, &LoupeView::imageArrived);
    connect(m_neighbours, &NeighbourPictures::fittedReady, this, [this](const QString &id) {
        if (id == m_model.selection())
            refresh();
    });
    connect(m_zoom, &ZoomView::zoomOutRequested, this, [this] { m_model.setZoomed(false); });
    connect(m_zoom, &ZoomView::fullShown, this, [this] {
        // The shown picture is up: now its neighbours' full pictures, for Keep Zoom.
        if (const std::optional<Shot> shot = m_model.selectedShot())
            m_neighbours->keepFull(QList<Shot>{*shot} + neighboursOf(*shot, fullNeighbours));
    });
    connect(&model, &SorviModel::selectionChanged, this, &LoupeView::selectionChanged);
    for (auto signal : {&SorviModel::visibleShotsChanged, &SorviModel::zoomedChanged})
        connect(&model, signal, this, &LoupeView::refresh);
    connect(&model, &SorviModel::folderChanged, this, [this] {
        m_neighbours->clear();
        m_zoom->close();
    });
    connect(&model, &SorviModel::showClippingChanged, this, &LoupeView::refreshClipping);
    for (auto signal : {&SorviModel::softChanged, &SorviModel::bestOfBurstChanged, &SorviModel::assessmentsChanged,
                        &SorviModel::showChecksChanged, &SorviModel::ratingsChanged})
        connect(&model, signal, m_canvas, qOverload<>(&QWidget::update));
}

LoupeView::~LoupeView()
{
    delete m_image; // cancels a request no worker took up yet
    m_pool.waitForDone();
    if (m_clippingWatcher)
        m_clippingWatcher->waitForFinished();
}

QPointF LoupeView::normalized(QPointF point, QSizeF size, const Shot &shot)
{
    return ZoomGeometry::normalized(point, size, shot);
}

QWidget *LoupeView::photoArea() const { return m_canvas; }

void LoupeView::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    refresh();
}

QList<Shot> LoupeView::neighboursOf(const Shot &shot, const QList<int> &offsets) const
{
    const QList<Shot> visible = m_model.visibleShots();
    const auto at = std::find_if(visible.begin(), visible.end(), [&shot](const Shot &s) { return s.id == shot.id; });
    QList<Shot> neighbours;
    if (at == visible.end())
        return neighbours;
    const qsizetype index = at - visible.begin();
    for (const int offset : offsets)
        if (index + offset >= 0 && index + offset < visible.size())
            neighbours << visible[index + offset];
    return neighbours;
}

void LoupeView::selectionChanged()
{
    // Still zoomed on another photo: Keep Zoom opens this one where that one was looked at.
    if (m_model.zoomed() && m_zoom->isShowingFull() && m_zoom->shot().id != m_model.selection())
        m_carried = Carried{m_zoom->state()->visible().center(), m_zoom->state()->magnification()};
    refresh();
}

void LoupeView::refresh()
{
    // A hidden loupe (the grid is showing) decodes nothing.
    if (!isVisible())
        return;
    const std::optional<Shot> shot = m_model.selectedShot();
    if (!shot) {
        m_shown = QImage();
        m_shownShot = Shot();
        refreshZoom();
        m_canvas->update();
        return;
    }
    const QMargins inset(ZoomGeometry::loupeInset, ZoomGeometry::loupeInset, ZoomGeometry::loupeInset,
                         ZoomGeometry::loupeInset);
    const QSize fit = (QSizeF(m_canvas->size().shrunkBy(inset)) * devicePixelRatioF()).toSize().expandedTo({1, 1});
    const int tier = ShotImage::tier(std::max(fit.width(), fit.height()), SorviModel::screenPixels());
    m_neighbours->keepFitted(QList<Shot>{*shot} + neighboursOf(*shot, fittedNeighbours), tier, fit);

    const QImage ready = m_neighbours->fitted(*shot);
    if (!ready.isNull()) {
        m_shownShot = *shot;
        m_shown = ready;
    } else {
        m_image->request(*shot, tier, fit, 1);
        if (m_image->shot() == *shot && !m_image->image().isNull() && !m_image->isLoading()) {
            m_shownShot = *shot;
            m_shown = m_image->image();
        } else if (!(m_shownShot == *shot)) {
            m_shown = QImage();
        }
    }
    refreshZoom();
    refreshClipping();
    m_canvas->update();
}

void LoupeView::imageArrived()
{
    const std::optional<Shot> shot = m_model.selectedShot();
    if (!shot || !(m_image->shot() == *shot))
        return;
    if (!m_image->image().isNull()) {
        m_shownShot = *shot;
        m_shown = m_image->image();
        m_neighbours->storeFitted(*shot, m_shown);
        refreshClipping();
    }
    m_canvas->update();
}

QImage LoupeView::pictureFor(const Shot &shot) const
{
    if (m_shownShot == shot && !m_shown.isNull())
        return m_shown;
    if (const QImage ready = m_neighbours->fitted(shot); !ready.isNull())
        return ready;
    // While the large picture decodes, the grid's small one (when cached) stands in.
    if (const std::optional<ShotPreview> small = m_model.previews().cached(shot, ShotImage::smallTier))
        return ShotImage::prepare(small->image, small->orientation, {});
    return {};
}

void LoupeView::refreshZoom()
{
    const std::optional<Shot> shot = m_model.selectedShot();
    if (!m_model.zoomed() || !shot) {
        m_carried.reset();
        if (m_zoom->state())
            m_zoom->close();
        m_neighbours->keepFull({});
        m_stack->setCurrentWidget(m_canvas);
        return;
    }
    m_stack->setCurrentWidget(m_zoom);
    if (m_zoom->state() && m_zoom->shot() == *shot)
        return;
    QPointF anchor = m_model.zoomAnchor();
    qreal magnification = 1;
    if (m_carried) {
        anchor = m_carried->centre;
        magnification = m_carried->magnification;
    }
    m_zoom->open(*shot, anchor, magnification, pictureFor(*shot), m_neighbours->full(*shot, true));
}

void LoupeView::refreshClipping()
{
    if (!m_model.showClipping() || m_shown.isNull()) {
        m_clipping = QImage();
        m_clippingOf = 0;
        m_canvas->update();
        return;
    }
    if (m_clippingOf == m_shown.cacheKey())
        return;
    m_clippingOf = m_shown.cacheKey();
    m_clipping = QImage();
    if (m_clippingWatcher)
        m_clippingWatcher->disconnect(this);
    auto *watcher = new QFutureWatcher<QImage>(this);
    m_clippingWatcher = watcher;
    const qint64 of = m_clippingOf;
    connect(watcher, &QFutureWatcherBase::finished, this, [this, watcher, of] {
        watcher->deleteLater();
        if (watcher == m_clippingWatcher)
            m_clippingWatcher = nullptr;
        if (of != m_clippingOf)
            return;
        m_clipping = watcher->result();
        m_canvas->update();
    });
    // The marks are computed on a worker: a screen-sized picture is millions of pixels.
    watcher->setFuture(QtConcurrent::run(&m_pool, [picture = m_shown] { return Clipping::overlay(picture); }));
}

void LoupeView::zoomAt(QPointF point)
{
    const std::optional<Shot> shot = m_model.selectedShot();
    if (!shot)
        return;
    m_model.setZoomAnchor(normalized(point, m_canvas->size(), *shot));
    m_model.setZoomed(true);
}

bool LoupeView::hasNoPicture() const
{
    const std::optional<Shot> shot = m_model.selectedShot();
    return shot && m_image->hasFailed() && m_image->shot() == *shot;
}

void LoupeView::magnifyBy(qreal factor)
{
    if (m_model.zoomed() && m_zoom->isShowingFull())
        m_zoom->scrollView()->magnifyBy(factor);
}

void LoupeView::paintPhoto(QPainter &painter)
{
    painter.fillRect(m_canvas->rect(), background);
    m_photoRect = QRect();
    m_showingFullQuality = false;
    const std::optional<Shot> shot = m_model.selectedShot();
    if (!shot)
        return;
    QImage image = pictureFor(*shot);
    m_showingFullQuality = m_shownShot == *shot && !m_shown.isNull();
    if (image.isNull()) {
        painter.setPen(QColor(0xA0, 0xA0, 0xA0));
        painter.drawText(m_canvas->rect(), Qt::AlignCenter, hasNoPicture() ? QStringLiteral("No preview for this photo") : QString());
        emit photoPainted(false);
        return;
    }
    const qreal inset = ZoomGeometry::loupeInset;
    const QRectF area = QRectF(m_canvas->rect()).adjusted(inset, inset, -inset, -inset);
    const QRectF fitted = ZoomGeometry::fittedRect(image.size(), area.size()).translated(area.topLeft());
    m_photoRect = fitted.toAlignedRect();
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.drawImage(fitted, image);
    if (!m_clipping.isNull() && m_showingFullQuality)
        painter.drawImage(fitted, m_clipping);
    RatingBadges::paint(painter, m_photoRect, m_model.rating(shot->id));
    if (m_model.showChecks())
        CheckBadges::paint(painter, m_photoRect,
                           {m_model.soft().contains(shot->id), m_model.assessments().value(shot->id).eyesClosed > 0,
                            m_model.bestOfBurst().contains(shot->id)});
    emit photoPainted(m_showingFullQuality);
}
