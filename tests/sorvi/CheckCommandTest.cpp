#include "SorviProcess.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

class CheckCommandTest : public SorviProcessTest {};

TEST_F(CheckCommandTest, ChecksOnceThenReusesTheStoredResults)
{
    QTemporaryDir shoot;
    ASSERT_EQ(sorvi({"demo", shoot.path() + "/card", "--count", "14"}).exitCode, 0);
    const QString card = shoot.path() + "/card";

    const CommandRun first = sorvi({"check", card, "--json"});
    ASSERT_EQ(first.exitCode, 0) << first.err.constData();
    const QJsonObject json = QJsonDocument::fromJson(first.out).object();
    const QJsonObject shots = json["shots"].toObject();
    EXPECT_EQ(shots.size(), 14);
    for (const QString &id : shots.keys()) {
        const QJsonObject shot = shots[id].toObject();
        EXPECT_GT(shot["sharpness"].toDouble(), 0.0) << id.toStdString();
        EXPECT_TRUE(shot["faces"].isDouble());
        EXPECT_TRUE(shot["eyesClosed"].isDouble());
        EXPECT_TRUE(shot.contains("faceQuality")); // a number or null
    }
    EXPECT_FALSE(json["bursts"].toArray().isEmpty());
    EXPECT_EQ(json["bestOfBurst"].toArray().size(), json["bursts"].toArray().size());
    EXPECT_TRUE(json["soft"].isArray());
    EXPECT_TRUE(first.err.contains("14 photos checked now, 0 stored from before")) << first.err.constData();

    const CommandRun second = sorvi({"check", card});
    ASSERT_EQ(second.exitCode, 0);
    EXPECT_TRUE(second.err.contains("0 photos checked now, 14 stored from before")) << second.err.constData();
    EXPECT_TRUE(second.out.contains("Burst 1: "));
    EXPECT_TRUE(second.out.contains("sharpness "));

    EXPECT_EQ(sorvi({"check"}).exitCode, 2);
    EXPECT_EQ(sorvi({"check", shoot.path() + "/missing"}).exitCode, 1);
}
