#pragma once

// The session: one opened folder, headless, as the window and every `sorvi` command use
// it. It may use every other folder of the photo-logic library; nothing there uses it.

#include "SorviKit/checks/Assessment.h"
#include "SorviKit/checks/CheckSettings.h"
#include "SorviKit/core/Rating.h"
#include "SorviKit/core/StoreFile.h"
#include "SorviKit/library/Catalog.h"
#include "SorviKit/library/Shot.h"
#include "SorviKit/library/ShotScanner.h"

#include <QHash>
#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>
#include <stop_token>

class AssessmentStore;
class PreviewLoader;
class SerialWriter;

/// What the checks say about a folder: every stored result, the soft shots and the best
/// frame of each burst. A plain value.
struct CheckMarks {
    QHash<QString, Assessment> results;
    QSet<QString> soft;
    QSet<QString> bestOfBurst;
    friend bool operator==(const CheckMarks &, const CheckMarks &) = default;
};

/// One opened folder and the one flow that brings it on screen: list the shots, open
/// the catalog and adopt the ratings sidecars state, read every shot's details and group
/// bursts, then check what has not been checked. The window's model and every `sorvi`
/// command run this same flow; each calls the stages it needs, in this order.
///
/// Threads: every stage blocks the thread that calls it (the model calls them from one
/// background task per opened folder; `sorvi` from its main thread) while its parallel
/// loop runs on the global thread pool, on all cores. Progress is told from the workers
/// at most every 100 ms, and once at the end. Our files (catalog, check results) are
/// written by the SerialWriter when one is given, in order and off the caller's thread;
/// their outcomes go to Options::storeEvents on the writing thread.
///
/// Cancellation: cancel() may be called from any thread; loops then skip what they have
/// not started and the stages return at once with what they have, which the caller
/// drops (the model compares generations). Writes already asked for still happen.
class FolderSession {
public:
    /// Seconds between two frames of one burst, and the fraction of the shoot's median
    /// sharpness below which a shot is soft.
    static constexpr double defaultBurstGapSeconds = CheckThresholds().burstGapSeconds;
    static constexpr double defaultSoftFraction = CheckThresholds().softFraction;
    /// The preview cache a session makes for itself when none is given: checks look at
    /// each picture once, so it only holds what the workers are looking at.
    static constexpr qint64 ownPreviewCacheBytes = 256'000'000;

    using Progress = std::function<void(int done, int total)>;

    struct Options {
        /// Lists a folder's shots with only id and files; a seam for tests.
        std::function<QList<Shot>(const QString &folder)> list = &ShotScanner::list;
        /// The folder of catalogs and check results.
        QString storeDirectory = Catalog::defaultDirectory();
        /// Writes our files in order off the caller's thread; without one they are
        /// written at once. Borrowed: it must outlive the session's last save.
        SerialWriter *writer = nullptr;
        /// How our files are written; a seam for tests (slow or failing disks).
        StoreFile::WriteFunction writeFile;
        /// Told, on the writing thread, what became of every write of our files.
        StoreFile::Listener storeEvents;
        /// The preview cache checks read from; borrowed. Without one the session keeps its own.
        PreviewLoader *previews = nullptr;
        double burstGapSeconds = defaultBurstGapSeconds;
        double softFraction = defaultSoftFraction;
        /// The ids the user is looking at, checked before the others; asked from the check
        /// workers, so it must be thread-safe (see CheckRun::Wanted).
        std::function<QStringList()> checkFirst;
    };

    explicit FolderSession(const QString &folder);
    FolderSession(const QString &folder, Options options);
    ~FolderSession();
    FolderSession(const FolderSession &) = delete;
    FolderSession &operator=(const FolderSession &) = delete;

    QString folder() const { return m_folder; }
    const Options &options() const { return m_options; }

    /// Stage 1: the folder's shots in order, with only id and files. An unreadable folder has none.
    QList<Shot> listShots();
    /// Stage 2: opens the folder's catalog and adopts the ratings that sidecars of the
    /// listed shots state where the catalog has none; returns all ratings.
    QHash<QString, Rating> openCatalog();
    /// Stage 3: every listed shot with its details read; then groups bursts.
    QList<Shot> readDetails(const Progress &progress = {});
    /// The bursts of the detailed shots, each a list of ids in shot order.
    QList<QStringList> bursts() const { return m_bursts; }
    /// Stage 4a: opens the check results; the marks of what is stored already.
    CheckMarks openChecks();
    /// How many shots have no stored check result (after openChecks).
    int pendingChecks() const;
    /// What a check run did, and the marks of every result stored after it.
    struct Checked {
        CheckMarks marks;
        int checkedNow = 0;     ///< shots checked by this run
        QStringList unreadable; ///< ids whose picture could not be read; tried again next time
    };
    /// Stage 4b: checks every shot without a stored result.
    Checked check(const Progress &progress = {});

    /// The catalog, once openCatalog() has run (null before). Thread-safe.
    std::shared_ptr<Catalog> catalog() const { return m_catalog; }

    void cancel() { m_stop.request_stop(); }
    bool isCancelled() const { return m_stop.stop_requested(); }

    /// Blocks until every write of the session's files asked for so far is done; then the
    /// failures that still stand, as sentences for the user (empty when all went well).
    QStringList flush();
    /// Where files of ours that could not be read were kept, as sentences for the user.
    QStringList keptAside() const;

    /// The marks of `results`: soft shots (below `softFraction` of the median sharpness)
    /// and the best frame of each of `bursts`.
    static CheckMarks marks(const QHash<QString, Assessment> &results, const QList<QStringList> &bursts,
                            double softFraction);

private:
    QList<StoreFile *> stores() const;

    QString m_folder;
    Options m_options;
    std::stop_source m_stop;
    QList<Shot> m_shots;
    QList<QStringList> m_bursts;
    std::shared_ptr<Catalog> m_catalog;
    std::shared_ptr<AssessmentStore> m_checks;
    std::unique_ptr<PreviewLoader> m_ownPreviews;
};
