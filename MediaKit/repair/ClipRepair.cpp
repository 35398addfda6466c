#include "MediaKit/repair/ClipRepair.h"

#include "ByteKit/CacheWarmer.h"
#include "ByteKit/DeviceError.h"
#include "ByteKit/FileSource.h"
#include "ByteKit/MappedFile.h"
#include "MediaKit/repair/AtomicFile.h"
#include "MediaKit/repair/SampleFinder.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using IsoBox::fourcc;
using IsoBox::put32;

namespace ClipRepair {

namespace {

// What a picture's first unit headers take at most, parameter sets and SEI included.
constexpr std::size_t headerBytes = 4096;

enum class Kind { video, aac, pcm, timecode, telemetry, unknown };

// One track of the reference and how its samples are recognised in the damaged clip.
struct Lane {
    const Movie::Track *reference = nullptr;
    Kind kind = Kind::unknown;
    SampleFinder::VideoLayout video;
    std::unique_ptr<SampleFinder::AacFrames> aac;
    std::vector<std::uint32_t> chunkBytes; // PCM: chunk sizes the camera writes, most common first
    std::uint32_t frameDuration = 0;       // per sample (per frame for PCM)
    std::vector<std::int32_t> compositions; // the reference's picture reordering, sample by sample
    std::size_t compositionPeriod = 0;       // after which it repeats; 0 when it does not
    std::vector<std::size_t> referenceSyncs;  // the reference's sync pictures, by index
    std::vector<std::size_t> resumes;         // found pictures that follow unreadable bytes
    std::uint32_t timecodeLimit = UINT32_MAX;
    std::size_t samplesWanted = SIZE_MAX;  // timecode: as many as the reference has
    std::vector<Movie::Sample> found;
};

std::uint32_t commonDuration(const Movie::Track &track)
{
    std::map<std::uint32_t, std::size_t> counts;
    for (const Movie::Sample &s : track.samples)
        ++counts[s.frames ? s.duration / s.frames : s.duration];
    std::uint32_t best = 1;
    std::size_t most = 0;
    for (auto [duration, count] : counts)
        if (count > most && duration > 0)
            best = duration, most = count;
    return best;
}

// The shortest period after which the reordering of pictures repeats, leaving out the first
// picture and the last pictures, which an encoder orders on their own.
std::size_t compositionPeriod(const std::vector<std::int32_t> &offsets)
{
    for (std::size_t period = 1; period <= 64 && 3 * period + 1 < offsets.size(); ++period) {
        bool repeats = true;
        for (std::size_t i = period + 1; repeats && i + 2 * period < offsets.size(); ++i)
            repeats = offsets[i] == offsets[i - period];
        if (repeats)
            return period;
    }
    return 0;
}

// The reference's offset for the same position, stepped back by whole periods out of its ending.
std::int32_t compositionFor(const Lane &lane, std::size_t index)
{
    const std::size_t count = lane.compositions.size(), period = lane.compositionPeriod;
    if (period == 0)
        return index < count ? lane.compositions[index] : 0;
    if (index + 2 * period >= count)
        index -= ((index + 2 * period - count) / period + 1) * period;
    return lane.compositions[index];
}

// Sets the reordering of the found pictures. Until pictures were lost their count gives
// their place in the camera's pattern; after a loss it no longer does, but the pattern
// restarts at every sync picture: a picture takes the offset of the reference's picture as
// far after one of its sync pictures (or, before the first sync picture after the loss, as
// far before one), within the part of the reference where the pattern repeats.
void setCompositions(Lane &lane)
{
    std::vector<Movie::Sample> &found = lane.found;
    std::vector<std::size_t> bounds = lane.resumes;
    bounds.push_back(found.size());
    for (std::size_t i = 0; i < std::min(bounds.front(), found.size()); ++i)
        found[i].composition = compositionFor(lane, i);
    const std::size_t period = lane.compositionPeriod, count = lane.compositions.size();
    // Reference sync pictures with a whole period of the pattern on either side.
    std::vector<std::size_t> anchors;
    for (std::size_t sync : lane.referenceSyncs)
        if (period && sync > period && sync + 2 * period < count)
            anchors.push_back(sync);
    for (std::size_t k = 0; k + 1 < bounds.size(); ++k) {
        const std::size_t from = std::min(bounds[k], found.size()), to = std::min(bounds[k + 1], found.size());
        std::optional<std::size_t> nextSync, lastSync;
        for (std::size_t i = to; i-- > from;) {
            nextSync = found[i].sync ? std::optional(i) : nextSync;
            const bool reachable = nextSync && !anchors.empty() && *nextSync - i < anchors.back();
            found[i].composition = reachable ? compositionFor(lane, anchors.back() - (*nextSync - i)) : 0;
        }
        for (std::size_t i = from; i < to && !anchors.empty(); ++i) {
            lastSync = found[i].sync ? std::optional(i) : lastSync;
            if (lastSync)
                found[i].composition = compositionFor(lane, anchors.front() + (i - *lastSync));
        }
    }
}

std::string fileError(const std::string &path, const std::exception &error)
{
    return path + ": " + error.what();
}

bool sameFile(const std::string &a, const std::string &b)
{
    struct stat first {}, second {};
    return stat(a.c_str(), &first) == 0 && stat(b.c_str(), &second) == 0 && first.st_dev == second.st_dev &&
           first.st_ino == second.st_ino;
}

Lane laneFor(const Movie::Track &track, const IsoBox::Box &trak, const MappedFile &reference)
{
    const std::span<const std::uint8_t> referenceBytes = reference.bytes();
    Lane lane;
    lane.reference = &track;
    lane.frameDuration = commonDuration(track);
    const IsoBox::FourCC codec = track.codec;
    if (codec == fourcc("avc1") || codec == fourcc("avc3") || codec == fourcc("hvc1") || codec == fourcc("hev1")) {
        lane.video.hevc = codec == fourcc("hvc1") || codec == fourcc("hev1");
        const std::vector<std::uint8_t> config = Movie::entryChild(trak, lane.video.hevc ? fourcc("hvcC") : fourcc("avcC"));
        lane.video.lengthSize = SampleFinder::lengthSizeOf(config, lane.video.hevc);
        if (lane.video.lengthSize) {
            lane.kind = Kind::video;
            // Learning reads the unit headers at the start of each picture: asking for all
            // of them at once lets the disk fetch them together instead of one per fault.
            for (const Movie::Sample &s : track.samples)
                reference.readAhead(s.offset, std::min<std::size_t>(s.size, headerBytes));
            for (const Movie::Sample &s : track.samples)
                lane.video.learn(referenceBytes.subspan(s.offset, s.size));
        }
        for (std::size_t i = 0; i < track.samples.size(); ++i) {
            lane.compositions.push_back(track.samples[i].composition);
            if (track.samples[i].sync)
                lane.referenceSyncs.push_back(i);
        }
        lane.compositionPeriod = compositionPeriod(lane.compositions);
    } else if (codec == fourcc("mp4a")) {
        lane.aac = std::make_unique<SampleFinder::AacFrames>(SampleFinder::aacConfiguration(Movie::entryChild(trak, fourcc("esds"))));
        if (lane.aac->usable())
            lane.kind = Kind::aac;
    } else if (track.frameBytes) {
        lane.kind = Kind::pcm;
        std::map<std::uint32_t, std::size_t> counts;
        for (const Movie::Sample &s : track.samples)
            ++counts[s.size];
        std::vector<std::pair<std::size_t, std::uint32_t>> byCount;
        for (auto [size, count] : counts)
            byCount.push_back({count, size});
        std::sort(byCount.rbegin(), byCount.rend());
        for (auto [count, size] : byCount)
            lane.chunkBytes.push_back(size);
    } else if (codec == fourcc("tmcd")) {
        lane.kind = Kind::timecode;
        lane.samplesWanted = track.samples.size();
        // Frame counter: below a day's worth of frames at the rate written in the description.
        const IsoBox::Box *stsd = Movie::sampleDescriptions(trak);
        if (stsd && stsd->payload.size() > 8 + 8 + 24)
            lane.timecodeLimit = 24u * 3600u * std::max<std::uint32_t>(1, stsd->payload[8 + 8 + 24]);
    } else if (codec == fourcc("gpmd")) {
        lane.kind = Kind::telemetry;
    }
    return lane;
}

// Walks the media data and hands each sample to its track.
class Walker {
public:
    Walker(std::vector<Lane> &lanes, std::span<const std::uint8_t> data) : m_data(data)
    {
        for (Lane &lane : lanes) {
            if (lane.kind == Kind::video && !m_video)
                m_video = &lane;
            else if (lane.kind == Kind::aac && !m_aac)
                m_aac = &lane;
            else if (lane.kind == Kind::pcm && !m_pcm)
                m_pcm = &lane;
            else if (lane.kind == Kind::timecode && !m_timecode)
                m_timecode = &lane;
            else if (lane.kind == Kind::telemetry && !m_telemetry)
                m_telemetry = &lane;
        }
        // Within a sound frame or chunk of the end, what follows may be one cut short.
        if (m_aac)
            m_nearEnd = std::max(m_nearEnd, m_aac->aac->largestFrame());
        if (m_pcm && !m_pcm->chunkBytes.empty())
            m_nearEnd = std::max<std::size_t>(m_nearEnd, *std::max_element(m_pcm->chunkBytes.begin(), m_pcm->chunkBytes.end()));
    }

    // Returns the end of the last sample found.
    std::uint64_t walk(std::size_t from, const Progress &progress, std::uint64_t &unreadable)
    {
        std::size_t at = from, lastEnd = from;
        std::size_t reported = 0;
        while (at < m_data.size()) {
            if (progress && at - reported >= (std::size_t{8} << 20)) {
                progress(double(at) / double(m_data.size()));
                reported = at;
            }
            if (const std::size_t n = take(at)) {
                at += n;
                lastEnd = at;
                continue;
            }
            // A picture the end of the data cuts short: nothing whole follows it.
            if (m_video && SampleFinder::pictureCutAt(m_video->video, m_data, at)) {
                unreadable += m_data.size() - at;
                break;
            }
            const std::size_t next = resync(at + 1);
            if (m_video)
                m_video->resumes.push_back(m_video->found.size());
            const std::size_t sound = soundBefore(at, next);
            unreadable += sound - at;
            if (sound < next) {
                const auto frames = std::uint32_t((next - sound) / m_pcm->reference->frameBytes);
                m_pcm->found.push_back({sound, std::uint32_t(next - sound), m_pcm->frameDuration * frames, 0, frames, true, 0});
            }
            at = next;
        }
        return lastEnd;
    }

private:
    std::size_t picture(std::size_t at) const { return m_video ? SampleFinder::pictureAt(m_video->video, m_data, at) : 0; }
    std::size_t telemetry(std::size_t at) const { return m_telemetry ? SampleFinder::telemetryAt(m_data, at) : 0; }
    std::size_t aacFrame(std::size_t at) const { return m_aac ? m_aac->aac->frameAt(m_data, at) : 0; }
    std::size_t timecode(std::size_t at) const
    {
        if (!m_timecode || m_timecode->found.size() >= m_timecode->samplesWanted || at + 4 > m_data.size())
            return 0;
        return IsoBox::get32(&m_data[at]) < m_timecode->timecodeLimit ? 4 : 0;
    }
    // A sample of a track that carries its own structure starts here (or the data ends).
    bool structured(std::size_t at) const
    {
        return at == m_data.size() || picture(at) || telemetry(at) || aacFrame(at);
    }
    std::size_t pcmChunk(std::size_t at) const
    {
        if (!m_pcm)
            return 0;
        const std::size_t left = m_data.size() - at;
        for (std::uint32_t size : m_pcm->chunkBytes)
            if (size <= left && (structured(at + size) || timecode(at + size) || zerosAt(at + size) ||
                                 (m_video && SampleFinder::pictureCutAt(m_video->video, m_data, at + size))))
                return size;
        // Uneven chunks: any whole number of frames up to the largest chunk seen, up to a
        // picture that is itself followed by a sample.
        const std::uint32_t frame = m_pcm->reference->frameBytes;
        const std::uint32_t largest = m_pcm->chunkBytes.empty() ? 0 : *std::max_element(m_pcm->chunkBytes.begin(), m_pcm->chunkBytes.end());
        for (std::size_t size = frame; size <= std::min<std::size_t>(std::size_t(largest) * 2, left); size += frame) {
            if (telemetry(at + size))
                return size;
            if (const std::size_t n = picture(at + size); n && structured(at + size + n))
                return size;
        }
        // The recording stopped inside the last chunk.
        if (left <= std::size_t(largest) * 2 && left >= frame)
            return left / frame * frame;
        return 0;
    }
    // Whether another sample starts right after one: a sample with a structure of its own,
    // sound without one, or the end of what the card kept (the data stops within a few
    // bytes, a unit cut by the end, or a run of zeros where blocks were lost).
    bool followed(std::size_t at) const
    {
        if (structured(at) || pcmChunk(at))
            return true;
        const std::size_t left = m_data.size() - at;
        if (left < 16 || left <= m_nearEnd)
            return true;
        // Lost blocks right here, or inside the sound that follows.
        if (zerosAt(at) || zerosWithin(at, m_nearEnd))
            return true;
        return m_video && SampleFinder::pictureCutAt(m_video->video, m_data, at);
    }

    // Uncompressed sound between lost blocks and the sample found after them: the end of
    // a chunk whose start was lost, its frames counted back from where the chunk ends.
    std::size_t soundBefore(std::size_t from, std::size_t to) const
    {
        if (!m_pcm || m_pcm->chunkBytes.empty())
            return to;
        std::size_t lostEnd = 0;
        for (std::size_t i = to, run = 0; i > from; --i)
            if ((run = m_data[i - 1] == 0 ? run + 1 : 0) == 16) {
                lostEnd = i + 15;
                break;
            }
        while (lostEnd && lostEnd < to && m_data[lostEnd] == 0)
            ++lostEnd;
        const std::uint32_t frame = m_pcm->reference->frameBytes;
        const std::size_t frames = lostEnd ? (to - lostEnd) / frame : 0;
        const std::size_t largest = *std::max_element(m_pcm->chunkBytes.begin(), m_pcm->chunkBytes.end());
        return frames && frames * frame <= largest ? to - frames * frame : to;
    }

    bool zerosAt(std::size_t at) const
    {
        return at + 16 <= m_data.size() && std::all_of(m_data.begin() + std::ptrdiff_t(at), m_data.begin() + std::ptrdiff_t(at + 16),
                                                       [](std::uint8_t b) { return b == 0; });
    }
    bool zerosWithin(std::size_t at, std::size_t window) const
    {
        const std::size_t end = std::min(m_data.size(), at + window + 16);
        std::size_t run = 0;
        for (std::size_t i = at; i < end; ++i)
            if ((run = m_data[i] == 0 ? run + 1 : 0) == 16)
                return true;
        return false;
    }

    std::size_t take(std::size_t at)
    {
        if (std::size_t n = picture(at); n && followed(at + n)) {
            const auto bytes = m_data.subspan(at, n);
            Movie::Sample sample{at, std::uint32_t(n), m_video->frameDuration, 0, 1,
                                 SampleFinder::isSyncPicture(m_video->video, bytes), 0};
            m_video->found.push_back(sample);
            return n;
        }
        if (std::size_t n = telemetry(at)) {
            m_telemetry->found.push_back({at, std::uint32_t(n), m_telemetry->frameDuration, 0, 1, true, 0});
            return n;
        }
        // Four bytes say little on their own: a structured sample must follow.
        if (std::size_t n = timecode(at); n && (structured(at + n) || pcmChunk(at + n))) {
            m_timecode->found.push_back({at, 4, m_timecode->frameDuration, 0, 1, true, 0});
            return n;
        }
        if (std::size_t n = aacFrame(at)) {
            m_aac->found.push_back({at, std::uint32_t(n), m_aac->frameDuration, 0, 1, true, 0});
            return n;
        }
        if (std::size_t n = pcmChunk(at)) {
            const auto frames = std::uint32_t(n / m_pcm->reference->frameBytes);
            m_pcm->found.push_back({at, std::uint32_t(n), m_pcm->frameDuration * frames, 0, frames, true, 0});
            return n;
        }
        return 0;
    }

    // The next place where a picture or telemetry block starts and is followed by another
    // sample; runs of zeros (blocks the card lost) are skipped at once.
    std::size_t resync(std::size_t at) const
    {
        while (at < m_data.size()) {
            if (m_data[at] == 0 && at + 16 <= m_data.size() && IsoBox::get32(&m_data[at]) == 0 &&
                IsoBox::get32(&m_data[at + 4]) == 0) {
                const auto nonzero = std::find_if(m_data.begin() + std::ptrdiff_t(at), m_data.end(), [](std::uint8_t b) { return b != 0; });
                const std::size_t next = std::size_t(nonzero - m_data.begin());
                at = std::max(at + 1, next >= 3 ? next - 3 : 0);
                continue;
            }
            if (std::size_t n = picture(at); n && at + n < m_data.size() && followed(at + n))
                return at;
            if (telemetry(at))
                return at;
            // Sound frames, when two in a row decode and something follows them.
            if (std::size_t n = aacFrame(at)) {
                if (std::size_t second = aacFrame(at + n); second && followed(at + n + second))
                    return at;
            }
            ++at;
        }
        return m_data.size();
    }

    std::span<const std::uint8_t> m_data;
    std::size_t m_nearEnd = 0;
    Lane *m_video = nullptr, *m_aac = nullptr, *m_pcm = nullptr, *m_timecode = nullptr, *m_telemetry = nullptr;
};

// Pictures that read as whole pictures of `layout` in the first megabytes of the media data.
std::size_t picturesIn(const SampleFinder::VideoLayout &layout, std::span<const std::uint8_t> data, std::size_t from)
{
    const std::size_t end = std::min(data.size(), from + (std::size_t{4} << 20));
    std::size_t pictures = 0;
    for (std::size_t at = from; at < end && pictures < 64;) {
        const std::size_t n = SampleFinder::pictureAt(layout, data.first(end), at);
        pictures += n > 0;
        at += n ? n : 1;
    }
    return pictures;
}

// Whether the clip's pictures read far better as the other of H.264 and HEVC.
bool picturesOfOtherCodec(const Lane &lane, std::span<const std::uint8_t> data, std::size_t from)
{
    SampleFinder::VideoLayout other;
    other.hevc = !lane.video.hevc;
    other.lengthSize = lane.video.lengthSize;
    other.largestUnit = lane.video.largestUnit;
    other.slicesPerPicture = 64;
    // The unit types every camera writes: slices, parameter sets, delimiters, SEI.
    other.unitTypes = other.hevc ? 0x3fffff | std::uint64_t(0x18f) << 32 : 0x3e2;
    const std::size_t theirs = picturesIn(other, data, from);
    return theirs >= 3 && theirs > 2 * picturesIn(lane.video, data, from) + 2;
}

std::string codecName(IsoBox::FourCC codec) { return IsoBox::text(codec); }

// Told, before the walk, which bytes of the clip will be walked and which file type box the
// repaired clip starts with.
using BeforeWalk = std::function<void(const IsoBox::Box &ftyp, std::uint64_t from, std::uint64_t to)>;

// The repaired clip, written while the damaged one is walked: the media data is copied as
// it lies, by the system and on a thread of its own, so that the disk writes the copy
// while it reads the clip for the walk. Bytes between samples stay in the media data,
// where no sample points; the file ends after the last sample found, with its index.
// The media data keeps its place within the disk's blocks, so that a file system that
// shares blocks between files (XFS, Btrfs) shares them instead of copying: the damaged
// clip is still never written, its shared blocks being copied on write.
class CopyWhileWalking {
public:
    CopyWhileWalking(const std::string &path, const std::string &clip, const IsoBox::Box &ftyp, std::uint64_t from,
                     std::uint64_t to)
        : m_file(path), m_from(from)
    {
        m_source = ::open(clip.c_str(), O_RDONLY | O_CLOEXEC);
        if (m_source < 0)
            throw DeviceError::cannotOpen(clip, errno);
        if (ftyp.type)
            IsoBox::write(ftyp, m_ftyp);
        m_wide = to - from + 8 > 0xffffffffu;
        // The head (file type, a free box as padding, the media data's header) ends where the
        // media data starts in the clip, within a block.
        const std::uint64_t least = m_ftyp.size() + 8 + mdatHeaderBytes();
        m_payloadAt = from % blockBytes;
        while (m_payloadAt < least)
            m_payloadAt += blockBytes;
        const std::uint64_t copyAt = m_payloadAt / blockBytes * blockBytes;
        const std::uint64_t copyFrom = from - (m_payloadAt - copyAt);
        m_file.write(std::vector<std::uint8_t>(copyAt, 0)); // the head goes here once its size is known
        m_thread = std::jthread([this, copyFrom, to](std::stop_token stop) {
            try {
                m_file.copyFrom(m_source, copyFrom, to - copyFrom, stop);
            } catch (...) {
                m_error = std::current_exception();
            }
        });
    }
    CopyWhileWalking(const CopyWhileWalking &) = delete;
    CopyWhileWalking &operator=(const CopyWhileWalking &) = delete;
    ~CopyWhileWalking()
    {
        m_thread = {}; // stops and joins the copy before the file goes
        ::close(m_source);
    }

    // Ends the file after the planned samples and writes the head and their index. False
    // when the samples do not lie in the clip in their tracks' order: they must then be
    // laid out anew. Throws AtomicFile::Failed.
    bool finish(const Plan &planned)
    {
        m_thread.join();
        if (m_error)
            std::rethrow_exception(m_error);
        const std::optional<IsoBox::Box> index = MovieWriter::indexInPlace(planned.output, m_from, m_payloadAt);
        if (!index)
            return false;
        const std::uint64_t payload = std::max(planned.report.recoveredUntil, m_from) - m_from;
        m_file.truncate(m_payloadAt + payload);
        std::vector<std::uint8_t> head = m_ftyp;
        const std::uint64_t padding = m_payloadAt - m_ftyp.size() - mdatHeaderBytes();
        put32(head, std::uint32_t(padding));
        put32(head, fourcc("free"));
        head.resize(head.size() + padding - 8, 0);
        put32(head, m_wide ? 1 : std::uint32_t(payload + 8));
        put32(head, fourcc("mdat"));
        if (m_wide)
            IsoBox::put64(head, payload + 16);
        m_file.overwrite(0, head);
        std::vector<std::uint8_t> bytes;
        IsoBox::write(*index, bytes);
        m_file.write(bytes);
        m_file.commit();
        return true;
    }

private:
    static constexpr std::uint64_t blockBytes = 4096;
    std::uint64_t mdatHeaderBytes() const { return m_wide ? 16 : 8; }

    AtomicFile m_file;
    int m_source = -1;
    std::uint64_t m_from = 0;
    std::vector<std::uint8_t> m_ftyp;
    std::uint64_t m_payloadAt = 0; // where the media data starts in the repaired clip
    bool m_wide = false;
    std::exception_ptr m_error;
    std::jthread m_thread;
};

Plan planWith(const std::string &clipPath, const std::string &referencePath, const Progress &progress,
              const BeforeWalk &beforeWalk)
{
    if (referencePath.empty())
        throw Error(Error::Kind::noReference,
                    "no reference given: repair needs a good clip (or photo) from the same camera with the same "
                    "settings (--reference)");
    std::unique_ptr<MappedFile> clipMap, referenceMap;
    Movie::Movie reference;
    try {
        clipMap = std::make_unique<MappedFile>(clipPath);
        referenceMap = std::make_unique<MappedFile>(referencePath);
        reference = Movie::read(FileSource(referencePath));
    } catch (const DeviceError &error) {
        throw Error(Error::Kind::unreadable, error.what());
    } catch (const IsoBox::Malformed &error) {
        throw Error(Error::Kind::unreadable, "the reference " + fileError(referencePath, error));
    }
    if (reference.tracks.empty())
        throw Error(Error::Kind::unreadable, "the reference " + referencePath + " has no tracks");
    const std::span<const std::uint8_t> data = clipMap->bytes();
    Plan result;
    result.report.fileSize = data.size();

    // A clip whose own index survived (written at the start, then the recording cut) keeps
    // it: only the samples still in the file are indexed.
    std::optional<Movie::Movie> own;
    try {
        own = Movie::read(FileSource(clipPath));
    } catch (const std::exception &) {
    }
    if (own && !own->tracks.empty()) {
        for (const Movie::Track &track : own->tracks) {
            const auto match = std::find_if(reference.tracks.begin(), reference.tracks.end(),
                                            [&](const Movie::Track &t) { return t.handler == track.handler; });
            if (match != reference.tracks.end() && match->codec != track.codec)
                throw Error(Error::Kind::differentCodec, "the reference is from a different codec: the clip's " +
                                                             IsoBox::text(track.handler) + " track is " + codecName(track.codec) +
                                                             ", the reference's is " + codecName(match->codec));
        }
        result.report.ownIndex = true;
        result.output.ftyp = own->ftyp;
        result.output.moov = own->moov;
        result.output.movieTimescale = own->timescale;
        for (const Movie::Track &track : own->tracks) {
            MovieWriter::TrackOutput out{own->moov.children[track.trakIndex], track.timescale, track.frameBytes,
                                         track.samples, track.hasSyncTable};
            result.output.tracks.push_back(std::move(out));
        }
    } else {
        // Where the media data starts: after the mdat header when it survived.
        std::size_t from = 0, to = data.size();
        std::vector<IsoBox::Header> top;
        try {
            top = IsoBox::topLevel(FileSource(clipPath));
        } catch (const DeviceError &error) {
            throw Error(Error::Kind::unreadable, error.what());
        }
        for (const IsoBox::Header &header : top) {
            if (header.type == fourcc("mdat")) {
                from = std::size_t(header.payloadOffset());
                to = std::size_t(header.end());
                break;
            }
            from = std::size_t(header.end());
        }
        result.report.scannedFrom = from;
        std::vector<Lane> lanes;
        for (const Movie::Track &track : reference.tracks)
            lanes.push_back(laneFor(track, reference.moov.children[track.trakIndex], *referenceMap));
        if (beforeWalk)
            beforeWalk(reference.ftyp, from, to);
        // The walk reads a few bytes of each picture; the clip is read ahead of it at the
        // disk's pace (a copy that shares blocks reads nothing), and a copy after it finds
        // it in memory too.
        const CacheWarmer warmer(clipPath, from, to);
        Walker walker(lanes, data.first(to));
        result.report.recoveredUntil = walker.walk(from, progress, result.report.unreadableBytes);

        std::size_t total = 0;
        for (const Lane &lane : lanes)
            total += lane.found.size();
        for (const Lane &lane : lanes)
            if (lane.kind == Kind::video && lane.found.size() < 64 && picturesOfOtherCodec(lane, data.first(to), from))
                throw Error(Error::Kind::differentCodec,
                            std::string("the reference is from a different codec: its pictures are ") +
                                (lane.video.hevc ? "HEVC" : "H.264") + ", the clip's are " + (lane.video.hevc ? "H.264" : "HEVC"));
        if (total == 0)
            throw Error(Error::Kind::nothingRecoverable, "nothing recoverable after byte " + std::to_string(from) +
                                                              ": no sample of the reference's tracks was found in " + clipPath);

        result.output.ftyp = reference.ftyp;
        result.output.moov = reference.moov;
        result.output.movieTimescale = reference.timescale;
        double longest = 0;
        for (Lane &lane : lanes) {
            // Pictures are reordered as the camera reorders them.
            if (lane.reference->hasCompositionOffsets)
                setCompositions(lane);
            std::uint64_t duration = 0;
            for (const Movie::Sample &s : lane.found)
                duration += s.duration;
            longest = std::max(longest, double(duration) / lane.reference->timescale);
        }
        for (Lane &lane : lanes) {
            // A timecode sample spans the whole clip.
            if (lane.kind == Kind::timecode && lane.found.size() == 1)
                lane.found[0].duration = std::uint32_t(longest * lane.reference->timescale + 0.5);
            const Movie::Track &track = *lane.reference;
            MovieWriter::TrackOutput out{reference.moov.children[track.trakIndex], track.timescale, track.frameBytes,
                                         std::move(lane.found), track.hasSyncTable};
            result.output.tracks.push_back(std::move(out));
            result.report.tracks.push_back({});
            result.report.tracks.back().recognised = lane.kind != Kind::unknown;
        }
    }
    for (std::size_t i = 0; i < result.output.tracks.size(); ++i) {
        const MovieWriter::TrackOutput &out = result.output.tracks[i];
        TrackReport summary = MovieWriter::summarise(out);
        if (i < result.report.tracks.size()) {
            summary.recognised = result.report.tracks[i].recognised;
            result.report.tracks[i] = summary;
        } else {
            result.report.tracks.push_back(summary);
        }
        for (const Movie::Sample &s : out.samples)
            result.report.recoveredUntil = std::max(result.report.recoveredUntil, s.offset + s.size);
    }
    return result;
}

} // namespace

Plan plan(const std::string &clip, const std::string &reference, const Progress &progress)
{
    return planWith(clip, reference, progress, {});
}

Report repair(const std::string &clip, const std::string &reference, const std::string &output, const Progress &progress)
{
    const std::string path = output.empty() ? freeNameBeside(clip, "repaired") : output;
    if (sameFile(path, clip))
        throw Error(Error::Kind::cannotWrite, "the repaired clip cannot be written over the damaged one: " + path);
    std::optional<CopyWhileWalking> copy;
    Plan planned = planWith(clip, reference, progress, [&](const IsoBox::Box &ftyp, std::uint64_t from, std::uint64_t to) {
        try {
            copy.emplace(path, clip, ftyp, from, to);
        } catch (const AtomicFile::Failed &error) {
            throw Error(Error::Kind::cannotWrite, error.what());
        } catch (const DeviceError &error) {
            throw Error(Error::Kind::unreadable, error.what());
        }
    });
    try {
        if (copy && copy->finish(planned)) {
            planned.report.output = path;
            return planned.report;
        }
        copy.reset();
        const MappedFile source(clip);
        const std::span<const std::uint8_t> sources[] = {source.bytes()};
        MovieWriter::write(path, planned.output, sources, progress);
    } catch (const AtomicFile::Failed &error) {
        throw Error(Error::Kind::cannotWrite, error.what());
    } catch (const std::exception &error) {
        throw Error(Error::Kind::unreadable, fileError(clip, error));
    }
    planned.report.output = path;
    return planned.report;
}

} // namespace ClipRepair
