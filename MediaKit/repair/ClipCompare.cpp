#include "MediaKit/repair/ClipCompare.h"

#include "ByteKit/FileSource.h"
#include "ByteKit/MappedFile.h"
#include "HashKit/XXH64.h"
#include "MediaKit/repair/Movie.h"

#include <algorithm>
#include <map>
#include <set>

namespace ClipCompare {

namespace {

struct Key {
    std::uint64_t bytes = 0;  // the sample's bytes and whether it is a sync sample
    std::uint64_t timing = 0; // its duration and composition offset
    std::uint64_t from = 0, to = 0;
};

// One key per sample (per frame for uncompressed sound).
std::vector<Key> keys(const Movie::Track &track, std::span<const std::uint8_t> bytes)
{
    std::vector<Key> result;
    const bool timecode = track.codec == IsoBox::fourcc("tmcd");
    for (std::size_t i = 0; i < track.samples.size(); ++i) {
        const Movie::Sample &s = track.samples[i];
        const std::uint32_t frames = std::max<std::uint32_t>(1, s.frames);
        const std::uint32_t frameSize = s.size / frames;
        const bool last = i + 1 == track.samples.size();
        for (std::uint32_t f = 0; f < frames; ++f) {
            const std::uint64_t offset = s.offset + std::uint64_t(f) * frameSize;
            XXH64 hash;
            hash.update(bytes.data() + offset, frameSize);
            const bool sync = s.sync;
            hash.update(&sync, 1);
            XXH64 timing;
            const std::int64_t fields[] = {timecode || last ? 0 : s.duration / frames, s.composition};
            timing.update(fields, sizeof fields);
            result.push_back({hash.value(), timing.value(), offset, offset + frameSize});
        }
    }
    return result;
}

} // namespace

std::vector<TrackMatch> compare(const std::string &originalPath, const std::string &otherPath,
                                const std::vector<std::pair<std::uint64_t, std::uint64_t>> &damaged)
{
    const Movie::Movie original = Movie::read(FileSource(originalPath));
    const Movie::Movie other = Movie::read(FileSource(otherPath));
    const MappedFile originalBytes(originalPath), otherBytes(otherPath);
    std::vector<TrackMatch> matches;
    for (std::size_t t = 0; t < original.tracks.size(); ++t) {
        const Movie::Track &track = original.tracks[t];
        TrackMatch match{IsoBox::text(track.handler), IsoBox::text(track.codec)};
        // Samples of the other clip by their bytes, each with the timings it came with.
        std::map<std::uint64_t, std::multiset<std::uint64_t>> found;
        if (t < other.tracks.size())
            for (const Key &key : keys(other.tracks[t], otherBytes.bytes()))
                found[key.bytes].insert(key.timing);
        for (const Key &key : keys(track, originalBytes.bytes())) {
            const bool touched = std::any_of(damaged.begin(), damaged.end(), [&](const auto &d) {
                return key.from < d.second && d.first < key.to;
            });
            if (touched)
                continue;
            ++match.expected;
            const auto it = found.find(key.bytes);
            if (it == found.end() || it->second.empty())
                continue;
            ++match.recovered;
            const auto timing = it->second.find(key.timing);
            match.timed += timing != it->second.end();
            it->second.erase(timing != it->second.end() ? timing : it->second.begin());
        }
        for (const auto &[bytes, timings] : found)
            match.extra += timings.size();
        matches.push_back(match);
    }
    return matches;
}

} // namespace ClipCompare
