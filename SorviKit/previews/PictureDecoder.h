#pragma once

#include "SorviKit/previews/ShotPreview.h"

#include "MediaKit/Bitmap.h"

#include <QImage>
#include <QSize>
#include <QString>

#include <cstdint>
#include <optional>
#include <span>

/// Decodes picture files into QImages of a wanted size with the fastest decoder for each
/// format. Every function is safe on any thread, blocks while it decodes and never throws.
namespace PictureDecoder {

/// The decoders a file can go to.
enum class Kind { jpeg, heif, raw, other };

/// Which decoder reads the file at `path` whose first bytes are `head`: JPEG and HEIF by
/// their content (a RAW-named file holding a JPEG is read as the JPEG it is), RAW by the
/// file's extension, everything else by Qt's image readers.
Kind kindOf(std::span<const std::uint8_t> head, const QString &path);

/// `size` fitted into `maxPixels` on its long side, aspect ratio kept, never enlarged;
/// at least 1 pixel on each side.
QSize fittedSize(QSize size, int maxPixels);

/// `image` shrunk with area averaging so that its long side is at most `maxPixels`; an
/// image that is small enough comes back unchanged (sharing its pixels).
QImage scaledToFit(const QImage &image, int maxPixels);

/// The pixels of `bitmap` as an RGB32 image, without copying them: the image takes over
/// the buffer and frees it when its last copy goes.
QImage toImage(Bitmap &&bitmap);

/// A copy of `image` turned upright from EXIF orientation `orientation`: 2 mirrored
/// left–right, 3 turned 180°, 4 mirrored top–bottom, 5 transposed, 6 turned 90°
/// clockwise, 7 transversed, 8 turned 270° clockwise. 1 or an unknown code returns the
/// image unchanged.
QImage turned(const QImage &image, int orientation);

/// The JPEG in `jpeg` decoded with its long side at most `maxPixels`: TurboJPEG's DCT
/// scaling to the smallest size at least that long, then area averaging. The picture's
/// own EXIF orientation is not applied. Nothing when it does not decode.
std::optional<QImage> decodeJpeg(std::span<const std::uint8_t> jpeg, int maxPixels, QSize *stored = nullptr);

/// The file at `path` decoded with its long side at most `maxPixels` and turned upright
/// by the file's own orientation (for HEIF only the turns libheif applies itself), so the
/// result has orientation 1. `source` names the decoder ("TurboJPEG", "libheif",
/// "LibRaw", "Qt image reader"), `sourceWidth`/`sourceHeight` the size it decoded before
/// scaling and turning. Nothing when the file cannot be read or decoded, or `maxPixels`
/// is below 1.
std::optional<ShotPreview> thumbnail(const QString &path, int maxPixels);

} // namespace PictureDecoder
