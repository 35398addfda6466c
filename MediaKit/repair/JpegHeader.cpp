#include "MediaKit/repair/JpegHeader.h"

#include "ByteKit/MappedFile.h"
#include "MediaKit/repair/AtomicFile.h"

#include <turbojpeg.h>

#include <algorithm>
#include <array>
#include <memory>
#include <sys/stat.h>

namespace JpegHeader {

namespace {

// Code counts per length of the four tables most cameras use unchanged.
constexpr std::array<std::array<std::uint8_t, 16>, 4> standardCounts{{
    {0, 1, 5, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0},         // DC luminance
    {0, 3, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0},         // DC chrominance
    {0, 2, 1, 3, 3, 2, 4, 3, 5, 5, 4, 4, 0, 0, 1, 0x7d},      // AC luminance
    {0, 2, 1, 2, 4, 4, 3, 4, 7, 5, 4, 4, 0, 1, 2, 0x77},      // AC chrominance
}};

std::uint16_t be16(const std::uint8_t *at) { return std::uint16_t(at[0] << 8 | at[1]); }

// Whether a DHT segment's body holds only standard tables; false when it is malformed.
bool standardHuffman(std::span<const std::uint8_t> body, bool &wellFormed)
{
    bool standard = true;
    std::size_t at = 0;
    while (at < body.size()) {
        if (body.size() - at < 17) {
            wellFormed = false;
            return false;
        }
        std::array<std::uint8_t, 16> counts{};
        std::size_t symbols = 0;
        for (int i = 0; i < 16; ++i)
            symbols += counts[std::size_t(i)] = body[at + 1 + std::size_t(i)];
        standard &= std::find(standardCounts.begin(), standardCounts.end(), counts) != standardCounts.end();
        at += 17 + symbols;
    }
    wellFormed &= at == body.size();
    return standard;
}

// A scan header at `at`: FF DA, length 6 + 2 × components, 1 to 4 components.
bool scanHeaderAt(std::span<const std::uint8_t> bytes, std::size_t at)
{
    if (at + 5 > bytes.size() || bytes[at] != 0xff || bytes[at + 1] != 0xda)
        return false;
    const std::uint16_t length = be16(&bytes[at + 2]);
    const std::uint8_t components = bytes[at + 4];
    return components >= 1 && components <= 4 && length == 6 + 2 * components && at + 2 + length < bytes.size();
}

// A frame header at `at` with its size: FF C0/C1, length 8 + 3 × components.
std::optional<std::pair<int, int>> frameSizeAt(std::span<const std::uint8_t> bytes, std::size_t at)
{
    if (at + 10 > bytes.size() || bytes[at] != 0xff || (bytes[at + 1] != 0xc0 && bytes[at + 1] != 0xc1))
        return std::nullopt;
    const std::uint16_t length = be16(&bytes[at + 2]);
    const std::uint8_t components = bytes[at + 9];
    if (bytes[at + 4] != 8 || components < 1 || components > 4 || length != 8 + 3 * components)
        return std::nullopt;
    return std::pair{int(be16(&bytes[at + 7])), int(be16(&bytes[at + 5]))};
}

// Decodes fully and says whether TurboJPEG had nothing to complain about.
bool decodesCleanly(std::span<const std::uint8_t> jpeg)
{
    std::unique_ptr<void, int (*)(tjhandle)> handle(tjInitDecompress(), tjDestroy);
    int width = 0, height = 0, subsampling = 0, colorspace = 0;
    if (!handle || tjDecompressHeader3(handle.get(), jpeg.data(), static_cast<unsigned long>(jpeg.size()), &width,
                                       &height, &subsampling, &colorspace) != 0)
        return false;
    if (std::int64_t(width) * height > 100'000'000)
        return false;
    std::vector<std::uint8_t> pixels(std::size_t(width) * std::size_t(height) * 3);
    return tjDecompress2(handle.get(), jpeg.data(), static_cast<unsigned long>(jpeg.size()), pixels.data(), width, 0,
                         height, TJPF_RGB, 0) == 0;
}

bool sameFile(const std::string &a, const std::string &b)
{
    struct stat first {}, second {};
    return stat(a.c_str(), &first) == 0 && stat(b.c_str(), &second) == 0 && first.st_dev == second.st_dev &&
           first.st_ino == second.st_ino;
}

} // namespace

std::optional<Header> read(std::span<const std::uint8_t> jpeg)
{
    if (jpeg.size() < 4 || jpeg[0] != 0xff || jpeg[1] != 0xd8)
        return std::nullopt;
    Header header;
    header.bytes = {0xff, 0xd8};
    bool haveFrame = false, haveTables = false, wellFormed = true;
    std::size_t at = 2;
    while (at + 4 <= jpeg.size()) {
        if (jpeg[at] != 0xff)
            return std::nullopt;
        const std::uint8_t marker = jpeg[at + 1];
        if (marker == 0xff) { // fill byte
            ++at;
            continue;
        }
        const std::uint16_t length = be16(&jpeg[at + 2]);
        if (length < 2 || at + 2 + length > jpeg.size())
            return std::nullopt;
        const std::span<const std::uint8_t> segment = jpeg.subspan(at, 2 + std::size_t(length));
        const std::span<const std::uint8_t> body = segment.subspan(4);
        bool keep = false;
        if (marker == 0xc0 || marker == 0xc1) {
            const auto size = frameSizeAt(jpeg, at);
            if (!size)
                return std::nullopt;
            header.width = size->first, header.height = size->second;
            haveFrame = keep = true;
        } else if ((marker >= 0xc2 && marker <= 0xcf) && marker != 0xc4 && marker != 0xc8 && marker != 0xcc) {
            header.baseline = false; // progressive, lossless or arithmetic-coded
            return header;
        } else if (marker == 0xc4) {
            header.standardTables &= standardHuffman(body, wellFormed);
            haveTables = keep = true;
        } else if (marker == 0xdb) {
            keep = true;
        } else if (marker == 0xdd) {
            if (length != 4)
                return std::nullopt;
            header.restartInterval = be16(body.data());
            keep = true;
        } else if (marker == 0xe0 && length >= 7 && std::equal(body.begin(), body.begin() + 5, "JFIF")) {
            keep = true;
        } else if (marker == 0xda) {
            if (!scanHeaderAt(jpeg, at) || !haveFrame || !haveTables || !wellFormed)
                return std::nullopt;
            header.bytes.insert(header.bytes.end(), segment.begin(), segment.end());
            header.end = at + segment.size();
            return header;
        } else if (marker == 0xd8 || marker == 0xd9 || (marker >= 0xd0 && marker <= 0xd7) || marker == 0x01) {
            return std::nullopt;
        }
        if (keep)
            header.bytes.insert(header.bytes.end(), segment.begin(), segment.end());
        at += segment.size();
    }
    return std::nullopt;
}

Result transplant(std::span<const std::uint8_t> damaged, std::span<const std::uint8_t> reference)
{
    const std::optional<Header> header = read(reference);
    if (!header)
        throw Error(Error::Kind::unreadableReference, "the reference is not a readable JPEG photo");
    if (!header->baseline)
        throw Error(Error::Kind::unreadableReference,
                    "the reference is a progressive JPEG; only sequential photos can lend their header");
    Result result;
    // The photo's own scan header, when it survived, marks where its picture data starts;
    // a frame header before it tells the photo's size.
    std::optional<std::pair<int, int>> ownSize;
    for (std::size_t at = 0; at + 1 < damaged.size(); ++at) {
        if (damaged[at] != 0xff)
            continue;
        if (auto size = frameSizeAt(damaged, at))
            ownSize = size;
        if (scanHeaderAt(damaged, at)) {
            result.dataOffset = at + 2 + be16(&damaged[at + 2]);
            result.foundOwnScanHeader = true;
            break;
        }
    }
    if (!result.foundOwnScanHeader) {
        // The whole header is lost: a photo of the same camera and settings has a header of
        // the same length, provided the loss ends before that.
        const auto firstKept = std::find_if(damaged.begin(), damaged.end(), [](std::uint8_t b) { return b != 0; });
        const auto lostUntil = std::size_t(firstKept - damaged.begin());
        if (header->end >= damaged.size() || lostUntil > header->end)
            throw Error(Error::Kind::nothingRecoverable,
                        "nothing recoverable after byte " + std::to_string(std::min(lostUntil, damaged.size())) +
                            ": the photo's picture data does not survive past its damaged start");
        result.dataOffset = header->end;
        result.warnings.push_back("the photo's own scan header is lost; its picture data is taken to start where the "
                                  "reference's does (byte " + std::to_string(header->end) + ")");
    }
    if (result.dataOffset >= damaged.size())
        throw Error(Error::Kind::nothingRecoverable, "nothing recoverable after byte " + std::to_string(result.dataOffset) +
                                                         ": the photo holds no picture data after its header");
    if (!header->standardTables) {
        result.optimisedTables = true;
        result.warnings.push_back("the reference uses optimised Huffman tables, made for its own picture; the photo's "
                                  "tables were likely different, so the rebuilt photo may not decode exactly");
    }
    if (ownSize && (ownSize->first != header->width || ownSize->second != header->height)) {
        result.sizeDiffers = true;
        result.warnings.push_back("the photo is " + std::to_string(ownSize->first) + "x" + std::to_string(ownSize->second) +
                                  " but the reference is " + std::to_string(header->width) + "x" +
                                  std::to_string(header->height) + "; use a reference of the same size");
    }
    result.jpeg = header->bytes;
    result.jpeg.insert(result.jpeg.end(), damaged.begin() + std::ptrdiff_t(result.dataOffset), damaged.end());
    if (result.jpeg.size() < 2 || result.jpeg[result.jpeg.size() - 2] != 0xff || result.jpeg.back() != 0xd9)
        result.jpeg.insert(result.jpeg.end(), {0xff, 0xd9});
    result.decodes = decodesCleanly(result.jpeg);
    if (!result.decodes)
        result.warnings.push_back("the rebuilt photo does not decode cleanly; parts of the picture may be wrong");
    return result;
}

Result repair(const std::string &photo, const std::string &reference, const std::string &output, std::string &written)
{
    if (reference.empty())
        throw Error(Error::Kind::noReference,
                    "no reference given: rebuilding a photo's header needs a good photo from the same camera at the "
                    "same size (--reference)");
    Result result;
    try {
        const MappedFile damaged(photo), good(reference);
        result = transplant(damaged.bytes(), good.bytes());
    } catch (const Error &) {
        throw;
    } catch (const std::exception &error) {
        throw Error(Error::Kind::unreadableReference, error.what());
    }
    written = output.empty() ? freeNameBeside(photo, "repaired") : output;
    if (sameFile(written, photo))
        throw Error(Error::Kind::cannotWrite, "the repaired photo cannot be written over the damaged one: " + written);
    try {
        AtomicFile file(written);
        file.write(result.jpeg);
        file.commit();
    } catch (const AtomicFile::Failed &error) {
        throw Error(Error::Kind::cannotWrite, error.what());
    }
    return result;
}

bool startsLikeJpeg(std::span<const std::uint8_t> bytes)
{
    return bytes.size() >= 3 && bytes[0] == 0xff && bytes[1] == 0xd8 && bytes[2] == 0xff;
}

} // namespace JpegHeader
