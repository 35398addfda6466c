// The scan against the stored pictures exiftool lists for every RAW file of the corpus.
#include "TestFiles.h"

#include "ByteKit/MappedFile.h"
#include "MediaKit/JpegDecoder.h"
#include "MediaKit/RAWPreview.h"

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#include <exiv2/exiv2.hpp>
#pragma GCC diagnostic pop

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

#include <algorithm>

using RAWPreview::Candidate;

namespace {

struct RawFile {
    QString path;
    QJsonArray embedded;
};

bool isRaw(const QString &path)
{
    const std::string suffix = QFileInfo(path).suffix().toLower().toStdString();
    const auto &list = RAWPreview::extensions();
    return std::find(list.begin(), list.end(), suffix) != list.end();
}

QList<RawFile> corpusRaws()
{
    QList<RawFile> files;
    for (const char *folder : {"raw", "pairs", "shoot"}) {
        const QString base = TestFiles::corpus() + '/' + folder;
        const QJsonObject truth = QJsonDocument::fromJson(TestFiles::read(base + "/truth.json")).object();
        for (const QJsonValue &entry : truth["files"].toArray()) {
            const QJsonObject file = entry.toObject();
            const QString path = base + '/' + file["file"].toString();
            if (isRaw(path))
                files.append({path, file["embedded_images"].toArray()});
        }
    }
    return files;
}

std::vector<Candidate> candidatesOf(const QString &path)
{
    const MappedFile file(path.toStdString());
    return RAWPreview::candidates(file.bytes());
}

QString describe(const std::vector<Candidate> &found)
{
    QStringList parts;
    for (const Candidate &c : found)
        parts << QString("%1..%2 %3x%4%5").arg(c.start).arg(c.end).arg(c.width).arg(c.height)
                     .arg(c.incomplete ? " cut" : "");
    return parts.join("; ");
}

} // namespace

TEST(CorpusPreviews, EveryStoredJpegIsACandidateAtItsOffsetWithItsSize)
{
    SKIP_WITHOUT_CORPUS();
    const QList<RawFile> raws = corpusRaws();
    ASSERT_GE(raws.size(), 20);
    for (const RawFile &raw : raws) {
        const std::vector<Candidate> found = candidatesOf(raw.path);
        SCOPED_TRACE(raw.path.toStdString() + ": " + describe(found).toStdString());
        for (const QJsonValue &value : raw.embedded) {
            const QJsonObject image = value.toObject();
            const qint64 offset = image["offset"].toInteger();
            const bool whole = image["has_eoi"].toBool();
            Candidate expected{offset, whole ? offset + image["jpeg_stream_length"].toInteger() : 0,
                               image["width"].toInt(), image["height"].toInt(), !whole};
            const auto match = std::find_if(found.begin(), found.end(),
                                            [&](const Candidate &c) { return c.start == offset; });
            ASSERT_NE(match, found.end()) << image["tag"].toString().toStdString();
            EXPECT_EQ(match->width, expected.width);
            EXPECT_EQ(match->height, expected.height);
            EXPECT_EQ(match->incomplete, expected.incomplete);
            if (whole) {
                EXPECT_EQ(match->end, expected.end);
            }
        }
        EXPECT_TRUE(std::is_sorted(found.begin(), found.end(),
                                   [](const Candidate &a, const Candidate &b) { return a.area() > b.area(); }));
    }
}

TEST(CorpusPreviews, SpecialFiles)
{
    SKIP_WITHOUT_CORPUS();
    const QString raw = TestFiles::corpus() + "/raw/";
    // No stored JPEG at all.
    EXPECT_TRUE(candidatesOf(raw + "leaf_credo40_no_jpeg.iiq").empty());
    EXPECT_TRUE(candidatesOf(raw + "kodak_dc50_no_jpeg.kdc").empty());

    // The picture cut at 55 % reaches to the end of the file; its thumbnail is intact.
    const QString truncated = raw + "panasonic_lx3_truncated_preview.rw2";
    const std::vector<Candidate> cut = candidatesOf(truncated);
    ASSERT_EQ(cut.size(), 2u);
    EXPECT_EQ(cut[0], (Candidate{582, QFileInfo(truncated).size(), 3648, 2736, true}));
    EXPECT_EQ(cut[1], (Candidate{11018, 11018 + 8261, 160, 107, false}));

    // The previews beyond 12 MiB are found by a scan of the whole file.
    const std::vector<Candidate> late = candidatesOf(raw + "canon_eos350d_previews_after_12MiB.dng");
    ASSERT_GE(late.size(), 2u);
    EXPECT_EQ(late[0].start, 13141680);
    EXPECT_EQ(late[1].start, 13017470);
}

TEST(CorpusPreviews, ExtractKeepsDetailsWithoutReencoding)
{
    SKIP_WITHOUT_CORPUS();
    const MappedFile cr2((TestFiles::corpus() + "/raw/canon_eos350d.cr2").toStdString());
    const RAWPreview::Found found = RAWPreview::extract(cr2.bytes(), true);
    EXPECT_EQ(found.width, 3456);
    EXPECT_EQ(found.height, 2304);
    EXPECT_FALSE(found.incomplete);
    ASSERT_TRUE(found.keptDetails);

    // The compressed picture is byte for byte the stored one: from its frame header to its end.
    const std::vector<Candidate> stored = RAWPreview::candidates(cr2.bytes());
    const auto original = cr2.bytes().subspan(std::size_t(stored[0].start),
                                              std::size_t(stored[0].end - stored[0].start));
    static constexpr std::uint8_t frameMarker[] = {0xFF, 0xC0};
    const auto frame = std::search(original.begin(), original.end(), std::begin(frameMarker), std::end(frameMarker));
    const std::size_t tail = std::size_t(original.end() - frame);
    ASSERT_GT(found.jpeg.size(), tail);
    EXPECT_TRUE(std::equal(frame, original.end(), found.jpeg.end() - std::ptrdiff_t(tail)));

    Exiv2::Image::AutoPtr image = Exiv2::ImageFactory::open(found.jpeg.data(), long(found.jpeg.size()));
    image->readMetadata();
    const Exiv2::ExifData &exif = image->exifData();
    EXPECT_EQ(exif.findKey(Exiv2::ExifKey("Exif.Image.Model"))->toString(), "Canon EOS 350D DIGITAL");
    EXPECT_EQ(exif.findKey(Exiv2::ExifKey("Exif.Photo.SubSecTimeOriginal"))->toString(), "35");
    EXPECT_EQ(exif.findKey(Exiv2::ExifKey("Exif.Photo.PixelXDimension"))->toLong(), 3456);
    EXPECT_TRUE(JpegDecoder::decode(found.jpeg, 64).has_value());

    // Formats Exiv2 cannot read still give their picture, only without the details.
    const MappedFile cr3((TestFiles::corpus() + "/raw/canon_eosm50.cr3").toStdString());
    const RAWPreview::Found fromCr3 = RAWPreview::extract(cr3.bytes(), true);
    EXPECT_EQ(fromCr3.width, 6000);
    EXPECT_FALSE(fromCr3.keptDetails);

    const MappedFile iiq((TestFiles::corpus() + "/raw/leaf_credo40_no_jpeg.iiq").toStdString());
    EXPECT_THROW(RAWPreview::extract(iiq.bytes(), false), RAWPreview::Unsupported);
}

TEST(CorpusPreviews, DiagnoseOpensGenuineFilesOnly)
{
    SKIP_WITHOUT_CORPUS();
    auto diagnosis = [](const QString &relative) {
        const MappedFile file((TestFiles::corpus() + relative).toStdString());
        return RAWPreview::diagnose(file.bytes());
    };
    using RAWPreview::Diagnosis;
    EXPECT_EQ(diagnosis("/raw/kodak_dc50_no_jpeg.kdc"), Diagnosis::opens); // genuine sensor data
    EXPECT_EQ(diagnosis("/pairs/IMG_0003.JPG"), Diagnosis::opens);
    EXPECT_EQ(diagnosis("/raw/nikon_d70s_capture_nx_is_jpeg.nef"), Diagnosis::opens);
    EXPECT_EQ(diagnosis("/raw/canon_eos350d.cr2"), Diagnosis::damaged); // sensor data cut to a stub
    EXPECT_EQ(diagnosis("/shoot/notes.txt"), Diagnosis::damaged);
}
