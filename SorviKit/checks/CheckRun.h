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

/// The shots of `shots` that have no result in `store`, in order.
QList<Shot> pending(const QList<Shot> &shots, const AssessmentStore &store);

/// Checks every pending shot on all cores: its preview at the working size from
/// `loader` (the larger one only when faces were found), stored with store.set(); asks
/// the store to save at the end. Blocks the calling thread; `progress` (optional) is
/// told the count done at most every 100 ms from a worker thread and once at the end.
/// Shots whose preview does not decode, and those not started when `stop` is requested,
/// stay unchecked, so a later run tries them again.
Outcome checkPending(const QList<Shot> &shots, AssessmentStore &store, PreviewLoader &loader,
                     const std::function<void(int done, int total)> &progress = {}, std::stop_token stop = {});

} // namespace CheckRun
