#pragma once

#include "SorviKit/library/Shot.h"

#include <QList>

#include <functional>
#include <stop_token>

/// Reads the details of many shots at once on all cores.
namespace DetailReader {

/// The shots with their details read, in the same order. Blocks the calling thread while
/// the global thread pool does the work. `progress` (optional) is told the number done
/// at most every 100 ms from a worker thread, and once at the end. Once `stop` is
/// requested, shots not yet started keep only their id and files.
QList<Shot> readAll(const QList<Shot> &shots, const std::function<void(int done, int total)> &progress = {},
                    std::stop_token stop = {});

} // namespace DetailReader
