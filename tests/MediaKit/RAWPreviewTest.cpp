#include "JpegBytes.h"

#include "MediaKit/JpegDecoder.h"
#include "MediaKit/RAWPreview.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace JpegBytes;
using RAWPreview::Candidate;

namespace {

std::vector<Candidate> scan(const Bytes &bytes)
{
    return RAWPreview::candidates(bytes);
}

Bytes junk(std::size_t count, std::uint8_t seed = 7)
{
    Bytes bytes(count);
    for (std::size_t i = 0; i < count; ++i)
        bytes[i] = std::uint8_t((i * 131 + seed) % 251); // no 0xFF, so nothing looks like a marker
    return bytes;
}

} // namespace

TEST(RAWPreviewScan, FindsPicturesBetweenContainerBytesLargestFirstEqualAreasInFileOrder)
{
    EXPECT_TRUE(scan({}).empty());
    EXPECT_TRUE(scan({0xFF, 0xD8, 0xFF}).empty());

    const Bytes wide = encoded(64, 32), tall = encoded(32, 64), big = encoded(96, 64);
    Bytes file = junk(100);
    append(file, wide);
    append(file, junk(50));
    append(file, tall);
    append(file, junk(10));
    append(file, big);
    append(file, junk(30));

    const std::int64_t wideAt = 100, tallAt = wideAt + std::int64_t(wide.size()) + 50;
    const std::int64_t bigAt = tallAt + std::int64_t(tall.size()) + 10;
    const std::vector<Candidate> expected{
        {bigAt, bigAt + std::int64_t(big.size()), 96, 64, false},
        {wideAt, wideAt + std::int64_t(wide.size()), 64, 32, false},
        {tallAt, tallAt + std::int64_t(tall.size()), 32, 64, false},
    };
    EXPECT_EQ(scan(file), expected);
}

TEST(RAWPreviewScan, FindsAThumbnailNestedInThePreviewsHeader)
{
    const Bytes thumbnail = encoded(16, 12);
    const Bytes preview = withNested(encoded(160, 120), thumbnail);
    Bytes file = junk(20);
    append(file, preview);

    const std::vector<Candidate> found = scan(file);
    ASSERT_EQ(found.size(), 2u);
    EXPECT_EQ(found[0], (Candidate{20, 20 + std::int64_t(preview.size()), 160, 120, false}));
    // The thumbnail sits after the preview's SOI, its APP1 header and "Exif\0\0".
    EXPECT_EQ(found[1], (Candidate{20 + 2 + 4 + 6, 20 + 12 + std::int64_t(thumbnail.size()), 16, 12, false}));
}

TEST(RAWPreviewScan, StuffingRestartAndFillBytesNeverEndAPictureButImpossibleMarkersDo)
{
    Parts parts;
    parts.coded = {0x12, 0xFF, 0x00, 0x34, 0xFF, 0xD0, 0x56, 0xFF, 0xD7, 0xFF, 0xFF, 0xFF, 0x00, 0x78};
    const Bytes whole = handMade(parts);
    ASSERT_EQ(scan(whole), (std::vector<Candidate>{{0, std::int64_t(whole.size()), 8, 8, false}}));

    // A progressive picture's tables and scan headers between scans are stepped over whole,
    // even when their contents look like an end marker.
    parts.coded = {0x12};
    append(parts.coded, segment(0xC4, {0xFF, 0xD9, 0, 0}));
    append(parts.coded, segment(0xDA, {1, 1, 0, 0, 63, 0}));
    append(parts.coded, {0x99});
    const Bytes progressive = handMade(parts);
    EXPECT_EQ(scan(progressive), (std::vector<Candidate>{{0, std::int64_t(progressive.size()), 8, 8, false}}));

    // A marker that cannot stand in coded data ends the picture there, and the scan goes
    // on from it: the next picture is found.
    parts.coded = {0x12, 0x34};
    parts.eoi = false;
    Bytes cut = handMade(parts);
    const std::int64_t cutEnd = std::int64_t(cut.size());
    const Bytes next = encoded(24, 24);
    append(cut, next);
    EXPECT_EQ(scan(cut), (std::vector<Candidate>{{cutEnd, cutEnd + std::int64_t(next.size()), 24, 24, false},
                                                 {0, cutEnd, 8, 8, true}}));
}

TEST(RAWPreviewScan, CutPicturesNeedTablesAndHideWhatFollowsTheirScan)
{
    Parts parts;
    parts.eoi = false;
    Bytes withTables = handMade(parts);
    EXPECT_EQ(scan(withTables), (std::vector<Candidate>{{0, std::int64_t(withTables.size()), 8, 8, true}}));

    parts.tables = false;
    EXPECT_TRUE(scan(handMade(parts)).empty());

    // A whole picture inside an application segment of a cut picture's coded data lies in
    // the skipped range: it is never searched.
    parts.tables = true;
    Bytes payload{'X'};
    append(payload, encoded(32, 32));
    parts.coded = {0x12};
    append(parts.coded, segment(0xE5, payload));
    append(parts.coded, {0x55, 0x66});
    const Bytes hiding = handMade(parts);
    EXPECT_EQ(scan(hiding), (std::vector<Candidate>{{0, std::int64_t(hiding.size()), 8, 8, true}}));
}

TEST(RAWPreviewScan, UnusedFrameTypesZeroSizesAndBrokenHeadersAreNotCandidates)
{
    for (std::uint8_t marker : {0xC3, 0xC5, 0xC7, 0xC9, 0xCB, 0xCF}) {
        Parts parts;
        parts.frameMarker = marker;
        EXPECT_TRUE(scan(handMade(parts)).empty()) << int(marker);
    }
    for (std::uint8_t marker : {0xC0, 0xC1, 0xC2}) {
        Parts parts;
        parts.frameMarker = marker;
        EXPECT_EQ(scan(handMade(parts)).size(), 1u) << int(marker);
    }
    Parts zeroWidth;
    zeroWidth.width = 0;
    EXPECT_TRUE(scan(handMade(zeroWidth)).empty());

    // A segment length running past the data, or a length below 2.
    Bytes bad = handMade({});
    bad[4] = 0xFF; // the quantisation table's length now far exceeds the file
    EXPECT_TRUE(scan(bad).empty());
    bad = handMade({});
    bad[4] = 0;
    bad[5] = 1;
    EXPECT_TRUE(scan(bad).empty());
}

TEST(RAWPreviewExtract, TakesTheLargestThatDecodesAndClosesACutPicture)
{
    const Bytes small = encoded(40, 30), large = encoded(400, 300);
    Bytes file = junk(64);
    append(file, small);
    append(file, junk(64));
    append(file, large);

    RAWPreview::Found found = RAWPreview::extract(file, false);
    EXPECT_EQ(found.jpeg, large);
    EXPECT_EQ(found.width, 400);
    EXPECT_FALSE(found.incomplete);
    EXPECT_FALSE(found.keptDetails);

    // Damage the large one's coded data so it no longer decodes: the small one is next.
    Bytes damaged = file;
    const std::size_t largeAt = 64 + small.size() + 64;
    Parts fakeParts;
    fakeParts.width = 800;
    fakeParts.height = 600;
    const Bytes fake = handMade(fakeParts);
    damaged.insert(damaged.begin() + std::ptrdiff_t(largeAt), fake.begin(), fake.end());
    found = RAWPreview::extract(damaged, false);
    EXPECT_EQ(found.width, 400); // the hand-made 800×600 does not decode; the real 400×300 does

    // A picture cut in its coded data still decodes once closed with an EOI.
    Bytes cut(large.begin(), large.begin() + std::ptrdiff_t(large.size() * 2 / 3));
    found = RAWPreview::extract(cut, false);
    EXPECT_TRUE(found.incomplete);
    EXPECT_EQ(found.width, 400);
    ASSERT_EQ(found.jpeg.size(), cut.size() + 2);
    EXPECT_TRUE(std::equal(cut.begin(), cut.end(), found.jpeg.begin()));
    EXPECT_EQ(found.jpeg[found.jpeg.size() - 2], 0xFF);
    EXPECT_EQ(found.jpeg.back(), 0xD9);
    EXPECT_TRUE(JpegDecoder::decode(found.jpeg, 400).has_value());

    EXPECT_THROW(RAWPreview::extract(junk(5000), false), RAWPreview::Unsupported);
    try {
        RAWPreview::extract(handMade({}), true);
        FAIL() << "a picture that does not decode was accepted";
    } catch (const RAWPreview::Unsupported &error) {
        EXPECT_STREQ(error.what(), "No usable picture was found inside this RAW file. The preview "
                                   "the camera stores in it is missing or damaged too.");
    }
}

TEST(JpegDecoderScaling, ChoosesTheSmallestDctScaleThatIsStillLargeEnough)
{
    using JpegDecoder::Size;
    EXPECT_EQ(JpegDecoder::scaledSize({6000, 4000}, 1024), (Size{1500, 1000}));
    EXPECT_EQ(JpegDecoder::scaledSize({6000, 4000}, 256), (Size{750, 500}));
    EXPECT_EQ(JpegDecoder::scaledSize({6000, 4000}, 2560), (Size{3000, 2000}));
    EXPECT_EQ(JpegDecoder::scaledSize({6000, 4000}, 9000), (Size{6000, 4000}));
    EXPECT_EQ(JpegDecoder::scaledSize({100, 80}, 1024), (Size{100, 80}));

    const Bytes jpeg = encoded(320, 200);
    const auto bitmap = JpegDecoder::decode(jpeg, 80);
    ASSERT_TRUE(bitmap.has_value());
    EXPECT_EQ(bitmap->width, 80);
    EXPECT_EQ(bitmap->height, 50);
    EXPECT_EQ(bitmap->pixels.size(), bitmap->stride * 50);
    EXPECT_FALSE(JpegDecoder::decode(junk(300), 80).has_value());
}

TEST(JpegDecoderOrientation, ReadsIfd0OrientationInEitherByteOrder)
{
    auto exifWithOrientation = [](bool bigEndian, int orientation) {
        Bytes tiff = bigEndian ? Bytes{'M', 'M', 0, 42, 0, 0, 0, 8, 0, 2}
                               : Bytes{'I', 'I', 42, 0, 8, 0, 0, 0, 2, 0};
        auto entry = [&](std::uint16_t tag, std::uint16_t value) {
            Bytes e = bigEndian ? Bytes{std::uint8_t(tag >> 8), std::uint8_t(tag), 0, 3, 0, 0, 0, 1,
                                        std::uint8_t(value >> 8), std::uint8_t(value), 0, 0}
                                : Bytes{std::uint8_t(tag), std::uint8_t(tag >> 8), 3, 0, 1, 0, 0, 0,
                                        std::uint8_t(value), std::uint8_t(value >> 8), 0, 0};
            append(tiff, e);
        };
        entry(0x0110, 77);
        entry(0x0112, std::uint16_t(orientation));
        append(tiff, {0, 0, 0, 0});
        Bytes payload{'E', 'x', 'i', 'f', 0, 0};
        append(payload, tiff);
        const Bytes jpeg = encoded(16, 16);
        Bytes result{0xFF, 0xD8};
        append(result, segment(0xE0, Bytes(14, 0))); // a JFIF segment comes first
        append(result, segment(0xE1, payload));
        result.insert(result.end(), jpeg.begin() + 2, jpeg.end());
        return result;
    };
    EXPECT_EQ(JpegDecoder::exifOrientation(exifWithOrientation(true, 6)), 6);
    EXPECT_EQ(JpegDecoder::exifOrientation(exifWithOrientation(false, 8)), 8);
    EXPECT_EQ(JpegDecoder::exifOrientation(exifWithOrientation(false, 9)), 1);
    EXPECT_EQ(JpegDecoder::exifOrientation(encoded(16, 16)), 1);
    EXPECT_EQ(JpegDecoder::exifOrientation(junk(40)), 1);
}
