// What hand-off leaves for an editor: XMP sidecars beside the photos, and the Lightroom
// Classic plug-in that reads the flags list.
#include "SorviKit/core/FileError.h"
#include "SorviKit/handoff/LightroomPlugin.h"
#include "SorviKit/handoff/XMPSidecar.h"
#include "SorviKit/library/ShotScanner.h"
#include "TestFiles.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <csignal>
#include <sys/resource.h>

namespace {

const Rating threeStarGreenPick{3, Rating::Flag::pick, Rating::Label::green};
const Rating rejected{0, Rating::Flag::reject, Rating::Label::none};

QStringList entries(const QString &folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
}

const QString saved = QStringLiteral("Saved. In Lightroom Classic: File ▸ Plug-in Manager ▸ Add.");

} // namespace

TEST(XMPSidecarTest, FreshSidecarsAreExactAndReadBack)
{
    EXPECT_EQ(XMPSidecar::fresh(threeStarGreenPick),
              "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\" x:xmptk=\"Kestrane Sorvi\">\n"
              " <rdf:RDF xmlns:rdf=\"http://www.w3.org/1999/02/22-rdf-syntax-ns#\">\n"
              "  <rdf:Description rdf:about=\"\"\n"
              "    xmlns:xmp=\"http://ns.adobe.com/xap/1.0/\"\n"
              "    xmlns:dc=\"http://purl.org/dc/elements/1.1/\"\n"
              "    xmlns:kestrane=\"https://kestrane.app/ns/sorvi/1.0/\""
              " xmp:Rating=\"3\" xmp:Label=\"Green\" kestrane:Pick=\"1\">\n"
              "   <dc:subject><rdf:Bag><rdf:li>Sorvi Pick</rdf:li></rdf:Bag></dc:subject>\n"
              "  </rdf:Description>\n"
              " </rdf:RDF>\n"
              "</x:xmpmeta>\n");

    const QString reject = XMPSidecar::fresh(Rating{4, Rating::Flag::reject, Rating::Label::none});
    EXPECT_TRUE(reject.contains("/1.0/\" xmp:Rating=\"-1\">\n"
                                "   <dc:subject><rdf:Bag><rdf:li>Sorvi Reject</rdf:li></rdf:Bag></dc:subject>\n"))
        << reject.toStdString();
    EXPECT_FALSE(reject.contains("kestrane:Pick"));

    for (const Rating &rating : {threeStarGreenPick, rejected, Rating(), Rating{5, Rating::Flag::none, Rating::Label::purple},
                                 Rating{0, Rating::Flag::pick, Rating::Label::none}}) {
        SCOPED_TRACE(XMPSidecar::attributes(rating).toStdString());
        EXPECT_EQ(XMPSidecar::parse(XMPSidecar::fresh(rating)), rating);
        const QString updated = XMPSidecar::update(XMPSidecar::fresh(rating), rating);
        EXPECT_EQ(XMPSidecar::parse(updated), rating);
        EXPECT_EQ(XMPSidecar::update(updated, rating), updated) << "updating must settle";
    }
}

TEST(XMPSidecarTest, WritingOverALightroomSidecarKeepsEverythingElse)
{
    SKIP_WITHOUT_CORPUS();
    QTemporaryDir dir;
    const QString photo = dir.path() + "/DSC_0042.NEF";
    const QString sidecar = XMPSidecar::pathFor(photo);
    ASSERT_TRUE(QFile::copy(TestFiles::corpus() + "/pairs/DSC_0042.xmp", sidecar));
    QFile::setPermissions(sidecar, QFile::ReadOwner | QFile::WriteOwner);
    const QByteArray original = TestFiles::read(sidecar);
    ASSERT_EQ(XMPSidecar::read(sidecar), (Rating{3, Rating::Flag::none, Rating::Label::red}));

    const Rating pick{3, Rating::Flag::pick, Rating::Label::red};
    XMPSidecar::write(pick, photo);
    const QByteArray written = TestFiles::read(sidecar);
    EXPECT_TRUE(written.contains("<rdf:Bag><rdf:li>Sorvi Pick</rdf:li>\n    <rdf:li>client-selects</rdf:li>"));
    EXPECT_EQ(XMPSidecar::read(sidecar), pick);

    // Without our parts, the file is the original byte for byte (its packet header's
    // byte order mark and single quotes included).
    QByteArray ours = written;
    ours.replace(" xmlns:kestrane=\"https://kestrane.app/ns/sorvi/1.0/\"" + XMPSidecar::attributes(pick).toUtf8(), "");
    ours.replace("<rdf:li>Sorvi Pick</rdf:li>", "");
    QByteArray theirs = original;
    theirs.replace("\n  <xmp:Label>Red</xmp:Label>", "").replace("\n  <xmp:Rating>3</xmp:Rating>", "");
    EXPECT_EQ(ours, theirs);

    // Writing again keeps the one declaration and puts the properties before it; from
    // then on the text no longer changes.
    XMPSidecar::write(pick, photo);
    const QByteArray again = TestFiles::read(sidecar);
    EXPECT_EQ(QByteArray(again).replace(" xmlns:kestrane=\"https://kestrane.app/ns/sorvi/1.0/\"", ""),
              QByteArray(written).replace(" xmlns:kestrane=\"https://kestrane.app/ns/sorvi/1.0/\"", ""));
    XMPSidecar::write(pick, photo);
    EXPECT_EQ(TestFiles::read(sidecar), again) << "writing the same rating again changes nothing";

    XMPSidecar::write(Rating{3, Rating::Flag::none, Rating::Label::red}, photo);
    const QByteArray unflagged = TestFiles::read(sidecar);
    EXPECT_FALSE(unflagged.contains("Sorvi Pick"));
    EXPECT_TRUE(unflagged.contains("<rdf:Bag>\n    <rdf:li>client-selects</rdf:li>\n   </rdf:Bag>"));
    EXPECT_EQ(XMPSidecar::read(sidecar), (Rating{3, Rating::Flag::none, Rating::Label::red}));
}

TEST(XMPSidecarTest, UpdateCopesWithOtherToolsShapes)
{
    const QString elements = "<x:xmpmeta xmlns:x='adobe:ns:meta/'><rdf:RDF>\n"
                             " <rdf:Description rdf:about=''>\n"
                             "  <xmp:Rating>2</xmp:Rating>\n"
                             "  <xmp:Label>Blue</xmp:Label>\n"
                             " </rdf:Description>\n"
                             "</rdf:RDF></x:xmpmeta>\n";
    EXPECT_EQ(XMPSidecar::update(elements, Rating{5, Rating::Flag::none, Rating::Label::none}),
              "<x:xmpmeta xmlns:x='adobe:ns:meta/'><rdf:RDF>\n"
              " <rdf:Description xmlns:xmp=\"http://ns.adobe.com/xap/1.0/\" xmp:Rating=\"5\" rdf:about=''>\n"
              " </rdf:Description>\n"
              "</rdf:RDF></x:xmpmeta>\n");

    const QString selfClosing = " <rdf:Description rdf:about=\"\" xmlns:xmp=\"http://ns.adobe.com/xap/1.0/\""
                                " xmp:Rating=\"2\"/>\n";
    EXPECT_EQ(XMPSidecar::update(selfClosing, rejected),
              " <rdf:Description xmlns:dc=\"http://purl.org/dc/elements/1.1/\" xmp:Rating=\"-1\" rdf:about=\"\""
              " xmlns:xmp=\"http://ns.adobe.com/xap/1.0/\">\n"
              "   <dc:subject><rdf:Bag><rdf:li>Sorvi Reject</rdf:li></rdf:Bag></dc:subject>\n"
              "  </rdf:Description>\n");

    // A bag that held only our keyword goes away with it; the rating itself stays.
    const QString cleared = XMPSidecar::update(XMPSidecar::fresh(threeStarGreenPick), Rating());
    EXPECT_FALSE(cleared.contains("dc:subject")) << cleared.toStdString();
    EXPECT_FALSE(cleared.contains("kestrane:Pick"));
    EXPECT_TRUE(cleared.contains("<rdf:Description xmp:Rating=\"0\" rdf:about=\"\""));

    // Without a description there is nowhere to put our properties: start over.
    EXPECT_EQ(XMPSidecar::update("<x:xmpmeta><rdf:RDF/></x:xmpmeta>\n", rejected), XMPSidecar::fresh(rejected));
    EXPECT_EQ(XMPSidecar::update("", Rating()), XMPSidecar::fresh(Rating()));
}

TEST(XMPSidecarTest, ParseFollowsTheOwnedProperties)
{
    const std::pair<QString, std::optional<Rating>> cases[] = {
        {" xmp:Rating=\"-1\" kestrane:Pick=\"1\"", rejected}, // a rejection wins over a pick
        {" xmp:Rating=\"7\"", Rating{5}},
        {" xmp:Rating=\" +3\t\"", Rating{3}},
        {" xmp:Rating=\"three\" xmp:Label=\"Yellow\"", Rating{0, Rating::Flag::none, Rating::Label::yellow}},
        {" xmp:Rating=\"99999999999999999999\"", Rating()}, // an unparseable number gives no stars
        {" xmp:Label=\"red\"", Rating()}, // labels are case-sensitive, but the property still counts
        {" kestrane:Pick=\"yes\" xmp:Rating=\"2\"", Rating{2}},
        {" kestrane:Pick=\"1\"", Rating{0, Rating::Flag::pick, Rating::Label::none}},
        {" xmp:Rating=\"4\" xmp:Rating=\"1\"", Rating{4}}, // only the first value counts
        {" photoshop:Urgency=\"1\"", std::nullopt},
    };
    for (const auto &[attributes, rating] : cases)
        EXPECT_EQ(XMPSidecar::parse("<rdf:Description rdf:about=\"\"" + attributes + "/>"), rating)
            << attributes.toStdString();
    EXPECT_EQ(XMPSidecar::parse("<xmp:Rating>2</xmp:Rating><xmp:Label>Purple</xmp:Label>"),
              (Rating{2, Rating::Flag::none, Rating::Label::purple}));
    EXPECT_FALSE(XMPSidecar::parse(""));
    EXPECT_FALSE(XMPSidecar::parse("<dc:subject><rdf:Bag><rdf:li>Sorvi Pick</rdf:li></rdf:Bag></dc:subject>"))
        << "keywords are never read back";

    // The sidecar's path replaces the last extension.
    EXPECT_EQ(XMPSidecar::pathFor("/card/DCIM/IMG_1.ARW"), "/card/DCIM/IMG_1.xmp");
    EXPECT_EQ(XMPSidecar::pathFor("/card/v1.2/IMG.final.CR3"), "/card/v1.2/IMG.final.xmp");
    EXPECT_EQ(XMPSidecar::pathFor("/card/v1.2/IMG"), "/card/v1.2/IMG.xmp");
}

TEST(XMPSidecarTest, WriteFailuresAreThrownAndKeepTheOldSidecarReadFailuresAreQuiet)
{
    QTemporaryDir dir;
    QDir(dir.path()).mkpath("IMG_2.xmp");
    try {
        XMPSidecar::write(rejected, dir.path() + "/IMG_2.JPG");
        ADD_FAILURE() << "writing over a folder must fail";
    } catch (const FileError &error) {
        EXPECT_TRUE(error.description().startsWith("Couldn't write " + dir.path() + "/IMG_2.xmp: "))
            << error.description().toStdString();
    }
    EXPECT_TRUE(QFileInfo(dir.path() + "/IMG_2.xmp").isDir());

    // A disk that fills up half-way through the write leaves the previous sidecar as it was.
    const QByteArray previous = "<rdf:Description" + QByteArray(64 * 1024, ' ') + "/>";
    TestFiles::write(dir.path() + "/IMG_3.xmp", previous);
    // The size limit on files this process may write binds root too.
    rlimit usual{};
    getrlimit(RLIMIT_FSIZE, &usual);
    const rlimit limited{4096, usual.rlim_max};
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &limited);
    EXPECT_THROW(XMPSidecar::write(threeStarGreenPick, dir.path() + "/IMG_3.JPG"), FileError);
    setrlimit(RLIMIT_FSIZE, &usual);
    std::signal(SIGXFSZ, handler);
    EXPECT_EQ(TestFiles::read(dir.path() + "/IMG_3.xmp"), previous);
    XMPSidecar::write(threeStarGreenPick, dir.path() + "/IMG_3.JPG");
    EXPECT_EQ(XMPSidecar::read(dir.path() + "/IMG_3.xmp"), threeStarGreenPick) << "the same write succeeds with room";

    // Reading fails quietly…
    EXPECT_FALSE(XMPSidecar::read(dir.path() + "/missing.xmp"));
    EXPECT_FALSE(XMPSidecar::read(dir.path()));
    TestFiles::write(dir.path() + "/bad.xmp", "<x xmp:Rating=\"3\" \xff\xfe/>");
    EXPECT_FALSE(XMPSidecar::read(dir.path() + "/bad.xmp")) << "invalid UTF-8 is unreadable";

    // …and an unreadable sidecar is replaced by a fresh one rather than patched.
    XMPSidecar::write(rejected, dir.path() + "/bad.NEF");
    EXPECT_EQ(QString::fromUtf8(TestFiles::read(dir.path() + "/bad.xmp")), XMPSidecar::fresh(rejected));
}

TEST(XMPSidecarTest, RatingsOfShotsTakeTheFirstFileWhoseSidecarSaysSomething)
{
    QTemporaryDir dir;
    const QString root = dir.path();
    const QByteArray pick = XMPSidecar::fresh(threeStarGreenPick).toUtf8(), reject = XMPSidecar::fresh(rejected).toUtf8();
    const std::pair<const char *, QByteArray> files[] = {
        // A pair whose names differ in case: each file has its own sidecar.
        {"IMG_1.CR2", "x"}, {"img_1.jpg", "x"}, {"img_1.xmp", reject},
        // Both sidecars speak: the RAW comes first and wins.
        {"IMG_2.CR2", "x"}, {"IMG_2.xmp", pick}, {"img_2.JPG", "x"}, {"img_2.xmp", reject},
        // The RAW's sidecar states nothing of ours, so the JPEG's is used.
        {"IMG_3.NEF", "x"}, {"IMG_3.xmp", "<rdf:Description rdf:about='' aux:Lens='50mm'/>"},
        {"img_3.jpeg", "x"}, {"img_3.xmp", "<xmp:Rating>4</xmp:Rating>"},
        // No sidecar at all.
        {"IMG_4.JPG", "x"}};
    for (const auto &[name, bytes] : files)
        TestFiles::write(root + '/' + name, bytes);
    const QList<Shot> shots = ShotScanner::list(root);
    ASSERT_EQ(shots.size(), 4);
    ASSERT_EQ(shots.first().files.size(), 2);
    const QHash<QString, Rating> ratings = XMPSidecar::ratingsOf(shots);
    const QHash<QString, Rating> expected = {
        {shots.at(0).id, rejected}, {shots.at(1).id, threeStarGreenPick}, {shots.at(2).id, Rating{4}}};
    EXPECT_EQ(ratings, expected);
}

TEST(LightroomPlugin, SavesOrInstallsTheWholeBundleAndReplacesWhatWasThere)
{
    const auto shipped = TestFiles::snapshot(LightroomPlugin::bundlePath());
    for (const char *file : {"Info.lua", "ApplyFlags.lua", "FlagsList.lua"})
        EXPECT_TRUE(shipped.contains(file)) << file;

    QTemporaryDir folder;
    const QString target = folder.filePath(LightroomPlugin::bundleName);
    EXPECT_EQ(LightroomPlugin::save(target), saved);
    EXPECT_EQ(TestFiles::snapshot(target), shipped);
    // An earlier, changed copy is replaced whole: nothing of it survives.
    TestFiles::write(target + "/Info.lua", "return {}");
    TestFiles::write(target + "/old/Stale.lua", "-- from an earlier version");
    EXPECT_EQ(LightroomPlugin::save(target), saved);
    EXPECT_EQ(TestFiles::snapshot(target), shipped);
    // A file the user chose to replace in the save panel becomes the bundle folder.
    const QString overFile = folder.filePath("Chosen.lrplugin");
    TestFiles::write(overFile, "not a plug-in");
    EXPECT_EQ(LightroomPlugin::save(overFile), saved);
    EXPECT_EQ(TestFiles::snapshot(overFile), shipped);
    // No work-in-progress or replaced copies are left beside them.
    EXPECT_EQ(entries(folder.path()), (QStringList{"Chosen.lrplugin", LightroomPlugin::bundleName}));
    // An impossible place is reported, and nothing is written.
    const QString file = folder.filePath("photo.txt");
    TestFiles::write(file, "a regular file");
    const QString message = LightroomPlugin::save(file + '/' + LightroomPlugin::bundleName);
    EXPECT_TRUE(message.startsWith("Couldn't save: ")) << message.toStdString();
    EXPECT_EQ(TestFiles::read(file), "a regular file");
    EXPECT_EQ(entries(folder.path()).size(), 3);

    // Installing puts the bundle into Lightroom's modules folder in the data folder; a data
    // folder that can't be made is reported, not thrown.
    const QByteArray before = qgetenv("XDG_DATA_HOME");
    qputenv("XDG_DATA_HOME", QFile::encodeName(folder.filePath("data")));
    EXPECT_EQ(LightroomPlugin::install(), "Installed. Restart Lightroom Classic to load it.");
    const QString modules = folder.filePath("data/Adobe/Lightroom/Modules");
    EXPECT_EQ(entries(modules), QStringList{LightroomPlugin::bundleName});
    EXPECT_EQ(TestFiles::snapshot(modules + '/' + LightroomPlugin::bundleName), shipped);
    qputenv("XDG_DATA_HOME", QFile::encodeName(file));
    EXPECT_TRUE(LightroomPlugin::install().startsWith("Couldn't install: "));
    if (before.isNull())
        qunsetenv("XDG_DATA_HOME");
    else
        qputenv("XDG_DATA_HOME", before);
}
