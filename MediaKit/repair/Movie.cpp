#include "MediaKit/repair/Movie.h"

#include "ByteKit/ByteSource.h"

#include <algorithm>
#include <array>
#include <map>

using IsoBox::Box;
using IsoBox::fourcc;
using IsoBox::Malformed;
using IsoBox::Reader;

namespace Movie {

namespace {

constexpr std::uint32_t fullBoxFlags(std::uint32_t versionAndFlags) { return versionAndFlags & 0xffffff; }

// Entry counts are checked against the bytes left before anything is allocated for them.
std::uint32_t entryCount(Reader &reader, std::size_t entrySize)
{
    const std::uint32_t count = reader.u32();
    if (entrySize && std::uint64_t(count) * entrySize > reader.left())
        throw Malformed("a table claims more entries than its box holds");
    return count;
}

// The entries of a sample table (version and flags, a count, then `entryBytes` per entry),
// each taken by `read`; none without the box.
template <typename Entry, typename Read>
std::vector<Entry> entries(const Box *box, std::size_t entryBytes, Read read)
{
    std::vector<Entry> result;
    if (!box)
        return result;
    Reader r{box->payload};
    r.skip(4);
    result.resize(entryCount(r, entryBytes));
    for (Entry &entry : result)
        entry = read(r);
    return result;
}

bool isUncompressedSound(IsoBox::FourCC codec)
{
    static constexpr IsoBox::FourCC pcm[] = {fourcc("sowt"), fourcc("twos"), fourcc("lpcm"), fourcc("in24"),
                                             fourcc("in32"), fourcc("fl32"), fourcc("fl64"), fourcc("raw "),
                                             fourcc("ipcm")};
    return std::find(std::begin(pcm), std::end(pcm), codec) != std::end(pcm);
}

struct Tables {
    std::vector<std::uint32_t> sizes; // one per sample, or empty with constantSize
    std::uint32_t constantSize = 0;
    std::uint64_t sampleCount = 0;
    std::vector<std::uint64_t> chunkOffsets;
    std::vector<std::array<std::uint32_t, 2>> sampleToChunk; // first chunk (1-based), samples per chunk
    std::vector<std::array<std::uint32_t, 2>> timeToSample;  // count, delta
    std::vector<std::pair<std::uint32_t, std::int32_t>> compositions;
    std::vector<std::uint32_t> syncSamples;
    bool hasSync = false;
};

Tables readTables(const Box &stbl, std::uint64_t fileSize)
{
    Tables tables;
    if (const Box *stsz = stbl.child(fourcc("stsz"))) {
        Reader r{stsz->payload};
        r.skip(4);
        tables.constantSize = r.u32();
        if (tables.constantSize) {
            tables.sampleCount = r.u32();
            // Constant-size samples must still fit in the file.
            if (tables.sampleCount > fileSize / tables.constantSize + 1)
                throw Malformed("more samples than the file can hold");
        } else {
            const std::uint32_t count = entryCount(r, 4);
            tables.sizes.resize(count);
            for (std::uint32_t &size : tables.sizes)
                size = r.u32();
            tables.sampleCount = count;
        }
    } else if (const Box *stz2 = stbl.child(fourcc("stz2"))) {
        Reader r{stz2->payload};
        r.skip(7);
        const unsigned fieldBits = r.u8();
        if (fieldBits != 4 && fieldBits != 8 && fieldBits != 16)
            throw Malformed("bad compact sample size field");
        const std::uint32_t count = r.u32();
        if (std::uint64_t(count) * fieldBits > std::uint64_t(r.left()) * 8)
            throw Malformed("a table claims more entries than its box holds");
        tables.sizes.resize(count);
        for (std::uint32_t i = 0; i < count; ++i) {
            if (fieldBits == 4) {
                const std::uint8_t pair = r.bytes[r.at + i / 2];
                tables.sizes[i] = i % 2 ? pair & 15 : pair >> 4;
            } else if (fieldBits == 8) {
                tables.sizes[i] = r.bytes[r.at + i];
            } else {
                tables.sizes[i] = std::uint32_t(r.bytes[r.at + 2 * i] << 8 | r.bytes[r.at + 2 * i + 1]);
            }
        }
        tables.sampleCount = count;
    }
    if (const Box *stco = stbl.child(fourcc("stco")))
        tables.chunkOffsets = entries<std::uint64_t>(stco, 4, [](Reader &r) { return std::uint64_t(r.u32()); });
    else
        tables.chunkOffsets = entries<std::uint64_t>(stbl.child(fourcc("co64")), 8, [](Reader &r) { return r.u64(); });
    using Pair = std::array<std::uint32_t, 2>;
    tables.sampleToChunk = entries<Pair>(stbl.child(fourcc("stsc")), 12, [](Reader &r) {
        const Pair entry{r.u32(), r.u32()}; // first chunk, samples per chunk; the description index is not needed
        r.skip(4);
        return entry;
    });
    tables.timeToSample = entries<Pair>(stbl.child(fourcc("stts")), 8, [](Reader &r) { return Pair{r.u32(), r.u32()}; });
    tables.compositions = entries<std::pair<std::uint32_t, std::int32_t>>(stbl.child(fourcc("ctts")), 8, [](Reader &r) {
        const std::uint32_t count = r.u32();
        return std::pair{count, std::int32_t(r.u32())};
    });
    const Box *stss = stbl.child(fourcc("stss"));
    tables.syncSamples = entries<std::uint32_t>(stss, 4, [](Reader &r) { return r.u32(); });
    tables.hasSync = stss != nullptr;
    return tables;
}

// Lays the samples into their chunks, checking each against the end of the file.
void placeSamples(Track &track, const Tables &tables, std::uint64_t fileSize)
{
    const bool grouped = track.frameBytes != 0;
    std::uint64_t sample = 0;
    std::size_t stscEntry = 0;
    std::size_t sttsEntry = 0;
    std::uint32_t sttsLeft = tables.timeToSample.empty() ? 0 : tables.timeToSample[0][0];
    std::size_t cttsEntry = 0;
    std::uint32_t cttsLeft = tables.compositions.empty() ? 0 : tables.compositions[0].first;
    auto nextDuration = [&]() -> std::uint32_t {
        while (sttsLeft == 0 && sttsEntry + 1 < tables.timeToSample.size())
            sttsLeft = tables.timeToSample[++sttsEntry][0];
        if (sttsLeft == 0)
            return tables.timeToSample.empty() ? 0 : tables.timeToSample[sttsEntry][1];
        --sttsLeft;
        return tables.timeToSample[sttsEntry][1];
    };
    auto nextComposition = [&]() -> std::int32_t {
        while (cttsLeft == 0 && cttsEntry + 1 < tables.compositions.size())
            cttsLeft = tables.compositions[++cttsEntry].first;
        if (cttsLeft == 0)
            return 0;
        --cttsLeft;
        return tables.compositions[cttsEntry].second;
    };
    std::size_t syncAt = 0;
    for (std::size_t chunk = 0; chunk < tables.chunkOffsets.size() && sample < tables.sampleCount; ++chunk) {
        while (stscEntry + 1 < tables.sampleToChunk.size() && tables.sampleToChunk[stscEntry + 1][0] <= chunk + 1)
            ++stscEntry;
        if (tables.sampleToChunk.empty())
            throw Malformed("no sample-to-chunk table");
        const std::uint64_t perChunk = std::min<std::uint64_t>(tables.sampleToChunk[stscEntry][1], tables.sampleCount - sample);
        track.chunkSamples.push_back(std::uint32_t(perChunk));
        std::uint64_t offset = tables.chunkOffsets[chunk];
        Sample run;
        run.offset = offset;
        run.frames = 0;
        run.size = 0;
        for (std::uint64_t i = 0; i < perChunk; ++i, ++sample) {
            const std::uint64_t size = tables.constantSize ? tables.constantSize : tables.sizes[sample];
            const std::uint32_t duration = nextDuration();
            const std::int32_t composition = nextComposition();
            bool sync = !tables.hasSync;
            while (syncAt < tables.syncSamples.size() && tables.syncSamples[syncAt] < sample + 1)
                ++syncAt;
            if (syncAt < tables.syncSamples.size() && tables.syncSamples[syncAt] == sample + 1)
                sync = true;
            if (offset > fileSize || size > fileSize - offset) {
                track.samplesBeyondFile += tables.sampleCount - sample;
                sample = tables.sampleCount;
                break;
            }
            if (grouped) {
                run.size += std::uint32_t(size);
                run.duration += duration;
                ++run.frames;
            } else {
                track.samples.push_back({offset, std::uint32_t(size), duration, composition, 1, sync, 0});
            }
            offset += size;
        }
        if (grouped && run.frames)
            track.samples.push_back(run);
    }
    if (sample < tables.sampleCount)
        track.samplesBeyondFile += tables.sampleCount - sample;
}

struct TrackDefaults {
    std::uint32_t duration = 0, size = 0, flags = 0;
};

// Samples of the movie fragments (moof boxes), appended to the tracks in file order.
void readFragments(const ByteSource &source, const std::vector<IsoBox::Header> &top, const Box &moov,
                   std::vector<Track> &tracks)
{
    std::map<std::uint32_t, TrackDefaults> defaults;
    if (const Box *mvex = moov.child(fourcc("mvex")))
        for (const Box &trex : mvex->children)
            if (trex.type == fourcc("trex")) {
                Reader r{trex.payload};
                r.skip(4);
                const std::uint32_t id = r.u32();
                r.skip(4);
                defaults[id] = {r.u32(), r.u32(), r.u32()};
            }
    const std::uint64_t fileSize = source.size();
    for (const IsoBox::Header &header : top) {
        if (header.type != fourcc("moof") || header.cut)
            continue;
        const Box moof = IsoBox::read(source, header);
        for (const Box &traf : moof.children) {
            if (traf.type != fourcc("traf"))
                continue;
            const Box *tfhd = traf.child(fourcc("tfhd"));
            if (!tfhd)
                continue;
            Reader h{tfhd->payload};
            const std::uint32_t flags = fullBoxFlags(h.u32());
            const std::uint32_t id = h.u32();
            auto track = std::find_if(tracks.begin(), tracks.end(), [id](const Track &t) { return t.id == id; });
            if (track == tracks.end())
                continue;
            TrackDefaults local = defaults[id];
            std::uint64_t base = header.offset;
            if (flags & 0x1)
                base = h.u64();
            if (flags & 0x2)
                h.skip(4);
            if (flags & 0x8)
                local.duration = h.u32();
            if (flags & 0x10)
                local.size = h.u32();
            if (flags & 0x20)
                local.flags = h.u32();
            std::uint64_t next = base;
            for (const Box &trun : traf.children) {
                if (trun.type != fourcc("trun"))
                    continue;
                Reader r{trun.payload};
                const std::uint32_t versionFlags = r.u32();
                const std::uint32_t runFlags = fullBoxFlags(versionFlags);
                const unsigned perSample = 4 * (((runFlags >> 8) & 1) + ((runFlags >> 9) & 1) + ((runFlags >> 10) & 1) +
                                                ((runFlags >> 11) & 1));
                const std::uint32_t count = r.u32();
                std::uint64_t offset = next;
                if (runFlags & 0x1)
                    offset = base + std::int64_t(std::int32_t(r.u32()));
                std::uint32_t firstFlags = local.flags;
                const bool hasFirstFlags = runFlags & 0x4;
                if (hasFirstFlags)
                    firstFlags = r.u32();
                if (perSample && std::uint64_t(count) * perSample > r.left())
                    throw Malformed("a track run claims more samples than its box holds");
                if (!perSample && count > fileSize)
                    throw Malformed("a track run claims more samples than the file can hold");
                track->chunkSamples.push_back(count);
                for (std::uint32_t i = 0; i < count; ++i) {
                    Sample sample;
                    sample.offset = offset;
                    sample.duration = runFlags & 0x100 ? r.u32() : local.duration;
                    sample.size = runFlags & 0x200 ? r.u32() : local.size;
                    std::uint32_t sampleFlags = runFlags & 0x400 ? r.u32() : local.flags;
                    if (i == 0 && hasFirstFlags)
                        sampleFlags = firstFlags; // the first sample's own flags win
                    sample.composition = runFlags & 0x800 ? std::int32_t(r.u32()) : 0;
                    sample.sync = !(sampleFlags & 0x10000);
                    if (offset > fileSize || sample.size > fileSize - offset) {
                        track->samplesBeyondFile += count - i;
                        break;
                    }
                    if (sample.composition)
                        track->hasCompositionOffsets = true;
                    track->samples.push_back(sample);
                    offset += sample.size;
                }
                next = offset;
            }
        }
    }
}

} // namespace

std::uint64_t Track::duration() const
{
    std::uint64_t total = 0;
    for (const Sample &sample : samples)
        total += sample.duration;
    return total;
}

std::uint64_t Track::frameCount() const
{
    std::uint64_t total = 0;
    for (const Sample &sample : samples)
        total += sample.frames;
    return total;
}

const Box *sampleDescriptions(const Box &trak)
{
    return trak.find({fourcc("mdia"), fourcc("minf"), fourcc("stbl"), fourcc("stsd")});
}

std::vector<std::uint8_t> entryChild(const Box &trak, IsoBox::FourCC type)
{
    const Box *stsd = sampleDescriptions(trak);
    if (!stsd || stsd->payload.size() < 16)
        return {};
    const std::vector<std::uint8_t> &bytes = stsd->payload;
    // The child boxes of an entry follow fields whose length depends on the codec and the
    // QuickTime version, so the child is found by its type and then checked by its size.
    for (std::size_t at = 16 + 4; at + 4 <= bytes.size(); ++at) {
        if (IsoBox::get32(&bytes[at]) != type)
            continue;
        const std::uint32_t size = IsoBox::get32(&bytes[at - 4]);
        if (size >= 8 && size - 4 <= bytes.size() - at)
            return {bytes.begin() + std::ptrdiff_t(at + 4), bytes.begin() + std::ptrdiff_t(at - 4 + size)};
    }
    return {};
}

std::vector<Track> tracksOf(const Box &moov, std::uint64_t fileSize)
{
    std::vector<Track> tracks;
    for (std::size_t index = 0; index < moov.children.size(); ++index) {
        const Box &trak = moov.children[index];
        if (trak.type != fourcc("trak"))
            continue;
        Track track = describe(trak);
        track.trakIndex = index;
        const Tables tables = readTables(*trak.find({fourcc("mdia"), fourcc("minf"), fourcc("stbl")}), fileSize);
        if (track.handler == fourcc("soun") && isUncompressedSound(track.codec) && tables.constantSize)
            track.frameBytes = tables.constantSize;
        track.hasSyncTable = tables.hasSync;
        track.hasCompositionOffsets = !tables.compositions.empty();
        placeSamples(track, tables, fileSize);
        tracks.push_back(std::move(track));
    }
    return tracks;
}

Track describe(const Box &trak)
{
    Track track;
    const Box *tkhd = trak.child(fourcc("tkhd"));
    const Box *mdhd = trak.find({fourcc("mdia"), fourcc("mdhd")});
    const Box *hdlr = trak.find({fourcc("mdia"), fourcc("hdlr")});
    const Box *stbl = trak.find({fourcc("mdia"), fourcc("minf"), fourcc("stbl")});
    if (!tkhd || !mdhd || !hdlr || !stbl)
        throw Malformed("a track lacks its header, media header, handler or sample table");
    {
        Reader r{tkhd->payload};
        const std::uint8_t version = r.u8();
        r.skip(3 + (version == 1 ? 16 : 8));
        track.id = r.u32();
    }
    {
        Reader r{mdhd->payload};
        const std::uint8_t version = r.u8();
        r.skip(3 + (version == 1 ? 16 : 8));
        track.timescale = r.u32();
        if (track.timescale == 0)
            throw Malformed("a track has no timescale");
    }
    {
        Reader r{hdlr->payload};
        r.skip(8);
        track.handler = r.u32();
    }
    if (const Box *stsd = sampleDescriptions(trak)) {
        Reader r{stsd->payload};
        r.skip(8);
        if (r.left() >= 8) {
            r.skip(4);
            track.codec = r.u32();
        }
    }
    return track;
}

Movie read(const ByteSource &source)
{
    Movie movie;
    movie.fileSize = source.size();
    const std::vector<IsoBox::Header> top = IsoBox::topLevel(source);
    const auto moovHeader = std::find_if(top.begin(), top.end(), [](const IsoBox::Header &h) {
        return h.type == fourcc("moov");
    });
    if (moovHeader == top.end())
        throw Malformed("the clip has no index (moov box)");
    movie.moov = IsoBox::read(source, *moovHeader);
    for (const IsoBox::Header &header : top)
        if (header.type == fourcc("ftyp") && !header.cut) {
            movie.ftyp = IsoBox::read(source, header);
            break;
        }
    const Box *mvhd = movie.moov.child(fourcc("mvhd"));
    if (!mvhd)
        throw Malformed("the index has no movie header");
    Reader r{mvhd->payload};
    const std::uint8_t version = r.u8();
    r.skip(3 + (version == 1 ? 16 : 8));
    movie.timescale = r.u32();
    if (movie.timescale == 0)
        throw Malformed("the movie has no timescale");
    movie.tracks = tracksOf(movie.moov, movie.fileSize);
    movie.fragmented = movie.moov.child(fourcc("mvex")) != nullptr;
    if (movie.fragmented)
        readFragments(source, top, movie.moov, movie.tracks);
    return movie;
}

} // namespace Movie
