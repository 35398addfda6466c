#include "SorviKit/checks/CheckRun.h"

#include "SorviKit/checks/Assessor.h"
#include "SorviKit/previews/PreviewLoader.h"

#include <QMutex>
#include <QThread>
#include <QtConcurrent/QtConcurrentMap>

#include <atomic>

namespace CheckRun {

Outcome checkPending(const QList<Shot> &shots, AssessmentStore &store, PreviewLoader &loader,
                     const std::function<void(int done, int total)> &progress)
{
    QList<Shot> pending;
    for (const Shot &shot : shots)
        if (!store.result(shot.id))
            pending.append(shot);

    std::atomic<int> done = 0;
    QMutex unreadableLock;
    Outcome outcome;
    QFuture<void> work = QtConcurrent::map(pending, [&](const Shot &shot) {
        if (const auto preview = loader.preview(shot, Assessor::workingPixels)) {
            const Assessment result = Assessor::assess(preview->image, preview->orientation, [&] {
                const auto larger = loader.preview(shot, Assessor::facePixels);
                return larger ? std::optional(Assessor::OrientedImage{larger->image, larger->orientation})
                              : std::nullopt;
            });
            store.set(result, shot.id);
        } else {
            const QMutexLocker locker(&unreadableLock);
            outcome.unreadable.append(shot.id);
        }
        ++done;
    });
    const int total = int(pending.size());
    while (!work.isFinished()) {
        if (progress)
            progress(done, total);
        QThread::msleep(100);
    }
    work.waitForFinished();
    if (progress)
        progress(done, total);
    store.save();
    outcome.checked = total - int(outcome.unreadable.size());
    return outcome;
}

} // namespace CheckRun
