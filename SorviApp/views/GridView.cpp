#include "SorviApp/views/GridView.h"

#include "SorviApp/views/ShotImage.h"
#include "SorviApp/model/SorviModel.h"

#include <QMouseEvent>
#include <QPainter>
#include <QScrollBar>
#include <QThread>
#include <QtMath>

namespace {

// Visible cells ask before the screens around them.
constexpr int visiblePriority = 2;
constexpr int nearPriority = 1;
// Long enough to skip the screens a fast scroll only passes through.
constexpr int nearDelayMs = 80;
// Cells further than this many screens from the view lose their picture and request.
constexpr int keepScreens = 2;

} // namespace

GridView::GridView(SorviModel &model, QWidget *parent) : QAbstractScrollArea(parent), m_model(model)
{
    setFocusPolicy(Qt::NoFocus);
    viewport()->setFocusPolicy(Qt::NoFocus);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOn);
    viewport()->setAutoFillBackground(true);
    viewport()->setBackgroundRole(QPalette::Base);
    // One core stays with the GUI thread, so scrolling keeps up while thumbnails decode.
    m_pool.setMaxThreadCount(std::max(1, QThread::idealThreadCount() - 1));
    m_nearTimer.setSingleShot(true);
    m_nearTimer.setInterval(nearDelayMs);
    connect(&m_nearTimer, &QTimer::timeout, this, &GridView::requestNear);

    auto repaint = [this] { viewport()->update(); };
    connect(&model, &SorviModel::visibleShotsChanged, this, &GridView::reloadShots);
    connect(&model, &SorviModel::selectionChanged, this, [this] {
        scrollToSelection();
        viewport()->update();
    });
    for (auto signal : {&SorviModel::ratingsChanged, &SorviModel::burstsChanged, &SorviModel::softChanged,
                        &SorviModel::bestOfBurstChanged, &SorviModel::assessmentsChanged,
                        &SorviModel::showChecksChanged})
        connect(&model, signal, this, repaint);
    reloadShots();
}

GridView::~GridView()
{
    qDeleteAll(m_images); // cancels what no worker took up yet
    m_images.clear();
    m_pool.clear();
    m_pool.waitForDone();
}

void GridView::reloadShots()
{
    m_shots = m_model.visibleShots();
    m_indexOf.clear();
    m_indexOf.reserve(m_shots.size());
    for (int i = 0; i < m_shots.size(); ++i)
        m_indexOf.insert(m_shots[i].id, i);
    relayout();
    scrollToSelection();
    viewport()->update();
    m_nearTimer.start();
}

int GridView::gap() const
{
    const int spare = viewport()->width() - m_columns * GridCell::size.width();
    return std::max(spacing, spare / (m_columns + 1));
}

void GridView::relayout()
{
    const int width = viewport()->width();
    const int columns = std::max(1, (width - spacing) / (GridCell::size.width() + spacing));
    const int rows = (count() + columns - 1) / columns;
    QScrollBar *bar = verticalScrollBar();
    bar->setRange(0, std::max(0, rows * rowHeight() + spacing - viewport()->height()));
    bar->setPageStep(viewport()->height());
    bar->setSingleStep(rowHeight() / 3);
    if (columns != m_columns) {
        m_columns = columns;
        emit columnsChanged(columns);
    }
}

QRect GridView::cellRect(int index) const
{
    const int row = index / m_columns;
    const int column = index % m_columns;
    const int g = gap();
    return QRect(g + column * (GridCell::size.width() + g),
                 spacing + row * rowHeight() - verticalScrollBar()->value(), GridCell::size.width(),
                 GridCell::size.height());
}

int GridView::indexAt(QPoint point) const
{
    const int y = point.y() + verticalScrollBar()->value() - spacing;
    if (y < 0 || y % rowHeight() >= GridCell::size.height())
        return -1;
    const int g = gap();
    const int x = point.x() - g;
    if (x < 0 || x % (GridCell::size.width() + g) >= GridCell::size.width())
        return -1;
    const int column = x / (GridCell::size.width() + g);
    const int index = (y / rowHeight()) * m_columns + column;
    return column < m_columns && index < count() ? index : -1;
}

std::pair<int, int> GridView::rowsInView() const
{
    const int top = verticalScrollBar()->value();
    return {std::max(0, (top - spacing) / rowHeight()), (top + viewport()->height()) / rowHeight()};
}

GridCell GridView::cell(int index) const
{
    GridCell cell;
    if (index < 0 || index >= count())
        return cell;
    cell.shot = m_shots[index];
    const QString &id = cell.shot.id;
    cell.selected = id == m_model.selection();
    cell.rating = m_model.rating(id);
    const BurstMap bursts = m_model.bursts();
    if (const auto burst = bursts.find(id); burst != bursts.cend())
        cell.burst = *burst;
    if (m_model.showChecks())
        cell.checks = CheckBadges::Flags{m_model.soft().contains(id),
                                         m_model.assessments().value(id).eyesClosed > 0,
                                         m_model.bestOfBurst().contains(id)};
    return cell;
}

int GridView::previewTier() const
{
    const int needed = qCeil(std::max(GridCell::photoSize.width(), GridCell::photoSize.height()) *
                             devicePixelRatioF());
    return ShotImage::tier(needed, SorviModel::screenPixels());
}

ShotImage *GridView::imageFor(int index, int priority)
{
    const Shot &shot = m_shots[index];
    ShotImage *&image = m_images[shot.id];
    if (!image) {
        image = new ShotImage(m_model.previews(), m_pool, 0, this);
        connect(image, &ShotImage::imageReady, this, [this, id = shot.id] { repaintShot(id); });
    }
    image->request(shot, previewTier(), (QSizeF(GridCell::photoSize) * devicePixelRatioF()).toSize(), priority);
    return image;
}

void GridView::repaintShot(const QString &id)
{
    const auto at = m_indexOf.constFind(id);
    if (at != m_indexOf.cend())
        viewport()->update(cellRect(*at));
}

void GridView::paintEvent(QPaintEvent *event)
{
    QPainter painter(viewport());
    const QRect dirty = event->rect();
    const auto [firstRow, lastRow] = rowsInView();
    const QPalette palette = this->palette();
    const int end = std::min(count(), (lastRow + 1) * m_columns);
    for (int index = firstRow * m_columns; index < end; ++index) {
        const QRect rect = cellRect(index);
        if (!rect.intersects(dirty))
            continue;
        const ShotImage *image = imageFor(index, visiblePriority);
        cell(index).paint(painter, rect, image->image(), image->hasFailed(), palette);
    }
    noteShotsInView(firstRow * m_columns, end);
    dropFar();
}

void GridView::noteShotsInView(int from, int to)
{
    QStringList ids;
    for (int index = std::max(0, from); index < to; ++index)
        ids << m_shots[index].id;
    if (ids != m_shotsInView) {
        m_shotsInView = ids;
        m_model.setShotsInView(ids);
    }
}

void GridView::requestNear()
{
    const auto [firstRow, lastRow] = rowsInView();
    const int screenRows = lastRow - firstRow + 1;
    const int from = std::max(0, (firstRow - screenRows) * m_columns);
    const int to = std::min(count(), (lastRow + 1 + screenRows) * m_columns);
    // Ahead first: people mostly scroll down through a shoot.
    for (int index = (lastRow + 1) * m_columns; index < to; ++index)
        imageFor(index, nearPriority);
    for (int index = firstRow * m_columns - 1; index >= from; --index)
        imageFor(index, nearPriority);
}

bool GridView::isScreenLoaded() const
{
    const auto [firstRow, lastRow] = rowsInView();
    const int end = std::min(count(), (lastRow + 1) * m_columns);
    for (int index = firstRow * m_columns; index < end; ++index) {
        const ShotImage *image = m_images.value(m_shots[index].id);
        if (!image || (image->image().isNull() && !image->hasFailed()) || image->isLoading())
            return false;
    }
    return true;
}

void GridView::dropFar()
{
    const auto [firstRow, lastRow] = rowsInView();
    const int screenRows = lastRow - firstRow + 1;
    const int keepFrom = (firstRow - keepScreens * screenRows) * m_columns;
    const int keepTo = (lastRow + 1 + keepScreens * screenRows) * m_columns;
    for (auto it = m_images.begin(); it != m_images.end();) {
        const int index = m_indexOf.value(it.key(), -1);
        if (index < keepFrom || index >= keepTo) {
            delete it.value();
            it = m_images.erase(it);
        } else {
            ++it;
        }
    }
}

void GridView::hideEvent(QHideEvent *event)
{
    QAbstractScrollArea::hideEvent(event);
    // Thumbnails nobody can see would take a core from the single photo; those a worker
    // already holds still land in the loader's cache, and showing the grid asks again.
    for (auto it = m_images.begin(); it != m_images.end();) {
        if (it.value()->isLoading()) {
            delete it.value();
            it = m_images.erase(it);
        } else {
            ++it;
        }
    }
}

void GridView::resizeEvent(QResizeEvent *event)
{
    QAbstractScrollArea::resizeEvent(event);
    relayout();
    m_nearTimer.start();
}

void GridView::scrollContentsBy(int, int)
{
    viewport()->update();
    m_nearTimer.start();
}

void GridView::scrollToSelection()
{
    const int index = m_indexOf.value(m_model.selection(), -1);
    if (index < 0)
        return;
    const QRect rect = cellRect(index);
    QScrollBar *bar = verticalScrollBar();
    if (rect.top() < 0)
        bar->setValue(bar->value() + rect.top() - spacing);
    else if (rect.bottom() >= viewport()->height())
        bar->setValue(bar->value() + rect.bottom() - viewport()->height() + 1 + spacing);
}

void GridView::mousePressEvent(QMouseEvent *event)
{
    const int index = indexAt(event->position().toPoint());
    if (event->button() == Qt::LeftButton && index >= 0)
        m_model.setSelection(m_shots[index].id);
    QAbstractScrollArea::mousePressEvent(event);
}

void GridView::mouseDoubleClickEvent(QMouseEvent *event)
{
    const int index = indexAt(event->position().toPoint());
    if (event->button() != Qt::LeftButton || index < 0)
        return QAbstractScrollArea::mouseDoubleClickEvent(event);
    m_model.setSelection(m_shots[index].id);
    m_model.setMode(SorviModel::Mode::loupe);
}
