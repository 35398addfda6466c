#include "RepairClips.h"

#include "ByteKit/FileSource.h"
#include "MediaKit/repair/MovieWriter.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

using IsoBox::Box;
using IsoBox::fourcc;

namespace RepairClips {

namespace {

std::vector<std::uint8_t> fullBody(std::uint32_t versionFlags, std::vector<std::uint8_t> rest)
{
    std::vector<std::uint8_t> body;
    IsoBox::put32(body, versionFlags);
    body.insert(body.end(), rest.begin(), rest.end());
    return body;
}

Box container(IsoBox::FourCC type, std::vector<Box> children)
{
    Box box;
    box.type = type;
    box.container = true;
    box.children = std::move(children);
    return box;
}

// A timed-metadata track in the layout of GoPro cameras: handler "meta", format "gpmd".
Box telemetryTrak(std::uint32_t id, std::uint32_t timescale)
{
    std::vector<std::uint8_t> tkhd(84, 0); // version 0: times, id, duration, matrix, size
    IsoBox::set32(&tkhd[12], id);
    for (std::size_t at : {40u, 56u})
        IsoBox::set32(&tkhd[at], 0x00010000);
    IsoBox::set32(&tkhd[72], 0x40000000);
    std::vector<std::uint8_t> mdhd(24, 0);
    IsoBox::set32(&mdhd[12], timescale);
    mdhd[20] = 0x55, mdhd[21] = 0xc4;
    std::vector<std::uint8_t> hdlr(4 + 4, 0);
    IsoBox::put32(hdlr, fourcc("meta"));
    hdlr.resize(hdlr.size() + 12, 0);
    for (char c : std::string("GoPro MET"))
        hdlr.push_back(std::uint8_t(c));
    hdlr.push_back(0);
    std::vector<std::uint8_t> entry;
    IsoBox::put32(entry, 16);
    IsoBox::put32(entry, fourcc("gpmd"));
    entry.resize(entry.size() + 6, 0);
    IsoBox::put16(entry, 1);
    IsoBox::put32(entry, 0);
    std::vector<std::uint8_t> stsd;
    IsoBox::put32(stsd, 1);
    stsd.insert(stsd.end(), entry.begin(), entry.end());
    std::vector<std::uint8_t> dref;
    IsoBox::put32(dref, 1);
    IsoBox::put32(dref, 12), IsoBox::put32(dref, fourcc("url ")), IsoBox::put32(dref, 1);
    return container(fourcc("trak"),
                     {IsoBox::leaf(fourcc("tkhd"), fullBody(3, {tkhd.begin() + 4, tkhd.end()})),
                      container(fourcc("mdia"),
                                {IsoBox::leaf(fourcc("mdhd"), mdhd), IsoBox::leaf(fourcc("hdlr"), hdlr),
                                 container(fourcc("minf"),
                                           {IsoBox::leaf(fourcc("nmhd"), fullBody(0, {})),
                                            container(fourcc("dinf"), {IsoBox::leaf(fourcc("dref"), fullBody(0, dref))}),
                                            container(fourcc("stbl"), {IsoBox::leaf(fourcc("stsd"), fullBody(0, stsd))})})})});
}

// One telemetry block: a DEVC holding a device name and a stream of GPS-like readings.
std::vector<std::uint8_t> telemetryBlock(int second)
{
    auto klv = [](const char *key, std::uint8_t type, std::uint8_t size, std::uint16_t repeat,
                  const std::vector<std::uint8_t> &payload) {
        std::vector<std::uint8_t> out(key, key + 4);
        out.push_back(type);
        out.push_back(size);
        IsoBox::put16(out, repeat);
        out.insert(out.end(), payload.begin(), payload.end());
        out.resize((out.size() + 3) & ~std::size_t(3), 0);
        return out;
    };
    std::vector<std::uint8_t> readings;
    for (int i = 0; i < 18; ++i)
        for (int axis = 0; axis < 5; ++axis)
            IsoBox::put32(readings, std::uint32_t(second * 7919 + i * 31 + axis * 1000003));
    std::vector<std::uint8_t> stream = klv("STNM", 'c', 4, 1, {'G', 'P', 'S', '5'});
    const std::vector<std::uint8_t> gps = klv("GPS5", 'l', 20, 18, readings);
    stream.insert(stream.end(), gps.begin(), gps.end());
    std::vector<std::uint8_t> inner = klv("DVNM", 'c', 6, 1, {'C', 'a', 'm', 'e', 'r', 'a'});
    const std::vector<std::uint8_t> strm = klv("STRM", 0, 4, std::uint16_t(stream.size() / 4), stream);
    inner.insert(inner.end(), strm.begin(), strm.end());
    return klv("DEVC", 0, 4, std::uint16_t(inner.size() / 4), inner);
}

// Rewrites `path` with a telemetry track of one block per half second beside its tracks.
void addTelemetry(const std::string &path)
{
    const std::vector<std::uint8_t> original = readFile(path);
    const Movie::Movie movie = Movie::read(FileSource(path));
    MovieWriter::Output output{movie.ftyp, movie.moov, movie.timescale, {}};
    double seconds = 0;
    std::uint32_t lastId = 0;
    for (const Movie::Track &track : movie.tracks) {
        output.tracks.push_back({movie.moov.children[track.trakIndex], track.timescale, track.frameBytes, track.samples,
                                 track.hasSyncTable});
        seconds = std::max(seconds, double(track.duration()) / track.timescale);
        lastId = std::max(lastId, track.id);
    }
    std::vector<std::uint8_t> blocks;
    MovieWriter::TrackOutput telemetry{telemetryTrak(lastId + 1, 1000), 1000, 0, {}, false};
    for (int half = 0; half < int(seconds * 2 + 0.5); ++half) {
        const std::vector<std::uint8_t> block = telemetryBlock(half);
        telemetry.samples.push_back({blocks.size(), std::uint32_t(block.size()), 500, 0, 1, true, 1});
        blocks.insert(blocks.end(), block.begin(), block.end());
    }
    output.tracks.push_back(std::move(telemetry));
    std::erase_if(output.moov.children, [](const Box &b) { return b.type == fourcc("trak"); });
    for (const MovieWriter::TrackOutput &t : output.tracks)
        output.moov.children.insert(output.moov.children.end() - (output.moov.child(fourcc("udta")) ? 1 : 0), t.trak);
    const std::span<const std::uint8_t> sources[] = {original, blocks};
    const std::string rewritten = path + ".tmp";
    MovieWriter::write(rewritten, output, sources);
    std::rename(rewritten.c_str(), path.c_str());
}

} // namespace

std::vector<std::string> split(const std::string &clip, int count)
{
    const std::vector<std::uint8_t> bytes = readFile(clip);
    const Movie::Movie movie = Movie::read(FileSource(clip));
    const Movie::Track &video = movie.tracks.front();
    // Cut before the sync pictures nearest to each share of the clip.
    std::vector<double> cuts;
    double time = 0;
    std::size_t share = 1;
    for (const Movie::Sample &s : video.samples) {
        if (s.sync && time > 0 && share < std::size_t(count) &&
            time >= double(video.duration()) / video.timescale * double(share) / count) {
            cuts.push_back(time);
            ++share;
        }
        time += double(s.duration) / video.timescale;
    }
    cuts.push_back(1e9);
    std::vector<std::string> paths;
    for (std::size_t part = 0; part < cuts.size(); ++part) {
        const double from = part ? cuts[part - 1] : 0, to = cuts[part];
        MovieWriter::Output output{movie.ftyp, movie.moov, movie.timescale, {}};
        for (const Movie::Track &track : movie.tracks) {
            MovieWriter::TrackOutput out{movie.moov.children[track.trakIndex], track.timescale, track.frameBytes, {},
                                         track.hasSyncTable};
            double start = 0;
            for (const Movie::Sample &s : track.samples) {
                if (track.codec == fourcc("tmcd")) {
                    out.samples.push_back(s); // each part has its own timecode sample
                    break;
                }
                if (start >= from - 1e-9 && start < to - 1e-9)
                    out.samples.push_back(s);
                start += double(s.duration) / track.timescale;
            }
            output.tracks.push_back(std::move(out));
        }
        std::string path = clip;
        path.insert(path.rfind('.'), "-part" + std::to_string(part + 1));
        const std::span<const std::uint8_t> sources[] = {bytes};
        MovieWriter::write(path, output, sources);
        paths.push_back(path);
    }
    return paths;
}

bool run(const std::string &command)
{
    return std::system((command + " >/dev/null 2>&1").c_str()) == 0;
}

bool haveFfmpeg()
{
    static const bool present = run("command -v ffmpeg") && run("command -v ffprobe");
    return present;
}

std::vector<Profile> profiles()
{
    const std::string x264 = "-c:v libx264 -preset ultrafast -pix_fmt yuv420p -g 12 ";
    return {
        {"h264-aac", ".mp4", x264 + "-c:a aac -b:a 64k", false},
        {"hevc-aac", ".mp4",
         "-c:v libx265 -preset ultrafast -tag:v hvc1 -pix_fmt yuv420p "
         "-x265-params log-level=none:keyint=12:min-keyint=12:scenecut=0:bframes=2:b-adapt=0 -c:a aac -b:a 64k",
         false},
        {"h264-pcm", ".mov", x264 + "-c:a pcm_s16le", false},
        {"h264-aac-gpmd", ".mp4", x264 + "-c:a aac -b:a 64k", true},
    };
}

std::string make(const Profile &profile, const std::string &folder, double seconds, const std::string &suffix,
                 const std::string &size, const std::string &extraArgs)
{
    const std::string clip = folder + "/" + profile.name + suffix + profile.extension;
    const std::string reference = folder + "/" + profile.name + suffix + "-reference" + profile.extension;
    auto encode = [&](const std::string &pictures, int tone, double length, const std::string &out) {
        const std::string command = "ffmpeg -nostdin -v error -y -f lavfi -i " + pictures +
                                    "=size=" + size + ":rate=25 -f lavfi -i sine=frequency=" + std::to_string(tone) +
                                    ":sample_rate=48000 -t " + std::to_string(length) + " " + profile.codecArgs + " " + extraArgs +
                                    " -timecode 01:00:00:00 -metadata title=Shoot '" + out + "'";
        if (!run(command))
            throw std::runtime_error("ffmpeg failed: " + command);
        if (profile.telemetry)
            addTelemetry(out);
    };
    encode("testsrc", 440, seconds, clip);
    encode("testsrc2", 660, std::min(seconds, 2.0), reference);
    return clip;
}

std::vector<Damage> damages() { return {Damage::moovMissing, Damage::cutInMdat, Damage::zeroedRegion}; }

std::string name(Damage damage)
{
    switch (damage) {
    case Damage::moovMissing: return "moov missing";
    case Damage::cutInMdat: return "cut in mdat";
    case Damage::zeroedRegion: return "zeroed region";
    }
    return {};
}

std::vector<std::pair<std::uint64_t, std::uint64_t>> damage(const std::string &clip, const std::string &damaged,
                                                           Damage kind)
{
    std::vector<std::uint8_t> bytes = readFile(clip);
    std::uint64_t mdatStart = 0, mdatEnd = 0;
    for (const IsoBox::Header &header : IsoBox::topLevel(FileSource(clip)))
        if (header.type == fourcc("mdat"))
            mdatStart = header.payloadOffset(), mdatEnd = header.end();
    const std::uint64_t size = bytes.size();
    std::vector<std::pair<std::uint64_t, std::uint64_t>> lost;
    switch (kind) {
    case Damage::moovMissing: // the camera never wrote its index
        bytes.resize(mdatEnd);
        lost = {{mdatEnd, size}};
        break;
    case Damage::cutInMdat: { // the card was pulled while recording
        const std::uint64_t cut = mdatStart + (mdatEnd - mdatStart) * 6 / 10;
        bytes.resize(cut);
        lost = {{cut, size}};
        break;
    }
    case Damage::zeroedRegion: { // blocks lost in the middle, and the index never written
        const std::uint64_t from = (mdatStart + (mdatEnd - mdatStart) * 4 / 10) & ~std::uint64_t(4095);
        const std::uint64_t to = std::min(from + 8192, mdatEnd);
        std::fill(bytes.begin() + std::ptrdiff_t(from), bytes.begin() + std::ptrdiff_t(to), 0);
        bytes.resize(mdatEnd);
        lost = {{from, to}, {mdatEnd, size}};
        break;
    }
    }
    writeFile(damaged, bytes);
    return lost;
}

std::vector<std::uint8_t> readFile(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

void writeFile(const std::string &path, const std::vector<std::uint8_t> &bytes)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char *>(bytes.data()), std::streamsize(bytes.size()));
}

std::string temporaryFolder()
{
    const char *base = std::getenv("TMPDIR");
    std::string pattern = std::string(base && *base ? base : "/tmp") + "/sorvi-repair-XXXXXX";
    if (!mkdtemp(pattern.data()))
        throw std::runtime_error("cannot make a temporary folder");
    return pattern;
}

} // namespace RepairClips
