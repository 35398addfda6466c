#include "MediaKit/JpegDecoder.h"

#include <turbojpeg.h>

#include <algorithm>
#include <memory>
#include <new>

namespace JpegDecoder {
namespace {

struct HandleCloser {
    void operator()(void *handle) const { tjDestroy(handle); }
};
using Handle = std::unique_ptr<void, HandleCloser>;

// A fresh decompressor per picture: TurboJPEG 2.1 can leave a handle unusable after some
// decoding errors, and making one costs microseconds next to any decode.
Handle decompressor()
{
    return Handle(tjInitDecompress());
}

// TurboJPEG reports a damaged but decodable picture as an error whose code is a warning.
bool decoded(int status, tjhandle handle)
{
    return status == 0 || tjGetErrorCode(handle) == TJERR_WARNING;
}

std::optional<Size> readHeader(tjhandle handle, std::span<const std::uint8_t> jpeg)
{
    if (!handle || jpeg.empty())
        return std::nullopt;
    int width = 0, height = 0, subsampling = 0, colorspace = 0;
    if (tjDecompressHeader3(handle, jpeg.data(), static_cast<unsigned long>(jpeg.size()), &width,
                            &height, &subsampling, &colorspace) != 0)
        return std::nullopt;
    if (width <= 0 || height <= 0)
        return std::nullopt;
    return Size{width, height};
}

std::uint16_t read16(const std::uint8_t *p, bool bigEndian)
{
    return bigEndian ? std::uint16_t(p[0] << 8 | p[1]) : std::uint16_t(p[1] << 8 | p[0]);
}

std::uint32_t read32(const std::uint8_t *p, bool bigEndian)
{
    return bigEndian ? std::uint32_t(p[0]) << 24 | std::uint32_t(p[1]) << 16 | std::uint32_t(p[2]) << 8 | p[3]
                     : std::uint32_t(p[3]) << 24 | std::uint32_t(p[2]) << 16 | std::uint32_t(p[1]) << 8 | p[0];
}

// The orientation entry of IFD0 in a TIFF structure (the body of an Exif segment).
int tiffOrientation(std::span<const std::uint8_t> tiff)
{
    if (tiff.size() < 8)
        return 1;
    const bool bigEndian = tiff[0] == 'M' && tiff[1] == 'M';
    if (!bigEndian && !(tiff[0] == 'I' && tiff[1] == 'I'))
        return 1;
    const std::uint32_t ifd = read32(tiff.data() + 4, bigEndian);
    if (ifd > tiff.size() - 2)
        return 1;
    const std::size_t count = read16(tiff.data() + ifd, bigEndian);
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t entry = ifd + 2 + i * 12;
        if (entry + 12 > tiff.size())
            break;
        if (read16(tiff.data() + entry, bigEndian) == 0x0112) {
            const int value = read16(tiff.data() + entry + 8, bigEndian);
            return value >= 1 && value <= 8 ? value : 1;
        }
    }
    return 1;
}

} // namespace

std::optional<Size> storedSize(std::span<const std::uint8_t> jpeg)
{
    const Handle handle = decompressor();
    return readHeader(handle.get(), jpeg);
}

Size scaledSize(Size stored, int longSide)
{
    int count = 0;
    const tjscalingfactor *factors = tjGetScalingFactors(&count);
    Size best = stored;
    const int storedLong = std::max(stored.width, stored.height);
    for (int i = 0; factors && i < count; ++i) {
        const tjscalingfactor f = factors[i];
        if (f.num > f.denom)
            continue; // never enlarge
        const Size scaled{TJSCALED(stored.width, f), TJSCALED(stored.height, f)};
        const int scaledLong = std::max(scaled.width, scaled.height);
        if (scaledLong >= std::min(longSide, storedLong) && scaledLong < std::max(best.width, best.height))
            best = scaled;
    }
    return best;
}

std::optional<Bitmap> decode(std::span<const std::uint8_t> jpeg, int longSide, Size *storedOut)
{
    const Handle owner = decompressor();
    tjhandle handle = owner.get();
    const std::optional<Size> stored = readHeader(handle, jpeg);
    if (!stored)
        return std::nullopt;
    const Size size = scaledSize(*stored, longSide);
    Bitmap bitmap;
    bitmap.width = size.width;
    bitmap.height = size.height;
    bitmap.stride = std::size_t(size.width) * 4;
    try {
        bitmap.pixels.resize(bitmap.stride * std::size_t(size.height));
    } catch (const std::bad_alloc &) {
        return std::nullopt; // a damaged header can claim a picture larger than memory
    }
    const int status = tjDecompress2(handle, jpeg.data(), static_cast<unsigned long>(jpeg.size()),
                                     bitmap.pixels.data(), size.width, int(bitmap.stride), size.height,
                                     TJPF_BGRX, TJFLAG_LIMITSCANS);
    if (!decoded(status, handle))
        return std::nullopt;
    if (storedOut)
        *storedOut = *stored;
    return bitmap;
}

int exifOrientation(std::span<const std::uint8_t> jpeg)
{
    if (jpeg.size() < 4 || jpeg[0] != 0xFF || jpeg[1] != 0xD8)
        return 1;
    std::size_t q = 2;
    // Walk the header segments up to the start of scan; Exif always precedes it.
    while (q + 4 <= jpeg.size() && jpeg[q] == 0xFF) {
        const std::uint8_t marker = jpeg[q + 1];
        if (marker == 0xFF) {
            ++q;
            continue;
        }
        if (marker == 0xDA || marker == 0xD9)
            break;
        const std::size_t length = std::size_t(jpeg[q + 2]) << 8 | jpeg[q + 3];
        if (length < 2 || q + 2 + length > jpeg.size())
            break;
        if (marker == 0xE1 && length >= 8 + 6) {
            const std::uint8_t *body = jpeg.data() + q + 4;
            if (std::equal(body, body + 6, "Exif\0\0"))
                return tiffOrientation(jpeg.subspan(q + 4 + 6, length - 2 - 6));
        }
        q += 2 + length;
    }
    return 1;
}

} // namespace JpegDecoder
