#pragma once

#include "SorviKit/checks/AssessmentStore.h"
#include "SorviKit/library/Shot.h"

#include <QList>
#include <QStringList>

#include <functional>
#include <stop_token>

class PreviewLoader;

/// Runs the on-device checks over many shots at once.
namespace CheckRun {

struct Outcome {
    int checked = 0;        ///< shots checked in this run
    QStringList unreadable; ///< ids whose preview could not be decoded; left unchecked
};

/// The ids the user is looking at now, asked each time a worker takes its next shot; may be
/// called from any worker thread at once, so it must be thread-safe and quick.
using Wanted = std::function<QStringList()>;

/// The shots of `shots` that have no result in `store`, in order.
QList<Shot> pending(const QList<Shot> &shots, const AssessmentStore &store);

/// Checks every pending shot: its preview at the working size from `loader` (the larger one
/// only when faces were found), stored with store.set(); asks the store to save at the
/// end. Blocks the calling thread while one worker per core takes the shots one at a time,
/// those of `wanted` first, then the rest in order; the workers run at background
/// priority (CpuShare::backgroundNiceness) on a pool of their own, so the window and the
/// pictures the user waits for keep their share of the processor. `progress` (optional) is
/// told the count done at most every 100 ms from a worker thread and once at the end.
/// Shots whose preview does not decode, and those not started when `stop` is requested,
/// stay unchecked, so a later run tries them again.
Outcome checkPending(const QList<Shot> &shots, AssessmentStore &store, PreviewLoader &loader,
                     const std::function<void(int done, int total)> &progress = {}, std::stop_token stop = {},
                     const Wanted &wanted = {});

} // namespace CheckRun
