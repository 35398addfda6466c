#pragma once

#include "SorviKit/checks/Assessment.h"
#include "SorviApp/model/FolderAccess.h"
#include "SorviKit/previews/PreviewLoader.h"
#include "SorviKit/core/Rating.h"
#include "SorviKit/library/Shot.h"
#include "SorviKit/library/ShotScanner.h"
#include "SorviKit/core/SerialWriter.h"
#include "SorviKit/core/StoreFile.h"
#include "SorviKit/core/UserSettings.h"
#include "SorviKit/session/FolderSession.h"

#include <QHash>
#include <QList>
#include <QObject>
#include <QPointF>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QMutex>
#include <QThreadPool>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

class Catalog;
class MountWatcher;

using RatingMap = QHash<QString, Rating>;         ///< shot id → rating
using AIPickMap = QHash<QString, QString>;        ///< shot id → the AI's reason
using BurstMap = QHash<QString, int>;             ///< shot id → 1-based burst number
using AssessmentMap = QHash<QString, Assessment>; ///< shot id → check result
using IdSet = QSet<QString>;

/// Everything the interface shows about the open folder: its shots and ratings, the
/// filter and selection, the results of the checks and of an AI request, and the
/// progress of background work. One instance lives for the application's lifetime on the
/// GUI thread; every property is read and written there only, and every property's
/// signal is emitted only when its value really changed.
///
/// An opened folder is a FolderSession run as one background task (its loops use the
/// global thread pool); what it reports comes back by queued call and is dropped when
/// its generation is no longer current, and opening another folder cancels it. Rating
/// actions change the catalog in memory and leave the write to the one SerialWriter, so
/// no key press waits for the disk; a write that fails, or a file of ours that could not
/// be read and was kept aside, shows as `warning`. Prefetching runs on an idle-priority
/// pool. The destructor cancels the session, waits for its task and for the last write.
class SorviModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString folder READ folder NOTIFY folderChanged)
    Q_PROPERTY(QList<Shot> shots READ shots NOTIFY shotsChanged)
    Q_PROPERTY(RatingMap ratings READ ratings NOTIFY ratingsChanged)
    Q_PROPERTY(bool loading READ loading NOTIFY loadingChanged)
    Q_PROPERTY(int detailsRead READ detailsRead NOTIFY detailsReadChanged)
    Q_PROPERTY(Filter filter READ filter WRITE setFilter NOTIFY filterChanged)
    Q_PROPERTY(int minimumStars READ minimumStars WRITE setMinimumStars NOTIFY minimumStarsChanged)
    Q_PROPERTY(Mode mode READ mode WRITE setMode NOTIFY modeChanged)
    Q_PROPERTY(QString selection READ selection WRITE setSelection NOTIFY selectionChanged)
    Q_PROPERTY(bool zoomed READ zoomed WRITE setZoomed NOTIFY zoomedChanged)
    Q_PROPERTY(QPointF zoomAnchor READ zoomAnchor WRITE setZoomAnchor NOTIFY zoomAnchorChanged)
    Q_PROPERTY(bool showHandoff READ showHandoff WRITE setShowHandoff NOTIFY showHandoffChanged)
    Q_PROPERTY(bool showAskAI READ showAskAI WRITE setShowAskAI NOTIFY showAskAIChanged)
    Q_PROPERTY(AIPickMap aiPicks READ aiPicks NOTIFY aiPicksChanged)
    Q_PROPERTY(BurstMap bursts READ bursts NOTIFY burstsChanged)
    Q_PROPERTY(bool autoAdvance READ autoAdvance WRITE setAutoAdvance NOTIFY autoAdvanceChanged)
    Q_PROPERTY(AssessmentMap assessments READ assessments NOTIFY assessmentsChanged)
    Q_PROPERTY(IdSet soft READ soft NOTIFY softChanged)
    Q_PROPERTY(IdSet bestOfBurst READ bestOfBurst NOTIFY bestOfBurstChanged)
    Q_PROPERTY(bool checking READ checking NOTIFY checkingChanged)
    Q_PROPERTY(int checked READ checked NOTIFY checkedChanged)
    Q_PROPERTY(bool showChecks READ showChecks WRITE setShowChecks NOTIFY showChecksChanged)
    Q_PROPERTY(bool showInspector READ showInspector WRITE setShowInspector NOTIFY showInspectorChanged)
    Q_PROPERTY(bool keepZoom READ keepZoom WRITE setKeepZoom NOTIFY keepZoomChanged)
    Q_PROPERTY(bool showClipping READ showClipping WRITE setShowClipping NOTIFY showClippingChanged)
    Q_PROPERTY(bool canUndo READ canUndo NOTIFY canUndoChanged)
    Q_PROPERTY(QList<Shot> visibleShots READ visibleShots NOTIFY visibleShotsChanged)
    Q_PROPERTY(int step READ step NOTIFY stepChanged)
    Q_PROPERTY(QString stepStatus READ stepStatus NOTIFY stepStatusChanged)
    Q_PROPERTY(QList<RecentFolder> recentFolders READ recentFolders NOTIFY recentFoldersChanged)
    Q_PROPERTY(QString warning READ warning NOTIFY warningChanged)

public:
    /// Which shots are visible; rawValue() gives the text the filter control shows.
    enum class Filter { all, picks, unrated, rejects, ai };
    Q_ENUM(Filter)
    /// Many photos at once, or one.
    enum class Mode { grid, loupe };
    Q_ENUM(Mode)

    /// Tallies over all shots of the folder, visible or not.
    struct Counts {
        int total = 0;
        int picks = 0;
        int rejects = 0;
        int rated = 0; ///< shots with at least one star
        friend bool operator==(const Counts &, const Counts &) = default;
    };

    /// How the model reaches the outside world; the defaults are the real thing.
    struct Options {
        /// Lists a folder's shots with only id and files; called on a worker thread.
        std::function<QList<Shot>(const QString &folder)> list = &ShotScanner::list;
        /// Whether the on-device checks run after details are read.
        bool runsChecks = true;
        /// The folder of catalogs and check results.
        QString storeDirectory = Catalog::defaultDirectory();
        /// How our files are written; a seam for tests (slow or failing disks).
        StoreFile::WriteFunction writeFile;
    };

    /// User-default keys of the two remembered switches.
    static constexpr char autoAdvanceKey[] = "AutoAdvance";
    static constexpr char showChecksKey[] = "ShowChecks";
    static constexpr char showInspectorKey[] = "ShowInspector";
    static constexpr char keepZoomKey[] = "KeepZoom";
    /// Preview sizes: the largest worth loading, and the one used without a screen.
    static constexpr int maximumScreenPixels = 3840;
    static constexpr int fallbackScreenPixels = 2560;

    /// Created on the GUI thread. Reads the remembered switches from the default
    /// QSettings (the application's organisation and name must be set before), prepares
    /// the metadata reader for worker threads and starts watching mounts.
    explicit SorviModel(QObject *parent = nullptr);
    explicit SorviModel(Options options, QObject *parent = nullptr);
    ~SorviModel() override;

    static QString rawValue(Filter filter); ///< "All", "Picks", "Unrated", "Rejects", "AI Picks"
    static std::optional<Filter> filterFromRaw(const QString &text);
    static constexpr Filter allFilters[] = {Filter::all, Filter::picks, Filter::unrated, Filter::rejects, Filter::ai};
    /// Whether a shot with `rating` passes `filter` and `minimumStars`; `aiPicked` says
    /// whether the AI picked it. Under `all` a rejected shot shows only while the minimum is 0.
    static bool isVisible(Filter filter, const Rating &rating, int minimumStars, bool aiPicked);

    /// The largest preview worth loading for viewing: the primary screen's longer side in
    /// device pixels, capped at maximumScreenPixels; fallbackScreenPixels without a screen
    /// or without a QGuiApplication. GUI thread.
    static int screenPixels();

    // Published fields; see the class comment.
    QString folder() const { return m_folder; } ///< absolute path; empty when none is open
    QList<Shot> shots() const { return m_shots; }
    RatingMap ratings() const { return m_ratings; }
    bool loading() const { return m_loading; }
    int detailsRead() const { return m_detailsRead; }
    Filter filter() const { return m_filter; }
    int minimumStars() const { return m_minimumStars; }
    Mode mode() const { return m_mode; }
    QString selection() const { return m_selection; } ///< a shot id; empty when none
    /// The selected shot with its details; none without a selection.
    std::optional<Shot> selectedShot() const;
    bool zoomed() const { return m_zoomed; }
    QPointF zoomAnchor() const { return m_zoomAnchor; } ///< fractions of width and height
    bool showHandoff() const { return m_showHandoff; }
    bool showAskAI() const { return m_showAskAI; }
    AIPickMap aiPicks() const { return m_aiPicks; }
    BurstMap bursts() const { return m_bursts; }
    bool autoAdvance() const { return m_autoAdvance; }
    AssessmentMap assessments() const { return m_assessments; }
    IdSet soft() const { return m_soft; }
    IdSet bestOfBurst() const { return m_bestOfBurst; }
    bool checking() const { return m_checking; }
    int checked() const { return m_checked; }
    bool showChecks() const { return m_showChecks; }
    bool showInspector() const { return m_showInspector; } ///< the side panel beside the photos
    /// Moving to another photo while zoomed stays zoomed at the same place and magnification.
    bool keepZoom() const { return m_keepZoom; }
    bool showClipping() const { return m_showClipping; } ///< highlight and shadow clipping marked on the photo
    bool canUndo() const { return !m_undoStack.isEmpty(); }
    /// One line for the status bar when something of ours could not be saved (until the
    /// next good write of that file) or a file of ours that could not be read was kept
    /// aside (until another folder is opened); empty otherwise.
    QString warning() const;

    /// A new filter or minimum also keeps the selection visible.
    void setFilter(Filter filter);
    void setMinimumStars(int stars); ///< clamped to 0…5
    void setMode(Mode mode);
    /// Another shot also leaves zoom, unless keepZoom is on.
    void setSelection(const QString &id);
    void setZoomed(bool zoomed);
    void setZoomAnchor(QPointF anchor);
    void setShowHandoff(bool shown);
    void setShowAskAI(bool shown);
    /// Written back to the user default of the same name.
    void setAutoAdvance(bool on);
    void setShowChecks(bool on);
    void setShowInspector(bool on);
    void setKeepZoom(bool on);
    /// The thresholds soft shots and bursts are marked by (kept in the user's settings).
    CheckThresholds checkThresholds() const { return m_checkThresholds; }
    /// The shots a view shows now (the grid's screenful); the checks take these, and the
    /// selection, before the others.
    void setShotsInView(const QStringList &ids);
    /// Keeps new thresholds and marks the open folder's stored results again by them
    /// (bursts regrouped, soft shots and best frames chosen anew); no check runs again.
    void setCheckThresholds(const CheckThresholds &thresholds);
    /// Not remembered: clipping marks are a look taken now and then.
    void setShowClipping(bool on);

    /// Opens a folder: shows its shots and ratings as soon as they are listed, then reads
    /// details, groups bursts and runs the checks in the background. Never fails visibly:
    /// an unreadable folder simply has no shots.
    void open(const QString &folder);
    /// Ends the open folder: every per-folder field returns to its initial value and
    /// background results still on their way are dropped.
    void close();

    QList<Shot> visibleShots() const; ///< shots passing filter and minimum, in shots order
    Counts counts() const;
    Rating rating(const QString &id) const; ///< the stored rating, or an empty one
    int step() const { return m_folder.isEmpty() ? 0 : 1; }
    QString stepStatus() const; ///< the one-line status under the step bar
    /// The ids of `bursts` grouped by burst number, each burst's ids in shots order.
    QList<QStringList> burstGroups() const;
    /// Replaces aiPicks with (shot id, reason) pairs; a later pair for an id wins.
    void setAIPicks(const QList<std::pair<QString, QString>> &picks);

    /// Moves the selection `delta` places through visibleShots without wrapping, and leaves
    /// zoom unless keepZoom is on; a selection the filter hides counts as lying between
    /// its visible neighbours.
    void move(int delta);
    /// If the selection is not visible, selects the first visible shot (or none).
    void keepSelectionVisible();
    /// Warms the preview cache at screen size for shots[index+1], [+2], [−1] and [+3]
    /// on low-priority threads; results land only in the cache.
    void prefetch(int index, const QList<Shot> &shots);

    // Rating actions: each updates ratings, writes the catalog at once and pushes one
    // undo entry. The single-shot actions act on the selection and do nothing without one.
    /// Applies `change` to the selected shot's rating; with `advance` and autoAdvance on,
    /// moves to the next visible shot afterwards.
    void update(const std::function<void(Rating &)> &change, bool advance);
    void pick();              ///< toggles pick; advances
    void reject();            ///< toggles reject; advances
    void unflag();            ///< clears the flag; stays
    void setStars(int stars); ///< 0–5; stars on a rejected shot also clear the reject; advances
    void setLabel(Rating::Label label); ///< toggles the label; stays
    /// Applies `change` to every listed shot that has no flag; one undo entry when
    /// anything changed, none otherwise. The selection does not move.
    void bulk(const IdSet &ids, const std::function<void(Rating &)> &change);
    void rejectRestOfBursts();
    void pickBestOfBursts();
    void rejectSoft();
    void rejectEyesClosed();
    void pickAIPicks();
    /// Every id in a burst that is not its best frame.
    IdSet restOfBursts() const;
    /// Ids whose check found closed eyes.
    IdSet eyesClosed() const;
    /// How many of `unflaggedIn` have no flag now: what a bulk action on them would change.
    int count(const IdSet &unflaggedIn) const;
    /// Reverts the most recent action; nothing when there is none.
    void undo();

    /// Holds sandbox access to `folder` (only when sandboxed; one folder at a time).
    void holdAccess(const QString &folder);
    QString accessed() const { return m_accessed; } ///< empty when no access is held
    /// Puts `folder` at the front of the recent folders.
    void remember(const QString &folder);
    /// The stored bookmarks, most recent first (used only when sandboxed).
    static QList<FolderAccess::StoredBookmark> recentBookmarks();
    /// The recent folders with whether each is reachable now; re-read on every call.
    QList<RecentFolder> recentFolders() const;

    /// Where catalogs, check results and the move records are kept.
    QString storeDirectory() const { return m_options.storeDirectory; }
    /// Runs `write`, a write of the settings file, on the writer's thread after the writes
    /// asked for before it (the GUI thread never waits for the disk); then, on the GUI
    /// thread, shows its outcome in the warning line (a later good write clears a failure)
    /// and runs `then`.
    void writeSettings(std::function<UserSettings::Outcome()> write, std::function<void()> then = {});
    /// Sets `key` to `value` for the rest of the session at once and writes it to the
    /// settings file through writeSettings. A choice made a moment ago is read back by
    /// setting() even while its write still waits behind others.
    void rememberSetting(const QString &key, const QVariant &value);
    /// The value of `key` as last remembered in this session, else as the settings file
    /// held when the model was made, else `fallback`. Never reads the disk.
    QVariant setting(const QString &key, const QVariant &fallback = {}) const;

    /// Blocks until every write of our files asked for so far is on disk (or failed): for
    /// quitting and for tests, never for an action.
    void waitForWrites() { m_writer.waitForIdle(); }

    /// The preview cache every view shares. Thread-safe; outlives nothing but the model.
    PreviewLoader &previews() { return m_previews; }

signals:
    void folderChanged();
    void shotsChanged();
    void ratingsChanged();
    void loadingChanged();
    void detailsReadChanged();
    void filterChanged();
    void minimumStarsChanged();
    void modeChanged();
    void selectionChanged();
    void zoomedChanged();
    void zoomAnchorChanged();
    void showHandoffChanged();
    void showAskAIChanged();
    void aiPicksChanged();
    void burstsChanged();
    void autoAdvanceChanged();
    void assessmentsChanged();
    void softChanged();
    void bestOfBurstChanged();
    void checkingChanged();
    void checkedChanged();
    void showChecksChanged();
    void checkThresholdsChanged();
    void showInspectorChanged();
    void keepZoomChanged();
    void showClippingChanged();
    void canUndoChanged();
    /// Emitted whenever shots, ratings, filter, minimum or AI picks changed.
    void visibleShotsChanged();
    void stepChanged();
    void stepStatusChanged();
    /// The recent list or the mounts changed; read recentFolders() again.
    void recentFoldersChanged();
    void warningChanged();

private:
    /// Shows a settings write that failed (or kept an unreadable file aside) in the
    /// warning line, like every other write of ours; a later good write clears it.
    void noteSettingsWrite(const UserSettings::Outcome &outcome);
    template <typename T>
    bool assign(T &field, const T &value, void (SorviModel::*changed)());

    // Setters of fields that only the model itself changes.
    void setFolder(const QString &folder);
    void setShots(const QList<Shot> &shots);
    void setRatings(const RatingMap &ratings);
    void setLoading(bool loading);
    void setDetailsRead(int count);
    void setAIPickMap(const AIPickMap &picks);
    void setBursts(const BurstMap &bursts);
    void setAssessments(const AssessmentMap &assessments);
    void setSoft(const IdSet &ids);
    void setBestOfBurst(const IdSet &ids);
    void setChecking(bool checking);
    void setChecked(int count);
    void pushUndo(const RatingMap &snapshot);
    RatingMap popUndo();
    void clearUndo();
    void afterRatingsEdit();
    void refreshStatus();
    void resetFolderState(); ///< the per-folder fields that open and close both clear

    // Opening and checking.
    void postIfCurrent(quint64 generation, std::function<void()> publish);
    FolderSession::Options sessionOptions();
    void runSession(FolderSession &session, quint64 generation); ///< on the stage pool
    void publishListed(const QList<Shot> &shots, const RatingMap &ratings, std::shared_ptr<Catalog> catalog);
    void publishDetailed(const QList<Shot> &shots, const QList<QStringList> &groups);
    void publishChecks(const CheckMarks &marks);

    // Warnings.
    void noteStoreEvent(const StoreEvent &event);
    void refreshWarning();

    // Ratings.
    /// Puts `changes` into `ratings` (empty ones removed) and writes them to the catalog in
    /// one save; tells whether the published ratings changed.
    bool store(const RatingMap &changes);
    std::optional<int> visibleTarget(const QList<Shot> &visible, int delta) const;

    Options m_options;
    QString m_folder;
    QList<Shot> m_shots;
    RatingMap m_ratings;
    bool m_loading = false;
    int m_detailsRead = 0;
    Filter m_filter = Filter::all;
    int m_minimumStars = 0;
    Mode m_mode = Mode::grid;
    QString m_selection;
    bool m_zoomed = false;
    QPointF m_zoomAnchor{0.5, 0.5};
    bool m_showHandoff = false;
    bool m_showAskAI = false;
    AIPickMap m_aiPicks;
    BurstMap m_bursts;
    bool m_autoAdvance = true;
    AssessmentMap m_assessments;
    IdSet m_soft;
    IdSet m_bestOfBurst;
    CheckThresholds m_checkThresholds;
    /// What the check workers take first: the selection and the shots in view. Written on
    /// the GUI thread, read by the workers, hence its own lock; shared so that a session's
    /// workers may outlive nothing they read.
    struct CheckFirst {
        QMutex lock;
        QString selection;
        QStringList inView;
    };
    std::shared_ptr<CheckFirst> m_checkFirst = std::make_shared<CheckFirst>();
    /// Marks soft shots and best frames from the stored results by the current thresholds.
    void remark();
    bool m_checking = false;
    int m_checked = 0;
    bool m_showChecks = true;
    bool m_showInspector = false;
    bool m_keepZoom = false;
    bool m_showClipping = false;

    QList<RatingMap> m_undoStack; ///< what each action replaced, oldest first
    std::shared_ptr<FolderSession> m_session; ///< the open folder's; cancelled when replaced
    std::shared_ptr<Catalog> m_catalog;      ///< the open folder's, once its shots are listed
    QMap<QString, QString> m_writeFailures;  ///< file → why its last write failed
    QVariantHash m_settings;                 ///< as read at start, then as set (on disk or not yet)
    static constexpr char settingsKey[] = "settings"; ///< the settings file's entry there
    QString m_notice;                        ///< a file of ours kept aside, said once per folder
    QString m_warning;
    quint64 m_generation = 0;     ///< advanced by every open and close
    bool m_shotsAreOpenFolders = false; ///< shots were listed from the open folder
    QString m_accessed;
    QString m_stepStatus; ///< the status last announced
    int m_step = 0;
    QSet<QString> m_prefetching; ///< cache keys being prefetched now
    MountWatcher *m_mounts = nullptr;

    std::atomic<bool> m_stopping = false;
    // Declared first of the workers so that it is destroyed last: every write asked for
    // by the tasks below is done before the model is gone.
    SerialWriter m_writer;
    PreviewLoader m_previews;
    QThreadPool m_stages;       ///< one task per opened folder, running its session
    QThreadPool m_prefetchPool; ///< low-priority preview loads
};
