#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

/// A decoded picture in memory: 8-bit blue, green, red and an unused fourth byte per
/// pixel (the byte order of a little-endian 0xffRRGGBB word, so it can be handed to an
/// RGB32 image without conversion), rows `stride` bytes apart. A plain value.
struct Bitmap {
    int width = 0;
    int height = 0;
    std::size_t stride = 0; ///< bytes from one row to the next, at least width * 4
    std::vector<std::uint8_t> pixels; ///< stride * height bytes

    [[nodiscard]] bool empty() const { return width <= 0 || height <= 0; }
};
