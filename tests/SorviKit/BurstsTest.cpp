#include "SorviKit/checks/Bursts.h"

#include <gtest/gtest.h>

namespace {

Shot frame(const QString &id, std::optional<double> seconds, std::optional<QString> camera = QString("Canon EOS R5"))
{
    Shot shot(id, {"/s/" + id + ".JPG"});
    if (seconds)
        shot.captureDate = QDateTime(QDate(2024, 5, 18), QTime(14, 0), Qt::UTC).addMSecs(qint64(*seconds * 1000));
    shot.camera = camera;
    return shot;
}

} // namespace

TEST(BurstsTest, FramesJoinWithinTheGapOfTheirPreviousFrame)
{
    // Out of time order on input; a long series of short gaps is one burst.
    const QList<Shot> shots{frame("c", 0.8), frame("a", 0.0), frame("b", 0.4), frame("d", 2.3),
                            frame("e", 3.3), frame("f", 4.3), frame("g", 5.2)};
    EXPECT_EQ(Bursts::group(shots, 1.0), (QList<QStringList>{{"a", "b", "c"}, {"d", "e", "f", "g"}}));

    // A lone frame 1.5 s later is no burst; exactly the gap still joins.
    EXPECT_EQ(Bursts::group({frame("a", 0), frame("b", 0.4), frame("c", 1.9)}, 1.0),
              (QList<QStringList>{{"a", "b"}}));
    EXPECT_EQ(Bursts::group({frame("a", 0), frame("b", 1.0)}, 1.0), (QList<QStringList>{{"a", "b"}}));
}

TEST(BurstsTest, CamerasAndMissingDatesKeepFramesApart)
{
    const QList<Shot> twoCameras{frame("canon1", 12.3), frame("nikon1", 12.7, QString("NIKON D70")),
                                 frame("canon2", 13.0), frame("nikon2", 13.1, QString("NIKON D70"))};
    EXPECT_TRUE(Bursts::group(twoCameras, 1.0).isEmpty()) << "runs of one camera are broken by the other";

    EXPECT_EQ(Bursts::group({frame("a", 0, std::nullopt), frame("b", 0.5, std::nullopt)}, 1.0),
              (QList<QStringList>{{"a", "b"}}));
    EXPECT_TRUE(Bursts::group({frame("a", 0, std::nullopt), frame("b", 0.5)}, 1.0).isEmpty());
    EXPECT_TRUE(Bursts::group({frame("a", std::nullopt), frame("b", std::nullopt)}, 1.0).isEmpty());

    // Equal times keep their input order.
    EXPECT_EQ(Bursts::group({frame("y", 1.0), frame("x", 1.0)}, 1.0), (QList<QStringList>{{"y", "x"}}));
}
