#include "SorviKit/previews/HeifDecoder.h"

#include <libheif/heif.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <string_view>

namespace {

struct ContextFree {
    void operator()(heif_context *context) const { heif_context_free(context); }
};
struct HandleRelease {
    void operator()(heif_image_handle *handle) const { heif_image_handle_release(handle); }
};
struct OptionsFree {
    void operator()(heif_decoding_options *options) const { heif_decoding_options_free(options); }
};

// Image brands of HEIF and AVIF, sequence brands included: such files still carry a
// primary still picture.
constexpr std::array<std::string_view, 13> imageBrands{"heic", "heix", "heim", "heis", "hevc",
                                                       "hevx", "hevm", "hevs", "mif1", "msf1",
                                                       "mif2", "avif", "avis"};

bool isImageBrand(std::span<const std::uint8_t> brand)
{
    const std::string_view name(reinterpret_cast<const char *>(brand.data()), brand.size());
    return std::find(imageBrands.begin(), imageBrands.end(), name) != imageBrands.end();
}

std::uint32_t bigEndian32(std::span<const std::uint8_t> bytes)
{
    return std::uint32_t(bytes[0]) << 24 | std::uint32_t(bytes[1]) << 16 | std::uint32_t(bytes[2]) << 8
        | bytes[3];
}

// Registers libheif's decoder plug-ins once for the whole process; they stay loaded
// for as long as the program runs.
void initializeOnce()
{
    [[maybe_unused]] static const heif_error initialized = heif_init(nullptr);
}

void releaseImage(void *image)
{
    heif_image_release(static_cast<const heif_image *>(image));
}

// Rewrites libheif's R, G, B, A bytes in place as the native 0xffRRGGBB words of RGB32:
// Qt scales that format quickly, while its own conversion of a whole 12-megapixel RGB888
// picture costs more than a hundred milliseconds. Photos are shown opaque.
void toRgb32(std::uint8_t *row, int width, int height, int stride)
{
    for (int y = 0; y < height; ++y, row += stride)
        for (int x = 0; x < width; ++x) {
            std::uint8_t *pixel = row + std::size_t(x) * 4;
            const std::uint32_t word =
                0xFF000000u | std::uint32_t(pixel[0]) << 16 | std::uint32_t(pixel[1]) << 8 | pixel[2];
            std::memcpy(pixel, &word, sizeof word);
        }
}

// Wraps the decoded plane without copying it; the QImage releases the libheif image
// when its last copy goes.
std::optional<QImage> wrap(heif_image *image)
{
    int stride = 0;
    std::uint8_t *plane = heif_image_get_plane(image, heif_channel_interleaved, &stride);
    const int width = heif_image_get_width(image, heif_channel_interleaved);
    const int height = heif_image_get_height(image, heif_channel_interleaved);
    if (!plane || width <= 0 || height <= 0 || stride < width * 4) {
        heif_image_release(image);
        return std::nullopt;
    }
    toRgb32(plane, width, height, stride);
    return QImage(plane, width, height, stride, QImage::Format_RGB32, releaseImage, image);
}

} // namespace

namespace HeifDecoder {

bool isHeif(std::span<const std::uint8_t> bytes)
{
    if (bytes.size() < 16 || !std::equal(bytes.begin() + 4, bytes.begin() + 8, "ftyp"))
        return false;
    const std::size_t boxEnd = std::min<std::size_t>(bigEndian32(bytes), bytes.size());
    if (isImageBrand(bytes.subspan(8, 4)))
        return true;
    // The compatible brands follow the major brand and its minor version.
    for (std::size_t brand = 16; brand + 4 <= boxEnd; brand += 4)
        if (isImageBrand(bytes.subspan(brand, 4)))
            return true;
    return false;
}

std::optional<QImage> decode(std::span<const std::uint8_t> bytes)
{
    initializeOnce();
    std::unique_ptr<heif_context, ContextFree> context(heif_context_alloc());
    if (!context
        || heif_context_read_from_memory_without_copy(context.get(), bytes.data(), bytes.size(), nullptr).code
            != heif_error_Ok)
        return std::nullopt;
    heif_image_handle *primary = nullptr;
    if (heif_context_get_primary_image_handle(context.get(), &primary).code != heif_error_Ok)
        return std::nullopt;
    const std::unique_ptr<heif_image_handle, HandleRelease> handle(primary);
    const std::unique_ptr<heif_decoding_options, OptionsFree> options(heif_decoding_options_alloc());
    if (!options)
        return std::nullopt;
    options->ignore_transformations = 0; // irot and imir are part of the picture
    options->convert_hdr_to_8bit = 1;    // 10-bit HIF files come out as ordinary 8-bit RGB
    heif_image *image = nullptr;
    if (heif_decode_image(handle.get(), &image, heif_colorspace_RGB, heif_chroma_interleaved_RGBA, options.get()).code
        != heif_error_Ok)
        return std::nullopt;
    return wrap(image);
}

} // namespace HeifDecoder
