#pragma once

#include "SorviKit/checks/AssessmentStore.h"
#include "SorviKit/library/Shot.h"

#include <QList>
#include <QStringList>

#include <functional>

class PreviewLoader;

/// Runs the on-device checks over many shots at once.
namespace CheckRun {

struct Outcome {
    int checked = 0;        ///< shots checked in this run
    QStringList unreadable; ///< ids whose preview could not be decoded; left unchecked
};

/// Checks every shot of `shots` that has no result in `store` on all cores: its preview
/// at the working size from `loader` (the larger one only when faces were found), stored
/// with store.set(); saves the store at the end. Blocks the calling thread; `progress`
/// (optional) is called on the calling thread with the count done so far, at most every
/// 100 ms and once at the end. Shots whose preview does not decode stay unchecked, so a
/// later run tries them again.
Outcome checkPending(const QList<Shot> &shots, AssessmentStore &store, PreviewLoader &loader,
                     const std::function<void(int done, int total)> &progress = {});

} // namespace CheckRun
