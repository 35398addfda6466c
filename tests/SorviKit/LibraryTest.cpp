#include "SorviKit/core/FileNameOrder.h"
#include "SorviKit/library/CaptureDetails.h"
#include "SorviKit/library/Catalog.h"
#include "SorviKit/library/ShotScanner.h"
#include "SorviKit/library/TiffView.h"
#include "TestFiles.h"

#include <QJsonDocument>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QtEndian>
#include <gtest/gtest.h>

namespace {

const Rating threeStarRedPick{3, Rating::Flag::pick, Rating::Label::red};

QStringList ids(const QList<Shot> &shots)
{
    QStringList result;
    for (const Shot &shot : shots)
        result << shot.id;
    return result;
}

} // namespace

TEST(CatalogTest, RatingsAreWrittenThroughAndRestored)
{
    QTemporaryDir store, shoot;
    {
        Catalog catalog(shoot.path(), store.path());
        catalog.set(threeStarRedPick, "day2/DSC_0042");
        catalog.set(Rating{0, Rating::Flag::none, Rating::Label::purple}, "a \"quoted\"\\name");
        catalog.set(Rating{1, Rating::Flag::reject, Rating::Label::none}, "gone");
        catalog.set(Rating(), "gone"); // an empty rating removes the entry
        EXPECT_FALSE(catalog.rating("gone"));
    }
    const QByteArray json = TestFiles::read(Catalog(shoot.path(), store.path()).file());
    EXPECT_TRUE(json.contains(R"("day2/DSC_0042":{"stars":3,"flag":"pick","label":"Red"})")) << json.constData();
    EXPECT_TRUE(json.contains(R"({"stars":0,"flag":"none","label":"Purple"})"));
    EXPECT_FALSE(json.contains("gone"));
    const QJsonObject root = QJsonDocument::fromJson(json).object();
    EXPECT_EQ(root["version"].toInt(), 1);
    EXPECT_EQ(root["folder"].toString(), QFileInfo(shoot.path()).canonicalFilePath());

    const Catalog reopened(shoot.path(), store.path());
    EXPECT_EQ(reopened.ratings().size(), 2);
    EXPECT_EQ(reopened.rating("day2/DSC_0042"), threeStarRedPick);
    EXPECT_EQ(reopened.rating("a \"quoted\"\\name")->label, Rating::Label::purple);
}

TEST(CatalogTest, AdoptNeverOverridesAndWritesOnlyWhenSomethingWasAdded)
{
    QTemporaryDir store, shoot;
    Catalog catalog(shoot.path(), store.path());
    catalog.adopt({{"a", Rating()}});
    EXPECT_FALSE(QFileInfo::exists(catalog.file())); // only empty ratings: nothing written

    catalog.set(threeStarRedPick, "a");
    QFile::remove(catalog.file());
    catalog.adopt({{"a", Rating{5, Rating::Flag::reject, Rating::Label::blue}}});
    EXPECT_EQ(catalog.rating("a"), threeStarRedPick);
    EXPECT_FALSE(QFileInfo::exists(catalog.file())) << "adopting nothing new must not write";

    catalog.adopt({{"a", Rating{1}}, {"b", Rating{2}}});
    EXPECT_EQ(catalog.rating("a"), threeStarRedPick);
    EXPECT_EQ(catalog.rating("b")->stars, 2);
    EXPECT_EQ(Catalog(shoot.path(), store.path()).ratings().size(), 2);
}

// Such a catalog starting empty and kept aside before the next write is pinned by the
// model's and sorvi's tests.
TEST(CatalogTest, AnyMalformedRatingMakesTheWholeFileUnreadable)
{
    const auto withRating = [](const QByteArray &a) {
        return R"({"version":1,"folder":"/x","ratings":{"a":)" + a + "}}";
    };
    ASSERT_TRUE(Catalog::decode(withRating(R"({"stars":2,"flag":"pick","label":""})")));
    for (const QByteArray &bad : {withRating(R"({"stars":2,"flag":"maybe","label":""})"),
                                  withRating(R"({"stars":2,"flag":"pick","label":"red"})"),
                                  withRating(R"({"stars":2.5,"flag":"pick","label":""})"),
                                  withRating(R"({"stars":"2","flag":"pick","label":""})"),
                                  withRating(R"({"flag":"pick","label":""})"), QByteArray(R"({"version":1,"ratings":{}})"),
                                  QByteArray("{\"version\":1,"), QByteArray(), QByteArray("[]")})
        EXPECT_FALSE(Catalog::decode(bad)) << bad.constData();
}

TEST(CatalogTest, KeyFollowsTheVolumeNotTheMountPoint)
{
    const QString onCard = Catalog::key("1234-ABCD", "/media/me/EOS_DIGITAL", "/media/me/EOS_DIGITAL/DCIM");
    EXPECT_EQ(onCard, Catalog::key("1234-ABCD", "/mnt/card", "/mnt/card/DCIM"));
    EXPECT_NE(onCard, Catalog::key("9999-0000", "/mnt/card", "/mnt/card/DCIM"));
    EXPECT_NE(Catalog::key("local", "/", "/home/me/DCIM"), Catalog::key("local", "/", "/home/you/DCIM"));
    // sha256("local|/photos") starts with these 12 bytes.
    EXPECT_EQ(Catalog::key("local", "/", "/photos"), "f5aad66555702b5b772b6a4f");

    QTemporaryDir dir;
    EXPECT_EQ(Catalog::key(dir.path()), Catalog::key(dir.path() + "/./"));
}

TEST(TiffViewTest, EmptiesOnlyHugeValuesAndNeverTouchesTheFile)
{
    // Little-endian TIFF, IFD0 at 8 with three entries: Make (small, inline), a 2 MiB
    // undefined blob and a 1 KiB one; the blobs follow the IFD.
    QByteArray tiff("II*\0\x08\0\0\0\x03\0", 10);
    const auto appendEntry = [&tiff](quint16 tag, quint16 type, quint32 count, quint32 value) {
        tiff.append(QByteArray(12, '\0'));
        char *entry = tiff.data() + tiff.size() - 12;
        qToLittleEndian(tag, entry);
        qToLittleEndian(type, entry + 2);
        qToLittleEndian(count, entry + 4);
        qToLittleEndian(value, entry + 8);
    };
    const quint32 blobsAt = 8 + 2 + 3 * 12 + 4;
    appendEntry(0x010f, 2, 4, qFromLittleEndian<quint32>("Kes\0"));
    appendEntry(0xc68c, 7, 2 * 1024 * 1024, blobsAt);
    appendEntry(0xc634, 7, 1024, blobsAt + 2 * 1024 * 1024);
    tiff.append(4, '\0'); // no next IFD
    tiff.append(QByteArray(2 * 1024 * 1024 + 1024, 'x'));

    QTemporaryDir dir;
    const QString path = dir.path() + "/x.dng";
    TestFiles::write(path, tiff);
    const QString before = TestFiles::digest(path);
    {
        const TiffView view(path);
        ASSERT_TRUE(view.isValid());
        EXPECT_EQ(view.emptiedValues(), 1);
        EXPECT_EQ(qFromLittleEndian<quint32>(view.data() + 10 + 12 + 4), 0u) << "the huge count is emptied";
        EXPECT_EQ(qFromLittleEndian<quint32>(view.data() + 10 + 24 + 4), 1024u) << "small values stay";
    }
    EXPECT_EQ(TestFiles::digest(path), before);

    TestFiles::write(dir.path() + "/y.jpg", QByteArray::fromHex("ffd8ffe000104a464946"));
    EXPECT_FALSE(TiffView(dir.path() + "/y.jpg").isValid());
    EXPECT_FALSE(TiffView(dir.path() + "/missing.dng").isValid());
    // An IFD offset past the end must not be followed.
    TestFiles::write(dir.path() + "/z.tif", QByteArray("II*\0\xff\xff\xff\x0f", 8) + QByteArray(16, '\0'));
    EXPECT_EQ(TiffView(dir.path() + "/z.tif").emptiedValues(), 0);
}

TEST(ShotScannerTest, ListsPairsAndOrdersLikeAFileBrowser)
{
    QTemporaryDir dir;
    const QString root = QDir(dir.path()).canonicalPath();
    for (const char *name : {"DCIM/100CANON/IMG_0001.CR3", "DCIM/100CANON/IMG_0001.JPG",
                             "DCIM/100CANON/img_0001.jpeg", "DCIM/100CANON/IMG_0001.xmp",
                             "DCIM/100CANON/IMG_10.JPG", "DCIM/100CANON/IMG_2.JPG",
                             "DCIM/100CANON/Rejected/IMG_0000.JPG", "day1/deep/Rejected/x.JPG",
                             "DCIM/rejected/DSC_1.NEF", ".hidden.JPG", "DCIM/100CANON/._IMG_0001.JPG",
                             ".Trashes/IMG_9.JPG", "notes.txt", "day1/DSC_0042.NEF", "day2/DSC_0042.NEF",
                             "a.b.c.tif"})
        TestFiles::write(root + '/' + name, "not really a photo");

    const QList<Shot> shots = ShotScanner::list(root);
    EXPECT_EQ(ids(shots), (QStringList{"a.b.c", "day1/DSC_0042", "day2/DSC_0042", "DCIM/100CANON/IMG_0001",
                                       "DCIM/100CANON/IMG_2", "DCIM/100CANON/IMG_10", "DCIM/rejected/DSC_1"}));
    // Grouping ignores case; the RAW comes first and gives the id its case.
    const Shot &pair = shots.at(3);
    EXPECT_EQ(pair.files, (QStringList{root + "/DCIM/100CANON/IMG_0001.CR3", root + "/DCIM/100CANON/IMG_0001.JPG",
                                       root + "/DCIM/100CANON/img_0001.jpeg"}));
    EXPECT_EQ(pair.kinds(), "CR3 + JPG + JPEG");

    // The same folder spelled through a link or with dots gives the same ids.
    ASSERT_TRUE(QFile::link(root, root + "-link"));
    EXPECT_EQ(ids(ShotScanner::list(root + "-link")), ids(shots));
    EXPECT_EQ(ids(ShotScanner::list(root + "/DCIM/../")), ids(shots));
    QFile::remove(root + "-link");

    EXPECT_TRUE(ShotScanner::list(root + "/does-not-exist").isEmpty());
    EXPECT_TRUE(ShotScanner::list(root + "/notes.txt").isEmpty());
}

TEST(ShotScannerTest, LooseFilesGroupLikeAFolder)
{
    // The same file twice counts once; the RAW leads its pair and gives the id its case.
    const QStringList files{"/card/a/IMG_1.JPG", "/card/a/img_1.CR2", "/card/a/IMG_2.jpg",
                            "/card/b/IMG_1.JPG", "/card/a/IMG_1.JPG"};
    const QList<Shot> shots = ShotScanner::group(files);
    ASSERT_EQ(shots.size(), 3);
    EXPECT_EQ(shots[0].id, "img_1");
    EXPECT_EQ(shots[0].files, (QStringList{"/card/a/img_1.CR2", "/card/a/IMG_1.JPG"}));
    EXPECT_EQ(shots[1].id, "IMG_2");
    EXPECT_EQ(shots[2].files, QStringList{"/card/b/IMG_1.JPG"});
}

TEST(ShotScannerTest, DamagedFilesOfEveryExtensionKeepDefaults)
{
    QTemporaryDir dir;
    QByteArray garbage(70000, '\0');
    QRandomGenerator random(7);
    for (char &byte : garbage)
        byte = char(random.bounded(256));
    const QList<QByteArray> contents{{}, QByteArray::fromHex("ffd8ffe1ffff457869660000") + "MM", garbage,
                                     QByteArray("II*\0\x08\0\0\0\xff\xff", 10)};
    int index = 0;
    for (const QString &extension : ShotScanner::allExtensions())
        for (const QByteArray &bytes : contents)
            TestFiles::write(QStringLiteral("%1/f%2.%3").arg(dir.path()).arg(index++).arg(extension), bytes);

    const QList<Shot> shots = ShotScanner::list(dir.path());
    ASSERT_EQ(shots.size(), index);
    for (const Shot &listed : shots) {
        const Shot shot = ShotScanner::readDetails(listed);
        EXPECT_EQ(shot.byteSize, std::uint64_t(QFileInfo(shot.files.first()).size())) << shot.id.toStdString();
        EXPECT_FALSE(shot.captureDate) << shot.id.toStdString();
        EXPECT_GE(shot.orientation, 1);
        EXPECT_LE(shot.orientation, 8);
    }
}

TEST(ShotScannerTest, TruncatedCorpusFilesNeverCrash)
{
    SKIP_WITHOUT_CORPUS();
    QTemporaryDir dir;
    for (const QString sub : {"raw", "heic", "jpeg", "pairs"})
        for (const QFileInfo &file : QDir(TestFiles::corpus() + '/' + sub).entryInfoList(QDir::Files)) {
            const QByteArray bytes = TestFiles::read(file.filePath());
            for (const int permille : {2, 50, 500})
                TestFiles::write(QStringLiteral("%1/%2_%3_%4.%5").arg(dir.path(), sub, file.baseName()).arg(permille)
                                     .arg(file.suffix()),
                                 bytes.left(bytes.size() * permille / 1000));
        }
    const QList<Shot> shots = ShotScanner::list(dir.path());
    ASSERT_GT(shots.size(), 90);
    for (const Shot &shot : shots)
        EXPECT_GT(ShotScanner::readDetails(shot).byteSize, 0u) << shot.id.toStdString();
}

TEST(ShotScannerTest, PairFillsWhatTheRawLacksFromItsJpeg)
{
    SKIP_WITHOUT_CORPUS();
    QTemporaryDir dir;
    // The Kodak RAW has no capture date; its rendered twin has one.
    ASSERT_TRUE(QFile::copy(TestFiles::corpus() + "/raw/kodak_dc50_no_jpeg.kdc", dir.path() + "/X.KDC"));
    ASSERT_TRUE(QFile::copy(TestFiles::corpus() + "/jpeg/pentax_ist_d.jpg", dir.path() + "/X.JPG"));
    const QList<Shot> shots = ShotScanner::list(dir.path());
    ASSERT_EQ(shots.size(), 1);
    const Shot shot = ShotScanner::readDetails(shots.first());
    EXPECT_EQ(shot.kinds(), "KDC + JPG");
    EXPECT_EQ(shot.camera, "Eastman Kodak Company Kodak Digital Science DC50 Zoom Camera"); // the RAW's
    ASSERT_TRUE(shot.captureDate);
    // 2004:10:02 23:29:52 without an offset is read in the computer's zone (Helsinki, +03:00).
    EXPECT_EQ(shot.captureDate->toUTC().toString(Qt::ISODateWithMs), "2004-10-02T20:29:52.000Z");
    EXPECT_EQ(shot.width, 756); // the RAW's size comes first
}

TEST(CaptureDetailsTest, ExposureSummaryOffsetsDatesAndCameraNames)
{
    const auto summary = [](std::optional<double> t, std::optional<double> f, std::optional<long> iso,
                            std::optional<double> focal) {
        ExifValues exif;
        exif.exposureTime = t;
        exif.fNumber = f;
        exif.iso = iso;
        exif.focalLengthMm = focal;
        return CaptureDetails::exposureSummary(exif).value_or("(none)");
    };
    EXPECT_EQ(summary(0.004, 2.8, 400, 35), "1/250 s · f/2.8 · ISO 400 · 35 mm");
    EXPECT_EQ(summary(0.3, {}, {}, {}), "1/3 s");
    EXPECT_EQ(summary(1.0, {}, {}, {}), "1.0 s");
    EXPECT_EQ(summary(2.5, 8.0, {}, {}), "2.5 s · f/8");
    EXPECT_EQ(summary({}, 10.0, {}, {}), "f/10");
    EXPECT_EQ(summary({}, 1.4, {}, 24.5), "f/1.4 · 25 mm");
    EXPECT_EQ(summary(1.0 / 64, 3.56359487256136, {}, 7.203125), "1/64 s · f/3.6 · 7 mm");
    EXPECT_EQ(summary(0.0, {}, 0, {}), "ISO 0");
    EXPECT_EQ(summary({}, {}, {}, {}), "(none)");

    EXPECT_EQ(CaptureDetails::offsetSeconds("+02:00"), 7200);
    EXPECT_EQ(CaptureDetails::offsetSeconds("-05:30"), -19800);
    EXPECT_EQ(CaptureDetails::offsetSeconds(" 03:00"), 10800); // the first character is dropped whatever it is
    for (const char *bad : {"Z", "", "+02", "+02:00:00", "+0x:00"})
        EXPECT_FALSE(CaptureDetails::offsetSeconds(bad)) << bad;

    ExifValues exif;
    exif.dateTimeOriginal = "2023:06:10 14:22:31";
    exif.offsetTimeOriginal = "+02:00";
    exif.subSecTimeOriginal = "45";
    EXPECT_EQ(CaptureDetails::captureDate(exif)->toString(Qt::ISODateWithMs), "2023-06-10T12:22:31.450Z");
    exif.subSecTimeOriginal = "07";
    EXPECT_EQ(CaptureDetails::captureDate(exif)->toString(Qt::ISODateWithMs), "2023-06-10T12:22:31.070Z");
    exif.offsetTimeOriginal = "Z"; // no zone: the computer's (Helsinki, +03:00 in summer)
    EXPECT_EQ(CaptureDetails::captureDate(exif)->toString(Qt::ISODateWithMs), "2023-06-10T11:22:31.070Z");
    exif.dateTimeOriginal = "2023:13:10 14:22:31";
    EXPECT_FALSE(CaptureDetails::captureDate(exif));
    exif.dateTimeOriginal = "    :  :     :  :  ";
    EXPECT_FALSE(CaptureDetails::captureDate(exif));

    const auto camera = [](std::optional<QString> make, std::optional<QString> model) {
        ExifValues values;
        values.make = make;
        values.model = model;
        return CaptureDetails::cameraName(values).value_or("(none)");
    };
    EXPECT_EQ(camera("Canon", "Canon EOS R5"), "Canon EOS R5");
    EXPECT_EQ(camera("NIKON CORPORATION", "Z 8"), "NIKON CORPORATION Z 8");
    EXPECT_EQ(camera("NIKON CORPORATION", "NIKON D70"), "NIKON D70");
    EXPECT_EQ(camera("SONY", "ILCE-7M4"), "SONY ILCE-7M4");
    EXPECT_EQ(camera({}, "  Pixel 8 Pro "), "Pixel 8 Pro");
    EXPECT_EQ(camera("Apple", {}), "(none)");
}

TEST(FileNameOrderTest, NumbersByValueLettersWithoutCase)
{
    EXPECT_LT(FileNameOrder::compare("IMG_2", "IMG_10"), 0);
    EXPECT_LT(FileNameOrder::compare("IMG_0001", "IMG_2"), 0);
    EXPECT_LT(FileNameOrder::compare("apple", "Banana"), 0);
    EXPECT_LT(FileNameOrder::compare("IMG_99999999999999999999", "IMG_100000000000000000000"), 0);
    EXPECT_LT(FileNameOrder::compare("day1", "day1/x"), 0);
    EXPECT_NE(FileNameOrder::compare("img_1", "IMG_1"), 0); // distinct names never tie
    EXPECT_EQ(FileNameOrder::compare("IMG_1", "IMG_1"), 0);
}
