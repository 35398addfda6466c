#include "SorviApp/views/NeighbourPictures.h"

#include "SorviApp/views/ShotImage.h"
#include "SorviKit/core/CpuShare.h"
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
    // Neighbours wait behind everything the user is looking at (their tasks run nice).
    m_fittedPool.setMaxThreadCount(1);
    m_aheadFullPool.setMaxThreadCount(1);
    // The full picture the user asked for has a thread of its own at full share, so it
    // never waits for, nor shares a core evenly with, a neighbour's decode.
    m_fullPool.setMaxThreadCount(1);
}

NeighbourPictures::~NeighbourPictures()
{
    clear();
    m_fittedPool.waitForDone();
    m_aheadFullPool.waitForDone();
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
                           CpuShare::standBack(CpuShare::aheadNiceness);
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
    if (it != m_full.end() && it->shot == shot) {
        it->wanted = true;
        return it->picture;
    }
    if (it != m_full.end())
        *it->cancelled = true;
    const Flag cancelled = newFlag();
    const Flag started = newFlag();
    QFuture<QImage> picture = QtConcurrent::task([shot, cancelled, started, urgent] {
                                  if (*cancelled)
                                      return QImage();
                                  *started = true;
                                  if (!urgent)
                                      CpuShare::standBack(CpuShare::aheadNiceness);
                                  const std::optional<ShotPreview> full = PreviewLoader::fullResolution(shot);
                                  return full ? PreviewLoader::upright(full->image, full->orientation) : QImage();
                              })
                                  .onThreadPool(urgent ? m_fullPool : m_aheadFullPool)
                                  .spawn();
    const quint64 serial = ++m_fullSerial;
    m_full.insert(shot.id, Full{shot, picture, cancelled, started, serial, true});
    // A picture no longer wanted by the time it is done is let go at once.
    picture.then(this, [this, id = shot.id, serial](const QImage &) {
        const auto done = m_full.constFind(id);
        if (done != m_full.cend() && done->serial == serial && !done->wanted)
            m_full.erase(done);
    });
    return picture;
}

void NeighbourPictures::keepFull(const QList<Shot> &shots)
{
    const QList<Shot> kept = shots.first(std::min<qsizetype>(shots.size(), fullKept));
    QSet<QString> wanted;
    for (const Shot &shot : kept)
        wanted.insert(shot.id);
    for (auto it = m_full.begin(); it != m_full.end();) {
        if (wanted.contains(it.key())) {
            ++it;
            continue;
        }
        // A decode under way cannot be stopped; its picture stays reachable until it is
        // done, so asking for the same photo again (Space after Escape) does not decode
        // it twice.
        if (*it->started && !it->picture.isFinished()) {
            it->wanted = false;
            ++it;
            continue;
        }
        *it->cancelled = true;
        it = m_full.erase(it);
    }
    for (const Shot &shot : kept)
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
    qint64 total = fullBytes();
    for (const Fitted &entry : m_fitted)
        total += entry.image.sizeInBytes();
    return total;
}

qint64 NeighbourPictures::fullBytes() const
{
    qint64 total = 0;
    for (const Full &entry : m_full)
        if (entry.picture.isFinished())
            total += entry.picture.result().sizeInBytes();
    return total;
}
