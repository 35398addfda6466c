#pragma once

// A camera-sized picture for the decoding benchmarks.

#include "SorviKit/demo/DemoScene.h"
#include "SorviKit/demo/DemoShoot.h"

#include <QImage>
#include <QPainter>

namespace BenchPictures {

/// A 6000×4000 picture with fine detail and sensor grain everywhere, so that a JPEG of it
/// gives the decoder a realistic amount of entropy to chew through. The demo scenes are
/// drawn at their own size, so sixteen different ones are tiled; enlarging one would
/// smooth away the detail. The seeds choose the scenes and their grain.
inline QImage detailed24MP(quint32 sceneSeed, quint32 grainSeed)
{
    QImage picture(6000, 4000, QImage::Format_RGB32);
    QPainter painter(&picture);
    for (int tile = 0; tile < 16; ++tile) {
        DemoShoot::DemoFrame frame;
        frame.width = 1600;
        frame.height = 1067;
        frame.sceneSeed = sceneSeed + quint32(tile);
        frame.grainSeed = grainSeed + quint32(tile);
        painter.drawImage(QPoint((tile % 4) * 1500, (tile / 4) * 1000), DemoScene::render(frame),
                          QRect(0, 0, 1500, 1000));
    }
    return picture;
}

} // namespace BenchPictures
