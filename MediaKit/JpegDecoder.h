#pragma once

#include "MediaKit/Bitmap.h"

#include <cstdint>
#include <optional>
#include <span>

/// JPEG decoding through TurboJPEG with DCT scaling: the decoder itself produces a
/// picture 1/8 … 1 of the stored size, so a large photo is never fully decoded when a
/// small picture is wanted. All functions are safe on any thread and never throw.
namespace JpegDecoder {

struct Size {
    int width = 0;
    int height = 0;
    friend bool operator==(const Size &, const Size &) = default;
};

/// The stored pixel size from the frame header, or nothing when TurboJPEG cannot read
/// the header.
std::optional<Size> storedSize(std::span<const std::uint8_t> jpeg);

/// The size DCT scaling gives for a picture of `stored` size when at least `longSide`
/// pixels are wanted on the long side: the smallest of TurboJPEG's scaling factors (n/8,
/// never above 1) whose long side is still >= `longSide`; the stored size when even that
/// is too small.
Size scaledSize(Size stored, int longSide);

/// Decodes `jpeg` at scaledSize(storedSize, longSide). Pictures that decode with only a
/// warning (a cut-off tail, extraneous bytes) count as decoded: the decoder fills what is
/// missing. Nothing when the data cannot be decoded. `stored`, when given, receives the
/// stored size read from the header, so callers need not read it again.
std::optional<Bitmap> decode(std::span<const std::uint8_t> jpeg, int longSide, Size *stored = nullptr);

/// The EXIF orientation (1–8) stored in the first APP1 Exif segment of `jpeg`, read
/// without a metadata library; 1 when there is none or it is unreadable.
int exifOrientation(std::span<const std::uint8_t> jpeg);

} // namespace JpegDecoder
