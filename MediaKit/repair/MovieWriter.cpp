#include "MediaKit/repair/MovieWriter.h"

#include "MediaKit/repair/AtomicFile.h"

#include <algorithm>
#include <queue>

using IsoBox::Box;
using IsoBox::fourcc;
using IsoBox::put32;

namespace MovieWriter {

namespace {

constexpr std::uint64_t chunkByteLimit = std::uint64_t{1} << 20;

Box fullBox(IsoBox::FourCC type, std::vector<std::uint8_t> body, std::uint32_t versionFlags = 0)
{
    std::vector<std::uint8_t> payload;
    put32(payload, versionFlags);
    payload.insert(payload.end(), body.begin(), body.end());
    return IsoBox::leaf(type, std::move(payload));
}

// Per-frame duration and size of a sample (runs of PCM frames share them equally).
std::uint32_t frameDuration(const Movie::Sample &s) { return s.frames ? s.duration / s.frames : s.duration; }

std::vector<Box> sampleTables(const TrackOutput &track, const std::vector<std::uint64_t> &offsets,
                              const std::vector<std::uint32_t> &chunkFrames)
{
    std::vector<Box> tables;
    std::vector<std::uint8_t> body;
    // Decoding times, one run per repeated duration.
    std::vector<std::pair<std::uint32_t, std::uint32_t>> runs;
    auto addRun = [&runs](std::uint32_t count, std::uint32_t delta) {
        if (!runs.empty() && runs.back().second == delta)
            runs.back().first += count;
        else
            runs.push_back({count, delta});
    };
    for (const Movie::Sample &s : track.samples) {
        if (s.frames > 1) {
            const std::uint32_t each = frameDuration(s);
            addRun(s.frames - 1, each);
            addRun(1, s.duration - each * (s.frames - 1));
        } else {
            addRun(1, s.duration);
        }
    }
    put32(body, std::uint32_t(runs.size()));
    for (auto [count, delta] : runs)
        put32(body, count), put32(body, delta);
    tables.push_back(fullBox(fourcc("stts"), std::move(body)));

    const bool compositions = std::any_of(track.samples.begin(), track.samples.end(),
                                          [](const Movie::Sample &s) { return s.composition != 0; });
    if (compositions) {
        std::vector<std::pair<std::uint32_t, std::int32_t>> offsetsRuns;
        bool negative = false;
        for (const Movie::Sample &s : track.samples) {
            negative |= s.composition < 0;
            if (!offsetsRuns.empty() && offsetsRuns.back().second == s.composition)
                offsetsRuns.back().first += s.frames;
            else
                offsetsRuns.push_back({s.frames, s.composition});
        }
        body.clear();
        put32(body, std::uint32_t(offsetsRuns.size()));
        for (auto [count, offset] : offsetsRuns)
            put32(body, count), put32(body, std::uint32_t(offset));
        tables.push_back(fullBox(fourcc("ctts"), std::move(body), negative ? 0x01000000 : 0));
    }

    const bool allSync = std::all_of(track.samples.begin(), track.samples.end(), [](const Movie::Sample &s) { return s.sync; });
    if (track.writeSyncTable && !allSync) {
        body.clear();
        std::vector<std::uint32_t> numbers;
        std::uint32_t number = 1;
        for (const Movie::Sample &s : track.samples) {
            if (s.sync)
                numbers.push_back(number);
            number += s.frames;
        }
        put32(body, std::uint32_t(numbers.size()));
        for (std::uint32_t n : numbers)
            put32(body, n);
        tables.push_back(fullBox(fourcc("stss"), std::move(body)));
    }

    // Samples to chunks, one entry per change of samples per chunk.
    body.clear();
    std::vector<std::pair<std::uint32_t, std::uint32_t>> stsc;
    for (std::size_t chunk = 0; chunk < chunkFrames.size(); ++chunk)
        if (stsc.empty() || stsc.back().second != chunkFrames[chunk])
            stsc.push_back({std::uint32_t(chunk + 1), chunkFrames[chunk]});
    put32(body, std::uint32_t(stsc.size()));
    for (auto [first, count] : stsc)
        put32(body, first), put32(body, count), put32(body, 1);
    tables.push_back(fullBox(fourcc("stsc"), std::move(body)));

    body.clear();
    std::uint64_t frames = 0;
    for (const Movie::Sample &s : track.samples)
        frames += s.frames;
    if (track.frameBytes) {
        put32(body, track.frameBytes);
        put32(body, std::uint32_t(frames));
    } else {
        const bool constant = !track.samples.empty() &&
                              std::all_of(track.samples.begin(), track.samples.end(),
                                          [&](const Movie::Sample &s) { return s.size == track.samples[0].size; });
        put32(body, constant ? track.samples[0].size : 0);
        put32(body, std::uint32_t(track.samples.size()));
        if (!constant)
            for (const Movie::Sample &s : track.samples)
                put32(body, s.size);
    }
    tables.push_back(fullBox(fourcc("stsz"), std::move(body)));

    body.clear();
    const bool wide = !offsets.empty() && needsWideOffsets(*std::max_element(offsets.begin(), offsets.end()));
    put32(body, std::uint32_t(offsets.size()));
    for (std::uint64_t offset : offsets)
        wide ? IsoBox::put64(body, offset) : put32(body, std::uint32_t(offset));
    tables.push_back(fullBox(wide ? fourcc("co64") : fourcc("stco"), std::move(body)));
    return tables;
}

// Writes `value` into a version 0 (32-bit) or version 1 (64-bit) duration field.
void setDuration(Box &box, std::size_t v0Offset, std::size_t v1Offset, std::uint64_t value)
{
    if (box.payload.empty())
        return;
    if (box.payload[0] == 1) {
        if (box.payload.size() >= v1Offset + 8)
            IsoBox::set64(&box.payload[v1Offset], value);
    } else if (box.payload.size() >= v0Offset + 4) {
        IsoBox::set32(&box.payload[v0Offset], std::uint32_t(std::min<std::uint64_t>(value, 0xffffffffu)));
    }
}

std::uint64_t rescale(std::uint64_t value, std::uint32_t from, std::uint32_t to)
{
    return from ? std::uint64_t((unsigned __int128)value * to / from) : 0;
}

// The last edit of an edit list spans the media from its start time to the end.
void fitEditList(Box &trak, std::uint64_t mediaDuration, std::uint32_t mediaScale, std::uint32_t movieScale)
{
    Box *elst = trak.find({fourcc("edts"), fourcc("elst")});
    if (!elst || elst->payload.size() < 8)
        return;
    const bool v1 = elst->payload[0] == 1;
    const std::size_t entrySize = v1 ? 20 : 12;
    const std::uint32_t count = IsoBox::get32(&elst->payload[4]);
    if (count == 0 || elst->payload.size() < 8 + std::uint64_t(count) * entrySize)
        return;
    std::uint8_t *last = &elst->payload[8 + (count - 1) * entrySize];
    const std::int64_t mediaTime = v1 ? std::int64_t(std::uint64_t(IsoBox::get32(last + 8)) << 32 | IsoBox::get32(last + 12))
                                      : std::int64_t(std::int32_t(IsoBox::get32(last + 4)));
    if (mediaTime < 0)
        return;
    const std::uint64_t shown = mediaDuration > std::uint64_t(mediaTime) ? mediaDuration - std::uint64_t(mediaTime) : 0;
    const std::uint64_t duration = rescale(shown, mediaScale, movieScale);
    v1 ? IsoBox::set64(last, duration) : IsoBox::set32(last, std::uint32_t(std::min<std::uint64_t>(duration, 0xffffffffu)));
}

Box rebuiltTrak(const TrackOutput &track, std::uint32_t movieScale, const std::vector<std::uint64_t> &offsets,
                const std::vector<std::uint32_t> &chunkFrames)
{
    Box trak = track.trak;
    Box *stbl = trak.find({fourcc("mdia"), fourcc("minf"), fourcc("stbl")});
    if (!stbl)
        throw IsoBox::Malformed("a track has no sample table");
    static constexpr IsoBox::FourCC replaced[] = {fourcc("stts"), fourcc("ctts"), fourcc("stss"), fourcc("stsz"),
                                                  fourcc("stz2"), fourcc("stsc"), fourcc("stco"), fourcc("co64"),
                                                  fourcc("sdtp"), fourcc("stps"), fourcc("cslg")};
    std::vector<Box> kept;
    for (Box &box : stbl->children) {
        if (std::find(std::begin(replaced), std::end(replaced), box.type) != std::end(replaced))
            continue;
        if (box.type == fourcc("sbgp")) {
            // A group that covers every sample still does; finer groupings no longer fit.
            if (box.payload.size() < 20 || IsoBox::get32(&box.payload[box.payload[0] == 1 ? 12 : 8]) != 1)
                continue;
            std::uint64_t frames = 0;
            for (const Movie::Sample &s : track.samples)
                frames += s.frames;
            IsoBox::set32(&box.payload[box.payload.size() - 8], std::uint32_t(frames));
        }
        kept.push_back(std::move(box));
    }
    if (std::none_of(kept.begin(), kept.end(), [](const Box &b) { return b.type == fourcc("sbgp"); }))
        std::erase_if(kept, [](const Box &b) { return b.type == fourcc("sgpd"); });
    std::vector<Box> tables = sampleTables(track, offsets, chunkFrames);
    // stsd first, as players expect, then the rebuilt tables, then anything else kept.
    stbl->children.clear();
    for (Box &box : kept)
        if (box.type == fourcc("stsd"))
            stbl->children.push_back(std::move(box));
    for (Box &box : tables)
        stbl->children.push_back(std::move(box));
    for (Box &box : kept)
        if (box.type != fourcc("stsd"))
            stbl->children.push_back(std::move(box));

    std::uint64_t mediaDuration = 0;
    for (const Movie::Sample &s : track.samples)
        mediaDuration += s.duration;
    if (Box *mdhd = trak.find({fourcc("mdia"), fourcc("mdhd")}))
        setDuration(*mdhd, 16, 24, mediaDuration);
    if (Box *tkhd = trak.child(fourcc("tkhd")))
        setDuration(*tkhd, 20, 28, rescale(mediaDuration, track.timescale, movieScale));
    fitEditList(trak, mediaDuration, track.timescale, movieScale);
    return trak;
}

struct Placement {
    std::size_t track;
    std::size_t sample;
};

// Samples of every track in order of decoding time, earliest first; ties keep track order.
std::vector<Placement> interleaved(const Output &output)
{
    std::vector<Placement> order;
    std::vector<std::size_t> next(output.tracks.size(), 0);
    std::vector<std::uint64_t> time(output.tracks.size(), 0);
    std::size_t total = 0;
    for (const TrackOutput &t : output.tracks)
        total += t.samples.size();
    order.reserve(total);
    while (order.size() < total) {
        std::size_t best = SIZE_MAX;
        for (std::size_t t = 0; t < output.tracks.size(); ++t) {
            if (next[t] >= output.tracks[t].samples.size())
                continue;
            if (best == SIZE_MAX ||
                (unsigned __int128)time[t] * output.tracks[best].timescale <
                    (unsigned __int128)time[best] * output.tracks[t].timescale)
                best = t;
        }
        order.push_back({best, next[best]});
        time[best] += output.tracks[best].samples[next[best]].duration;
        ++next[best];
    }
    return order;
}

} // namespace

Box buildIndex(const Output &output, const std::vector<std::vector<std::uint64_t>> &chunkOffsets,
               const std::vector<std::vector<std::uint32_t>> &chunkFrames)
{
    Box moov = output.moov;
    std::vector<Box> children;
    std::size_t nextTrack = 0;
    std::uint64_t longest = 0;
    for (Box &box : moov.children) {
        if (box.type == fourcc("mvex"))
            continue; // the written file is not fragmented
        if (box.type == fourcc("trak")) {
            if (nextTrack >= output.tracks.size())
                continue;
            const TrackOutput &track = output.tracks[nextTrack];
            children.push_back(rebuiltTrak(track, output.movieTimescale, chunkOffsets[nextTrack], chunkFrames[nextTrack]));
            std::uint64_t duration = 0;
            for (const Movie::Sample &s : track.samples)
                duration += s.duration;
            longest = std::max(longest, rescale(duration, track.timescale, output.movieTimescale));
            ++nextTrack;
            continue;
        }
        children.push_back(std::move(box));
    }
    moov.children = std::move(children);
    if (Box *mvhd = moov.child(fourcc("mvhd")))
        setDuration(*mvhd, 16, 24, longest);
    return moov;
}

void write(const std::string &path, const Output &output, std::span<const std::span<const std::uint8_t>> sources,
           const Progress &progress)
{
    const std::vector<Placement> order = interleaved(output);
    std::uint64_t payload = 0;
    for (const Placement &p : order)
        payload += output.tracks[p.track].samples[p.sample].size;
    std::vector<std::uint8_t> head;
    if (output.ftyp.type)
        IsoBox::write(output.ftyp, head);
    const bool wideMdat = payload + 8 > 0xffffffffu;
    if (wideMdat) {
        put32(head, 1);
        put32(head, fourcc("mdat"));
        IsoBox::put64(head, payload + 16);
    } else {
        put32(head, std::uint32_t(payload + 8));
        put32(head, fourcc("mdat"));
    }

    // Chunks: runs of one track's samples, cut at a size limit.
    std::vector<std::vector<std::uint64_t>> offsets(output.tracks.size());
    std::vector<std::vector<std::uint32_t>> frames(output.tracks.size());
    std::uint64_t at = head.size();
    std::size_t previous = SIZE_MAX;
    std::uint64_t chunkBytes = 0;
    for (const Placement &p : order) {
        const Movie::Sample &s = output.tracks[p.track].samples[p.sample];
        if (p.track != previous || chunkBytes + s.size > chunkByteLimit) {
            offsets[p.track].push_back(at);
            frames[p.track].push_back(0);
            chunkBytes = 0;
            previous = p.track;
        }
        frames[p.track].back() += s.frames;
        chunkBytes += s.size;
        at += s.size;
    }

    AtomicFile file(path);
    file.write(head);
    std::uint64_t done = 0;
    // Samples that follow one another in their source are copied as one run.
    std::uint16_t runSource = 0;
    std::uint64_t runStart = 0, runEnd = 0;
    auto copyRun = [&] {
        file.write(sources[runSource].subspan(runStart, runEnd - runStart));
        done += runEnd - runStart;
        if (progress)
            progress(double(done) / double(payload ? payload : 1));
        runStart = runEnd;
    };
    for (const Placement &p : order) {
        const Movie::Sample &s = output.tracks[p.track].samples[p.sample];
        if (s.source >= sources.size() || s.offset > sources[s.source].size() || s.size > sources[s.source].size() - s.offset)
            throw IsoBox::Malformed("a sample lies outside its file");
        if (s.source != runSource || s.offset != runEnd || runEnd - runStart >= (std::uint64_t{8} << 20)) {
            if (runEnd > runStart)
                copyRun();
            runSource = s.source;
            runStart = runEnd = s.offset;
        }
        runEnd += s.size;
    }
    if (runEnd > runStart)
        copyRun();
    std::vector<std::uint8_t> index;
    IsoBox::write(buildIndex(output, offsets, frames), index);
    file.write(index);
    file.commit();
}

std::optional<Box> indexInPlace(const Output &output, std::uint64_t from, std::uint64_t at)
{
    struct Placed {
        std::uint64_t offset;
        std::size_t track;
        const Movie::Sample *sample;
    };
    std::vector<Placed> placed;
    for (std::size_t t = 0; t < output.tracks.size(); ++t) {
        std::uint64_t end = from;
        for (const Movie::Sample &s : output.tracks[t].samples) {
            if (s.source != 0 || s.offset < end)
                return std::nullopt;
            end = s.offset + s.size;
            placed.push_back({s.offset, t, &s});
        }
    }
    std::sort(placed.begin(), placed.end(), [](const Placed &a, const Placed &b) { return a.offset < b.offset; });
    std::vector<std::vector<std::uint64_t>> offsets(output.tracks.size());
    std::vector<std::vector<std::uint32_t>> frames(output.tracks.size());
    std::size_t previous = SIZE_MAX;
    std::uint64_t previousEnd = 0, chunkBytes = 0;
    for (const Placed &p : placed) {
        if (p.track != previous || p.offset != previousEnd || chunkBytes + p.sample->size > chunkByteLimit) {
            offsets[p.track].push_back(p.offset - from + at);
            frames[p.track].push_back(0);
            chunkBytes = 0;
            previous = p.track;
        }
        frames[p.track].back() += p.sample->frames;
        chunkBytes += p.sample->size;
        previousEnd = p.offset + p.sample->size;
    }
    return buildIndex(output, offsets, frames);
}

TrackSummary summarise(const TrackOutput &track)
{
    const Movie::Track info = Movie::describe(track.trak);
    TrackSummary summary{info.id, IsoBox::text(info.handler), IsoBox::text(info.codec)};
    std::uint64_t duration = 0;
    for (const Movie::Sample &sample : track.samples) {
        summary.samples += sample.frames;
        summary.bytes += sample.size;
        duration += sample.duration;
    }
    summary.seconds = track.timescale ? double(duration) / track.timescale : 0;
    return summary;
}

} // namespace MovieWriter
