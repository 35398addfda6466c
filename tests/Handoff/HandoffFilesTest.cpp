#include "SorviKit/core/FileError.h"
#include "SorviKit/handoff/Handoff.h"
#include "HandoffTestFiles.h"
#include "SorviKit/handoff/XMPSidecar.h"

#include <QBuffer>
#include <QImage>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace HandoffTest;

namespace {

const Rating pick3Red{3, Rating::Flag::pick, Rating::Label::red};
const Rating reject{0, Rating::Flag::reject, Rating::Label::none};

// A sidecar as another editor leaves it, with a property that is not ours.
const QByteArray foreignSidecar =
    "<?xpacket begin=\"\xEF\xBB\xBF\" id=\"W5M0MpCehiHzreSzNTczkc9d\"?>\n"
    "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\">\n"
    " <rdf:RDF xmlns:rdf=\"http://www.w3.org/1999/02/22-rdf-syntax-ns#\">\n"
    "  <rdf:Description rdf:about=\"\" xmlns:xmp=\"http://ns.adobe.com/xap/1.0/\"\n"
    "    xmlns:photoshop=\"http://ns.adobe.com/photoshop/1.0/\"\n"
    "   xmp:Rating=\"4\" photoshop:City=\"Tampere\"/>\n"
    " </rdf:RDF>\n"
    "</x:xmpmeta>\n"
    "<?xpacket end=\"w\"?>\n";

QByteArray smallJpeg()
{
    QImage image(64, 48, QImage::Format_RGB32);
    image.fill(Qt::darkCyan);
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "JPEG");
    return bytes;
}

} // namespace

TEST(HandoffFilesTest, NoOperationChangesAPhoto)
{
    QTemporaryDir dir;
    const QString card = dir.path() + "/card";
    const QByteArray jpeg = smallJpeg();
    ASSERT_FALSE(jpeg.isEmpty());
    write(card + "/DCIM/IMG_0001.CR3", noise(400'000, 1));
    write(card + "/DCIM/IMG_0001.JPG", jpeg);
    write(card + "/DCIM/IMG_0002.NEF", noise(300'000, 2));
    write(card + "/DCIM/IMG_0002.xmp", foreignSidecar);
    write(card + "/IMG_0003.JPG", jpeg);
    const QList<Shot> shots{
        Shot("DCIM/IMG_0001", {card + "/DCIM/IMG_0001.CR3", card + "/DCIM/IMG_0001.JPG"}),
        Shot("DCIM/IMG_0002", {card + "/DCIM/IMG_0002.NEF"}), Shot("IMG_0003", {card + "/IMG_0003.JPG"})};
    const QHash<QString, Rating> ratings{{"DCIM/IMG_0001", pick3Red}, {"IMG_0003", reject}};
    QStringList photos;
    for (const Shot &shot : shots)
        photos << shot.files;
    const QMap<QString, QString> originals = digests(photos);

    EXPECT_EQ(Handoff::writeSidecars(shots, ratings), 2);
    EXPECT_EQ(Handoff::writeSidecars(shots, ratings, card, dir.path() + "/sidecars"), 2);
    EXPECT_EQ(Handoff::copy(shots, card, dir.path() + "/plain", false).files, 6);
    EXPECT_EQ(Handoff::copy(shots, card, dir.path() + "/private", true).locationRemoved, 2);
    EXPECT_EQ(Handoff::writeFlagsList(shots, ratings, card), 2);
    EXPECT_EQ(digests(photos), originals) << "sidecars, copies or the flags list changed a photo";

    const Handoff::MoveResult moved = Handoff::moveRejects(shots, card);
    ASSERT_EQ(moved.moves.size(), 6); // four photos and two sidecars
    for (const Handoff::Move &move : moved.moves) {
        EXPECT_FALSE(QFileInfo::exists(move.source));
        if (originals.contains(move.source)) {
            EXPECT_EQ(digest(move.moved), originals.value(move.source)) << move.moved.toStdString();
        }
    }
    Handoff::undo(moved.moves);
    EXPECT_EQ(digests(photos), originals) << "a photo came back changed";
    EXPECT_TRUE(tree(moved.rejectedFolder).isEmpty());
}

TEST(HandoffFilesTest, FlagsListHasOneLinePerFileOfEachRatedShot)
{
    QTemporaryDir dir;
    const QString card = dir.path();
    const QList<Shot> shots{
        Shot("DCIM/IMG_0001", {card + "/DCIM/IMG_0001.CR3", card + "/DCIM/IMG_0001.JPG"}),
        Shot("IMG_0002", {card + "/IMG_0002.CR3"}), Shot("IMG_0003", {card + "/IMG_0003.JPG"}),
        Shot("IMG_0004", {card + "/IMG_0004.CR3"}), Shot("IMG_0005", {card + "/IMG_0005.CR3"})};
    const QHash<QString, Rating> ratings{{"DCIM/IMG_0001", pick3Red},
                                         {"IMG_0002", Rating{0, Rating::Flag::none, Rating::Label::red}},
                                         {"IMG_0003", Rating{1, Rating::Flag::reject, Rating::Label::none}},
                                         {"IMG_0004", Rating{}}};
    const QString list = card + '/' + Handoff::flagsListName;

    EXPECT_EQ(Handoff::writeFlagsList(shots, ratings, card), 3);
    EXPECT_EQ(read(list), "# Kestrane Sorvi picks and rejects, for the Lightroom Classic plug-in. Safe to delete.\n"
                          "1\t3\tRed\tDCIM/IMG_0001.CR3\n"
                          "1\t3\tRed\tDCIM/IMG_0001.JPG\n"
                          "0\t0\tRed\tIMG_0002.CR3\n"
                          "-1\t1\t\tIMG_0003.JPG\n");

    // The old list is replaced by a new file, never rewritten in place: a reader holding
    // the old one still sees it whole.
    ASSERT_EQ(::link(QFile::encodeName(list).constData(), QFile::encodeName(card + "/held").constData()), 0);
    const QByteArray old = read(list);
    EXPECT_EQ(Handoff::writeFlagsList(shots.mid(2), ratings, card), 1);
    EXPECT_EQ(read(list), "# Kestrane Sorvi picks and rejects, for the Lightroom Classic plug-in. Safe to delete.\n"
                          "-1\t1\t\tIMG_0003.JPG\n");
    EXPECT_EQ(read(card + "/held"), old);
    EXPECT_EQ(tree(card), (QStringList{Handoff::flagsListName, "held"})) << "a temporary file was left";

    // Into a chosen folder, with nothing written beside the photos.
    const QString elsewhere = dir.path() + "/elsewhere";
    ASSERT_TRUE(QDir().mkpath(elsewhere));
    EXPECT_EQ(Handoff::writeFlagsList(shots.mid(1, 1), ratings, card, elsewhere), 1);
    EXPECT_TRUE(read(elsewhere + '/' + Handoff::flagsListName).endsWith("\n0\t0\tRed\tIMG_0002.CR3\n"));
    EXPECT_THROW(Handoff::writeFlagsList(shots, ratings, card, dir.path() + "/missing"), FileError);
}

TEST(HandoffFilesTest, SidecarsGoBesideRawsOrIntoAMirroredTree)
{
    QTemporaryDir dir;
    const QString card = dir.path() + "/card", mirror = dir.path() + "/mirror";
    write(card + "/IMG_0001.CR3", "raw 1");
    write(card + "/IMG_0002.CR3", "raw 2");
    write(card + "/IMG_0002.xmp", foreignSidecar);
    write(card + "/IMG_0003.CR3", "raw 3");
    write(card + "/IMG_0004.JPG", "jpeg 4");
    write(card + "/sub/IMG_0005.CR3", "raw 5");
    write(card + "/sub/IMG_0005.JPG", "jpeg 5");
    const QList<Shot> shots{Shot("IMG_0001", {card + "/IMG_0001.CR3"}), Shot("IMG_0002", {card + "/IMG_0002.CR3"}),
                            Shot("IMG_0003", {card + "/IMG_0003.CR3"}), Shot("IMG_0004", {card + "/IMG_0004.JPG"}),
                            Shot("sub/IMG_0005", {card + "/sub/IMG_0005.CR3", card + "/sub/IMG_0005.JPG"})};
    const QHash<QString, Rating> ratings{{"IMG_0001", Rating{2, Rating::Flag::none, Rating::Label::none}},
                                         {"IMG_0004", pick3Red},
                                         {"sub/IMG_0005", pick3Red}};
    const QStringList cardBefore = tree(card);

    // Mirrored: unrated IMG_0002 goes along because it has a sidecar, and keeps its City.
    EXPECT_EQ(Handoff::writeSidecars(shots, ratings, card, mirror), 3);
    EXPECT_EQ(tree(mirror), (QStringList{"IMG_0001.xmp", "IMG_0002.xmp", "sub/IMG_0005.xmp"}));
    EXPECT_EQ(tree(card), cardBefore);
    EXPECT_EQ(read(card + "/IMG_0002.xmp"), foreignSidecar);
    EXPECT_TRUE(read(mirror + "/IMG_0002.xmp").contains("photoshop:City=\"Tampere\""));
    EXPECT_TRUE(read(mirror + "/IMG_0002.xmp").contains("xmp:Rating=\"0\""));
    EXPECT_EQ(XMPSidecar::read(mirror + "/sub/IMG_0005.xmp"), pick3Red);

    // Beside the RAWs: the JPEG-only shot and the unrated shot without a sidecar get none.
    EXPECT_EQ(Handoff::writeSidecars(shots, ratings), 3);
    EXPECT_EQ(tree(card).size(), cardBefore.size() + 2);
    EXPECT_FALSE(QFileInfo::exists(card + "/IMG_0003.xmp"));
    EXPECT_FALSE(QFileInfo::exists(card + "/IMG_0004.xmp"));
    EXPECT_EQ(XMPSidecar::read(card + "/IMG_0001.xmp"), ratings.value("IMG_0001"));
    EXPECT_TRUE(read(card + "/IMG_0002.xmp").contains("xmp:Rating=\"0\"")) << "the cleared rating was not written";
    EXPECT_TRUE(read(card + "/IMG_0002.xmp").contains("photoshop:City=\"Tampere\""));
}

TEST(HandoffFilesTest, RejectsMoveAsideTwiceAndComeBackUnlessReplaced)
{
    QTemporaryDir dir;
    const QString card = dir.path();
    const auto fill = [&](const QByteArray &generation) {
        write(card + "/DCIM/IMG_0001.CR3", "raw 1 " + generation);
        write(card + "/DCIM/IMG_0001.JPG", "jpeg 1 " + generation);
        write(card + "/DCIM/IMG_0001.xmp", "sidecar 1 " + generation);
        write(card + "/DCIM/IMG_0002.CR3", "raw 2 " + generation);
    };
    const QList<Shot> shots{Shot("DCIM/IMG_0001", {card + "/DCIM/IMG_0001.CR3", card + "/DCIM/IMG_0001.JPG"}),
                            Shot("DCIM/IMG_0002", {card + "/DCIM/IMG_0002.CR3"})};
    fill("first");
    const Handoff::MoveResult first = Handoff::moveRejects(shots, card);
    EXPECT_EQ(first.rejectedFolder, card + "/Rejected");
    EXPECT_EQ(first.moves.size(), 4);
    EXPECT_EQ(tree(card), (QStringList{"Rejected/DCIM/IMG_0001.CR3", "Rejected/DCIM/IMG_0001.JPG",
                                       "Rejected/DCIM/IMG_0001.xmp", "Rejected/DCIM/IMG_0002.CR3"}));

    fill("second");
    const Handoff::MoveResult second = Handoff::moveRejects(shots, card);
    EXPECT_EQ(second.moves.last(), (Handoff::Move{card + "/DCIM/IMG_0002.CR3", card + "/Rejected/DCIM/IMG_0002 2.CR3"}));
    EXPECT_EQ(tree(card + "/Rejected/DCIM"),
              (QStringList{"IMG_0001 2.CR3", "IMG_0001 2.JPG", "IMG_0001 2.xmp", "IMG_0001.CR3", "IMG_0001.JPG",
                           "IMG_0001.xmp", "IMG_0002 2.CR3", "IMG_0002.CR3"}));
    EXPECT_EQ(read(card + "/Rejected/DCIM/IMG_0001.CR3"), "raw 1 first");
    EXPECT_EQ(read(card + "/Rejected/DCIM/IMG_0001 2.CR3"), "raw 1 second");

    // A new file where IMG_0002 was: that pair stays in Rejected, the rest come back.
    write(card + "/DCIM/IMG_0002.CR3", "a newcomer");
    Handoff::undo(second.moves);
    EXPECT_EQ(read(card + "/DCIM/IMG_0001.CR3"), "raw 1 second");
    EXPECT_EQ(read(card + "/DCIM/IMG_0001.xmp"), "sidecar 1 second");
    EXPECT_EQ(read(card + "/DCIM/IMG_0002.CR3"), "a newcomer");
    EXPECT_EQ(read(card + "/Rejected/DCIM/IMG_0002 2.CR3"), "raw 2 second");
    EXPECT_EQ(tree(card + "/Rejected/DCIM").size(), 5);

    // Putting back a move whose file has gone fails and names it.
    ASSERT_TRUE(QFile::remove(card + "/DCIM/IMG_0002.CR3"));
    ASSERT_TRUE(QFile::remove(card + "/Rejected/DCIM/IMG_0002 2.CR3"));
    EXPECT_THROW(Handoff::undo({second.moves.last()}), FileError);

    QTemporaryDir empty;
    const Handoff::MoveResult none = Handoff::moveRejects({}, empty.path());
    EXPECT_TRUE(none.moves.isEmpty());
    EXPECT_FALSE(QFileInfo::exists(empty.path() + "/Rejected"));
}

TEST(HandoffFilesTest, NamesPathsSizesAndWritability)
{
    QTemporaryDir dir;
    const QString folder = dir.path();
    EXPECT_EQ(Handoff::uniqueTarget(folder + "/IMG_0001.CR3"), folder + "/IMG_0001.CR3");
    write(folder + "/IMG_0001.CR3", "1");
    EXPECT_EQ(Handoff::uniqueTarget(folder + "/IMG_0001.CR3"), folder + "/IMG_0001 2.CR3");
    write(folder + "/IMG_0001 2.CR3", "2");
    EXPECT_EQ(Handoff::uniqueTarget(folder + "/IMG_0001.CR3"), folder + "/IMG_0001 3.CR3");
    write(folder + "/NAME", "n");
    EXPECT_EQ(Handoff::uniqueTarget(folder + "/NAME"), folder + "/NAME 2");
    write(folder + "/.hidden", "h");
    EXPECT_EQ(Handoff::uniqueTarget(folder + "/.hidden"), folder + "/.hidden 2");
    ASSERT_TRUE(QDir().mkpath(folder + "/taken.d"));
    EXPECT_EQ(Handoff::uniqueTarget(folder + "/taken.d"), folder + "/taken 2.d") << "a folder takes a name too";

    EXPECT_EQ(Handoff::relativePath("/card/DCIM/100CANON/IMG_0001.CR3", "/card"), "DCIM/100CANON/IMG_0001.CR3");
    EXPECT_EQ(Handoff::relativePath("/card/DCIM/IMG_0001.CR3", "/card/"), "DCIM/IMG_0001.CR3");
    EXPECT_EQ(Handoff::relativePath("/card//DCIM/./IMG_0001.CR3", "/card"), "DCIM/IMG_0001.CR3");
    EXPECT_EQ(Handoff::relativePath("/cardigan/IMG_0001.CR3", "/card"), "IMG_0001.CR3");
    EXPECT_EQ(Handoff::relativePath("/elsewhere/IMG_0001.CR3", "/card"), "IMG_0001.CR3");

    EXPECT_EQ(Handoff::size(folder + "/IMG_0001 2.CR3"), 1u);
    EXPECT_EQ(Handoff::size(folder + "/missing"), 0u);

    EXPECT_TRUE(Handoff::canWrite(folder, false));
    EXPECT_TRUE(Handoff::canWrite(folder, true));
    EXPECT_FALSE(Handoff::canWrite(folder + "/missing", true));
    EXPECT_EQ(tree(folder), (QStringList{".hidden", "IMG_0001 2.CR3", "IMG_0001.CR3", "NAME"}))
        << "the write probe was left behind";
}
