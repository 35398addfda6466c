#include "SorviApp/views/NeighbourPictures.h"

#include "SorviApp/views/ShotImage.h"
#include "SorviKit/previews/PreviewLoader.h"

#include <QFutureWatcher>
#include <QSet>
#include <QThread>
#include <QtConcurrent/qtconcurrenttask.h>

namespace {

using Flag = std::shared_ptr<std::atomic<bool>>;

Flag newFlag() { return std::make_shared<std::atomic<bool>>(false); }

} // namespace

NeighbourPictures::NeighbourPictures(PreviewLoader &previews, QObject *parent)
    : QObject(parent), m_previews(previews)
{
    // Neighbours wait behind everything the user is looking at.
    m_fittedPool.setMaxThreadCount(1);
    m_fittedPool.setThreadPriority(QThread::LowPriority);
    // Two at once: the shown photo's full decode never waits for a neighbour's.
    m_fullPool.setMaxThreadCount(2);
}

NeighbourPictures::~NeighbourPictures()
{
    clear();
    m_fittedPool.waitForDone();
    m_fullPool.waitForDone();
}

QImage NeighbourPictures::fitted(const Shot &shot) const
{
    const auto it = m_fitted.constFind(shot.id);
    return it != m_fitted.constEnd() && it->shot == shot ? it->image : QImage();
}

void NeighbourPictures::keepFitted(const QList<Shot> &shots, int maxPixels, QSize fitPx)
{
    if (maxPixels != m_maxPixels || fitPx != m_fitPx) {
        for (const Fitted &entry : std::as_const(m_fitted))
            if (entry.cancelled)
                *entry.cancelled = true;
        m_fitted.clear();
        m_maxPixels = maxPixels;
        m_fitPx = fitPx;
        ++m_generation;
    }
    QSet<QString> wanted;
    for (const Shot &shot : shots)
        wanted.insert(shot.id);
    for (auto it = m_fitted.begin(); it != m_fitted.end();) {
        if (wanted.contains(it.key())) {
            ++it;
            continue;
        }
        if (it->cancelled)
            *it->cancelled = true;
        it = m_fitted.erase(it);
    }
    int priority = int(shots.size());
    for (const Shot &shot : shots) {
        auto it = m_fitted.find(shot.id);
        if (it == m_fitted.end() || !(it->shot == shot)) {
            it = m_fitted.insert(shot.id, Fitted{shot, {}, {}});
            startFitted(*it, priority);
        }
        --priority;
    }
}

void NeighbourPictures::startFitted(Fitted &entry, int priority)
{
    entry.cancelled = newFlag();
    auto *watcher = new QFutureWatcher<QImage>(this);
    const quint64 generation = m_generation;
    const Shot shot = entry.shot;
    connect(watcher, &QFutureWatcherBase::finished, this, [this, watcher, generation, shot] {
        watcher->deleteLater();
        const auto it = m_fitted.find(shot.id);
        if (generation != m_generation || it == m_fitted.end() || !(it->shot == shot) || !it->image.isNull())
            return;
        const QImage image = watcher->result();
        if (image.isNull())
            return;
        it->image = image;
        it->cancelled.reset();
        emit fittedReady(shot.id);
    });
    watcher->setFuture(QtConcurrent::task([previews = &m_previews, shot, maxPixels = m_maxPixels, fitPx = m_fitPx,
                                           cancelled = entry.cancelled] {
                           if (*cancelled)
                               return QImage();
                           const std::optional<ShotPreview> preview = previews->preview(shot, maxPixels);
                           return preview ? ShotImage::prepare(preview->image, preview->orientation, fitPx) : QImage();
                       })
                           .onThreadPool(m_fittedPool)
                           .withPriority(priority)
                           .spawn());
}

void NeighbourPictures::storeFitted(const Shot &shot, const QImage &image)
{
    if (image.isNull())
        return;
    auto it = m_fitted.find(shot.id);
    if (it == m_fitted.end())
        return; // not one of the shots being kept
    if (it->cancelled)
        *it->cancelled = true;
    it->cancelled.reset();
    it->shot = shot;
    it->image = image;
}

QFuture<QImage> NeighbourPictures::full(const Shot &shot, bool urgent)
{
    auto it = m_full.find(shot.id);
    if (it != m_full.end() && it->shot == shot)
        return it->picture;
    const Flag cancelled = newFlag();
    QFuture<QImage> picture = QtConcurrent::task([shot, cancelled] {
                                  if (*cancelled)
                                      return QImage();
                                  const std::optional<ShotPreview> full = PreviewLoader::fullResolution(shot);
                                  return full ? PreviewLoader::upright(full->image, full->orientation) : QImage();
                              })
                                  .onThreadPool(m_fullPool)
                                  .withPriority(urgent ? 1 : 0)
                                  .spawn();
    m_full.insert(shot.id, Full{shot, picture, cancelled});
    return picture;
}

void NeighbourPictures::keepFull(const QList<Shot> &shots)
{
    QSet<QString> wanted;
    for (const Shot &shot : shots.first(std::min<qsizetype>(shots.size(), fullKept)))
        wanted.insert(shot.id);
    for (auto it = m_full.begin(); it != m_full.end();) {
        if (wanted.contains(it.key())) {
            ++it;
            continue;
        }
        *it->cancelled = true;
        it = m_full.erase(it);
    }
    for (const Shot &shot : shots.first(std::min<qsizetype>(shots.size(), fullKept)))
        full(shot, false);
}

void NeighbourPictures::clear()
{
    for (const Fitted &entry : std::as_const(m_fitted))
        if (entry.cancelled)
            *entry.cancelled = true;
    for (const Full &entry : std::as_const(m_full))
        *entry.cancelled = true;
    m_fitted.clear();
    m_full.clear();
    ++m_generation;
}

qint64 NeighbourPictures::bytes() const
{
    qint64 total = 0;
    for (const Fitted &entry : m_fitted)
        total += entry.image.sizeInBytes();
    for (const Full &entry : m_full)
        if (entry.picture.isFinished())
            total += entry.picture.result().sizeInBytes();
    return total;
}
