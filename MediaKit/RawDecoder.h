#pragma once

#include "MediaKit/Bitmap.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>

/// Decoding of camera sensor data through LibRaw, the slow route used only when a RAW
/// file carries no usable stored picture. Safe on any thread (each call has its own
/// LibRaw state); never throws.
namespace RawDecoder {

/// Decodes the sensor data of the RAW file at `path` (or in `bytes`) into an upright
/// picture (the camera's rotation applied). With `longSide` > 0 and the sensor's half
/// size still at least that long, LibRaw's half-size mode is used, which is about four
/// times faster. Nothing when LibRaw cannot open, unpack or process the data.
std::optional<Bitmap> decode(const std::string &path, int longSide);
std::optional<Bitmap> decode(std::span<const std::uint8_t> bytes, int longSide);

} // namespace RawDecoder
