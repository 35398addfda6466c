#include "MediaKit/repair/ClipJoin.h"

#include "ByteKit/DeviceError.h"
#include "ByteKit/FileSource.h"
#include "ByteKit/MappedFile.h"
#include "MediaKit/repair/AtomicFile.h"

#include <algorithm>
#include <cmath>
#include <sys/stat.h>

using IsoBox::fourcc;

namespace ClipJoin {

namespace {

double seconds(std::uint64_t duration, std::uint32_t timescale) { return timescale ? double(duration) / timescale : 0; }

bool isTimecode(const Movie::Track &track) { return track.codec == fourcc("tmcd"); }

bool sameFile(const std::string &a, const std::string &b)
{
    struct stat first {}, second {};
    return stat(a.c_str(), &first) == 0 && stat(b.c_str(), &second) == 0 && first.st_dev == second.st_dev &&
           first.st_ino == second.st_ino;
}

} // namespace

Plan plan(const std::vector<std::string> &paths)
{
    if (paths.size() < 2)
        throw Error(Error::Kind::tooFewParts, "join needs at least two parts");
    std::vector<Movie::Movie> parts;
    for (const std::string &path : paths) {
        try {
            parts.push_back(Movie::read(FileSource(path)));
        } catch (const std::exception &error) {
            throw Error(Error::Kind::unreadable, path + ": " + error.what());
        }
        const Movie::Movie &first = parts.front(), &part = parts.back();
        bool matches = part.tracks.size() == first.tracks.size();
        for (std::size_t t = 0; matches && t < part.tracks.size(); ++t)
            matches = part.tracks[t].codec == first.tracks[t].codec && part.tracks[t].timescale == first.tracks[t].timescale;
        if (!matches)
            throw Error(Error::Kind::mismatched, path + " does not have the tracks of " + paths.front() +
                                                     "; only parts of one recording can be joined");
    }
    const Movie::Movie &first = parts.front();
    // Pictures set the time of each seam; without pictures, the first track does.
    std::size_t lead = 0;
    for (std::size_t t = 0; t < first.tracks.size(); ++t)
        if (first.tracks[t].handler == fourcc("vide")) {
            lead = t;
            break;
        }

    Plan result;
    result.output.ftyp = first.ftyp;
    result.output.moov = first.moov; // the first part's user data and track boxes
    result.output.movieTimescale = first.timescale;
    for (const Movie::Track &track : first.tracks)
        result.output.tracks.push_back({first.moov.children[track.trakIndex], track.timescale, track.frameBytes, {},
                                        track.hasSyncTable});
    result.report.seamOffsets.assign(parts.size() - 1, 0.0);

    double seam = 0; // start of the current part, from the lead track
    for (std::size_t p = 0; p < parts.size(); ++p) {
        const Movie::Movie &part = parts[p];
        for (std::size_t t = 0; t < part.tracks.size(); ++t) {
            const Movie::Track &track = part.tracks[t];
            std::vector<Movie::Sample> &out = result.output.tracks[t].samples;
            if (isTimecode(track)) {
                if (p == 0 && !track.samples.empty())
                    out.push_back(track.samples.front());
                continue;
            }
            result.output.tracks[t].writeSyncTable |= track.hasSyncTable;
            if (p > 0 && t != lead && !out.empty()) {
                // Stretch or shorten the last sample before the seam so this part's sound
                // starts with its pictures (it cannot shrink to nothing).
                std::uint64_t before = 0;
                for (const Movie::Sample &s : out)
                    before += s.duration;
                const auto target = std::int64_t(std::llround(seam * track.timescale));
                const std::int64_t lastStart = std::int64_t(before - out.back().duration);
                if (target - lastStart >= 1)
                    out.back().duration = std::uint32_t(target - lastStart);
                before = std::uint64_t(lastStart) + out.back().duration;
                result.report.seamOffsets[p - 1] =
                    std::max(result.report.seamOffsets[p - 1], std::abs(seconds(before, track.timescale) - seam));
            }
            for (Movie::Sample sample : track.samples) {
                sample.source = std::uint16_t(p);
                out.push_back(sample);
            }
        }
        seam += seconds(part.tracks[lead].duration(), part.tracks[lead].timescale);
    }
    for (std::size_t t = 0; t < first.tracks.size(); ++t) {
        MovieWriter::TrackOutput &out = result.output.tracks[t];
        if (isTimecode(first.tracks[t]) && out.samples.size() == 1)
            out.samples[0].duration = std::uint32_t(std::llround(seam * out.timescale)); // spans the whole clip
        result.report.tracks.push_back(MovieWriter::summarise(out));
    }
    return result;
}

Report join(const std::vector<std::string> &parts, const std::string &output, const Progress &progress)
{
    Plan planned = plan(parts);
    const std::string path = output.empty() ? freeNameBeside(parts.front(), "joined") : output;
    for (const std::string &part : parts)
        if (sameFile(path, part))
            throw Error(Error::Kind::cannotWrite, "the joined clip cannot be written over one of its parts: " + path);
    try {
        std::vector<MappedFile> maps;
        std::vector<std::span<const std::uint8_t>> sources;
        for (const std::string &part : parts)
            maps.emplace_back(part);
        for (const MappedFile &map : maps)
            sources.push_back(map.bytes());
        MovieWriter::write(path, planned.output, sources, progress);
    } catch (const AtomicFile::Failed &error) {
        throw Error(Error::Kind::cannotWrite, error.what());
    } catch (const std::exception &error) {
        throw Error(Error::Kind::unreadable, error.what());
    }
    planned.report.output = path;
    return planned.report;
}

} // namespace ClipJoin
