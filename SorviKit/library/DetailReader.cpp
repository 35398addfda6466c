#include "SorviKit/library/DetailReader.h"

#include "SorviKit/core/ThrottledProgress.h"
#include "SorviKit/library/ShotScanner.h"

#include <QtConcurrent/QtConcurrentMap>

namespace DetailReader {

QList<Shot> readAll(const QList<Shot> &shots, const std::function<void(int, int)> &progress, std::stop_token stop)
{
    QList<Shot> result = shots;
    ThrottledProgress told(progress, int(shots.size()));
    QtConcurrent::blockingMap(result, [&](Shot &shot) {
        if (!stop.stop_requested())
            shot = ShotScanner::readDetails(shot);
        told.itemDone();
    });
    told.finish();
    return result;
}

} // namespace DetailReader
