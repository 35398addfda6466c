#pragma once

#include "MediaKit/repair/MovieWriter.h"
#include "MediaKit/repair/RepairError.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

/// Rebuilds the index of a clip whose `moov` is missing or damaged (recording cut off,
/// card pulled, blocks zeroed), from a good clip of the same camera and settings: the
/// reference gives each track's layout; the media data is walked to find every sample of
/// every track; a new file is written next to the damaged one, which is only read.
namespace ClipRepair {

enum class ErrorKind { noReference, differentCodec, nothingRecoverable, unreadable, cannotWrite };
using Error = RepairError<ErrorKind>;

using TrackReport = MovieWriter::TrackSummary;

struct Report {
    std::string output;
    std::vector<TrackReport> tracks;
    bool ownIndex = false;          ///< the clip's own index was readable and was used
    std::uint64_t scannedFrom = 0;  ///< where the media data starts
    std::uint64_t recoveredUntil = 0; ///< end of the last sample found
    std::uint64_t unreadableBytes = 0; ///< bytes between samples that matched no track
    std::uint64_t fileSize = 0;
};

using Progress = MovieWriter::Progress;

/// The plan of the repaired file: what write() would write, for tests and benchmarks.
struct Plan {
    MovieWriter::Output output;
    Report report;
};

/// Finds the samples of `clip` with the layout of `reference`. Throws Error.
Plan plan(const std::string &clip, const std::string &reference, const Progress &progress = {});
/// Repairs `clip` into `output` (empty: "NAME-repaired.EXT" beside it). Never writes the
/// clip itself. Throws Error.
Report repair(const std::string &clip, const std::string &reference, const std::string &output,
              const Progress &progress = {});

} // namespace ClipRepair
