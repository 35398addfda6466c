#pragma once

#include "MediaKit/repair/Movie.h"

#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

/// Writes a clip from samples held in one or more source files: the file type box, the
/// media data with the tracks interleaved by time, then a new index. Every box of the
/// template index is carried over byte for byte except the sample tables it rebuilds and
/// the durations it sets; chunk offsets are 64-bit (co64) only when the file needs it.
namespace MovieWriter {

struct TrackOutput {
    IsoBox::Box trak; ///< the track's boxes; its sample tables are replaced
    std::uint32_t timescale = 0;
    std::uint32_t frameBytes = 0; ///< uncompressed sound: size of one frame
    std::vector<Movie::Sample> samples;
    bool writeSyncTable = false;  ///< write stss (when not every sample is a sync sample)
};

struct Output {
    IsoBox::Box ftyp;
    IsoBox::Box moov; ///< template: its trak boxes are replaced, in order, by `tracks`
    std::uint32_t movieTimescale = 0;
    std::vector<TrackOutput> tracks;
};

using Progress = std::function<void(double fraction)>;

/// What one track of a written clip holds, for the reports of repair and join.
struct TrackSummary {
    std::uint32_t id = 0;
    std::string handler;       ///< "vide", "soun", "tmcd", "meta"
    std::string codec;         ///< "avc1", "mp4a", "sowt", "gpmd"…
    std::uint64_t samples = 0; ///< frames for uncompressed sound
    std::uint64_t bytes = 0;
    double seconds = 0;
    bool recognised = true; ///< false when no way to find this kind of sample is known
};

/// The summary of one track as `output` would write it.
TrackSummary summarise(const TrackOutput &track);

/// Writes `output` to a new file at `path` (atomically; never over an existing file).
/// `sources[i]` holds the bytes of the samples whose `source` is i. Throws
/// AtomicFile::Failed when the file cannot be written and IsoBox::Malformed when a sample
/// lies outside its source.
void write(const std::string &path, const Output &output, std::span<const std::span<const std::uint8_t>> sources,
           const Progress &progress = {});

/// The index alone, for samples placed at the given offsets (for tests and sizes).
IsoBox::Box buildIndex(const Output &output, const std::vector<std::vector<std::uint64_t>> &chunkOffsets,
                       const std::vector<std::vector<std::uint32_t>> &chunkFrames);

/// The index for samples left where they lie in source 0, its byte `from` landing at
/// `at` in the written file: a chunk is a run of one track's samples that follow one
/// another there. Empty when a track's samples do not lie in the file in their order,
/// which only write() can lay out.
std::optional<IsoBox::Box> indexInPlace(const Output &output, std::uint64_t from, std::uint64_t at);

/// Whether chunk offsets up to `largest` need the 64-bit table.
constexpr bool needsWideOffsets(std::uint64_t largest) { return largest > 0xffffffffu; }

} // namespace MovieWriter
