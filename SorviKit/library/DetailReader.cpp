#include "SorviKit/library/DetailReader.h"
#include "SorviKit/library/ShotScanner.h"

#include <QtConcurrent/QtConcurrentMap>

#include <atomic>
#include <chrono>
#include <thread>

namespace DetailReader {

QList<Shot> readAll(const QList<Shot> &shots,
                    const std::function<void(qsizetype, qsizetype)> &progress, int progressIntervalMs)
{
    QList<Shot> result = shots;
    std::atomic<qsizetype> done{0};
    QFuture<void> future = QtConcurrent::map(result, [&done](Shot &shot) {
        shot = ShotScanner::readDetails(shot);
        done.fetch_add(1, std::memory_order_relaxed);
    });
    if (progress) {
        while (!future.isFinished()) {
            progress(done.load(std::memory_order_relaxed), result.size());
            std::this_thread::sleep_for(std::chrono::milliseconds(progressIntervalMs));
        }
    }
    future.waitForFinished();
    if (progress)
        progress(result.size(), result.size());
    return result;
}

} // namespace DetailReader
