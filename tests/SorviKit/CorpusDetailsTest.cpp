#include "SorviKit/library/CaptureDetails.h"
#include "SorviKit/library/ShotScanner.h"
#include "TestFiles.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSize>
#include <QTemporaryDir>
#include <gtest/gtest.h>

// Every photo of the camera corpus read by our metadata reader and compared with what
// exiftool wrote into the corpus's truth files.
namespace {

QJsonObject truthOf(const QString &folder)
{
    return QJsonDocument::fromJson(TestFiles::read(TestFiles::corpus() + '/' + folder + "/truth.json")).object();
}

std::optional<QString> optionalText(const QJsonValue &value)
{
    return value.isString() ? std::optional<QString>(value.toString()) : std::nullopt;
}

// What the reading rules give for exiftool's values of the same file. For RAW files every
// value counts wherever exiftool found it; for the others only the EXIF values, as
// exiftool also reads maker notes that we leave alone.
Shot expectedDetails(const QJsonObject &truth, bool raw)
{
    ExifValues exif;
    exif.make = optionalText(truth["make"]);
    exif.model = optionalText(truth["model"]);
    exif.dateTimeOriginal = optionalText(truth["date_time_original"]);
    exif.subSecTimeOriginal = optionalText(truth["sub_sec_time_original"]);
    exif.offsetTimeOriginal = optionalText(truth["offset_time_original"]);
    const QJsonObject source = truth["exiftool_tags_used"].toObject();
    const auto fromExif = [&source, &truth, raw](const char *field) {
        const QString tag = source[field].toString();
        const bool exif = raw || tag.startsWith("IFD0:") || tag.startsWith("ExifIFD:");
        return exif && truth[field].isDouble() ? std::optional<double>(truth[field].toDouble()) : std::nullopt;
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
    expected.lens = optionalText(truth[truth["lens_model"].isString() ? "lens_model" : "lens_model_makernote"]);
    expected.orientation = truth["orientation"].isDouble() ? truth["orientation"].toInt() : 1;
    return expected;
}

// Where the metadata library reads less than exiftool: the lens stands only in a maker note
// that Exiv2 does not read (Phase One) or rejects as invalid (these Canon and Olympus ones).
const QStringList lensUnread{"raw/leaf_credo40_no_jpeg.iiq", "jpeg/canon_eos_rebel_t3i_makernote_lens.jpg",
                             "jpeg/olympus_e-420_makernote_lens.jpg"};

// Compares what we read from `path` with the truth of `relative`.
void expectTruth(const QString &path, const QString &relative, const QJsonObject &truth)
{
    SCOPED_TRACE(relative.toStdString());
    const Shot shot = ShotScanner::readDetails(Shot("x", {path}));
    const Shot expected = expectedDetails(truth, ShotScanner::isRawFile(path));
    EXPECT_EQ(shot.camera, expected.camera);
    EXPECT_EQ(shot.captureDate, expected.captureDate);
    EXPECT_EQ(shot.exposure, expected.exposure);
    if (!lensUnread.contains(relative)) {
        EXPECT_EQ(shot.lens, expected.lens);
    }
    EXPECT_EQ(shot.orientation, expected.orientation);
    const QSize read(shot.width, shot.height);
    const QSize composite(truth["image_width"].toInt(), truth["image_height"].toInt());
    const QSize exif(truth["exif_image_width"].toInt(), truth["exif_image_height"].toInt());
    EXPECT_TRUE(read == composite || read == exif || read == composite.transposed())
        << shot.width << "x" << shot.height;
    EXPECT_EQ(shot.byteSize, std::uint64_t(truth["file_size"].toInteger()));
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
            expectTruth(path, relative, truth);
            ++checked;
            if (relative != "raw/panasonic_lx3.rw2")
                continue;
            // The same RAW with its JPEG's EXIF hidden: then make, model, ISO and orientation
            // are only in the Panasonic RAW directory, as in files whose JPEG carries none.
            QTemporaryDir scratch;
            QByteArray bytes = TestFiles::read(path);
            bytes.replace(bytes.indexOf(QByteArray("Exif\0\0", 6)), 4, "Exiv");
            TestFiles::write(scratch.filePath("hidden.rw2"), bytes);
            expectTruth(scratch.filePath("hidden.rw2"), relative + " without JPEG EXIF", truth);
        }
    }
    EXPECT_GT(checked, 90);
}
