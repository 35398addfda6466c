#pragma once

#include "SorviKit/library/Shot.h"

#include <QFutureWatcher>
#include <QImage>
#include <QObject>
#include <QSize>

#include <atomic>
#include <memory>

class PreviewLoader;
class QThreadPool;

/// One shot's preview as a view shows it: upright and, when a box is given, fitted into
/// it. A view never decodes on the GUI thread: request() takes the loader's cached picture
/// at once when it holds one, and otherwise asks the loader on `pool` and gets the picture
/// back by queued call (imageReady). An answer for an earlier request (another shot, size
/// or box) is dropped, and a request whose ShotImage is destroyed before a worker takes it
/// up is never decoded, so a grid drops the requests of cells that scrolled far away by
/// deleting their ShotImage. GUI thread; the loader and the pool must outlive this object.
class ShotImage : public QObject {
    Q_OBJECT
public:
    /// The preview sizes views ask for, so that the loader's cache holds few keys.
    static constexpr int smallTier = 256;
    static constexpr int mediumTier = 512;
    /// Pictures up to this long side are fitted on the GUI thread when the cache has them;
    /// larger ones go to a worker even then.
    static constexpr int fitOnGuiThreadPx = 1024;

    /// `niceness` above 0 runs the decodes behind the user's foreground work (CpuShare).
    ShotImage(PreviewLoader &previews, QThreadPool &pool, int niceness, QObject *parent = nullptr);
    ~ShotImage() override; ///< cancels a request no worker has taken up yet

    /// The smallest tier (smallTier, mediumTier, `screenPx`) covering `neededPx` device
    /// pixels; `screenPx` for anything larger.
    static int tier(int neededPx, int screenPx);

    /// Asks for `shot` at `maxPixels` (the loader's long-side limit), fitted into `fitPx`
    /// device pixels keeping its shape (an empty size: the picture as decoded). Repeating
    /// the current request does nothing. A new shot clears image() until its picture
    /// arrives; the same shot at another size keeps the old picture meanwhile. `priority`
    /// orders this request among the pool's waiting ones (higher first).
    void request(const Shot &shot, int maxPixels, QSize fitPx = {}, int priority = 0);

    const Shot &shot() const { return m_shot; }
    int maxPixels() const { return m_maxPixels; }
    QImage image() const { return m_image; }          ///< null until a picture arrived
    bool isLoading() const { return m_watcher != nullptr; }
    bool hasFailed() const { return m_failed; }       ///< no file of the shot decodes

    /// Upright and fitted copy of a decoded preview (`orientation` is its EXIF code).
    static QImage prepare(const QImage &decoded, int orientation, QSize fitPx);

signals:
    /// The picture of the current request arrived (or turned out not to exist).
    void imageReady();

private:
    void cancelPending();
    void finish(const QImage &image);

    PreviewLoader &m_previews;
    QThreadPool &m_pool;
    int m_niceness = 0;
    Shot m_shot;
    int m_maxPixels = 0;
    QSize m_fitPx;
    QImage m_image;
    bool m_failed = false;
    QFutureWatcher<QImage> *m_watcher = nullptr;
    std::shared_ptr<std::atomic<bool>> m_cancelled;
};
