#include "SorviApp/views/ShotImage.h"

#include "SorviKit/core/CpuShare.h"
#include "SorviKit/previews/PreviewLoader.h"

#include <QThreadPool>
#include <QtConcurrent/qtconcurrenttask.h>

ShotImage::ShotImage(PreviewLoader &previews, QThreadPool &pool, int niceness, QObject *parent)
    : QObject(parent), m_previews(previews), m_pool(pool), m_niceness(niceness)
{
}

ShotImage::~ShotImage() { cancelPending(); }

int ShotImage::tier(int neededPx, int screenPx)
{
    for (const int size : {smallTier, mediumTier})
        if (neededPx <= size && size < screenPx)
            return size;
    return screenPx;
}

QImage ShotImage::prepare(const QImage &decoded, int orientation, QSize fitPx)
{
    const QImage upright = PreviewLoader::upright(decoded, orientation);
    if (fitPx.isEmpty() || upright.isNull())
        return upright;
    const QSize fitted = upright.size().scaled(fitPx, Qt::KeepAspectRatio);
    if (fitted.width() >= upright.width() && fitted.height() >= upright.height())
        return upright; // never enlarge; painting scales up what little is missing
    return upright.scaled(fitted, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
}

void ShotImage::request(const Shot &shot, int maxPixels, QSize fitPx, int priority)
{
    if (shot == m_shot && maxPixels == m_maxPixels && fitPx == m_fitPx)
        return;
    cancelPending();
    if (shot.id != m_shot.id || shot.files != m_shot.files)
        m_image = QImage();
    m_shot = shot;
    m_maxPixels = maxPixels;
    m_fitPx = fitPx;
    m_failed = false;

    const std::optional<ShotPreview> cached = m_previews.cached(shot, maxPixels);
    if (cached && std::max(cached->image.width(), cached->image.height()) <= fitOnGuiThreadPx) {
        m_image = prepare(cached->image, cached->orientation, fitPx);
        return;
    }
    auto cancelled = std::make_shared<std::atomic<bool>>(false);
    m_cancelled = cancelled;
    m_watcher = new QFutureWatcher<QImage>(this);
    QFutureWatcher<QImage> *watcher = m_watcher;
    connect(watcher, &QFutureWatcherBase::finished, this, [this, watcher] {
        if (watcher == m_watcher)
            finish(watcher->result());
    });
    PreviewLoader *previews = &m_previews;
    watcher->setFuture(QtConcurrent::task([previews, shot, maxPixels, fitPx, cancelled, niceness = m_niceness] {
                           // A cell that scrolled away before a worker got here costs nothing.
                           if (*cancelled)
                               return QImage();
                           if (niceness > 0)
                               CpuShare::standBack(niceness);
                           const std::optional<ShotPreview> preview = previews->preview(shot, maxPixels);
                           return preview ? prepare(preview->image, preview->orientation, fitPx) : QImage();
                       })
                           .onThreadPool(m_pool)
                           .withPriority(priority)
                           .spawn());
}

void ShotImage::cancelPending()
{
    if (m_cancelled)
        *m_cancelled = true;
    m_cancelled.reset();
    if (m_watcher) {
        m_watcher->disconnect(this);
        m_watcher->deleteLater();
        m_watcher = nullptr;
    }
}

void ShotImage::finish(const QImage &image)
{
    m_watcher->deleteLater();
    m_watcher = nullptr;
    m_cancelled.reset();
    m_failed = image.isNull();
    if (!image.isNull())
        m_image = image;
    emit imageReady();
}
