#include "SorviKit/checks/Bursts.h"

#include <algorithm>

namespace Bursts {

QList<QStringList> group(const QList<Shot> &shots, double gapSeconds)
{
    QList<const Shot *> dated;
    for (const Shot &shot : shots)
        if (shot.captureDate)
            dated << &shot;
    std::stable_sort(dated.begin(), dated.end(), [](const Shot *a, const Shot *b) {
        return *a->captureDate < *b->captureDate;
    });

    QList<QStringList> bursts;
    QStringList run;
    const Shot *last = nullptr;
    const auto closeRun = [&] {
        if (run.size() >= 2)
            bursts << run;
        run.clear();
    };
    for (const Shot *shot : std::as_const(dated)) {
        // The gap is measured to the previous frame, so a long series stays one burst.
        const bool joins = last && shot->camera == last->camera
            && last->captureDate->msecsTo(*shot->captureDate) <= gapSeconds * 1000.0;
        if (!joins)
            closeRun();
        run << shot->id;
        last = shot;
    }
    closeRun();
    return bursts;
}

} // namespace Bursts
