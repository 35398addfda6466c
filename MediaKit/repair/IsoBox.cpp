#include "MediaKit/repair/IsoBox.h"

#include "ByteKit/ByteSource.h"

#include <algorithm>

namespace IsoBox {

namespace {

// Deeper nesting than any real file has: a guard against boxes built to exhaust the stack.
constexpr int maxDepth = 24;

bool printable(FourCC type)
{
    for (int shift = 0; shift < 32; shift += 8) {
        const auto c = std::uint8_t(type >> shift);
        if (c < 0x20 || c > 0x7e)
            return type >> 24 == 0xa9 && shift == 24; // QuickTime's "©nam"-style user data
    }
    return true;
}

std::optional<Header> headerIn(std::span<const std::uint8_t> bytes, std::uint64_t offset)
{
    if (bytes.size() < 8)
        return std::nullopt;
    Header header;
    header.offset = offset;
    header.type = get32(bytes.data() + 4);
    std::uint64_t size = get32(bytes.data());
    if (size == 1) {
        if (bytes.size() < 16)
            return std::nullopt;
        size = std::uint64_t(get32(bytes.data() + 8)) << 32 | get32(bytes.data() + 12);
        header.headerSize = 16;
    } else if (size == 0) {
        size = bytes.size(); // "to the end of the file"
    }
    if (size < header.headerSize || !printable(header.type))
        return std::nullopt;
    if (size > bytes.size()) {
        header.cut = true;
        size = bytes.size();
    }
    header.size = size;
    return header;
}

std::vector<Box> parseAt(std::span<const std::uint8_t> bytes, int depth)
{
    if (depth > maxDepth)
        throw Malformed("boxes nested too deeply");
    std::vector<Box> boxes;
    std::size_t at = 0;
    while (at < bytes.size()) {
        const std::span<const std::uint8_t> rest = bytes.subspan(at);
        // Four zero bytes close some QuickTime containers (udta); keep them as they are.
        if (rest.size() < 8 && std::all_of(rest.begin(), rest.end(), [](std::uint8_t b) { return b == 0; })) {
            Box pad;
            pad.payload.assign(rest.begin(), rest.end());
            boxes.push_back(std::move(pad));
            break;
        }
        const std::optional<Header> header = headerIn(rest, 0);
        if (!header || header->cut)
            throw Malformed("a box does not fit in its parent");
        Box box;
        box.type = header->type;
        box.wideHeader = header->headerSize == 16;
        const auto payload = rest.subspan(header->headerSize, header->size - header->headerSize);
        box.container = isContainer(box.type);
        if (box.container)
            box.children = parseAt(payload, depth + 1);
        else
            box.payload.assign(payload.begin(), payload.end());
        boxes.push_back(std::move(box));
        at += header->size;
    }
    return boxes;
}

} // namespace

std::string text(FourCC type)
{
    std::string result;
    for (int shift = 24; shift >= 0; shift -= 8) {
        const auto c = char(type >> shift);
        result += c >= 0x20 && c <= 0x7e ? c : '?';
    }
    return result;
}

std::optional<Header> readHeader(const ByteSource &source, std::uint64_t offset, std::uint64_t limit)
{
    limit = std::min(limit, source.size());
    if (offset >= limit || limit - offset < 8)
        return std::nullopt;
    const std::vector<std::uint8_t> bytes = source.read(offset, std::int64_t(std::min<std::uint64_t>(16, limit - offset)));
    // Give the header parser the true span length so that "size 0" and cut sizes see the limit.
    std::optional<Header> header = headerIn(bytes, offset);
    if (!header)
        return std::nullopt;
    const std::uint64_t claimed = [&] {
        const std::uint64_t small = get32(bytes.data());
        if (small == 0)
            return limit - offset;
        if (small == 1)
            return std::uint64_t(get32(bytes.data() + 8)) << 32 | get32(bytes.data() + 12);
        return small;
    }();
    header->size = std::min(claimed, limit - offset);
    header->cut = claimed > limit - offset;
    if (header->size < header->headerSize)
        return std::nullopt;
    return header;
}

std::vector<Header> topLevel(const ByteSource &source)
{
    std::vector<Header> headers;
    std::uint64_t at = 0;
    while (const std::optional<Header> header = readHeader(source, at, source.size())) {
        headers.push_back(*header);
        if (header->cut)
            break;
        at = header->end();
    }
    return headers;
}

bool isContainer(FourCC type)
{
    static constexpr FourCC containers[] = {
        fourcc("moov"), fourcc("trak"), fourcc("mdia"), fourcc("minf"), fourcc("stbl"), fourcc("dinf"),
        fourcc("edts"), fourcc("mvex"), fourcc("moof"), fourcc("traf"), fourcc("mfra"), fourcc("tref"),
    };
    return std::find(std::begin(containers), std::end(containers), type) != std::end(containers);
}

std::vector<Box> parse(std::span<const std::uint8_t> bytes)
{
    return parseAt(bytes, 0);
}

Box read(const ByteSource &source, const Header &header)
{
    if (header.cut || header.end() > source.size())
        throw Malformed("the " + text(header.type) + " box is cut short");
    const std::vector<std::uint8_t> bytes = source.read(header.offset, std::int64_t(header.size));
    std::vector<Box> boxes = parse(bytes);
    if (boxes.size() != 1)
        throw Malformed("the " + text(header.type) + " box cannot be read");
    return std::move(boxes.front());
}

Box *Box::child(FourCC childType)
{
    for (Box &box : children)
        if (box.type == childType)
            return &box;
    return nullptr;
}

const Box *Box::child(FourCC childType) const
{
    return const_cast<Box *>(this)->child(childType);
}

Box *Box::find(std::initializer_list<FourCC> path)
{
    Box *box = this;
    for (FourCC type : path)
        if (!(box = box->child(type)))
            return nullptr;
    return box;
}

const Box *Box::find(std::initializer_list<FourCC> path) const
{
    return const_cast<Box *>(this)->find(path);
}

std::uint64_t Box::size() const
{
    if (type == 0)
        return payload.size(); // trailing padding
    std::uint64_t body = payload.size();
    for (const Box &box : children)
        body += box.size();
    return body + (wideHeader || body + 8 > UINT32_MAX ? 16 : 8);
}

void write(const Box &box, std::vector<std::uint8_t> &out)
{
    if (box.type == 0) {
        out.insert(out.end(), box.payload.begin(), box.payload.end());
        return;
    }
    const std::uint64_t size = box.size();
    if (size > UINT32_MAX || box.wideHeader) {
        put32(out, 1);
        put32(out, box.type);
        put64(out, size);
    } else {
        put32(out, std::uint32_t(size));
        put32(out, box.type);
    }
    out.insert(out.end(), box.payload.begin(), box.payload.end());
    for (const Box &child : box.children)
        write(child, out);
}

Box leaf(FourCC type, std::vector<std::uint8_t> payload)
{
    Box box;
    box.type = type;
    box.payload = std::move(payload);
    return box;
}

void Reader::need(std::size_t count) const
{
    if (count > left())
        throw Malformed("a box is shorter than its fields");
}

std::uint8_t Reader::u8()
{
    need(1);
    return bytes[at++];
}

std::uint16_t Reader::u16()
{
    need(2);
    at += 2;
    return std::uint16_t(bytes[at - 2] << 8 | bytes[at - 1]);
}

std::uint32_t Reader::u24()
{
    need(3);
    at += 3;
    return std::uint32_t(bytes[at - 3]) << 16 | std::uint32_t(bytes[at - 2]) << 8 | bytes[at - 1];
}

std::uint32_t Reader::u32()
{
    need(4);
    at += 4;
    return get32(bytes.data() + at - 4);
}

std::uint64_t Reader::u64()
{
    const std::uint64_t high = u32();
    return high << 32 | u32();
}

void Reader::skip(std::size_t count)
{
    need(count);
    at += count;
}

void put16(std::vector<std::uint8_t> &out, std::uint16_t value)
{
    out.push_back(std::uint8_t(value >> 8));
    out.push_back(std::uint8_t(value));
}

void put32(std::vector<std::uint8_t> &out, std::uint32_t value)
{
    for (int shift = 24; shift >= 0; shift -= 8)
        out.push_back(std::uint8_t(value >> shift));
}

void put64(std::vector<std::uint8_t> &out, std::uint64_t value)
{
    put32(out, std::uint32_t(value >> 32));
    put32(out, std::uint32_t(value));
}

std::uint32_t get32(const std::uint8_t *at)
{
    return std::uint32_t(at[0]) << 24 | std::uint32_t(at[1]) << 16 | std::uint32_t(at[2]) << 8 | at[3];
}

void set32(std::uint8_t *at, std::uint32_t value)
{
    for (int i = 0; i < 4; ++i)
        at[i] = std::uint8_t(value >> (24 - 8 * i));
}

void set64(std::uint8_t *at, std::uint64_t value)
{
    set32(at, std::uint32_t(value >> 32));
    set32(at + 4, std::uint32_t(value));
}

} // namespace IsoBox
