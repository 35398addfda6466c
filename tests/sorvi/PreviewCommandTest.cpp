#include "ByteKit/MappedFile.h"
#include "MediaKit/RAWPreview.h"
#include "SorviProcess.h"
#include "TestFiles.h"

#include <QImageReader>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

// `sorvi previews` and `sorvi preview` run as real processes.
using PreviewCommandTest = SorviProcessTest;

// The JSON says exactly what the RAW preview scan finds (whose own tests hold it to the
// corpus truth), a picture cut short included.
TEST_F(PreviewCommandTest, PreviewsJsonListsWhatTheScanFinds)
{
    SKIP_WITHOUT_CORPUS();
    for (const QString name : {"canon_eosm50.cr3", "panasonic_lx3_truncated_preview.rw2"}) {
        SCOPED_TRACE(name.toStdString());
        const QString path = TestFiles::corpus() + "/raw/" + name;
        const CommandRun run = sorvi({"previews", path, "--json"});
        ASSERT_EQ(run.exitCode, 0) << run.err.constData();
        QJsonArray found;
        for (const RAWPreview::Candidate &c : RAWPreview::candidates(MappedFile(path.toStdString()).bytes()))
            found.append(QJsonObject{{"start", qint64(c.start)}, {"end", qint64(c.end)}, {"width", c.width},
                                     {"height", c.height}, {"incomplete", c.incomplete}});
        EXPECT_FALSE(found.isEmpty());
        EXPECT_EQ(QJsonDocument::fromJson(run.out).array(), found) << run.out.constData();
    }
    const CommandRun missing = sorvi({"previews", TestFiles::corpus() + "/raw/no such file.cr2"});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_TRUE(missing.err.contains("no such file.cr2")) << missing.err.constData();
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
    EXPECT_EQ(QImageReader(out.filePath("IMG_0001.jpg")).read().size(), QSize(512, 341));
    EXPECT_EQ(QImageReader(out.filePath("nikon_d40_orient6.jpg")).read().size(), QSize(340, 512));
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
}
