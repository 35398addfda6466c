#include "SorviKit/checks/CheckRun.h"

#include "SorviKit/checks/Assessor.h"
#include "SorviKit/core/ThrottledProgress.h"
#include "SorviKit/previews/PreviewLoader.h"

#include <QMutex>
#include <QtConcurrent/QtConcurrentMap>

namespace CheckRun {

QList<Shot> pending(const QList<Shot> &shots, const AssessmentStore &store)
{
    QList<Shot> result;
    for (const Shot &shot : shots)
        if (!store.result(shot.id))
            result.append(shot);
    return result;
}

Outcome checkPending(const QList<Shot> &shots, AssessmentStore &store, PreviewLoader &loader,
                     const std::function<void(int, int)> &progress, std::stop_token stop)
{
    const QList<Shot> todo = pending(shots, store);
    ThrottledProgress told(progress, int(todo.size()));
    QMutex outcomeLock;
    Outcome outcome;
    QtConcurrent::blockingMap(todo, [&](const Shot &shot) {
        if (stop.stop_requested())
            return;
        if (const auto preview = loader.preview(shot, Assessor::workingPixels)) {
            const Assessment result = Assessor::assess(preview->image, preview->orientation, [&] {
                const auto larger = loader.preview(shot, Assessor::facePixels);
                return larger ? std::optional(Assessor::OrientedImage{larger->image, larger->orientation})
                              : std::nullopt;
            });
            store.set(result, shot.id);
            const QMutexLocker locker(&outcomeLock);
            ++outcome.checked;
        } else {
            const QMutexLocker locker(&outcomeLock);
            outcome.unreadable.append(shot.id);
        }
        told.itemDone();
    });
    told.finish();
    store.save();
    return outcome;
}

} // namespace CheckRun
