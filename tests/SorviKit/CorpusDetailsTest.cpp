#include "SorviKit/checks/Bursts.h"
#include "SorviKit/library/CaptureDetails.h"
#include "SorviKit/library/DetailReader.h"
#include "SorviKit/library/ShotScanner.h"
#include "TestFiles.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSize>
#include <gtest/gtest.h>

// Every photo of the camera corpus read by our metadata reader and compared with what
// exiftool wrote into the corpus's truth files.
namespace {

QJsonObject truthOf(const QString &folder)
{
    QFile file(TestFiles::corpus() + '/' + folder + "/truth.json");
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QJsonDocument::fromJson(file.readAll()).object();
}

std::optional<QString> optionalText(const QJsonValue &value)
{
    return value.isString() ? std::optional<QString>(value.toString()) : std::nullopt;
}

std::optional<double> optionalNumber(const QJsonValue &value)
{
    return value.isDouble() ? std::optional<double>(value.toDouble()) : std::nullopt;
}

// What the reading rules give for exiftool's values of the same file.
Shot expectedDetails(const QJsonObject &truth)
{
    ExifValues exif;
    exif.make = optionalText(truth["make"]);
    exif.model = optionalText(truth["model"]);
    exif.dateTimeOriginal = optionalText(truth["date_time_original"]);
    exif.subSecTimeOriginal = optionalText(truth["sub_sec_time_original"]);
    exif.offsetTimeOriginal = optionalText(truth["offset_time_original"]);
    // The summary is made from the EXIF values only; exiftool also reads maker notes.
    const QJsonObject source = truth["exiftool_tags_used"].toObject();
    const auto fromExif = [&source, &truth](const char *field) {
        const QString tag = source[field].toString();
        const bool exif = tag.startsWith("IFD0:") || tag.startsWith("ExifIFD:");
        return exif ? optionalNumber(truth[field]) : std::nullopt;
    };
    exif.exposureTime = fromExif("exposure_time");
    exif.fNumber = fromExif("f_number");
    if (const auto iso = fromExif("iso"))
        exif.iso = long(*iso);
    exif.focalLengthMm = fromExif("focal_length");
    Shot expected;
    expected.captureDate = CaptureDetails::captureDate(exif);
    expected.camera = CaptureDetails::cameraName(exif);
    expected.exposure = CaptureDetails::exposureSummary(exif);
    expected.lens = optionalText(truth["lens_model"]);
    if (!expected.lens)
        expected.lens = optionalText(truth["lens_model_makernote"]);
    expected.orientation = truth["orientation"].isDouble() ? truth["orientation"].toInt() : 1;
    return expected;
}

// Where the metadata library reads less than exiftool; each entry says why.
const QHash<QString, QString> &knownLimits()
{
    static const QHash<QString, QString> limits{
        {"raw/canon_digital_rebel.crw", "exposure: Exiv2 maps the CRW records to EXIF, exiftool names them maker-note values"},
        {"raw/canon_digital_rebel_progressive_only.crw", "exposure: as above"},
        {"raw/leaf_credo40_no_jpeg.iiq", "lens: only in the Phase One maker note, which Exiv2 does not read"},
        {"jpeg/canon_eos_rebel_t3i_makernote_lens.jpg", "lens: Exiv2 rejects this Canon maker note as invalid"},
        {"jpeg/olympus_e-420_makernote_lens.jpg", "lens: Exiv2 rejects this Olympus maker note as invalid"},
    };
    return limits;
}

bool sizeMatches(const Shot &shot, const QJsonObject &truth, const QString &path)
{
    const QSize read(shot.width, shot.height);
    const QSize composite(truth["image_width"].toInt(), truth["image_height"].toInt());
    const QSize exif(truth["exif_image_width"].toInt(), truth["exif_image_height"].toInt());
    if (read == composite || read == exif || read == composite.transposed())
        return true;
    // Exiv2 reports a Panasonic RAW's whole sensor, borders included, where exiftool crops.
    return path.endsWith(".rw2", Qt::CaseInsensitive) && read.width() >= composite.width()
        && read.height() >= composite.height() && read.width() < composite.width() + 100;
}

} // namespace

TEST(CorpusDetailsTest, DetailsFollowFromExiftoolsTruth)
{
    SKIP_WITHOUT_CORPUS();
    int checked = 0;
    for (const QString folder : {"raw", "pairs", "jpeg", "heic", "shoot"}) {
        const QJsonArray files = truthOf(folder)["files"].toArray();
        for (const QJsonValue &value : files) {
            const QJsonObject truth = value.toObject();
            const QString relative = folder + '/' + truth["file"].toString();
            const QString path = TestFiles::corpus() + '/' + relative;
            if (!ShotScanner::allExtensions().contains(QFileInfo(path).suffix().toLower())
                || QFileInfo(path).fileName().startsWith('.'))
                continue;
            SCOPED_TRACE(relative.toStdString());
            const Shot shot = ShotScanner::readDetails(Shot("x", {path}));
            const Shot expected = expectedDetails(truth);
            const QString limit = knownLimits().value(relative);
            EXPECT_EQ(shot.camera, expected.camera);
            EXPECT_EQ(shot.captureDate, expected.captureDate);
            if (!limit.startsWith("exposure")) {
                EXPECT_EQ(shot.exposure, expected.exposure);
            }
            if (!limit.startsWith("lens")) {
                EXPECT_EQ(shot.lens, expected.lens);
            }
            EXPECT_EQ(shot.orientation, expected.orientation);
            EXPECT_TRUE(sizeMatches(shot, truth, relative)) << shot.width << "x" << shot.height;
            EXPECT_EQ(shot.byteSize, std::uint64_t(truth["file_size"].toInteger()));
            ++checked;
        }
    }
    EXPECT_GT(checked, 90);
}

TEST(CorpusDetailsTest, ShootScansAndGroupsAsExpected)
{
    SKIP_WITHOUT_CORPUS();
    const QJsonObject truth = truthOf("shoot");
    QSet<QString> expectedIds;
    for (const QJsonValue &value : truth["files"].toArray()) {
        const QJsonObject file = value.toObject();
        if (file["expected_in_scan"].toBool())
            expectedIds << file["frame"].toString();
    }
    QList<QStringList> expectedBursts = TestFiles::truthBursts(truth);

    const QList<Shot> shots = DetailReader::readAll(ShotScanner::list(TestFiles::corpus() + "/shoot"));
    QSet<QString> ids;
    for (const Shot &shot : shots) {
        ids << shot.id;
        EXPECT_TRUE(shot.captureDate) << shot.id.toStdString();
    }
    EXPECT_EQ(ids, expectedIds);
    EXPECT_EQ(shots.size(), expectedIds.size()); // pairs are one shot each
    EXPECT_EQ(Bursts::group(shots, 1.0), expectedBursts);
}
