#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

/// Finds the JPEG pictures cameras store inside RAW files (full-size preview, mid-size
/// preview, thumbnail) by scanning the bytes, without understanding any maker's
/// container, so it works the same on every RAW format. Operates on bytes in memory;
/// every function is safe on any thread.
namespace RAWPreview {

/// One JPEG found in a file.
struct Candidate {
    std::int64_t start = 0; ///< byte position of the SOI marker
    std::int64_t end = 0;   ///< one past the last byte of the picture (half-open range)
    int width = 0;          ///< from the frame header
    int height = 0;
    /// The picture's EOI was not found: the range stops where the data stops or where an
    /// impossible marker stands.
    bool incomplete = false;

    [[nodiscard]] std::int64_t area() const { return std::int64_t(width) * height; }
    [[nodiscard]] int longSide() const { return width > height ? width : height; }
    friend bool operator==(const Candidate &, const Candidate &) = default;
};

/// What extract() returns.
struct Found {
    std::vector<std::uint8_t> jpeg; ///< the picture's bytes (closed with an EOI when it was cut)
    int width = 0;
    int height = 0;
    bool incomplete = false;
    bool keptDetails = false; ///< the RAW's metadata was copied into `jpeg`
};

enum class Diagnosis { opens, damaged };

/// Thrown by extract() when no stored picture decodes; what() is the sentence for people.
class Unsupported : public std::runtime_error {
public:
    Unsupported();
};


/// Every JPEG embedded in `bytes`, largest pixel area first; pictures of equal area keep
/// their file order. Pictures nested in another's header segments (an Exif thumbnail
/// inside a preview) are found; entropy-coded data is skipped, never searched. Lossless,
/// hierarchical and arithmetic-coded JPEGs are not candidates. Never throws.
std::vector<Candidate> candidates(std::span<const std::uint8_t> bytes);

/// The first candidate, in candidates() order, that decodes (to a 64-pixel thumbnail).
/// An incomplete candidate is used only when its header is whole, closed with an EOI.
/// With `keepDetails` the RAW's Exif, TIFF and GPS details are copied into the picture
/// without re-encoding it. Throws Unsupported when no candidate decodes.
Found extract(std::span<const std::uint8_t> bytes, bool keepDetails);

/// Whether the platform decoders can open `bytes` at all and make a 256-pixel thumbnail:
/// a JPEG through TurboJPEG, anything else through LibRaw's sensor decoding.
Diagnosis diagnose(std::span<const std::uint8_t> bytes);

/// `jpeg` with the Exif (IFD0, Exif and GPS) details of the RAW file in `raw` written into
/// it, the compressed picture untouched; nothing when the RAW holds no readable Exif or
/// TIFF details or writing fails. Never throws.
std::optional<std::vector<std::uint8_t>> copyingDetails(std::span<const std::uint8_t> raw,
                                                        std::span<const std::uint8_t> jpeg);

} // namespace RAWPreview
