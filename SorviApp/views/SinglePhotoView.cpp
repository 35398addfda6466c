#include "SorviApp/views/SinglePhotoView.h"

#include "SorviApp/views/CheckBadges.h"
#include "SorviApp/views/RatingBadges.h"
#include "SorviApp/views/ShotImage.h"
#include "SorviApp/model/SorviModel.h"

#include <QPainter>

#include <algorithm>

namespace {

// Room around the fitted photo so its edge reads against the background.
constexpr int margin = 14;

} // namespace

SinglePhotoView::SinglePhotoView(SorviModel &model, QWidget *parent) : QWidget(parent), m_model(model)
{
    setFocusPolicy(Qt::NoFocus);
    setAutoFillBackground(true);
    QPalette dark = palette();
    dark.setColor(QPalette::Window, QColor(0x1E, 0x1E, 0x1E));
    setPalette(dark);
    // One decode at a time: a newer selection supersedes the older anyway.
    m_pool.setMaxThreadCount(1);
    m_image = new ShotImage(model.previews(), m_pool, this);
    connect(m_image, &ShotImage::imageReady, this, qOverload<>(&QWidget::update));
    for (auto signal : {&SorviModel::selectionChanged, &SorviModel::visibleShotsChanged, &SorviModel::zoomedChanged,
                        &SorviModel::zoomAnchorChanged})
        connect(&model, signal, this, &SinglePhotoView::refresh);
    for (auto signal : {&SorviModel::softChanged, &SorviModel::bestOfBurstChanged, &SorviModel::assessmentsChanged,
                        &SorviModel::showChecksChanged})
        connect(&model, signal, this, qOverload<>(&QWidget::update));
}

SinglePhotoView::~SinglePhotoView()
{
    delete m_image; // cancels a request no worker took up yet
    m_pool.waitForDone();
}

void SinglePhotoView::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    refresh();
}

void SinglePhotoView::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    refresh();
}

void SinglePhotoView::refresh()
{
    // A hidden view (the grid is showing) does not decode.
    if (!isVisible())
        return;
    const QString id = m_model.selection();
    const QList<Shot> shots = m_model.shots();
    const auto shot = std::find_if(shots.begin(), shots.end(), [&id](const Shot &s) { return s.id == id; });
    if (shot != shots.end()) {
        const QSize area = (QSizeF(size().shrunkBy(QMargins(margin, margin, margin, margin))) * devicePixelRatioF())
                               .toSize();
        const int tier = ShotImage::tier(std::max(area.width(), area.height()), SorviModel::screenPixels());
        m_image->request(*shot, tier, m_model.zoomed() ? QSize() : area.expandedTo(QSize(1, 1)));
    }
    update();
}

QRect SinglePhotoView::zoomedSource(const QImage &image) const
{
    const QSize view = (QSizeF(size()) * devicePixelRatioF()).toSize();
    const QPointF anchor = m_model.zoomAnchor();
    const int x = std::clamp(int(anchor.x() * image.width() - view.width() / 2.0), 0,
                             std::max(0, image.width() - view.width()));
    const int y = std::clamp(int(anchor.y() * image.height() - view.height() / 2.0), 0,
                             std::max(0, image.height() - view.height()));
    return QRect(QPoint(x, y), view).intersected(image.rect());
}

void SinglePhotoView::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    m_photoRect = QRect();
    QImage image = m_image->image();
    if (m_model.selection().isEmpty() || m_image->shot().id != m_model.selection())
        return;
    // While the large picture decodes, the grid's small one (when cached) stands in.
    if (image.isNull() && m_image->isLoading() && !m_model.zoomed()) {
        if (const std::optional<ShotPreview> small = m_model.previews().cached(m_image->shot(), ShotImage::smallTier))
            image = ShotImage::prepare(small->image, small->orientation, {});
    }
    if (image.isNull()) {
        painter.setPen(QColor(0xA0, 0xA0, 0xA0));
        painter.drawText(rect(), Qt::AlignCenter,
                         m_image->hasFailed() ? QStringLiteral("No preview for this photo") : QString());
        return;
    }
    const qreal ratio = devicePixelRatioF();
    QRect source = image.rect();
    QSize shown;
    if (m_model.zoomed()) {
        source = zoomedSource(image);
        shown = (QSizeF(source.size()) / ratio).toSize();
    } else {
        shown = (QSizeF(image.size()) / ratio).toSize().scaled(rect().marginsRemoved(QMargins(margin, margin, margin, margin)).size(),
                                                               Qt::KeepAspectRatio);
    }
    m_photoRect = QRect(QPoint((width() - shown.width()) / 2, (height() - shown.height()) / 2), shown);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.drawImage(m_photoRect, image, source);
    const QString id = m_model.selection();
    RatingBadges::paint(painter, m_photoRect, m_model.rating(id));
    if (m_model.showChecks())
        CheckBadges::paint(painter, m_photoRect,
                           {m_model.soft().contains(id), m_model.assessments().value(id).eyesClosed > 0,
                            m_model.bestOfBurst().contains(id)});
}
