#pragma once

#include <QImage>

/// Where a picture has lost detail: highlights burnt to white and shadows crushed to
/// black, as an overlay of the same size to draw over it. Pure; any thread.
namespace Clipping {

/// A pixel whose brightest channel reaches this has lost its highlight detail.
constexpr int highlight = 253;
/// A pixel whose brightest channel stays at or below this has lost its shadow detail.
constexpr int shadow = 2;

/// Transparent where detail survives; red over clipped highlights, blue over crushed
/// shadows. A null picture gives a null overlay.
QImage overlay(const QImage &picture);

} // namespace Clipping
