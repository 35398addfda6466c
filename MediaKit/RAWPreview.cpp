#include "MediaKit/RAWPreview.h"

#include "MediaKit/JpegDecoder.h"
#include "MediaKit/RawDecoder.h"

#include <algorithm>
#include <cstring>

namespace RAWPreview {
namespace {

using Bytes = std::span<const std::uint8_t>;

struct Range {
    std::int64_t start;
    std::int64_t end;
};

struct Parsed {
    Candidate candidate;
    std::int64_t codedStart; ///< where the entropy-coded data begins
};

int read16(const std::uint8_t *p)
{
    return p[0] << 8 | p[1];
}

bool isUnusedFrameType(std::uint8_t marker)
{
    // Lossless, hierarchical and arithmetic-coded frames: no decoder we use reads them.
    switch (marker) {
    case 0xC3: case 0xC5: case 0xC6: case 0xC7: case 0xC9:
    case 0xCA: case 0xCB: case 0xCD: case 0xCE: case 0xCF:
        return true;
    default:
        return false;
    }
}

// Segments a progressive picture carries between its scans: tables, restart interval,
// further scan headers, application data.
bool isSegmentBetweenScans(std::uint8_t marker)
{
    return marker == 0xC4 || marker == 0xDA || marker == 0xDB || marker == 0xDD
        || (marker >= 0xE0 && marker <= 0xEF);
}

struct Header {
    int width = 0;
    int height = 0;
    bool tablesSeen = false;
    std::int64_t codedStart = 0;
};

// Walks the header segments from just after the SOI at `start` to the end of the start
// of scan; nothing when a segment is malformed or the frame type is not used.
std::optional<Header> walkHeader(Bytes bytes, std::int64_t start)
{
    const std::int64_t n = std::int64_t(bytes.size());
    const std::uint8_t *b = bytes.data();
    Header header;
    std::int64_t q = start + 2;
    for (;;) {
        if (q + 4 > n || b[q] != 0xFF)
            return std::nullopt;
        const std::uint8_t marker = b[q + 1];
        if (marker == 0xFF) { // fill byte
            ++q;
            continue;
        }
        const std::int64_t length = read16(b + q + 2);
        if (length < 2 || q + 2 + length > n)
            return std::nullopt;
        if (marker == 0xC0 || marker == 0xC1 || marker == 0xC2) {
            if (length < 7)
                return std::nullopt;
            header.height = read16(b + q + 5);
            header.width = read16(b + q + 7);
        } else if (marker == 0xC4 || marker == 0xDB) {
            header.tablesSeen = true;
        } else if (isUnusedFrameType(marker)) {
            return std::nullopt;
        } else if (marker == 0xDA) {
            header.codedStart = q + 2 + length;
            return header;
        }
        q += length + 2;
    }
}

// Finds where the coded data starting at `d` ends. Returns the candidate's end and
// whether it is complete, or nothing when the data runs out before any end was seen
// (the caller decides by the tables whether that is a cut picture).
std::optional<std::pair<std::int64_t, bool>> codedDataEnd(Bytes bytes, std::int64_t d)
{
    const std::int64_t n = std::int64_t(bytes.size());
    const std::uint8_t *b = bytes.data();
    std::int64_t p = d;
    while (p < n) {
        const void *hit = std::memchr(b + p, 0xFF, std::size_t(n - p));
        if (!hit)
            return std::nullopt;
        const std::int64_t i = static_cast<const std::uint8_t *>(hit) - b;
        if (i + 1 >= n)
            return std::nullopt;
        const std::uint8_t next = b[i + 1];
        if (next == 0x00 || (next >= 0xD0 && next <= 0xD7)) {
            p = i + 2;
        } else if (next == 0xFF) {
            p = i + 1;
        } else if (next == 0xD9) {
            return std::pair{i + 2, true};
        } else if (isSegmentBetweenScans(next)) {
            if (i + 4 > n)
                return std::nullopt;
            p = i + 2 + read16(b + i + 2);
        } else {
            return std::pair{i, false}; // a marker that cannot stand in coded data
        }
    }
    return std::nullopt;
}

std::optional<Parsed> parseJPEG(Bytes bytes, std::int64_t start)
{
    const std::optional<Header> header = walkHeader(bytes, start);
    if (!header || header->width == 0 || header->height == 0)
        return std::nullopt;
    Candidate candidate{start, 0, header->width, header->height, false};
    if (const auto end = codedDataEnd(bytes, header->codedStart)) {
        candidate.end = end->first;
        candidate.incomplete = !end->second;
    } else if (header->tablesSeen) {
        candidate.end = std::int64_t(bytes.size());
        candidate.incomplete = true;
    } else {
        return std::nullopt;
    }
    return Parsed{candidate, header->codedStart};
}

// All pictures in file order. The coded data of every picture found goes on a skip list,
// so the scan reads each picture's header segments (where thumbnails nest) but never
// searches its compressed data.
std::vector<Candidate> embeddedJPEGs(Bytes bytes)
{
    const std::int64_t n = std::int64_t(bytes.size());
    const std::uint8_t *b = bytes.data();
    std::vector<Candidate> found;
    std::vector<Range> skips; // ordered by start
    std::int64_t p = 0;
    while (p + 3 < n) {
        if (!skips.empty() && p >= skips.front().start) {
            p = std::max(p, skips.front().end);
            skips.erase(skips.begin());
            continue;
        }
        const std::int64_t limit = skips.empty() ? n : std::min(n, skips.front().start);
        const void *hit = std::memchr(b + p, 0xFF, std::size_t(limit - p));
        if (!hit) {
            p = limit;
            continue;
        }
        const std::int64_t i = static_cast<const std::uint8_t *>(hit) - b;
        if (i + 3 < n && b[i + 1] == 0xD8 && b[i + 2] == 0xFF) {
            if (const std::optional<Parsed> parsed = parseJPEG(bytes, i)) {
                found.push_back(parsed->candidate);
                skips.push_back({parsed->codedStart, parsed->candidate.end});
                std::stable_sort(skips.begin(), skips.end(),
                                 [](const Range &a, const Range &b) { return a.start < b.start; });
            }
            p = i + 2;
        } else {
            p = i + 1;
        }
    }
    return found;
}

// Whether every header segment up to and including the start of scan lies inside the
// picture's bytes, so that a cut picture can still be decoded as far as it goes.
bool headerIsWhole(Bytes jpeg)
{
    return jpeg.size() >= 4 && jpeg[0] == 0xFF && jpeg[1] == 0xD8 && walkHeader(jpeg, 0).has_value();
}

bool endsWithEOI(Bytes jpeg)
{
    return jpeg.size() >= 2 && jpeg[jpeg.size() - 2] == 0xFF && jpeg[jpeg.size() - 1] == 0xD9;
}

} // namespace

Unsupported::Unsupported()
    : std::runtime_error("No usable picture was found inside this RAW file. The preview the "
                         "camera stores in it is missing or damaged too.")
{
}

std::vector<Candidate> candidates(std::span<const std::uint8_t> bytes)
{
    if (bytes.size() < 4)
        return {};
    std::vector<Candidate> found = embeddedJPEGs(bytes);
    std::stable_sort(found.begin(), found.end(),
                     [](const Candidate &a, const Candidate &b) { return a.area() > b.area(); });
    return found;
}

Found extract(std::span<const std::uint8_t> bytes, bool keepDetails)
{
    for (const Candidate &candidate : candidates(bytes)) {
        const Bytes cut = bytes.subspan(std::size_t(candidate.start),
                                        std::size_t(candidate.end - candidate.start));
        // Only a cut picture needs a copy (to close it); the others decode in place and
        // are copied once accepted.
        std::vector<std::uint8_t> closed;
        if (candidate.incomplete) {
            if (!headerIsWhole(cut))
                continue;
            closed.assign(cut.begin(), cut.end());
            if (!endsWithEOI(cut))
                closed.insert(closed.end(), {0xFF, 0xD9});
        }
        const Bytes jpeg = candidate.incomplete ? Bytes(closed) : cut;
        if (!JpegDecoder::decode(jpeg, 64))
            continue;
        Found found{candidate.incomplete ? std::move(closed) : std::vector<std::uint8_t>(cut.begin(), cut.end()),
                    candidate.width, candidate.height, candidate.incomplete, false};
        if (keepDetails) {
            if (auto withDetails = copyingDetails(bytes, found.jpeg)) {
                found.jpeg = std::move(*withDetails);
                found.keptDetails = true;
            }
        }
        return found;
    }
    throw Unsupported();
}

Diagnosis diagnose(std::span<const std::uint8_t> bytes)
{
    const bool isJpeg = bytes.size() >= 3 && bytes[0] == 0xFF && bytes[1] == 0xD8 && bytes[2] == 0xFF;
    const bool opens = isJpeg ? JpegDecoder::decode(bytes, 256).has_value()
                              : RawDecoder::decode(bytes, 256).has_value();
    return opens ? Diagnosis::opens : Diagnosis::damaged;
}

} // namespace RAWPreview
