#pragma once

#include "DemoShoot.h"

#include <QByteArray>
#include <QImage>

#include <optional>

/// Turns a drawn demo picture into the bytes of a camera JPEG: TurboJPEG encoding, the
/// frame's EXIF with a nested thumbnail, and the deliberate damage some frames carry.
namespace DemoExif {

/// The complete file for `frame` from its stored picture `image` (RGB32): baseline JPEG
/// at quality 88 with 4:2:0 chroma, EXIF holding the frame's camera, lens, exposure,
/// orientation, capture time and pixel size plus a thumbnail 160 pixels on the long
/// side. For a frame planned with damaged metadata, IFD0 then claims more entries than
/// the EXIF block holds. Returns nothing and sets `error` when an encoder fails; never
/// throws. Safe on any thread.
std::optional<QByteArray> jpegFile(const QImage &image, const DemoShoot::DemoFrame &frame, QString *error);

/// Makes the first EXIF block of `jpeg` unreadable by giving IFD0 an entry count that
/// runs past the block's end, leaving every other byte as it was. False when `jpeg`
/// holds no EXIF block with a reachable IFD0.
bool damageExif(QByteArray &jpeg);

} // namespace DemoExif
