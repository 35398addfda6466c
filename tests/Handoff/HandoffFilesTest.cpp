#include "HandoffTestFiles.h"
#include "SorviKit/handoff/XMPSidecar.h"

#include <QRegularExpression>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace HandoffTest;

namespace {

const Rating pick3Red{3, Rating::Flag::pick, Rating::Label::red};

// A sidecar as another editor leaves it, with a property that is not ours.
const QByteArray foreignSidecar = "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\">"
                                  "<rdf:RDF xmlns:rdf=\"http://www.w3.org/1999/02/22-rdf-syntax-ns#\">"
                                  "<rdf:Description rdf:about=\"\" xmlns:xmp=\"http://ns.adobe.com/xap/1.0/\" "
                                  "xmlns:photoshop=\"http://ns.adobe.com/photoshop/1.0/\" xmp:Rating=\"4\" "
                                  "photoshop:City=\"Tampere\"/></rdf:RDF></x:xmpmeta>\n";

} // namespace

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

    // Beside the RAWs: the cleared rating replaces the other editor's.
    EXPECT_EQ(Handoff::writeSidecars(shots, ratings), 3);
    EXPECT_EQ(XMPSidecar::read(card + "/IMG_0001.xmp"), ratings.value("IMG_0001"));
    EXPECT_TRUE(read(card + "/IMG_0002.xmp").contains("xmp:Rating=\"0\"")) << "the cleared rating was not written";
}

TEST(HandoffFilesTest, NamesPathsAndWritability)
{
    QTemporaryDir dir;
    const QString folder = dir.path();
    for (const char *name : {"IMG_0001.CR3", "IMG_0001 2.CR3", "NAME", ".hidden", "taken.d/inside"})
        write(folder + '/' + name, "taken");
    // A leading dot is no extension, and a folder takes a name too.
    for (const auto &[wanted, free] : QList<std::pair<QString, QString>>{
             {"free.CR3", "free.CR3"}, {"IMG_0001.CR3", "IMG_0001 3.CR3"}, {"NAME", "NAME 2"}, {".hidden", ".hidden 2"},
             {"taken.d", "taken 2.d"}})
        EXPECT_EQ(Handoff::uniqueTarget(folder + '/' + wanted), folder + '/' + free);

    EXPECT_EQ(Handoff::relativePath("/card/DCIM/IMG_0001.CR3", "/card/"), "DCIM/IMG_0001.CR3");
    EXPECT_EQ(Handoff::relativePath("/card//DCIM/./IMG_0001.CR3", "/card"), "DCIM/IMG_0001.CR3");
    EXPECT_EQ(Handoff::relativePath("/cardigan/IMG_0001.CR3", "/card"), "IMG_0001.CR3");

    EXPECT_TRUE(Handoff::canWrite(folder, true));
    EXPECT_FALSE(Handoff::canWrite(folder + "/missing", true));
    EXPECT_EQ(tree(folder), (QStringList{".hidden", "IMG_0001 2.CR3", "IMG_0001.CR3", "NAME", "taken.d/inside"}))
        << "the write probe was left behind";
}

// darktable and digiKam find a sidecar for every file, named after its whole name, with
// the rating, colour label and flag in the properties they read. What another tool wrote
// in an existing sidecar stays as it was, line for line, through every rewrite.
TEST(HandoffFilesTest, DarktableSidecarsCarryTheRatingAndKeepForeignMetadata)
{
    QTemporaryDir dir;
    const QString card = dir.path() + "/card", mirror = dir.path() + "/mirror";
    // darktable's own sidecar for the RAW, its lines that are ours marked with "*".
    const QStringList lines{
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>",
        "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\" x:xmptk=\"XMP Core 4.4.0-Exiv2\">",
        " <rdf:RDF xmlns:rdf=\"http://www.w3.org/1999/02/22-rdf-syntax-ns#\">",
        "*  <rdf:Description rdf:about=\"\"",
        "    xmlns:xmp=\"http://ns.adobe.com/xap/1.0/\"",
        "    xmlns:darktable=\"http://darktable.sf.net/\"",
        "*    xmp:Rating=\"4\"",
        "    darktable:xmp_version=\"5\"",
        "    darktable:history_end=\"1\">",
        "*   <darktable:colorlabels>",
        "*    <rdf:Seq>",
        "*     <rdf:li>2</rdf:li>",
        "*     <rdf:li>3</rdf:li>",
        "*    </rdf:Seq>",
        "*   </darktable:colorlabels>",
        "   <darktable:history>",
        "    <rdf:Seq>",
        "     <rdf:li darktable:operation=\"exposure\" darktable:params=\"0000c0bf\"/>",
        "    </rdf:Seq>",
        "   </darktable:history>",
        "  </rdf:Description>",
        " </rdf:RDF>",
        "</x:xmpmeta>",
        ""};
    QStringList foreign;
    for (const QString &line : lines)
        if (!line.startsWith('*'))
            foreign << line;
    const QByteArray darktableSidecar = QStringList(lines).replaceInStrings(QRegularExpression("^\\*"), "").join('\n').toUtf8();
    write(card + "/IMG_0001.CR3", "raw 1");
    write(card + "/IMG_0001.CR3.xmp", darktableSidecar);
    write(card + "/IMG_0001.JPG", "jpeg 1");
    write(card + "/IMG_0002.JPG", "jpeg 2");
    write(card + "/IMG_0003.NEF", "raw 3");
    const QList<Shot> shots{Shot("IMG_0001", {card + "/IMG_0001.CR3", card + "/IMG_0001.JPG"}),
                            Shot("IMG_0002", {card + "/IMG_0002.JPG"}), Shot("IMG_0003", {card + "/IMG_0003.NEF"})};
    QHash<QString, Rating> ratings{{"IMG_0001", pick3Red},
                                   {"IMG_0002", Rating{0, Rating::Flag::reject, Rating::Label::purple}}};
    const auto dt = XMPSidecar::Style::darktable;
    // The lines of a rewritten sidecar that are not ours: they must be the other tool's,
    // unchanged. (Taking out an attribute that stood on a line of its own leaves its indent.)
    const auto foreignLines = [](const QByteArray &text) {
        QStringList kept;
        static const QRegularExpression ours("<rdf:Description|xmp:Rating|digiKam:|darktable:colorlabels|dc:subject");
        for (const QString &line : QString::fromUtf8(text).split('\n'))
            if (!ours.match(line).hasMatch() && !line.trimmed().isEmpty())
                kept << line;
        return kept;
    };
    foreign.removeAll(QString());

    EXPECT_EQ(Handoff::writeSidecars(shots, ratings, card, mirror, dt), 3);
    EXPECT_EQ(tree(mirror), (QStringList{"IMG_0001.CR3.xmp", "IMG_0001.JPG.xmp", "IMG_0002.JPG.xmp"}));
    const QByteArray raw = read(mirror + "/IMG_0001.CR3.xmp");
    EXPECT_EQ(foreignLines(raw), foreign);
    EXPECT_EQ(raw.count("xmp:Rating="), 1);
    for (const char *field : {" xmp:Rating=\"3\"", " xmp:Label=\"Red\"", " digiKam:ColorLabel=\"1\"",
                              " digiKam:PickLabel=\"3\"", "xmlns:digiKam=\"http://www.digikam.org/ns/1.0/\"",
                              "<darktable:colorlabels><rdf:Seq><rdf:li>0</rdf:li></rdf:Seq></darktable:colorlabels>",
                              "<rdf:li>Sorvi Pick</rdf:li>"})
        EXPECT_TRUE(raw.contains(field)) << field << " missing in\n" << raw.constData();
    EXPECT_FALSE(raw.contains("<rdf:li>3</rdf:li>")) << "darktable's old labels were left beside ours";
    EXPECT_EQ(XMPSidecar::read(mirror + "/IMG_0001.CR3.xmp"), pick3Red);
    // A fresh one for a JPEG-only reject: darktable's -1, digiKam's rejected and magenta.
    const QByteArray jpeg = read(mirror + "/IMG_0002.JPG.xmp");
    for (const char *field : {" xmp:Rating=\"-1\"", " digiKam:ColorLabel=\"6\"", " digiKam:PickLabel=\"1\"",
                              "<rdf:li>4</rdf:li>", "xmlns:darktable=\"http://darktable.sf.net/\""})
        EXPECT_TRUE(jpeg.contains(field)) << field << " missing in\n" << jpeg.constData();
    EXPECT_EQ(XMPSidecar::read(mirror + "/IMG_0002.JPG.xmp"), ratings.value("IMG_0002"));

    // Beside the photos, the rating taken away again: labels and flags are cleared for
    // both programs, and the other tool's lines are still all there.
    ratings.remove("IMG_0001");
    EXPECT_EQ(Handoff::writeSidecars(shots, ratings, dt), 2) << "the RAW's sidecar exists, the unrated JPEG has none";
    const QByteArray cleared = read(card + "/IMG_0001.CR3.xmp");
    EXPECT_EQ(foreignLines(cleared), foreign);
    for (const char *field : {" xmp:Rating=\"0\"", " digiKam:ColorLabel=\"0\"", " digiKam:PickLabel=\"0\""})
        EXPECT_TRUE(cleared.contains(field)) << field << " missing in\n" << cleared.constData();
    EXPECT_FALSE(cleared.contains("colorlabels") || cleared.contains("Sorvi Pick") || cleared.contains("xmp:Label"));
    EXPECT_FALSE(QFileInfo::exists(card + "/IMG_0001.xmp")) << "a Lightroom sidecar was written";
}
