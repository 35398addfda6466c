#include "RepairClips.h"

#include "ByteKit/FileSource.h"
#include "ByteKit/MemorySource.h"
#include "MediaKit/repair/ClipCompare.h"
#include "MediaKit/repair/ClipJoin.h"
#include "MediaKit/repair/JpegHeader.h"
#include "MediaKit/JpegDecoder.h"
#include "MediaKit/repair/ClipRepair.h"
#include "MediaKit/repair/MovieWriter.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <unistd.h>

using IsoBox::fourcc;
using namespace RepairClips;

namespace {

class ClipRepairTest : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        if (!haveFfmpeg())
            return;
        folder = temporaryFolder();
        for (const Profile &profile : profiles())
            clips[profile.name] = make(profile, folder);
    }
    static void TearDownTestSuite()
    {
        if (!folder.empty())
            std::filesystem::remove_all(folder);
    }
    void SetUp() override
    {
        if (!haveFfmpeg())
            GTEST_SKIP() << "ffmpeg and ffprobe are not installed; the repair tests make their clips with them";
    }
    static std::string reference(const std::string &profile)
    {
        std::string clip = clips.at(profile);
        return clip.insert(clip.rfind('.'), "-reference");
    }
    static inline std::string folder;
    static inline std::map<std::string, std::string> clips;
};

std::uint64_t frameCount(const std::string &path, std::size_t track)
{
    return Movie::read(FileSource(path)).tracks.at(track).frameCount();
}

} // namespace

TEST_F(ClipRepairTest, BoxesAreCarriedByteForByteAndSizesAreNeverTrusted)
{
    const std::string clip = clips.at("h264-aac");
    const std::vector<std::uint8_t> bytes = readFile(clip);
    const Movie::Movie movie = Movie::read(FileSource(clip));
    ASSERT_EQ(movie.tracks.size(), 3u); // picture, sound, timecode
    EXPECT_EQ(movie.tracks[0].codec, fourcc("avc1"));
    EXPECT_EQ(movie.tracks[2].codec, fourcc("tmcd"));
    EXPECT_EQ(movie.tracks[0].samples.size(), 50u);

    // Every box, our index included, is written back exactly as read.
    const auto top = IsoBox::topLevel(FileSource(clip));
    const IsoBox::Header &moovHeader = *std::find_if(top.begin(), top.end(), [](auto &h) { return h.type == fourcc("moov"); });
    std::vector<std::uint8_t> written;
    IsoBox::write(movie.moov, written);
    EXPECT_TRUE(std::equal(written.begin(), written.end(), bytes.begin() + std::ptrdiff_t(moovHeader.offset)));

    // An unknown box with a 64-bit size, inside a container, comes back the same.
    IsoBox::Box odd = IsoBox::leaf(fourcc("xyzw"), {1, 2, 3});
    odd.wideHeader = true;
    IsoBox::Box udta = IsoBox::leaf(fourcc("udta"), {});
    IsoBox::Box moov{fourcc("moov"), false, {}, {odd, udta}, true};
    std::vector<std::uint8_t> once, twice;
    IsoBox::write(moov, once);
    EXPECT_EQ(once.size(), 8u + 19u + 8u);
    IsoBox::write(IsoBox::parse(once).at(0), twice);
    EXPECT_EQ(once, twice);

    // A box claiming more than its parent, a table claiming more entries than it holds.
    std::vector<std::uint8_t> lying = once;
    IsoBox::set32(&lying[8 + 4 + 8], 1000); // the 64-bit size of the unknown box
    EXPECT_THROW(IsoBox::parse(lying), IsoBox::Malformed);
    IsoBox::Box tampered = movie.moov;
    IsoBox::Box *stsz = tampered.children[movie.tracks[0].trakIndex].find(
        {fourcc("mdia"), fourcc("minf"), fourcc("stbl"), fourcc("stsz")});
    IsoBox::set32(&stsz->payload[8], 0x7fffffff);
    EXPECT_THROW(Movie::tracksOf(tampered, bytes.size()), IsoBox::Malformed);
    // Chunk offsets past the end of the file: those samples are counted, not read.
    const std::vector<Movie::Track> short_ = Movie::tracksOf(movie.moov, bytes.size() / 2);
    EXPECT_GT(short_[0].samplesBeyondFile, 0u);
    EXPECT_LT(short_[0].samples.size(), 50u);
}

TEST_F(ClipRepairTest, IndexFirstAndFragmentedClipsReadTheSameSamples)
{
    const std::string clip = clips.at("h264-aac");
    const std::string first = folder + "/first.mp4", fragmented = folder + "/fragmented.mp4";
    ASSERT_TRUE(run("ffmpeg -nostdin -v error -y -i " + clip + " -map 0:v -map 0:a -c copy -movflags +faststart " + first));
    ASSERT_TRUE(run("ffmpeg -nostdin -v error -y -i " + clip + " -map 0:v -map 0:a -c copy -movflags frag_keyframe+empty_moov " + fragmented));
    const Movie::Movie fragments = Movie::read(FileSource(fragmented));
    EXPECT_TRUE(fragments.fragmented);
    for (const std::string &other : {first, fragmented}) {
        const auto matches = ClipCompare::compare(clip, other);
        for (std::size_t t = 0; t < 2; ++t) {
            EXPECT_EQ(matches[t].recovered, matches[t].expected) << other << " track " << t;
            EXPECT_EQ(matches[t].extra, 0u);
        }
    }
    // The writer makes a playable file from a fragmented one, and 64-bit offsets only past 4 GB.
    EXPECT_FALSE(MovieWriter::needsWideOffsets(0xffffffffu));
    EXPECT_TRUE(MovieWriter::needsWideOffsets(0x100000000u));
}

TEST_F(ClipRepairTest, EveryProfileAndDamageRecoversEveryTrackBitExact)
{
    for (const Profile &profile : profiles()) {
        const std::string clip = clips.at(profile.name);
        for (Damage kind : damages()) {
            SCOPED_TRACE(profile.name + ", " + name(kind));
            const std::string damaged = folder + "/" + profile.name + "-damaged" + profile.extension;
            std::filesystem::remove(damaged);
            const auto lost = damage(clip, damaged, kind);
            const std::vector<std::uint8_t> before = readFile(damaged);
            const ClipRepair::Report report = ClipRepair::repair(damaged, reference(profile.name), {});
            EXPECT_EQ(readFile(damaged), before) << "the damaged clip was written";
            EXPECT_EQ(report.output, folder + "/" + profile.name + "-damaged-repaired" + profile.extension);
            const auto matches = ClipCompare::compare(clip, report.output, lost);
            ASSERT_EQ(matches.size(), report.tracks.size());
            for (std::size_t t = 0; t < matches.size(); ++t) {
                SCOPED_TRACE(matches[t].handler + " " + matches[t].codec);
                EXPECT_GE(matches[t].share(), 0.99) << matches[t].recovered << " of " << matches[t].expected;
                // After lost pictures too: the reordering is found again from the sync pictures.
                EXPECT_GE(matches[t].timed, matches[t].recovered * 9 / 10);
                if (kind != Damage::zeroedRegion) { // there, frames half zeroed may still decode
                    EXPECT_EQ(matches[t].extra, 0u);
                }
                EXPECT_EQ(report.tracks[t].samples, frameCount(report.output, t));
            }
            if (kind == Damage::cutInMdat) {
                std::string errors;
                FILE *pipe = popen(("ffmpeg -nostdin -v error -i '" + report.output + "' -f null - 2>&1").c_str(), "r");
                for (char line[256]; fgets(line, sizeof line, pipe);)
                    errors += line;
                pclose(pipe);
                EXPECT_EQ(errors, "") << "ffmpeg cannot play the repaired clip";
            }
            std::filesystem::remove(report.output);
        }
    }
}

TEST_F(ClipRepairTest, ClearErrorsAndTheDamagedClipIsNeverWritten)
{
    const std::string damaged = folder + "/errors.mp4";
    damage(clips.at("h264-aac"), damaged, Damage::cutInMdat);
    auto kindOf = [&](const std::string &clip, const std::string &ref, const std::string &out) {
        try {
            ClipRepair::repair(clip, ref, out);
        } catch (const ClipRepair::Error &error) {
            return std::pair{error.kind(), std::string(error.what())};
        }
        return std::pair{ClipRepair::Error::Kind::unreadable, std::string("no error")};
    };
    auto [noReference, noReferenceText] = kindOf(damaged, "", "");
    EXPECT_EQ(noReference, ClipRepair::Error::Kind::noReference);
    EXPECT_EQ(noReferenceText.rfind("no reference given", 0), 0u);
    auto [different, differentText] = kindOf(damaged, reference("hevc-aac"), "");
    EXPECT_EQ(different, ClipRepair::Error::Kind::differentCodec) << differentText;
    EXPECT_EQ(differentText.rfind("the reference is from a different codec", 0), 0u);
    const std::string blank = folder + "/blank.mp4";
    writeFile(blank, std::vector<std::uint8_t>(100000, 0));
    auto [nothing, nothingText] = kindOf(blank, reference("h264-aac"), "");
    EXPECT_EQ(nothing, ClipRepair::Error::Kind::nothingRecoverable) << nothingText;
    EXPECT_EQ(nothingText.rfind("nothing recoverable after byte 0", 0), 0u) << nothingText;
    const std::vector<std::uint8_t> before = readFile(damaged);
    auto [over, overText] = kindOf(damaged, reference("h264-aac"), damaged);
    EXPECT_EQ(over, ClipRepair::Error::Kind::cannotWrite) << overText;
    EXPECT_EQ(readFile(damaged), before);
    // The copy made while the clip was walked goes with the failed repairs.
    for (const auto &entry : std::filesystem::directory_iterator(folder)) {
        const std::string name = entry.path().filename().string();
        EXPECT_TRUE(name[0] != '.' && name.find("-repaired") == std::string::npos) << name << " was left behind";
    }

    // Onto another file system (a RAM disk) the system cannot copy between the two, and the
    // repair copies the media data itself.
    if (std::filesystem::is_directory("/dev/shm")) {
        const std::string elsewhere = "/dev/shm/sorvi-repaired-" + std::to_string(getpid()) + ".mp4";
        const auto lost = damage(clips.at("h264-aac"), damaged, Damage::zeroedRegion);
        ClipRepair::repair(damaged, reference("h264-aac"), elsewhere);
        for (const ClipCompare::TrackMatch &match : ClipCompare::compare(clips.at("h264-aac"), elsewhere, lost))
            EXPECT_GE(match.share(), 0.99) << match.codec;
        std::filesystem::remove(elsewhere);
    }
}

TEST_F(ClipRepairTest, JoinKeepsEveryTrackOneTimecodeAndAlignsTheSeams)
{
    for (const std::string profile : {"h264-aac-gpmd", "h264-pcm"}) {
        SCOPED_TRACE(profile);
        const std::vector<std::string> parts = split(clips.at(profile), 3);
        ASSERT_EQ(parts.size(), 3u);
        const ClipJoin::Report report = ClipJoin::join(parts, {});
        EXPECT_EQ(report.output, parts[0].substr(0, parts[0].rfind('.')) + "-joined" + parts[0].substr(parts[0].rfind('.')));
        for (const ClipCompare::TrackMatch &match : ClipCompare::compare(clips.at(profile), report.output)) {
            SCOPED_TRACE(match.handler + " " + match.codec);
            EXPECT_EQ(match.recovered, match.expected);
            EXPECT_EQ(match.extra, 0u); // one timecode sample, not one per part
            // Only the last sound sample (PCM: chunk) before each seam may change its duration.
            EXPECT_GE(match.timed + (match.codec == "sowt" ? 2 * 2048 : 2), match.recovered);
        }
        ASSERT_EQ(report.seamOffsets.size(), 2u);
        for (double offset : report.seamOffsets)
            EXPECT_LT(offset, 0.04); // within one picture at 25 frames a second
        // The first part's user data is kept.
        const Movie::Movie joined = Movie::read(FileSource(report.output));
        const Movie::Movie first = Movie::read(FileSource(parts[0]));
        ASSERT_NE(joined.moov.child(fourcc("udta")), nullptr);
        EXPECT_EQ(joined.moov.child(fourcc("udta"))->payload, first.moov.child(fourcc("udta"))->payload);
        for (const std::string &part : parts)
            std::filesystem::remove(part);
        std::filesystem::remove(report.output);
    }
    try {
        ClipJoin::join({clips.at("h264-aac"), clips.at("h264-pcm")}, folder + "/mixed.mp4");
        ADD_FAILURE() << "parts of different recordings were joined";
    } catch (const ClipJoin::Error &error) {
        EXPECT_EQ(error.kind(), ClipJoin::Error::Kind::mismatched);
    }
    EXPECT_FALSE(std::filesystem::exists(folder + "/mixed.mp4"));
}

TEST_F(ClipRepairTest, PhotoHeaderIsRebuiltFromAReferenceOfTheSameCamera)
{
    auto photo = [&](const std::string &name, const std::string &pictures, const std::string &size, const std::string &tables) {
        const std::string path = folder + "/" + name + ".jpg";
        EXPECT_TRUE(run("ffmpeg -nostdin -v error -y -f lavfi -i " + pictures + "=size=" + size +
                        " -frames:v 1 -q:v 3 -pix_fmt yuvj420p -huffman " + tables + " " + path));
        return readFile(path);
    };
    const std::vector<std::uint8_t> original = photo("photo", "testsrc", "320x240", "default");
    const std::vector<std::uint8_t> reference = photo("reference", "testsrc2", "320x240", "default");
    const std::vector<std::uint8_t> optimised = photo("optimised", "testsrc2", "320x240", "optimal");
    const std::vector<std::uint8_t> larger = photo("larger", "testsrc2", "640x480", "default");
    const std::optional<JpegHeader::Header> header = JpegHeader::read(original);
    ASSERT_TRUE(header);
    EXPECT_TRUE(header->standardTables);
    EXPECT_EQ(header->width, 320);
    const std::optional<Bitmap> expected = JpegDecoder::decode(original, 320);

    // The start zeroed up to the frame header, and the whole header zeroed.
    for (std::size_t lost : {std::size_t(300), header->end}) {
        SCOPED_TRACE(lost);
        std::vector<std::uint8_t> damaged = original;
        std::fill_n(damaged.begin(), lost, 0);
        const JpegHeader::Result result = JpegHeader::transplant(damaged, reference);
        EXPECT_TRUE(result.decodes);
        EXPECT_EQ(result.dataOffset, header->end);
        EXPECT_EQ(result.foundOwnScanHeader, lost < header->end);
        const std::optional<Bitmap> rebuilt = JpegDecoder::decode(result.jpeg, 320);
        ASSERT_TRUE(rebuilt && expected);
        EXPECT_EQ(rebuilt->pixels, expected->pixels);
        EXPECT_FALSE(result.optimisedTables || result.sizeDiffers);
    }
    std::vector<std::uint8_t> damaged = original;
    std::fill_n(damaged.begin(), 100, 0); // the frame header survives and tells the size
    EXPECT_TRUE(JpegHeader::transplant(damaged, optimised).optimisedTables);
    const JpegHeader::Result wrongSize = JpegHeader::transplant(damaged, larger);
    EXPECT_TRUE(wrongSize.sizeDiffers);
    EXPECT_FALSE(wrongSize.warnings.empty());
    EXPECT_THROW(JpegHeader::transplant(std::vector<std::uint8_t>(5000, 0), reference), JpegHeader::Error);

    // Through the file: written beside the photo, which is left as it was.
    const std::string damagedPath = folder + "/damaged.jpg";
    writeFile(damagedPath, damaged);
    std::string written;
    JpegHeader::repair(damagedPath, folder + "/reference.jpg", {}, written);
    EXPECT_EQ(written, folder + "/damaged-repaired.jpg");
    EXPECT_EQ(readFile(damagedPath), damaged);
    EXPECT_EQ(JpegDecoder::decode(readFile(written), 320)->pixels, expected->pixels);
}
