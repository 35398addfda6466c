#pragma once

#include "SorviKit/library/Shot.h"

#include <QList>
#include <QStringList>

/// Groups rapid series from one camera.
namespace Bursts {

/// Bursts of at least two shots from the same camera, each within `gapSeconds` of the
/// previous frame; bursts and their ids in time order. Shots without a date never join.
QList<QStringList> group(const QList<Shot> &shots, double gapSeconds);

} // namespace Bursts
