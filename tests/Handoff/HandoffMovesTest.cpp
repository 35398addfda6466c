#include "SorviKit/core/FileError.h"
#include "SorviKit/handoff/HandoffPlan.h"
#include "SorviKit/handoff/MoveLog.h"
#include "HandoffTestFiles.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <optional>

using namespace HandoffTest;
using Handoff::Move;

TEST(HandoffMovesTest, EveryMovedRejectIsRecordedAndComesBackAfterAFailureOrAKill)
{
    // The second run stops after `moved` of its eight moves: killed right after that move,
    // or failing because the next reject's folder in Rejected is a plain file.
    const struct {
        int moved;
        bool killed;
    } stops[] = {{0, false}, {3, false}, {7, false}, {1, true}, {5, true}, {8, true}};
    for (const auto &stop : stops) {
        SCOPED_TRACE(testing::Message() << stop.moved << (stop.killed ? " moved, killed" : " moved, failed"));
        QTemporaryDir dir;
        const QString card = dir.path() + "/card";
        const QStringList files{"d1/IMG_1.CR3", "d1/IMG_1.JPG", "d1/IMG_1.xmp", "d2/IMG_2.CR3",
                                "d2/IMG_2.JPG", "d3/IMG_3.JPG", "d3/IMG_3.NEF", "d4/IMG_4.CR3"}; // in moving order
        // An earlier run's reject, a keeper, and the photographer's own file where IMG_3.NEF would go.
        for (const QString &file : files + QStringList{"d0/IMG_0.CR3", "d1/IMG_9.CR3", "Rejected/d3/IMG_3.NEF"})
            write(card + '/' + file, noise(1000, qHash(file)));
        const QList<Shot> shots{Shot("d1/IMG_1", {card + "/d1/IMG_1.CR3", card + "/d1/IMG_1.JPG"}),
                                Shot("d2/IMG_2", {card + "/d2/IMG_2.CR3", card + "/d2/IMG_2.JPG"}),
                                Shot("d3/IMG_3", {card + "/d3/IMG_3.NEF", card + "/d3/IMG_3.JPG"}),
                                Shot("d4/IMG_4", {card + "/d4/IMG_4.CR3"})};
        const QMap<QString, QString> original = snapshot(card);

        const MoveLog log(card, dir.path() + "/catalogs");
        const auto record = [&log](const Move &move) { log.append(move); };
        Handoff::moveRejects({Shot("d0/IMG_0", {card + "/d0/IMG_0.CR3"})}, card, record);
        const QString blocker = card + "/Rejected/" + files.value(stop.moved).section('/', 0, 0);
        if (stop.killed) {
            const pid_t child = ::fork();
            if (child == 0) {
                int count = 0;
                try {
                    Handoff::moveRejects(shots, card, record, [&](const Move &) {
                        if (++count == stop.moved)
                            ::_exit(0);
                    });
                } catch (const std::exception &) {
                    ::_exit(2);
                }
                ::_exit(1);
            }
            int status = -1;
            ASSERT_EQ(::waitpid(child, &status, 0), child);
            ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "child status " << status;
        } else {
            write(blocker, "in the way");
            EXPECT_THROW(Handoff::moveRejects(shots, card, record), FileError);
        }
        EXPECT_EQ(log.load().size(), 1 + stop.moved) << "a move without its record, or a record too many";

        // Records whose moves never happened or whose place is taken again are passed over.
        log.append({card + "/d5/IMG_5.CR3", card + "/Rejected/d5/IMG_5.CR3"});
        log.append({card + "/d1/IMG_9.CR3", card + "/Rejected/d3/IMG_3.NEF"});
        // Put back part-way: the earlier run's folder is a plain file now.
        ASSERT_TRUE(QDir(card + "/d0").removeRecursively());
        write(card + "/d0", "in the way");
        HandoffPlan::Report report = HandoffPlan::putBack(log);
        EXPECT_TRUE(report.failure.contains(card + "/d0")) << report.failure.toStdString();
        EXPECT_EQ(log.load(), (QList<Move>{{card + "/d0/IMG_0.CR3", card + "/Rejected/d0/IMG_0.CR3"}}));
        ASSERT_TRUE(QFile::remove(card + "/d0"));
        report = HandoffPlan::putBack(log);
        EXPECT_EQ(report, (HandoffPlan::Report{{"Rejects put back."}, {}})) << report.failure.toStdString();
        EXPECT_FALSE(QFileInfo::exists(log.file()));
        QFile::remove(blocker);
        EXPECT_EQ(snapshot(card), original) << "a photo did not come back whole, or something else moved";

        // A record that can't be written keeps every photo where it is.
        const MoveLog unwritable(card, card + "/d1/IMG_9.CR3");
        EXPECT_THROW(Handoff::moveRejects(shots, card, [&](const Move &move) { unwritable.append(move); }), FileError);
        EXPECT_EQ(snapshot(card), original);
    }
}

TEST(HandoffMovesTest, TheRecordReadsACutLineAndTheOlderFormatAndKeepsDamageAside)
{
    const QByteArray a = R"({"source":"/card/a.CR3","moved":"/card/Rejected/a.CR3"})";
    const QList<Move> one{{"/card/a.CR3", "/card/Rejected/a.CR3"}};
    const struct {
        const char *name;
        QByteArray bytes;
        std::optional<QList<Move>> moves; ///< none: damaged
    } cases[] = {
        {"empty", "", QList<Move>{}},
        {"whole lines", a + '\n', one},
        {"last line cut short", a + "\n{\"source\":\"/card/b.CR3\",\"mo", one},
        {"only a cut line", "{\"source\":\"/ca", QList<Move>{}},
        {"older document", "{\n    \"folder\": \"/card\",\n    \"moves\": [\n        " + a + "\n    ]\n}\n", one},
        {"damaged first line", "{\"source\":\n" + a + '\n', std::nullopt},
        {"a line without its move", a + "\n{\"source\":\"/card/b.CR3\"}\n", std::nullopt},
        {"older document damaged", R"({"folder":"/card","moves":[{"source":"/card/a.CR3"}]})", std::nullopt},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        QTemporaryDir dir;
        const MoveLog log(dir.path(), dir.path());
        write(log.file(), c.bytes);
        if (c.moves) {
            EXPECT_EQ(log.load(), *c.moves);
            EXPECT_EQ(log.prepare(), QString());
        } else {
            EXPECT_THROW(log.load(), FileError);
            const HandoffPlan::Report report = HandoffPlan::putBack(log);
            EXPECT_TRUE(report.failure.startsWith("Couldn't read the record of moved rejects " + log.file()))
                << report.failure.toStdString();
            EXPECT_EQ(read(log.file()), c.bytes) << "put-back changed a record it could not read";
            const QString notice = log.prepare();
            const QStringList aside = QDir(dir.path()).entryList({"*.unreadable-*"}, QDir::Files);
            ASSERT_EQ(aside.size(), 1);
            EXPECT_EQ(read(dir.path() + '/' + aside.first()), c.bytes);
            EXPECT_TRUE(notice.contains(aside.first())) << notice.toStdString();
        }
        const Move next{"/card/b.CR3", "/card/Rejected/b.CR3"};
        log.append(next);
        EXPECT_EQ(log.load(), c.moves.value_or(QList<Move>{}) + QList<Move>{next});
    }

    QTemporaryDir empty;
    EXPECT_TRUE(Handoff::moveRejects({}, empty.path(), [](const Move &) { FAIL() << "nothing to record"; }).moves.isEmpty());
    EXPECT_FALSE(QFileInfo::exists(empty.path() + "/Rejected"));
}
