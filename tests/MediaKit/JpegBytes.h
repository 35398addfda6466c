#pragma once

#include <turbojpeg.h>

#include <cstdint>
#include <initializer_list>
#include <vector>

/// JPEG byte streams for tests: real ones encoded by TurboJPEG and hand-made ones whose
/// every byte the test decides.
namespace JpegBytes {

using Bytes = std::vector<std::uint8_t>;

inline void append(Bytes &to, const Bytes &bytes)
{
    to.insert(to.end(), bytes.begin(), bytes.end());
}

/// A real baseline JPEG of a smooth gradient.
inline Bytes encoded(int width, int height, int quality = 85)
{
    std::vector<std::uint8_t> rgb(std::size_t(width) * height * 3);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            std::uint8_t *p = &rgb[(std::size_t(y) * width + x) * 3];
            p[0] = std::uint8_t(x * 255 / width);
            p[1] = std::uint8_t(y * 255 / height);
            p[2] = std::uint8_t((x + y) & 0xFF);
        }
    tjhandle handle = tjInitCompress();
    unsigned char *out = nullptr;
    unsigned long size = 0;
    tjCompress2(handle, rgb.data(), width, 0, height, TJPF_RGB, &out, &size, TJSAMP_420, quality, 0);
    Bytes result(out, out + size);
    tjFree(out);
    tjDestroy(handle);
    return result;
}

/// One marker segment: 0xFF, the marker, the big-endian length and the payload.
inline Bytes segment(std::uint8_t marker, const Bytes &payload)
{
    const std::size_t length = payload.size() + 2;
    Bytes s{0xFF, marker, std::uint8_t(length >> 8), std::uint8_t(length & 0xFF)};
    append(s, payload);
    return s;
}

/// A frame header payload for `width` × `height`, three components.
inline Bytes frame(int width, int height)
{
    return {8, std::uint8_t(height >> 8), std::uint8_t(height), std::uint8_t(width >> 8),
            std::uint8_t(width), 3, 1, 0x22, 0, 2, 0x11, 1, 3, 0x11, 1};
}

inline Bytes someCodedData()
{
    return Bytes(3, 0x5A);
}

struct Parts {
    bool tables = true;
    std::uint8_t frameMarker = 0xC0;
    int width = 8;
    int height = 8;
    Bytes beforeFrame;            ///< extra segments right after SOI (an APP1 holding a thumbnail, say)
    Bytes coded = someCodedData(); ///< the entropy-coded data
    bool eoi = true;
};

/// A hand-made JPEG stream: SOI, extra segments, tables, frame header, start of scan,
/// the given coded bytes and EOI. Not decodable; only its structure matters.
inline Bytes handMade(const Parts &parts)
{
    Bytes b{0xFF, 0xD8};
    append(b, parts.beforeFrame);
    if (parts.tables)
        append(b, segment(0xDB, Bytes(65, 1)));
    append(b, segment(parts.frameMarker, frame(parts.width, parts.height)));
    if (parts.tables)
        append(b, segment(0xC4, Bytes(20, 0)));
    append(b, segment(0xDA, {3, 1, 0, 2, 0x11, 3, 0x11, 0, 63, 0}));
    append(b, parts.coded);
    if (parts.eoi)
        append(b, {0xFF, 0xD9});
    return b;
}

/// `jpeg` with an APP1 segment holding `inner` inserted right after its SOI, as cameras
/// nest an Exif thumbnail inside a preview.
inline Bytes withNested(const Bytes &jpeg, const Bytes &inner)
{
    Bytes payload{'E', 'x', 'i', 'f', 0, 0};
    append(payload, inner);
    Bytes result{jpeg.begin(), jpeg.begin() + 2};
    append(result, segment(0xE1, payload));
    result.insert(result.end(), jpeg.begin() + 2, jpeg.end());
    return result;
}

} // namespace JpegBytes
