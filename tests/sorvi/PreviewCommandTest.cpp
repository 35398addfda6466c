#include "SorviProcess.h"
#include "TestFiles.h"

#include <QImageReader>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <gtest/gtest.h>

// `sorvi previews` and `sorvi preview` run as real processes.
using PreviewCommandTest = SorviProcessTest;

namespace {

QJsonObject rawTruth(const QString &name)
{
    const QByteArray truth = TestFiles::read(TestFiles::corpus() + "/raw/truth.json");
    const QJsonArray files = QJsonDocument::fromJson(truth)["files"].toArray();
    for (const QJsonValue &file : files)
        if (file["file"] == name)
            return file.toObject();
    return {};
}

QSize decodedSize(const QString &path)
{
    return QImageReader(path).read().size();
}

} // namespace

TEST_F(PreviewCommandTest, PreviewsJsonListsTheStoredPicturesLargestFirst)
{
    SKIP_WITHOUT_CORPUS();
    for (const QString name : {"canon_eosm50.cr3", "panasonic_lx3_truncated_preview.rw2"}) {
        SCOPED_TRACE(name.toStdString());
        const CommandRun run = sorvi({"previews", TestFiles::corpus() + "/raw/" + name, "--json"});
        ASSERT_EQ(run.exitCode, 0) << run.err.constData();
        const QJsonArray listed = QJsonDocument::fromJson(run.out).array();
        ASSERT_FALSE(listed.isEmpty()) << run.out.constData();
        for (qsizetype i = 1; i < listed.size(); ++i)
            EXPECT_GE(listed[i - 1]["width"].toInt() * listed[i - 1]["height"].toInt(),
                      listed[i]["width"].toInt() * listed[i]["height"].toInt());
        // Every picture the truth knows is listed with its exact byte range.
        for (const QJsonValue &image : rawTruth(name)["embedded_images"].toArray()) {
            const auto same = [&](const QJsonValue &item) {
                return item["start"].toInteger() == image["offset"].toInteger() && item["width"] == image["width"]
                    && item["height"] == image["height"];
            };
            const auto found = std::find_if(listed.begin(), listed.end(), same);
            ASSERT_NE(found, listed.end()) << image["tag"].toString().toStdString();
            const QJsonValue item = *found;
            EXPECT_EQ(item["incomplete"].toBool(), !image["has_eoi"].toBool());
            if (image["has_eoi"].toBool()) {
                const qint64 end = image["offset"].toInteger() + image["jpeg_stream_length"].toInteger();
                EXPECT_EQ(item["end"].toInteger(), end);
            }
        }
    }
    const CommandRun missing = sorvi({"previews", TestFiles::corpus() + "/raw/no such file.cr2"});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_TRUE(missing.err.contains("no such file.cr2")) << missing.err.constData();
    EXPECT_EQ(sorvi({"previews"}).exitCode, 2);
}

TEST_F(PreviewCommandTest, PreviewWritesUprightPicturesAndNeverOverwrites)
{
    SKIP_WITHOUT_CORPUS();
    QTemporaryDir out;
    // The RAW and JPEG given together are one shot; the Nikon JPEG is stored sideways.
    const QString corpus = TestFiles::corpus();
    const QStringList args{"preview", corpus + "/pairs/IMG_0001.CR2", corpus + "/pairs/IMG_0001.jpg",
                           corpus + "/jpeg/nikon_d40_orient6.jpg", "--max", "512", "--out", out.path()};
    const CommandRun run = sorvi(args);
    ASSERT_EQ(run.exitCode, 0) << run.err.constData();
    EXPECT_EQ(TestFiles::tree(out.path()), QStringList({"IMG_0001.jpg", "nikon_d40_orient6.jpg"}));
    EXPECT_EQ(decodedSize(out.filePath("IMG_0001.jpg")), QSize(512, 341));
    EXPECT_EQ(decodedSize(out.filePath("nikon_d40_orient6.jpg")), QSize(340, 512));
    EXPECT_TRUE(run.out.contains("TurboJPEG")) << run.out.constData();

    const QMap<QString, QString> before = TestFiles::snapshot(out.path());
    const CommandRun again = sorvi(args);
    EXPECT_EQ(again.exitCode, 1);
    EXPECT_TRUE(again.err.contains("already exists")) << again.err.constData();
    EXPECT_EQ(TestFiles::snapshot(out.path()), before);

    // A folder is scanned: every shot of the pairs folder, the lone RAW from its stored picture.
    QTemporaryDir folderOut;
    const CommandRun folder = sorvi({"preview", corpus + "/pairs", "--max", "300", "--out", folderOut.path()});
    ASSERT_EQ(folder.exitCode, 0) << folder.err.constData();
    EXPECT_EQ(TestFiles::tree(folderOut.path()),
              QStringList({"DSC_0042.jpg", "IMG_0001.jpg", "IMG_0002.jpg", "IMG_0003.jpg", "P1000123.jpg"}));
    EXPECT_TRUE(folder.out.contains("IMG_0002: stored JPEG 3456×2304")) << folder.out.constData();
    EXPECT_EQ(decodedSize(folderOut.filePath("IMG_0002.jpg")), QSize(300, 200));
    EXPECT_EQ(sorvi({"preview", corpus + "/pairs", "--max", "none", "--out", folderOut.path()}).exitCode, 2);
}
