#pragma once

#include "SorviKit/demo/DemoShoot.h"

#include <QImage>

/// Draws the pictures of the demo shoot: landscapes made of gradients, hills, trees,
/// houses, grass and sensor grain, so that sharp frames carry real fine detail.
namespace DemoScene {

/// The picture of `frame` as its file stores it (RGB32, frame.width × frame.height):
/// drawn upright from frame.sceneSeed, moved by frame.sceneShift, grained from
/// frame.grainSeed, defocused when frame.blurred, and turned a quarter left when the
/// orientation is 6. Deterministic; safe on any thread.
QImage render(const DemoShoot::DemoFrame &frame);

} // namespace DemoScene
