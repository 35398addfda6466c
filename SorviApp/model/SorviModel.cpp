#include "SorviApp/model/SorviModel.h"

#include "SorviKit/library/Catalog.h"
#include "SorviApp/model/MountWatcher.h"
#include "SorviKit/core/UserSettings.h"

#include <QGuiApplication>
#include <QScreen>
#include <QSettings>

#include <algorithm>

namespace {

const QString filterNames[] = {QStringLiteral("All"), QStringLiteral("Picks"), QStringLiteral("Unrated"),
                               QStringLiteral("Rejects"), QStringLiteral("AI Picks")};

} // namespace

SorviModel::SorviModel(QObject *parent)
    : SorviModel(Options{}, parent)
{
}

SorviModel::SorviModel(Options options, QObject *parent)
    : QObject(parent)
    , m_options(std::move(options))
{
    // Details are read on worker threads, which the metadata library allows only after
    // it was set up once on this thread.
    ShotScanner::initializeMetadataReader();
    // Read once here, so that a sheet opening later finds its choices without the disk.
    const QSettings settings;
    for (const QString &key : settings.allKeys())
        m_settings.insert(key, settings.value(key));
    m_autoAdvance = setting(QLatin1String(autoAdvanceKey), true).toBool();
    m_showChecks = setting(QLatin1String(showChecksKey), true).toBool();
    m_showInspector = setting(QLatin1String(showInspectorKey), false).toBool();
    m_keepZoom = setting(QLatin1String(keepZoomKey), false).toBool();
    m_checkThresholds = CheckSettings::read(settings);
    m_stepStatus = stepStatus();
    // Session tasks mostly wait for their loops, which run on the global pool; a few
    // may overlap while cancelled ones wind down.
    m_stages.setMaxThreadCount(4);
    // Prefetching runs only when no core has anything better to do (on Linux an idle
    // priority thread is scheduled SCHED_IDLE), so it never delays the next key press.
    m_prefetchPool.setThreadPriority(QThread::IdlePriority);
    m_mounts = new MountWatcher(this);
    connect(m_mounts, &MountWatcher::mountsChanged, this, &SorviModel::recentFoldersChanged);
}

SorviModel::~SorviModel()
{
    // Work of any generation reads the preview cache and posts to this object, so all of
    // it must end here; loops skip what they have not started yet.
    m_stopping = true;
    if (m_session)
        m_session->cancel();
    m_prefetchPool.clear();
    m_prefetchPool.waitForDone();
    m_stages.waitForDone();
    // Quitting waits for the last rating to reach the disk.
    m_writer.waitForIdle();
}

QString SorviModel::rawValue(Filter filter)
{
    return filterNames[int(filter)];
}

std::optional<SorviModel::Filter> SorviModel::filterFromRaw(const QString &text)
{
    for (const Filter filter : allFilters)
        if (rawValue(filter) == text)
            return filter;
    return std::nullopt;
}

bool SorviModel::isVisible(Filter filter, const Rating &rating, int minimumStars, bool aiPicked)
{
    const bool enoughStars = rating.stars >= minimumStars;
    switch (filter) {
    case Filter::all:
        // Rejects stay in view so they can be reviewed and taken back, but any star
        // minimum is a request for the good ones.
        return enoughStars && (rating.flag != Rating::Flag::reject || minimumStars == 0);
    case Filter::picks:
        return rating.flag == Rating::Flag::pick && enoughStars;
    case Filter::unrated:
        return rating.stars == 0 && rating.flag == Rating::Flag::none && minimumStars == 0;
    case Filter::rejects:
        return rating.flag == Rating::Flag::reject && enoughStars;
    case Filter::ai:
        return aiPicked && enoughStars;
    }
    return false;
}

int SorviModel::screenPixels()
{
    const bool hasGui = qobject_cast<QGuiApplication *>(QCoreApplication::instance()) != nullptr;
    const QScreen *screen = hasGui ? QGuiApplication::primaryScreen() : nullptr;
    if (!screen)
        return fallbackScreenPixels;
    const QSize size = screen->size();
    const int pixels = int(std::max(size.width(), size.height()) * screen->devicePixelRatio());
    return std::min(pixels, maximumScreenPixels);
}

template <typename T>
bool SorviModel::assign(T &field, const T &value, void (SorviModel::*changed)())
{
    if (field == value)
        return false;
    field = value;
    emit(this->*changed)();
    return true;
}

void SorviModel::setFilter(Filter filter)
{
    if (assign(m_filter, filter, &SorviModel::filterChanged)) {
        emit visibleShotsChanged();
        keepSelectionVisible();
    }
}

void SorviModel::setMinimumStars(int stars)
{
    if (assign(m_minimumStars, std::clamp(stars, 0, 5), &SorviModel::minimumStarsChanged)) {
        emit visibleShotsChanged();
        keepSelectionVisible();
    }
}

void SorviModel::setMode(Mode mode) { assign(m_mode, mode, &SorviModel::modeChanged); }
void SorviModel::setSelection(const QString &id)
{
    if (id == m_selection)
        return;
    // Zoom belongs to one photo; Keep Zoom takes it along to the next. Left before the
    // selection changes, so no view zooms into the new photo only to leave it again.
    if (!m_keepZoom)
        setZoomed(false);
    {
        const QMutexLocker locker(&m_checkFirst->lock);
        m_checkFirst->selection = id;
    }
    assign(m_selection, id, &SorviModel::selectionChanged);
}

std::optional<Shot> SorviModel::selectedShot() const
{
    if (m_selection.isEmpty())
        return std::nullopt;
    const auto shot = std::find_if(m_shots.cbegin(), m_shots.cend(), [this](const Shot &s) { return s.id == m_selection; });
    return shot == m_shots.cend() ? std::nullopt : std::optional(*shot);
}
void SorviModel::setZoomed(bool zoomed) { assign(m_zoomed, zoomed, &SorviModel::zoomedChanged); }
void SorviModel::setZoomAnchor(QPointF anchor) { assign(m_zoomAnchor, anchor, &SorviModel::zoomAnchorChanged); }
void SorviModel::setShowHandoff(bool shown) { assign(m_showHandoff, shown, &SorviModel::showHandoffChanged); }
void SorviModel::setShowAskAI(bool shown) { assign(m_showAskAI, shown, &SorviModel::showAskAIChanged); }

void SorviModel::setAutoAdvance(bool on)
{
    if (assign(m_autoAdvance, on, &SorviModel::autoAdvanceChanged))
        rememberSetting(QLatin1String(autoAdvanceKey), on);
}

void SorviModel::setShowChecks(bool on)
{
    if (assign(m_showChecks, on, &SorviModel::showChecksChanged))
        rememberSetting(QLatin1String(showChecksKey), on);
}

void SorviModel::setShowInspector(bool on)
{
    if (assign(m_showInspector, on, &SorviModel::showInspectorChanged))
        rememberSetting(QLatin1String(showInspectorKey), on);
}

void SorviModel::setKeepZoom(bool on)
{
    if (assign(m_keepZoom, on, &SorviModel::keepZoomChanged))
        rememberSetting(QLatin1String(keepZoomKey), on);
}

void SorviModel::setShowClipping(bool on)
{
    assign(m_showClipping, on, &SorviModel::showClippingChanged);
}

void SorviModel::setFolder(const QString &folder)
{
    if (assign(m_folder, folder, &SorviModel::folderChanged))
        refreshStatus();
}

void SorviModel::setShots(const QList<Shot> &shots)
{
    if (assign(m_shots, shots, &SorviModel::shotsChanged)) {
        emit visibleShotsChanged();
        refreshStatus();
    }
}

void SorviModel::setRatings(const RatingMap &ratings)
{
    if (assign(m_ratings, ratings, &SorviModel::ratingsChanged))
        afterRatingsEdit();
}

void SorviModel::afterRatingsEdit()
{
    emit visibleShotsChanged();
    refreshStatus();
}

void SorviModel::setLoading(bool loading)
{
    if (assign(m_loading, loading, &SorviModel::loadingChanged))
        refreshStatus();
}

void SorviModel::setDetailsRead(int count)
{
    if (assign(m_detailsRead, count, &SorviModel::detailsReadChanged))
        refreshStatus();
}

void SorviModel::setAIPickMap(const AIPickMap &picks)
{
    if (assign(m_aiPicks, picks, &SorviModel::aiPicksChanged)) {
        emit visibleShotsChanged();
        keepSelectionVisible();
    }
}

void SorviModel::setBursts(const BurstMap &bursts) { assign(m_bursts, bursts, &SorviModel::burstsChanged); }
void SorviModel::setAssessments(const AssessmentMap &results)
{
    assign(m_assessments, results, &SorviModel::assessmentsChanged);
}
void SorviModel::setSoft(const IdSet &ids) { assign(m_soft, ids, &SorviModel::softChanged); }
void SorviModel::setBestOfBurst(const IdSet &ids) { assign(m_bestOfBurst, ids, &SorviModel::bestOfBurstChanged); }

void SorviModel::setChecking(bool checking)
{
    if (assign(m_checking, checking, &SorviModel::checkingChanged))
        refreshStatus();
}

void SorviModel::setChecked(int count)
{
    if (assign(m_checked, count, &SorviModel::checkedChanged))
        refreshStatus();
}

void SorviModel::pushUndo(const RatingMap &snapshot)
{
    m_undoStack.append(snapshot);
    if (m_undoStack.size() == 1)
        emit canUndoChanged();
}

RatingMap SorviModel::popUndo()
{
    const RatingMap snapshot = m_undoStack.takeLast();
    if (m_undoStack.isEmpty())
        emit canUndoChanged();
    return snapshot;
}

void SorviModel::clearUndo()
{
    if (m_undoStack.isEmpty())
        return;
    m_undoStack.clear();
    emit canUndoChanged();
}

void SorviModel::noteSettingsWrite(const UserSettings::Outcome &outcome)
{
    // The settings file is one more file of ours: a failure stands until a write of it works.
    if (outcome.failed())
        m_writeFailures.insert(settingsKey, outcome.error);
    else
        m_writeFailures.remove(settingsKey);
    if (!outcome.notice.isEmpty())
        m_notice = outcome.notice;
    refreshWarning();
}

void SorviModel::writeSettings(std::function<UserSettings::Outcome()> write, std::function<void()> then)
{
    m_writer.post([this, write = std::move(write), then = std::move(then)] {
        const UserSettings::Outcome outcome = write();
        // Dropped with the model, which waits for this job before it goes.
        QMetaObject::invokeMethod(this, [this, outcome, then] {
            noteSettingsWrite(outcome);
            if (then)
                then();
        }, Qt::QueuedConnection);
    });
}

void SorviModel::rememberSetting(const QString &key, const QVariant &value)
{
    m_settings.insert(key, value);
    writeSettings([key, value] { return UserSettings::setValue(key, value); });
}

QVariant SorviModel::setting(const QString &key, const QVariant &fallback) const
{
    return m_settings.value(key, fallback);
}

QString SorviModel::warning() const
{
    return m_writeFailures.isEmpty() ? m_notice : m_writeFailures.first();
}

void SorviModel::refreshWarning()
{
    assign(m_warning, warning(), &SorviModel::warningChanged);
}

void SorviModel::refreshStatus()
{
    assign(m_step, step(), &SorviModel::stepChanged);
    assign(m_stepStatus, stepStatus(), &SorviModel::stepStatusChanged);
}

QList<Shot> SorviModel::visibleShots() const
{
    QList<Shot> visible;
    for (const Shot &shot : m_shots)
        if (isVisible(m_filter, rating(shot.id), m_minimumStars, m_aiPicks.contains(shot.id)))
            visible << shot;
    return visible;
}

SorviModel::Counts SorviModel::counts() const
{
    Counts counts;
    counts.total = int(m_shots.size());
    for (const Shot &shot : m_shots) {
        const Rating r = rating(shot.id);
        counts.picks += r.flag == Rating::Flag::pick;
        counts.rejects += r.flag == Rating::Flag::reject;
        counts.rated += r.stars >= 1;
    }
    return counts;
}

Rating SorviModel::rating(const QString &id) const
{
    return m_ratings.value(id);
}

QString SorviModel::stepStatus() const
{
    if (m_folder.isEmpty())
        return QStringLiteral("Open a folder of photos or a card. Sorvi only reads them; ratings are kept "
                              "separately until you hand off.");
    if (m_shots.isEmpty())
        return m_loading ? QStringLiteral("Looking for photos…") : QStringLiteral("No photos in this folder.");
    const qsizetype total = m_shots.size();
    if (m_loading)
        return QStringLiteral("Reading %1 photos… %2 done. You can start picking now.").arg(total).arg(m_detailsRead);
    if (m_checking)
        return QStringLiteral("Checking sharpness and eyes on this computer… %1 of %2. You can keep picking.")
            .arg(m_checked)
            .arg(total);
    const Counts c = counts();
    if (c.picks + c.rejects + c.rated == 0)
        return QStringLiteral("Pick with P, reject with X, rate with 1–5. Arrow keys move; Return switches "
                              "between grid and single photo.");
    return QStringLiteral("%1 picked, %2 rejected, %3 rated, out of %4. Hand off when you're done.")
        .arg(c.picks)
        .arg(c.rejects)
        .arg(c.rated)
        .arg(c.total);
}

QList<QStringList> SorviModel::burstGroups() const
{
    QMap<int, QStringList> groups;
    for (const Shot &shot : m_shots) {
        const auto it = m_bursts.constFind(shot.id);
        if (it != m_bursts.constEnd())
            groups[*it] << shot.id;
    }
    return groups.values();
}

void SorviModel::setAIPicks(const QList<std::pair<QString, QString>> &picks)
{
    AIPickMap map;
    for (const auto &[id, reason] : picks)
        map.insert(id, reason);
    setAIPickMap(map);
}

void SorviModel::keepSelectionVisible()
{
    const QList<Shot> visible = visibleShots();
    const bool shown = std::any_of(visible.begin(), visible.end(),
                                   [this](const Shot &shot) { return shot.id == m_selection; });
    if (!shown)
        setSelection(visible.isEmpty() ? QString() : visible.first().id);
}

std::optional<int> SorviModel::visibleTarget(const QList<Shot> &visible, int delta) const
{
    if (visible.isEmpty())
        return std::nullopt;
    const int last = int(visible.size()) - 1;
    const auto at = std::find_if(visible.begin(), visible.end(),
                                 [this](const Shot &shot) { return shot.id == m_selection; });
    if (at != visible.end())
        return std::clamp(int(at - visible.begin()) + delta, 0, last);
    const auto hidden = std::find_if(m_shots.begin(), m_shots.end(),
                                     [this](const Shot &shot) { return shot.id == m_selection; });
    if (m_selection.isEmpty() || hidden == m_shots.end())
        return std::clamp(delta, 0, last);
    // A shot the filter just hid sits between its visible neighbours: one step forward
    // reaches the shot after it, one step back the shot before it.
    int before = 0;
    for (auto it = m_shots.begin(); it != hidden; ++it)
        before += isVisible(m_filter, rating(it->id), m_minimumStars, m_aiPicks.contains(it->id));
    return std::clamp(delta > 0 ? before + delta - 1 : before + delta, 0, last);
}

void SorviModel::move(int delta)
{
    const QList<Shot> visible = visibleShots();
    const std::optional<int> target = visibleTarget(visible, delta);
    if (!target)
        return;
    setSelection(visible[*target].id);
    // At either end the selection stays, and still a move leaves zoom.
    if (!m_keepZoom)
        setZoomed(false);
    prefetch(*target, visible);
}

void SorviModel::prefetch(int index, const QList<Shot> &shots)
{
    const int pixels = screenPixels();
    // Three ahead and one behind: people mostly travel forwards.
    for (const int offset : {1, 2, -1, 3}) {
        const int i = index + offset;
        if (i < 0 || i >= shots.size() || m_previews.cached(shots[i], pixels))
            continue;
        const QString key = PreviewLoader::cacheKey(shots[i], pixels);
        if (m_prefetching.contains(key))
            continue;
        m_prefetching.insert(key);
        m_prefetchPool.start([this, shot = shots[i], pixels, key] {
            if (!m_stopping)
                m_previews.preview(shot, pixels);
            QMetaObject::invokeMethod(this, [this, key] { m_prefetching.remove(key); }, Qt::QueuedConnection);
        });
    }
}

void SorviModel::holdAccess(const QString &folder)
{
    if (!FolderAccess::isSandboxed() || m_accessed == folder)
        return;
    if (!m_accessed.isEmpty())
        FolderAccess::stopAccess(m_accessed);
    m_accessed = FolderAccess::startAccess(folder) ? folder : QString();
}

void SorviModel::remember(const QString &folder)
{
    writeSettings([folder] { return FolderAccess::remember(QSettings(), folder); },
                  [this] { emit recentFoldersChanged(); });
}

QList<FolderAccess::StoredBookmark> SorviModel::recentBookmarks()
{
    return FolderAccess::storedBookmarks(QSettings());
}

QList<RecentFolder> SorviModel::recentFolders() const
{
    return FolderAccess::recentFolders(QSettings());
}
