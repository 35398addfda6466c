#include "MediaKit/RawDecoder.h"

#include <libraw/libraw.h>

#include <algorithm>
#include <functional>
#include <memory>

namespace RawDecoder {
namespace {

struct ImageFree {
    void operator()(libraw_processed_image_t *image) const { LibRaw::dcraw_clear_mem(image); }
};

Bitmap toBitmap(const libraw_processed_image_t &image)
{
    Bitmap bitmap;
    bitmap.width = image.width;
    bitmap.height = image.height;
    bitmap.stride = std::size_t(image.width) * 4;
    bitmap.pixels.resize(bitmap.stride * image.height);
    const int colors = image.colors;
    for (int y = 0; y < image.height; ++y) {
        const std::uint8_t *in = image.data + std::size_t(y) * image.width * colors;
        std::uint8_t *out = bitmap.pixels.data() + std::size_t(y) * bitmap.stride;
        for (int x = 0; x < image.width; ++x, in += colors, out += 4) {
            const std::uint8_t r = in[0];
            const std::uint8_t g = colors >= 3 ? in[1] : in[0];
            const std::uint8_t b = colors >= 3 ? in[2] : in[0];
            out[0] = b;
            out[1] = g;
            out[2] = r;
            out[3] = 0xFF;
        }
    }
    return bitmap;
}

// LibRaw reports damaged sensor data through this callback (and would print it on
// stderr otherwise); such data develops into a black or striped picture, not a photo.
void countDataError(void *errors, const char *, const int)
{
    ++*static_cast<int *>(errors);
}

// Opens with `open`, then unpacks and develops the sensor data with the camera's white
// balance into 8-bit sRGB.
std::optional<Bitmap> develop(const std::function<int(LibRaw &)> &open, int longSide)
{
    // LibRaw's state is several hundred kilobytes: keep it off the stack.
    auto raw = std::make_unique<LibRaw>(LIBRAW_OPTIONS_NONE);
    int dataErrors = 0;
    raw->set_dataerror_handler(countDataError, &dataErrors);
    if (open(*raw) != LIBRAW_SUCCESS)
        return std::nullopt;
    const int sensorLong = std::max<int>(raw->imgdata.sizes.width, raw->imgdata.sizes.height);
    raw->imgdata.params.use_camera_wb = 1;
    raw->imgdata.params.output_bps = 8;
    raw->imgdata.params.half_size = longSide > 0 && sensorLong / 2 >= longSide ? 1 : 0;
    if (raw->unpack() != LIBRAW_SUCCESS || dataErrors > 0 || raw->dcraw_process() != LIBRAW_SUCCESS
        || dataErrors > 0)
        return std::nullopt;
    int error = 0;
    // The memory image is already turned by the camera's rotation.
    std::unique_ptr<libraw_processed_image_t, ImageFree> image(raw->dcraw_make_mem_image(&error));
    if (!image || error != LIBRAW_SUCCESS || image->type != LIBRAW_IMAGE_BITMAP || image->bits != 8
        || image->width == 0 || image->height == 0 || (image->colors != 1 && image->colors != 3))
        return std::nullopt;
    return toBitmap(*image);
}

} // namespace

std::optional<Bitmap> decode(const std::string &path, int longSide)
{
    return develop([&](LibRaw &raw) { return raw.open_file(path.c_str()); }, longSide);
}

std::optional<Bitmap> decode(std::span<const std::uint8_t> bytes, int longSide)
{
    if (bytes.empty())
        return std::nullopt;
    // LibRaw only reads the buffer; its interface predates const.
    void *data = const_cast<std::uint8_t *>(bytes.data());
    return develop([&](LibRaw &raw) { return raw.open_buffer(data, bytes.size()); }, longSide);
}

} // namespace RawDecoder
