#include "SorviKit/library/Catalog.h"
#include "TestFiles.h"

#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace {

QByteArray fileBytes(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

const Rating threeStarRedPick{3, Rating::Flag::pick, Rating::Label::red};

} // namespace

TEST(CatalogTest, RatingsAreWrittenThroughAndRestored)
{
    QTemporaryDir store, shoot;
    {
        Catalog catalog(shoot.path(), store.path());
        EXPECT_EQ(QFileInfo(catalog.file()).fileName(), Catalog::key(shoot.path()) + ".json");
        catalog.set(threeStarRedPick, "day2/DSC_0042");
        catalog.set(Rating{0, Rating::Flag::none, Rating::Label::purple}, "a \"quoted\"\\name");
        catalog.set(Rating{1, Rating::Flag::reject, Rating::Label::none}, "gone");
        catalog.set(Rating(), "gone"); // an empty rating removes the entry
        EXPECT_FALSE(catalog.rating("gone"));
    }
    const QByteArray json = fileBytes(Catalog(shoot.path(), store.path()).file());
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

TEST(CatalogTest, AnyMalformedRatingLeavesTheCatalogEmptyUntilTheNextSave)
{
    const QByteArray good = R"({"version":1,"folder":"/x","ratings":{"a":{"stars":2,"flag":"pick","label":""}}})";
    ASSERT_TRUE(Catalog::decode(good));
    for (const QByteArray &bad : {
             QByteArray(R"({"version":1,"folder":"/x","ratings":{"a":{"stars":2,"flag":"maybe","label":""}}})"),
             QByteArray(R"({"version":1,"folder":"/x","ratings":{"a":{"stars":2,"flag":"pick","label":"red"}}})"),
             QByteArray(R"({"version":1,"folder":"/x","ratings":{"a":{"stars":2.5,"flag":"pick","label":""}}})"),
             QByteArray(R"({"version":1,"folder":"/x","ratings":{"a":{"stars":"2","flag":"pick","label":""}}})"),
             QByteArray(R"({"version":1,"folder":"/x","ratings":{"a":{"flag":"pick","label":""}}})"),
             QByteArray(R"({"version":1,"ratings":{}})"),
             QByteArray("{\"version\":1,"), QByteArray(), QByteArray("[]")})
        EXPECT_FALSE(Catalog::decode(bad)) << bad.constData();

    QTemporaryDir store, shoot;
    const QString file = store.path() + '/' + Catalog::key(shoot.path()) + ".json";
    const QByteArray broken =
        R"({"version":1,"folder":"/x","ratings":{"a":{"stars":2,"flag":"pick","label":""},"b":{"stars":1,"flag":"maybe","label":""}}})";
    TestFiles::write(file, broken);
    Catalog catalog(shoot.path(), store.path());
    EXPECT_TRUE(catalog.ratings().isEmpty());
    EXPECT_EQ(fileBytes(file), broken); // left alone until we write
    catalog.set(Rating{4}, "c");
    EXPECT_EQ(Catalog::decode(fileBytes(file))->keys(), QStringList{"c"});
}

TEST(CatalogTest, KeyFollowsTheVolumeNotTheMountPoint)
{
    const QString onCard = Catalog::key("1234-ABCD", "/media/me/EOS_DIGITAL", "/media/me/EOS_DIGITAL/DCIM");
    EXPECT_EQ(onCard, Catalog::key("1234-ABCD", "/mnt/card", "/mnt/card/DCIM"));
    EXPECT_NE(onCard, Catalog::key("9999-0000", "/mnt/card", "/mnt/card/DCIM"));
    EXPECT_NE(Catalog::key("local", "/", "/home/me/DCIM"), Catalog::key("local", "/", "/home/you/DCIM"));
    EXPECT_EQ(onCard.size(), 24);
    EXPECT_TRUE(QRegularExpression("^[0-9a-f]{24}$").match(onCard).hasMatch());
    // sha256("local|/photos") starts with these 12 bytes.
    EXPECT_EQ(Catalog::key("local", "/", "/photos"), "f5aad66555702b5b772b6a4f");

    QTemporaryDir dir;
    EXPECT_EQ(Catalog::key(dir.path()), Catalog::key(dir.path() + "/./"));
}
