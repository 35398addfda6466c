#include "SorviKit/checks/AssessmentStore.h"
#include "TestFiles.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include <gtest/gtest.h>

TEST(AssessmentStore, SurvivesAReopenAndWritesFaceQualityOnlyWhenPresent)
{
    QTemporaryDir catalogs, folder;
    Assessment withFace{812.25, 2, 1, 0.625};
    Assessment withoutFace{0.1, 0, 0, std::nullopt};
    {
        AssessmentStore store(folder.path(), catalogs.path());
        EXPECT_TRUE(store.results().isEmpty());
        store.set(withFace, "DCIM/IMG_0001");
        store.set(withoutFace, "DCIM/IMG_0002");
        store.save();
    }
    AssessmentStore reopened(folder.path(), catalogs.path());
    EXPECT_EQ(reopened.result("DCIM/IMG_0001"), withFace);
    EXPECT_EQ(reopened.result("DCIM/IMG_0002"), withoutFace);
    EXPECT_FALSE(reopened.result("DCIM/IMG_0003").has_value());
    EXPECT_TRUE(reopened.file().endsWith(".checks.json"));

    const QJsonObject root = QJsonDocument::fromJson(TestFiles::read(reopened.file())).object();
    EXPECT_EQ(root["version"].toInt(), 2);
    const QJsonObject results = root["results"].toObject();
    EXPECT_EQ(results["DCIM/IMG_0001"].toObject().keys(), (QStringList{"eyesClosed", "faceQuality", "faces", "sharpness"}));
    EXPECT_FALSE(results["DCIM/IMG_0002"].toObject().contains("faceQuality"));

    // Another folder never shares the file.
    QTemporaryDir other;
    AssessmentStore otherStore(other.path(), catalogs.path());
    EXPECT_NE(otherStore.file(), reopened.file());
    EXPECT_TRUE(otherStore.results().isEmpty());
}

TEST(AssessmentStore, OtherVersionsAndMalformedFilesStartEmptyAndAreReplaced)
{
    QTemporaryDir catalogs, folder;
    const QString file = AssessmentStore(folder.path(), catalogs.path()).file();
    const QByteArray entry = R"({"a":{"sharpness":5,"faces":0,"eyesClosed":0}})";
    for (const QByteArray &content :
         {"{\"version\":1,\"results\":" + entry + "}", "{\"version\":3,\"results\":" + entry + "}",
          QByteArray("{\"version\":2,\"results\":{\"a\":{\"sharpness\":5}}}"), QByteArray("not json"),
          QByteArray("{\"version\":2,\"results\":{\"a\":{\"sharpness\":\"5\",\"faces\":0,\"eyesClosed\":0}}}")}) {
        TestFiles::write(file, content);
        AssessmentStore store(folder.path(), catalogs.path());
        EXPECT_TRUE(store.results().isEmpty()) << content.constData();
        store.set(Assessment{7, 1, 0, 0.5}, "b");
        store.save();
        EXPECT_EQ(QJsonDocument::fromJson(TestFiles::read(file)).object()["version"].toInt(), 2);
        EXPECT_EQ(AssessmentStore(folder.path(), catalogs.path()).results().keys(), QStringList{"b"});
    }
    TestFiles::write(file, "{\"version\":2,\"results\":" + entry + "}");
    EXPECT_EQ(AssessmentStore(folder.path(), catalogs.path()).result("a")->sharpness, 5.0);
}
