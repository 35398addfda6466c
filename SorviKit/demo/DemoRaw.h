#pragma once

#include "SorviKit/demo/DemoExif.h"
#include "SorviKit/demo/DemoShoot.h"

#include <QByteArray>
#include <QImage>

#include <optional>

/// Writes the RAW files of the demo shoot: small DNGs laid out as cameras lay them out,
/// so that RAW+JPEG pairs and RAW-only shots can be tried without real camera files.
namespace DemoRaw {

/// The middle preview's long side in pixels.
inline constexpr int previewLongSide = 1024;
/// The sensor data is a real RGGB mosaic of the picture at this fraction of its width
/// and height: enough for a RAW decoder to show the scene, small enough to stay fast.
inline constexpr int sensorReduction = 8;
/// The sensor mosaic's sample range (12-bit data over a black level).
inline constexpr int sensorBlack = 256;
inline constexpr int sensorWhite = 4095;

/// The complete little-endian DNG 1.4 file for `frame` from its stored picture `image`
/// (RGB32, frame.width × frame.height) and that picture's JPEG encodings. In file order:
/// IFD0 holding the thumbnail (NewSubfileType 1, JPEG) with Make, Model, Orientation,
/// DateTime, the DNG tags and the Exif IFD (capture time with hundredths and offset,
/// exposure, lens, pixel size); SubIFDs for the sensor mosaic (NewSubfileType 0,
/// 16-bit CFA), a preview of previewLongSide pixels and the full-size picture (both
/// NewSubfileType 1, JPEG as one strip); then the image data, smallest first. Previews
/// are stored the way the sensor saw the scene, as the JPEG is. Returns nothing and sets
/// `error` when the preview can't be encoded; never throws. Safe on any thread.
std::optional<QByteArray> dngFile(const QImage &image, const DemoExif::Encoded &encoded,
                                  const DemoShoot::DemoFrame &frame, QString *error);

} // namespace DemoRaw
