#include "SorviKit/checks/CheckRun.h"

#include "SorviKit/checks/Assessor.h"
#include "SorviKit/core/CpuShare.h"
#include "SorviKit/core/ThrottledProgress.h"
#include "SorviKit/previews/PreviewLoader.h"

#include <QHash>
#include <QMutex>
#include <QThreadPool>

#include <latch>
#include <optional>
#include <vector>

namespace CheckRun {
namespace {

// The workers' own threads: lowering a thread's share cannot be undone, so the checks never
// borrow the global pool's threads, which also run work the user waits for. Made on first
// use and kept for the process.
QThreadPool &checkPool()
{
    static QThreadPool *pool = [] {
        auto *made = new QThreadPool;
        made->setMaxThreadCount(QThread::idealThreadCount());
        made->setExpiryTimeout(-1); // a thread keeps its lowered share for good
        return made;
    }();
    return *pool;
}

// The shots still to take: each worker takes one at a time, so what the user looks at
// jumps the queue however long it is.
class Queue {
public:
    Queue(const QList<Shot> &todo, const Wanted &wanted) : m_todo(todo), m_wanted(wanted), m_taken(todo.size(), false)
    {
        for (qsizetype i = 0; i < todo.size(); ++i)
            m_index.insert(todo[i].id, i);
    }

    std::optional<Shot> take()
    {
        const QStringList wanted = m_wanted ? m_wanted() : QStringList();
        const QMutexLocker locker(&m_lock);
        for (const QString &id : wanted) {
            const auto it = m_index.constFind(id);
            if (it != m_index.constEnd() && !m_taken[std::size_t(*it)])
                return takeAt(*it);
        }
        while (m_next < m_todo.size() && m_taken[std::size_t(m_next)])
            ++m_next;
        if (m_next == m_todo.size())
            return std::nullopt;
        return takeAt(m_next);
    }

private:
    Shot takeAt(qsizetype i)
    {
        m_taken[std::size_t(i)] = true;
        return m_todo[i];
    }

    const QList<Shot> &m_todo;
    const Wanted &m_wanted;
    QMutex m_lock;
    QHash<QString, qsizetype> m_index;
    std::vector<bool> m_taken;
    qsizetype m_next = 0;
};

} // namespace

QList<Shot> pending(const QList<Shot> &shots, const AssessmentStore &store)
{
    QList<Shot> result;
    for (const Shot &shot : shots)
        if (!store.result(shot.id))
            result.append(shot);
    return result;
}

Outcome checkPending(const QList<Shot> &shots, AssessmentStore &store, PreviewLoader &loader,
                     const std::function<void(int, int)> &progress, std::stop_token stop, const Wanted &wanted)
{
    const QList<Shot> todo = pending(shots, store);
    ThrottledProgress told(progress, int(todo.size()));
    QMutex outcomeLock;
    Outcome outcome;
    Queue queue(todo, wanted);
    const auto work = [&] {
        CpuShare::standBack(CpuShare::backgroundNiceness);
        while (!stop.stop_requested()) {
            const std::optional<Shot> shot = queue.take();
            if (!shot)
                return;
            if (const auto preview = loader.preview(*shot, Assessor::workingPixels)) {
                const Assessment result = Assessor::assess(preview->image, preview->orientation, [&](int longSide) {
                    // Sized for this shot's faces, so no one else would find it in the cache.
                    const auto larger = loader.decoded(*shot, longSide);
                    return larger ? std::optional(Assessor::OrientedImage{larger->image, larger->orientation})
                                  : std::nullopt;
                });
                store.set(result, shot->id);
                const QMutexLocker locker(&outcomeLock);
                ++outcome.checked;
            } else {
                const QMutexLocker locker(&outcomeLock);
                outcome.unreadable.append(shot->id);
            }
            told.itemDone();
        }
    };
    // Started and waited for by hand: a future's wait may run a worker not yet started on
    // the waiting thread, whose share must not drop.
    QThreadPool &pool = checkPool();
    const int count = std::max(1, std::min(pool.maxThreadCount(), int(todo.size())));
    std::latch finished(count);
    for (int i = 0; i < count; ++i)
        pool.start([&] {
            work();
            finished.count_down();
        });
    finished.wait();
    told.finish();
    store.save();
    return outcome;
}

} // namespace CheckRun
