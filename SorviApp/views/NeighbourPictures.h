#pragma once

#include "SorviKit/library/Shot.h"

#include <QFuture>
#include <QHash>
#include <QImage>
#include <QObject>
#include <QSize>
#include <QThreadPool>

#include <atomic>
#include <memory>

class PreviewLoader;

/// The pictures of the photos around the one in the loupe, made before they are asked
/// for, so that the next photo is on screen the moment the key goes down: each shot's
/// preview upright and fitted to the loupe in device pixels, and, while zoomed, its
/// full-resolution picture. Only the shots last named are kept (a few screens' worth of
/// fitted pictures and at most three full pictures, plus a decode already under way until
/// it ends), so memory stays bounded; everything goes when the folder changes. Work runs
/// on pools of its own, behind the shown photo's own decode and the full picture the user
/// asked for; a shot dropped before a worker reached it is never decoded.
/// GUI thread; the loader must outlive this object, whose destructor waits for its workers.
class NeighbourPictures : public QObject {
    Q_OBJECT
public:
    /// The most full-resolution pictures kept: the shown one and one on each side.
    static constexpr int fullKept = 3;

    explicit NeighbourPictures(PreviewLoader &previews, QObject *parent = nullptr);
    ~NeighbourPictures() override;

    /// The fitted picture of `shot`, ready now, for the size last passed to keepFitted;
    /// null when it is not ready.
    QImage fitted(const Shot &shot) const;
    /// Keeps the fitted pictures of exactly `shots` (at `maxPixels` from the loader, fitted
    /// into `fitPx`), preparing the missing ones in the order given. A new size drops all.
    void keepFitted(const QList<Shot> &shots, int maxPixels, QSize fitPx);
    /// Hands in a picture made elsewhere for the current size, so it is not made twice.
    void storeFitted(const Shot &shot, const QImage &image);

    /// The full-resolution picture of `shot` (upright; null when it does not decode),
    /// finished or on its way; started now when it is neither. `urgent` puts it before
    /// the neighbours' decodes.
    QFuture<QImage> full(const Shot &shot, bool urgent);
    /// Keeps the full pictures of exactly `shots` (at most fullKept), starting the missing.
    void keepFull(const QList<Shot> &shots);

    /// Drops everything (another folder).
    void clear();
    /// The bytes of the pictures held now, and of the full pictures among them.
    qint64 bytes() const;
    qint64 fullBytes() const;

signals:
    /// The fitted picture of the shot with `id` is ready.
    void fittedReady(const QString &id);

private:
    struct Fitted {
        Shot shot;
        QImage image; ///< null until made
        std::shared_ptr<std::atomic<bool>> cancelled;
    };
    struct Full {
        Shot shot;
        QFuture<QImage> picture;
        std::shared_ptr<std::atomic<bool>> cancelled;
        std::shared_ptr<std::atomic<bool>> started; ///< a worker took it up
        quint64 serial = 0;                         ///< tells a replaced entry's decode apart
        bool wanted = true;                         ///< false: kept only until its decode ends
    };
    void startFitted(Fitted &entry, int priority);

    PreviewLoader &m_previews;
    QThreadPool m_fittedPool;
    QThreadPool m_fullPool;      ///< the full pictures the user asked for
    QThreadPool m_aheadFullPool; ///< the neighbours' full pictures
    int m_maxPixels = 0;
    QSize m_fitPx;
    quint64 m_generation = 0; ///< advanced when the size or folder changes
    QHash<QString, Fitted> m_fitted; ///< shot id → its fitted picture
    QHash<QString, Full> m_full;     ///< shot id → its full picture
    quint64 m_fullSerial = 0;
};
