#pragma once

#include "SorviKit/library/Shot.h"

#include <QList>
#include <functional>

/// Reads the details of many shots at once on all cores.
namespace DetailReader {

/// The shots with their details read, in the same order. Blocks the calling thread;
/// `progress` (optional) is called on the calling thread with the number done so far,
/// at most every `progressIntervalMs` and once at the end.
QList<Shot> readAll(const QList<Shot> &shots,
                    const std::function<void(qsizetype done, qsizetype total)> &progress = {},
                    int progressIntervalMs = 100);

} // namespace DetailReader
