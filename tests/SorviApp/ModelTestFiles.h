#pragma once

#include "SorviKit/library/Catalog.h"
#include "SorviKit/core/FileError.h"
#include "SorviKit/demo/DemoShoot.h"
#include "SorviKit/library/ShotScanner.h"
#include "SorviApp/model/SorviModel.h"
#include "TestFiles.h"

#include <QSemaphore>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>

inline void PrintTo(const Rating &rating, std::ostream *out)
{
    *out << rating.stars << " stars, flag " << Rating::rawValue(rating.flag).toStdString() << ", label \""
         << Rating::rawValue(rating.label).toStdString() << '"';
}

/// Folders and waits shared by the model's tests.
namespace ModelTest {

/// Model options that list folders with `list` and never run the on-device checks, which
/// are slow in Debug and sanitizer builds and beside the point of most tests.
inline SorviModel::Options withoutChecks(std::function<QList<Shot>(const QString &)> list = &ShotScanner::list)
{
    SorviModel::Options options;
    options.list = std::move(list);
    options.runsChecks = false;
    return options;
}

/// The face check takes about a second a picture in Debug and sanitizer builds.
inline constexpr int checksTimeoutMs = 600'000;
inline constexpr int loadTimeoutMs = 120'000;

/// Copies every file below `from` to the same place below `to`.
inline bool copyTree(const QString &from, const QString &to)
{
    const QDir source(from);
    QDirIterator it(from, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        const QString target = to + QLatin1Char('/') + source.relativeFilePath(path);
        if (!QDir().mkpath(QFileInfo(target).absolutePath()) || !QFile::copy(path, target))
            return false;
    }
    return true;
}

/// A fresh copy of the demo shoot of `count` photos at `folder`; each count is drawn
/// once per run.
inline QString demoShoot(const QString &folder, int count)
{
    static QTemporaryDir drawn;
    static QMap<int, QString> written;
    if (!written.contains(count)) {
        const QString dir = drawn.filePath(QString::number(count));
        try {
            DemoShoot::write(dir, count);
        } catch (const FileError &error) {
            ADD_FAILURE() << "demo shoot not written: " << error.description().toStdString();
        }
        written.insert(count, dir);
    }
    if (!copyTree(written[count], folder))
        ADD_FAILURE() << "demo shoot not copied to " << folder.toStdString();
    return folder;
}

inline QStringList idsOf(const QList<Shot> &shots)
{
    QStringList ids;
    for (const Shot &shot : shots)
        ids << shot.id;
    return ids;
}

/// Spins the event loop until `condition` holds; false on time-out.
inline bool waitFor(const std::function<bool()> &condition, int timeoutMs = loadTimeoutMs)
{
    return QTest::qWaitFor(condition, timeoutMs);
}

/// Opens `folder` and waits until details are read and any checks are done.
inline bool openAndWait(SorviModel &model, const QString &folder, int timeoutMs = loadTimeoutMs)
{
    model.open(folder);
    return waitFor([&] { return !model.loading() && !model.checking(); }, timeoutMs);
}

/// What the folder's catalog file says once `model`'s writes are done, read afresh from disk.
inline RatingMap catalogOnDisk(SorviModel &model, const QString &folder)
{
    model.waitForWrites();
    return Catalog(folder).ratings();
}

/// Lets a test hold a folder's listing until it says so. Copies share one gate and each
/// opens it when destroyed: a copy declared after the model keeps a failing test from
/// leaving the model's destructor waiting for a listing that cannot finish.
class ListingGate {
public:
    /// Lists like the scanner, but waits for open() when listing `held`.
    std::function<QList<Shot>(const QString &)> listing(const QString &held) const
    {
        return [state = m_state, held](const QString &folder) {
            if (folder == held) {
                state->entered.release();
                state->gate.acquire();
            }
            QList<Shot> shots = ShotScanner::list(folder);
            if (folder == held)
                state->listed = true;
            return shots;
        };
    }
    /// Waits until the held listing has begun.
    bool waitEntered() { return m_state->entered.tryAcquire(1, loadTimeoutMs); }
    void open() { m_state->gate.release(1000); }
    /// The held listing has returned.
    bool listed() const { return m_state->listed; }
    ~ListingGate() { open(); }

private:
    struct State {
        QSemaphore entered;
        QSemaphore gate;
        std::atomic<bool> listed = false;
    };
    std::shared_ptr<State> m_state = std::make_shared<State>();
};

} // namespace ModelTest
