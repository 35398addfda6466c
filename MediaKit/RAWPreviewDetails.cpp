// Copying a RAW file's Exif details into one of its stored JPEGs, through Exiv2.
#include "MediaKit/RAWPreview.h"

#include "MediaKit/JpegDecoder.h"

// Exiv2 0.27 hands out images through std::auto_ptr, which C++17 deprecated; the
// deprecation says nothing about our code, so it is silenced for this include only.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#include <exiv2/exiv2.hpp>
#pragma GCC diagnostic pop

#include <algorithm>
#include <array>

namespace RAWPreview {
namespace {

// IFD0 tags that describe the photograph rather than the RAW file's own layout
// (strips, sub-IFDs, sample formats), which would be wrong in the JPEG.
bool isPhotoTag(const Exiv2::Exifdatum &datum)
{
    static constexpr std::array<std::uint16_t, 12> imageTags{
        0x010E, // ImageDescription
        0x010F, // Make
        0x0110, // Model
        0x0112, // Orientation
        0x011A, // XResolution
        0x011B, // YResolution
        0x0128, // ResolutionUnit
        0x0131, // Software
        0x0132, // DateTime
        0x013B, // Artist
        0x013C, // HostComputer
        0x8298, // Copyright
    };
    const std::string group = datum.groupName();
    if (group == "Image")
        return std::find(imageTags.begin(), imageTags.end(), datum.tag()) != imageTags.end();
    if (group == "Photo")
        return datum.tag() != 0x927C; // the maker note points into the RAW file's bytes
    return group == "GPSInfo";
}

std::optional<std::vector<std::uint8_t>> copyInto(const Exiv2::ExifData &details,
                                                  std::span<const std::uint8_t> jpeg)
{
    auto target = Exiv2::ImageFactory::open(jpeg.data(), long(jpeg.size()));
    if (target.get() == nullptr || target->imageType() != Exiv2::ImageType::jpeg)
        return std::nullopt;
    target->readMetadata();
    Exiv2::ExifData merged = target->exifData();
    for (const Exiv2::Exifdatum &datum : details)
        if (isPhotoTag(datum))
            merged[datum.key()] = datum.value();
    // The RAW's pixel dimensions describe the sensor; the JPEG keeps its own.
    if (const auto size = JpegDecoder::storedSize(jpeg)) {
        merged["Exif.Photo.PixelXDimension"] = std::uint32_t(size->width);
        merged["Exif.Photo.PixelYDimension"] = std::uint32_t(size->height);
    }
    target->setExifData(merged);
    target->writeMetadata(); // rewrites the header segments only; the picture is not re-encoded
    Exiv2::BasicIo &io = target->io();
    const long size = io.size();
    if (size <= 0 || io.open() != 0)
        return std::nullopt;
    Exiv2::DataBuf buffer = io.read(size);
    io.close();
    if (buffer.size_ != size)
        return std::nullopt;
    return std::vector<std::uint8_t>(buffer.pData_, buffer.pData_ + buffer.size_);
}

} // namespace

std::optional<std::vector<std::uint8_t>> copyingDetails(std::span<const std::uint8_t> raw,
                                                        std::span<const std::uint8_t> jpeg)
{
    if (raw.empty() || jpeg.empty())
        return std::nullopt;
    try {
        auto source = Exiv2::ImageFactory::open(raw.data(), long(raw.size()));
        if (source.get() == nullptr)
            return std::nullopt;
        source->readMetadata();
        if (source->exifData().empty())
            return std::nullopt;
        return copyInto(source->exifData(), jpeg);
    } catch (const Exiv2::AnyError &) {
        // A container Exiv2 cannot read (or one it reads wrongly) leaves the JPEG as it was.
        return std::nullopt;
    } catch (const std::exception &) {
        return std::nullopt;
    }
}

} // namespace RAWPreview
