#include "SorviApp/views/Filmstrip.h"

#include "SorviApp/views/ShotImage.h"
#include "SorviApp/model/SorviModel.h"
#include "SorviKit/core/CpuShare.h"

#include <QPainter>
#include <QScrollBar>
#include <QWheelEvent>

#include <algorithm>

namespace {

constexpr int gap = 6;
const QColor stripColour(0x16, 0x16, 0x16);
const QColor selectionColour(0x3D, 0x8B, 0xFD);

} // namespace

Filmstrip::Filmstrip(SorviModel &model, QWidget *parent) : QAbstractScrollArea(parent), m_model(model)
{
    setObjectName(QStringLiteral("filmstrip"));
    setFocusPolicy(Qt::NoFocus);
    setFrameShape(QFrame::NoFrame);
    setFixedHeight(stripHeight);
    setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    viewport()->setAttribute(Qt::WA_OpaquePaintEvent);
    m_pool.setMaxThreadCount(1);
    connect(&model, &SorviModel::visibleShotsChanged, this, &Filmstrip::reloadShots);
    connect(&model, &SorviModel::selectionChanged, this, &Filmstrip::scrollToSelection);
    connect(&model, &SorviModel::ratingsChanged, viewport(), qOverload<>(&QWidget::update));
    reloadShots();
}

Filmstrip::~Filmstrip()
{
    qDeleteAll(m_images); // cancels what no worker took up yet
    m_images.clear();
    m_pool.waitForDone();
}

void Filmstrip::reloadShots()
{
    m_shots = m_model.visibleShots();
    m_indexOf.clear();
    for (int i = 0; i < m_shots.size(); ++i)
        m_indexOf.insert(m_shots[i].id, i);
    relayout();
    scrollToSelection();
}

void Filmstrip::relayout()
{
    const int length = int(m_shots.size()) * (cellSize.width() + gap) + gap;
    horizontalScrollBar()->setRange(0, std::max(0, length - viewport()->width()));
    horizontalScrollBar()->setPageStep(viewport()->width());
    horizontalScrollBar()->setSingleStep(cellSize.width() + gap);
    loadNear();
    viewport()->update();
}

QRect Filmstrip::cellRect(int index) const
{
    const int x = gap + index * (cellSize.width() + gap) - horizontalScrollBar()->value();
    return QRect(QPoint(x, (viewport()->height() - cellSize.height()) / 2), cellSize);
}

int Filmstrip::indexAt(QPoint point) const
{
    const int x = point.x() + horizontalScrollBar()->value() - gap;
    const int index = x / (cellSize.width() + gap);
    if (x < 0 || index >= m_shots.size() || !cellRect(index).contains(point))
        return -1;
    return index;
}

void Filmstrip::scrollToSelection()
{
    const auto it = m_indexOf.constFind(m_model.selection());
    if (it != m_indexOf.constEnd()) {
        const QRect cell = cellRect(*it);
        QScrollBar *bar = horizontalScrollBar();
        // Keep a neighbour visible on each side when there is room.
        const int margin = cellSize.width() + gap;
        if (cell.left() - margin < 0)
            bar->setValue(bar->value() + cell.left() - margin);
        else if (cell.right() + margin > viewport()->width())
            bar->setValue(bar->value() + cell.right() + margin - viewport()->width());
    }
    viewport()->update();
}

void Filmstrip::loadNear()
{
    if (!isVisible() || m_shots.isEmpty())
        return;
    const int perScreen = viewport()->width() / (cellSize.width() + gap) + 1;
    const int first = std::max(0, horizontalScrollBar()->value() / (cellSize.width() + gap) - perScreen);
    const int last = std::min(int(m_shots.size()) - 1, first + 3 * perScreen);
    QHash<QString, ShotImage *> kept;
    const QSize fit = (QSizeF(cellSize - QSize(8, 8)) * devicePixelRatioF()).toSize();
    for (int i = first; i <= last; ++i) {
        const Shot &shot = m_shots[i];
        ShotImage *image = m_images.take(shot.id);
        if (!image) {
            image = new ShotImage(m_model.previews(), m_pool, CpuShare::aheadNiceness, this);
            connect(image, &ShotImage::imageReady, viewport(), qOverload<>(&QWidget::update));
        }
        image->request(shot, ShotImage::smallTier, fit, cellRect(i).intersects(viewport()->rect()) ? 1 : 0);
        kept.insert(shot.id, image);
    }
    qDeleteAll(m_images); // far away now: their waiting requests are dropped
    m_images = kept;
}

void Filmstrip::paintEvent(QPaintEvent *event)
{
    QPainter painter(viewport());
    painter.fillRect(event->rect(), stripColour);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    const QString selection = m_model.selection();
    const int first = std::max(0, (horizontalScrollBar()->value() - gap) / (cellSize.width() + gap));
    for (int i = first; i < m_shots.size(); ++i) {
        const QRect cell = cellRect(i);
        if (cell.left() > viewport()->width())
            break;
        const Shot &shot = m_shots[i];
        const ShotImage *image = m_images.value(shot.id);
        const QRect area = cell.adjusted(4, 4, -4, -4);
        if (image && !image->image().isNull()) {
            const QSize shown = (QSizeF(image->image().size()) / devicePixelRatioF()).toSize().scaled(area.size(), Qt::KeepAspectRatio);
            painter.drawImage(QRect(area.center() - QPoint(shown.width() / 2, shown.height() / 2), shown), image->image());
        } else {
            painter.fillRect(area, QColor(0x2A, 0x2A, 0x2A));
        }
        if (m_model.rating(shot.id).flag == Rating::Flag::reject)
            painter.fillRect(area, QColor(0, 0, 0, 140)); // rejects fade, as in the grid
        if (shot.id == selection) {
            painter.setPen(QPen(selectionColour, 3));
            painter.setBrush(Qt::NoBrush);
            painter.drawRect(cell.adjusted(1, 1, -2, -2));
        }
    }
}

void Filmstrip::resizeEvent(QResizeEvent *event)
{
    QAbstractScrollArea::resizeEvent(event);
    relayout();
    scrollToSelection();
}

void Filmstrip::showEvent(QShowEvent *event)
{
    QAbstractScrollArea::showEvent(event);
    relayout();
    scrollToSelection();
}

void Filmstrip::scrollContentsBy(int, int)
{
    loadNear();
    viewport()->update();
}

void Filmstrip::mousePressEvent(QMouseEvent *event)
{
    const int index = indexAt(event->position().toPoint());
    if (event->button() == Qt::LeftButton && index >= 0)
        m_model.setSelection(m_shots[index].id);
}

void Filmstrip::wheelEvent(QWheelEvent *event)
{
    // A vertical wheel scrolls the strip sideways.
    const QPoint delta = event->angleDelta();
    horizontalScrollBar()->setValue(horizontalScrollBar()->value() - (delta.x() != 0 ? delta.x() : delta.y()));
    event->accept();
}
