#include "ByteKit/MappedFile.h"
#include "MediaKit/JpegDecoder.h"
#include "MediaKit/RAWPreview.h"
#include "TestFiles.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <gtest/gtest.h>
#include <turbojpeg.h>

#include <algorithm>

using RAWPreview::Candidate;
using Bytes = std::vector<std::uint8_t>;

namespace {

void append(Bytes &to, const Bytes &bytes)
{
    to.insert(to.end(), bytes.begin(), bytes.end());
}

// A real baseline JPEG of a smooth gradient, encoded by TurboJPEG.
Bytes encoded(int width, int height)
{
    std::vector<std::uint8_t> rgb(std::size_t(width) * height * 3);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            std::uint8_t *p = &rgb[(std::size_t(y) * width + x) * 3];
            p[0] = std::uint8_t(x * 255 / width), p[1] = std::uint8_t(y * 255 / height), p[2] = std::uint8_t(x + y);
        }
    tjhandle handle = tjInitCompress();
    unsigned char *out = nullptr;
    unsigned long size = 0;
    tjCompress2(handle, rgb.data(), width, 0, height, TJPF_RGB, &out, &size, TJSAMP_420, 85, 0);
    Bytes result(out, out + size);
    tjFree(out);
    tjDestroy(handle);
    return result;
}

// One marker segment: 0xFF, the marker, the big-endian length and the payload.
Bytes segment(std::uint8_t marker, const Bytes &payload)
{
    const std::size_t length = payload.size() + 2;
    Bytes s{0xFF, marker, std::uint8_t(length >> 8), std::uint8_t(length & 0xFF)};
    s.reserve(length + 2);
    append(s, payload);
    return s;
}

struct Parts {
    bool tables = true;
    std::uint8_t frameMarker = 0xC0;
    int width = 8, height = 8;
    Bytes coded = Bytes(3, 0x5A); ///< the entropy-coded data
    bool eoi = true;
};

// A hand-made JPEG stream whose every byte the test decides: SOI, tables, frame header,
// start of scan, the coded bytes and EOI. Not decodable; only its structure matters.
Bytes handMade(const Parts &parts)
{
    Bytes b{0xFF, 0xD8};
    if (parts.tables)
        append(b, segment(0xDB, Bytes(65, 1)));
    append(b, segment(parts.frameMarker, {8, std::uint8_t(parts.height >> 8), std::uint8_t(parts.height),
                                          std::uint8_t(parts.width >> 8), std::uint8_t(parts.width), 3, 1, 0x22, 0,
                                          2, 0x11, 1, 3, 0x11, 1}));
    if (parts.tables)
        append(b, segment(0xC4, Bytes(20, 0)));
    append(b, segment(0xDA, {3, 1, 0, 2, 0x11, 3, 0x11, 0, 63, 0}));
    append(b, parts.coded);
    if (parts.eoi)
        append(b, {0xFF, 0xD9});
    return b;
}

Bytes junk(std::size_t count)
{
    Bytes bytes(count);
    for (std::size_t i = 0; i < count; ++i)
        bytes[i] = std::uint8_t((i * 131 + 7) % 251); // no 0xFF, so nothing looks like a marker
    return bytes;
}

std::vector<Candidate> whole(const Bytes &bytes, bool cut = false)
{
    return {{0, std::int64_t(bytes.size()), 8, 8, cut}};
}

} // namespace

TEST(RAWPreviewScan, FindsPicturesBetweenContainerBytesLargestFirstEqualAreasInFileOrder)
{
    EXPECT_TRUE(RAWPreview::candidates({}).empty());
    EXPECT_TRUE(RAWPreview::candidates(Bytes{0xFF, 0xD8, 0xFF}).empty());

    const Bytes wide = encoded(64, 32), tall = encoded(32, 64), big = encoded(96, 64);
    Bytes file = junk(100);
    for (const Bytes &part : {wide, junk(50), tall, junk(10), big, junk(30)})
        append(file, part);
    const std::int64_t wideAt = 100, tallAt = wideAt + std::int64_t(wide.size()) + 50;
    const std::int64_t bigAt = tallAt + std::int64_t(tall.size()) + 10;
    EXPECT_EQ(RAWPreview::candidates(file), (std::vector<Candidate>{
                                                {bigAt, bigAt + std::int64_t(big.size()), 96, 64, false},
                                                {wideAt, wideAt + std::int64_t(wide.size()), 64, 32, false},
                                                {tallAt, tallAt + std::int64_t(tall.size()), 32, 64, false}}));

    // Cameras nest an Exif thumbnail in the preview's header; it is found after the
    // preview's SOI, its APP1 header and "Exif\0\0".
    const Bytes thumbnail = encoded(16, 12), preview = encoded(160, 120);
    Bytes exif{'E', 'x', 'i', 'f', 0, 0};
    append(exif, thumbnail);
    Bytes nested = junk(20);
    append(nested, {0xFF, 0xD8});
    append(nested, segment(0xE1, exif));
    nested.insert(nested.end(), preview.begin() + 2, preview.end());
    EXPECT_EQ(RAWPreview::candidates(nested),
              (std::vector<Candidate>{{20, std::int64_t(nested.size()), 160, 120, false},
                                      {32, 32 + std::int64_t(thumbnail.size()), 16, 12, false}}));
}

TEST(RAWPreviewScan, StuffingRestartAndFillBytesNeverEndAPictureButImpossibleMarkersDo)
{
    Parts parts;
    parts.coded = {0x12, 0xFF, 0x00, 0x34, 0xFF, 0xD0, 0x56, 0xFF, 0xD7, 0xFF, 0xFF, 0xFF, 0x00, 0x78};
    const Bytes stuffed = handMade(parts);
    EXPECT_EQ(RAWPreview::candidates(stuffed), whole(stuffed));

    // A progressive picture's tables and scan headers between scans are stepped over whole,
    // even when their contents look like an end marker.
    parts.coded = {0x12};
    append(parts.coded, segment(0xC4, {0xFF, 0xD9, 0, 0}));
    append(parts.coded, segment(0xDA, {1, 1, 0, 0, 63, 0}));
    append(parts.coded, {0x99});
    const Bytes progressive = handMade(parts);
    EXPECT_EQ(RAWPreview::candidates(progressive), whole(progressive));

    // A marker that cannot stand in coded data ends the picture there, and the scan goes
    // on from it: the next picture is found.
    parts.coded = {0x12, 0x34};
    parts.eoi = false;
    Bytes cut = handMade(parts);
    const std::int64_t cutEnd = std::int64_t(cut.size());
    const Bytes next = encoded(24, 24);
    append(cut, next);
    EXPECT_EQ(RAWPreview::candidates(cut), (std::vector<Candidate>{
                                               {cutEnd, cutEnd + std::int64_t(next.size()), 24, 24, false},
                                               {0, cutEnd, 8, 8, true}}));
}

TEST(RAWPreviewScan, CutPicturesNeedTablesAndOnlyUsableFramesWithSoundLengthsCount)
{
    Parts parts;
    parts.eoi = false;
    const Bytes withTables = handMade(parts);
    EXPECT_EQ(RAWPreview::candidates(withTables), whole(withTables, true));
    parts.tables = false;
    EXPECT_TRUE(RAWPreview::candidates(handMade(parts)).empty());

    // A whole picture inside an application segment of a cut picture's coded data lies in
    // the skipped range: it is never searched.
    parts.tables = true;
    Bytes payload{'X'};
    append(payload, encoded(32, 32));
    parts.coded = {0x12};
    append(parts.coded, segment(0xE5, payload));
    append(parts.coded, {0x55, 0x66});
    const Bytes hiding = handMade(parts);
    EXPECT_EQ(RAWPreview::candidates(hiding), whole(hiding, true));

    // Only frame types TurboJPEG decodes, with a size and sound segment lengths, count.
    for (std::uint8_t marker : {0xC0, 0xC1, 0xC2, 0xC3, 0xC5, 0xC7, 0xC9, 0xCB, 0xCF}) {
        Parts framed;
        framed.frameMarker = marker;
        EXPECT_EQ(RAWPreview::candidates(handMade(framed)).size(), marker <= 0xC2 ? 1u : 0u) << int(marker);
    }
    Parts zeroWidth;
    zeroWidth.width = 0;
    EXPECT_TRUE(RAWPreview::candidates(handMade(zeroWidth)).empty());
    // The quantisation table's length running past the data, or below 2.
    for (const std::pair<std::uint8_t, std::uint8_t> length : {std::pair{0xFF, 0x43}, std::pair{0, 1}}) {
        Bytes bad = handMade({});
        bad[4] = length.first, bad[5] = length.second;
        EXPECT_TRUE(RAWPreview::candidates(bad).empty()) << int(length.first) << ' ' << int(length.second);
    }
}

TEST(JpegDecoder, ChoosesTheSmallestDctScaleThatIsStillLargeEnough)
{
    using JpegDecoder::Size;
    const std::tuple<Size, int, Size> cases[] = {{{6000, 4000}, 1024, {1500, 1000}}, {{6000, 4000}, 256, {750, 500}},
                                                 {{6000, 4000}, 2560, {3000, 2000}}, {{6000, 4000}, 9000, {6000, 4000}},
                                                 {{100, 80}, 1024, {100, 80}}};
    for (const auto &[stored, longSide, scaled] : cases)
        EXPECT_EQ(JpegDecoder::scaledSize(stored, longSide), scaled) << longSide;

    const auto bitmap = JpegDecoder::decode(encoded(320, 200), 80);
    ASSERT_TRUE(bitmap.has_value());
    EXPECT_EQ(bitmap->width, 80);
    EXPECT_EQ(bitmap->height, 50);
    EXPECT_EQ(bitmap->pixels.size(), bitmap->stride * 50);
    EXPECT_FALSE(JpegDecoder::decode(junk(300), 80).has_value());
}

// The scan against the stored pictures exiftool lists for every RAW file of the corpus:
// files without a stored JPEG give none; a cut picture reaches to the end of its file.
TEST(CorpusPreviews, EveryStoredJpegIsACandidateAtItsOffsetWithItsSize)
{
    SKIP_WITHOUT_CORPUS();
    int raws = 0;
    for (const char *folder : {"raw", "pairs", "shoot"}) {
        const QString base = TestFiles::corpus() + '/' + folder;
        for (const QJsonValue &entry : QJsonDocument::fromJson(TestFiles::read(base + "/truth.json"))["files"].toArray()) {
            const QString path = base + '/' + entry["file"].toString();
            // Camera RAW files as exiftool tells them (image/x-…), whatever their name says.
            if (!entry["mime_type"].toString().startsWith("image/x-"))
                continue;
            ++raws;
            SCOPED_TRACE(path.toStdString());
            const std::vector<Candidate> found = RAWPreview::candidates(MappedFile(path.toStdString()).bytes());
            const QJsonArray embedded = entry["embedded_images"].toArray();
            if (embedded.isEmpty()) {
                EXPECT_TRUE(found.empty());
            }
            for (const QJsonValue &image : embedded) {
                const qint64 offset = image["offset"].toInteger();
                const bool whole = image["has_eoi"].toBool();
                const auto match =
                    std::find_if(found.begin(), found.end(), [&](const Candidate &c) { return c.start == offset; });
                ASSERT_NE(match, found.end()) << image["tag"].toString().toStdString();
                const qint64 end = whole ? offset + image["jpeg_stream_length"].toInteger() : QFileInfo(path).size();
                EXPECT_EQ(*match, (Candidate{offset, end, image["width"].toInt(), image["height"].toInt(), !whole}));
            }
            EXPECT_TRUE(std::is_sorted(found.begin(), found.end(),
                                       [](const Candidate &a, const Candidate &b) { return a.area() > b.area(); }));
        }
    }
    EXPECT_GE(raws, 20);
}
