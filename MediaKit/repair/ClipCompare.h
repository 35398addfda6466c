#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

/// Checks a repaired or joined clip against the clip it should equal, track by track:
/// which samples came back with the same bytes and the same timing.
namespace ClipCompare {

struct TrackMatch {
    std::string handler;
    std::string codec;
    std::size_t expected = 0;  ///< samples of the original that no damage touched
    std::size_t recovered = 0; ///< of those, the ones found bit-exact in the other clip
    std::size_t timed = 0;     ///< of those, the ones with the same duration and composition time
    std::size_t extra = 0;     ///< samples of the other clip that the original does not have
    [[nodiscard]] double share() const { return expected ? double(recovered) / double(expected) : 1.0; }
};

/// Compares the tracks of `original` and `other`, pairing them in order. Samples of the
/// original overlapping a `damaged` byte range [first, second) are not expected. Uncompressed
/// sound is compared frame by frame. Timing is compared apart from the bytes, without the
/// last sample's duration (which only the lost index knew) and a timecode's (it spans the clip). Throws what Movie::read throws.
std::vector<TrackMatch> compare(const std::string &original, const std::string &other,
                                const std::vector<std::pair<std::uint64_t, std::uint64_t>> &damaged = {});

} // namespace ClipCompare
