#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

class ByteSource;

/// Reading and writing the boxes of ISO base media and QuickTime files (MP4, MOV). Every
/// size read from a file is checked against the bytes that hold it: a box never reaches
/// past its parent or the end of the file.
namespace IsoBox {

using FourCC = std::uint32_t;

constexpr FourCC fourcc(const char (&text)[5])
{
    return FourCC(std::uint8_t(text[0])) << 24 | FourCC(std::uint8_t(text[1])) << 16 |
           FourCC(std::uint8_t(text[2])) << 8 | FourCC(std::uint8_t(text[3]));
}
std::string text(FourCC type); ///< "moov"; unprintable bytes as '?'

/// A file that is not a readable ISO media file, or a box that breaks its own rules.
class Malformed : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Where a box stands in a file.
struct Header {
    FourCC type = 0;
    std::uint64_t offset = 0;
    std::uint32_t headerSize = 8; ///< 8, or 16 with a 64-bit size
    std::uint64_t size = 0;       ///< whole box, header included, clamped to the limit
    bool cut = false;             ///< the box claims more bytes than there are
    [[nodiscard]] std::uint64_t payloadOffset() const { return offset + headerSize; }
    [[nodiscard]] std::uint64_t end() const { return offset + size; }
};

/// The header at `offset`, or nothing when not even a plausible header fits before
/// `limit` (a size smaller than its header, a type of non-printable bytes).
std::optional<Header> readHeader(const ByteSource &source, std::uint64_t offset, std::uint64_t limit);

/// The boxes at the top of a file, in order, up to the first that cannot be read; the last
/// one may be `cut` (a recording stopped in the middle of its media data).
std::vector<Header> topLevel(const ByteSource &source);

/// A box held in memory: containers by their children, every other box by its payload,
/// kept byte for byte.
struct Box {
    FourCC type = 0;
    bool wideHeader = false;    ///< was read with a 64-bit size; written back the same way
    std::vector<std::uint8_t> payload; ///< leaves only
    std::vector<Box> children;  ///< containers only
    bool container = false;

    [[nodiscard]] Box *child(FourCC childType);
    [[nodiscard]] const Box *child(FourCC childType) const;
    /// The first box down a path of types, e.g. {mdia, minf, stbl, stsd}.
    [[nodiscard]] const Box *find(std::initializer_list<FourCC> path) const;
    [[nodiscard]] Box *find(std::initializer_list<FourCC> path);
    /// Size when written.
    [[nodiscard]] std::uint64_t size() const;
};

/// Whether boxes of this type hold only boxes (moov, trak, stbl, moof…).
bool isContainer(FourCC type);

/// Parses `bytes` (the payload of a container, or a whole file region) into boxes.
/// Throws Malformed when a size does not fit or the nesting is absurdly deep.
std::vector<Box> parse(std::span<const std::uint8_t> bytes);
/// Reads one box, header included, from a source. Throws Malformed.
Box read(const ByteSource &source, const Header &header);

/// Appends the box, header and all, to `out`.
void write(const Box &box, std::vector<std::uint8_t> &out);
/// A leaf box made of a payload.
Box leaf(FourCC type, std::vector<std::uint8_t> payload);

/// Big-endian field helpers over a payload; the readers throw Malformed when short.
struct Reader {
    std::span<const std::uint8_t> bytes;
    std::size_t at = 0;
    [[nodiscard]] std::size_t left() const { return bytes.size() - at; }
    void need(std::size_t count) const;
    std::uint8_t u8();
    std::uint16_t u16();
    std::uint32_t u24();
    std::uint32_t u32();
    std::uint64_t u64();
    void skip(std::size_t count);
};
void put16(std::vector<std::uint8_t> &out, std::uint16_t value);
void put32(std::vector<std::uint8_t> &out, std::uint32_t value);
void put64(std::vector<std::uint8_t> &out, std::uint64_t value);
std::uint32_t get32(const std::uint8_t *at);
void set32(std::uint8_t *at, std::uint32_t value);
void set64(std::uint8_t *at, std::uint64_t value);

} // namespace IsoBox
