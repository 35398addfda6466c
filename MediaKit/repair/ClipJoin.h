#pragma once

#include "MediaKit/repair/MovieWriter.h"
#include "MediaKit/repair/RepairError.h"

#include <functional>
#include <string>
#include <vector>

/// Joins the parts a camera split one recording into (at 4 GB, or by length) into one clip
/// with every track of the parts: one timecode sample (the first part's), the first part's
/// user data, and each part's sound starting with its pictures, so that sound and picture
/// stay aligned across every seam.
namespace ClipJoin {

enum class ErrorKind { tooFewParts, unreadable, mismatched, cannotWrite };
using Error = RepairError<ErrorKind>;

using TrackReport = MovieWriter::TrackSummary;

struct Report {
    std::string output;
    std::vector<TrackReport> tracks;
    /// For each seam, how far the sound of the next part starts from its pictures (seconds,
    /// the largest over the sound tracks).
    std::vector<double> seamOffsets;
};

struct Plan {
    MovieWriter::Output output;
    Report report;
};

using Progress = MovieWriter::Progress;

/// What join() would write. Throws Error.
Plan plan(const std::vector<std::string> &parts);
/// Joins `parts` in the order given into `output` (empty: "FIRST-joined.EXT" beside the
/// first part). The parts are only read. Throws Error.
Report join(const std::vector<std::string> &parts, const std::string &output, const Progress &progress = {});

} // namespace ClipJoin
