#pragma once

#include "MediaKit/repair/IsoBox.h"

#include <cstdint>
#include <vector>

class ByteSource;

/// The tracks of a clip and where each of their samples lies, read from its index (the
/// `moov` box and, in fragmented files, the `moof` boxes).
namespace Movie {

/// One sample, or for uncompressed sound a run of `frames` fixed-size frames that lie one
/// after another (a chunk), so an hour of PCM costs thousands of entries, not millions.
struct Sample {
    std::uint64_t offset = 0;
    std::uint32_t size = 0;
    std::uint32_t duration = 0;   ///< in the track's timescale, the whole run
    std::int32_t composition = 0; ///< composition time minus decoding time
    std::uint32_t frames = 1;
    bool sync = true;
    std::uint16_t source = 0;     ///< which input file holds the bytes (joining)
};

struct Track {
    std::uint32_t id = 0;
    IsoBox::FourCC handler = 0; ///< vide, soun, tmcd, meta…
    IsoBox::FourCC codec = 0;   ///< the first sample description's format: avc1, hvc1, mp4a, sowt…
    std::uint32_t timescale = 0;
    std::size_t trakIndex = 0;  ///< position of this track's trak among moov's children
    std::vector<Sample> samples;
    std::vector<std::uint32_t> chunkSamples; ///< samples in each chunk, in file order
    bool hasSyncTable = false;
    bool hasCompositionOffsets = false;
    std::uint32_t frameBytes = 0; ///< constant size of one frame for uncompressed sound, else 0
    std::uint64_t samplesBeyondFile = 0; ///< indexed samples whose bytes are not in the file

    [[nodiscard]] std::uint64_t duration() const;
    [[nodiscard]] std::uint64_t frameCount() const;
};

struct Movie {
    IsoBox::Box ftyp;
    IsoBox::Box moov;
    std::uint32_t timescale = 0;
    std::vector<Track> tracks;
    bool fragmented = false;
    std::uint64_t fileSize = 0;
};

/// Reads the index of the file. Every count, size and offset is checked against the
/// bytes that hold it and the size of the file. Throws IsoBox::Malformed when there is no
/// readable `moov` box; samples the index places beyond the end of the file are left out
/// and counted in `samplesBeyondFile`.
Movie read(const ByteSource &source);
/// Reads the tracks of an index already in memory, for a file of `fileSize` bytes.
std::vector<Track> tracksOf(const IsoBox::Box &moov, std::uint64_t fileSize);

/// A track's id, handler, codec and timescale, without its samples. Throws Malformed.
Track describe(const IsoBox::Box &trak);
/// The sample description box (stsd) of a track, or nullptr.
const IsoBox::Box *sampleDescriptions(const IsoBox::Box &trak);
/// Bytes of the first sample entry's named child box (avcC, hvcC, esds), searched inside
/// the entry (and its QuickTime `wave` box) without trusting any size; empty when absent.
std::vector<std::uint8_t> entryChild(const IsoBox::Box &trak, IsoBox::FourCC type);

} // namespace Movie
