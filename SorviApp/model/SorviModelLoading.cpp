// Opening and closing a folder: the background stages that list, rate, detail and check
// its shots, and how their results reach the GUI thread.
#include "SorviApp/model/SorviModel.h"

#include "SorviKit/checks/AssessmentStore.h"
#include "SorviKit/checks/Assessor.h"
#include "SorviKit/checks/Bursts.h"
#include "SorviKit/library/Catalog.h"
#include "SorviKit/handoff/XMPSidecar.h"

#include <QDir>
#include <QFileInfo>
#include <QMutex>
#include <QtConcurrent/QtConcurrentMap>

#include <numeric>
#include <vector>

namespace {

// Progress is published in batches so that a large card does not flood the GUI thread.
constexpr int detailsBatch = 50;
constexpr int checksBatch = 10;

BurstMap numbered(const QList<QStringList> &groups)
{
    BurstMap bursts;
    for (qsizetype i = 0; i < groups.size(); ++i)
        for (const QString &id : groups[i])
            bursts.insert(id, int(i) + 1);
    return bursts;
}

} // namespace

void SorviModel::open(const QString &folder)
{
    const quint64 generation = ++m_generation;
    const QString path = QDir::cleanPath(QFileInfo(folder).absoluteFilePath());
    // The previous folder's shots stay on screen until this one's are listed, but they
    // are no longer rated: the catalog is about to belong to the new folder.
    m_shotsAreOpenFolders = false;
    setFolder(path);
    setSelection({});
    setFilter(Filter::all);
    keepSelectionVisible();
    setLoading(true);
    resetFolderState();
    holdAccess(path);
    m_catalog = std::make_shared<Catalog>(path);
    remember(path);
    m_tasks.start([this, path, catalog = m_catalog, generation] { loadInBackground(path, catalog, generation); });
}

void SorviModel::close()
{
    ++m_generation;
    m_shotsAreOpenFolders = false;
    m_catalog.reset();
    setFolder({});
    setShots({});
    setRatings({});
    setSelection({});
    // Work still running for the closed folder is dropped, so nothing else would ever
    // end its loading or checking.
    setLoading(false);
    resetFolderState();
}

void SorviModel::resetFolderState()
{
    setZoomed(false);
    setDetailsRead(0);
    setBursts({});
    setAssessments({});
    setAIPickMap({});
    setSoft({});
    setBestOfBurst({});
    setChecking(false);
    setChecked(0);
    clearUndo();
}

void SorviModel::postIfCurrent(quint64 generation, std::function<void()> publish)
{
    QMetaObject::invokeMethod(
        this,
        [this, generation, publish = std::move(publish)] {
            if (generation == m_generation)
                publish();
        },
        Qt::QueuedConnection);
}

void SorviModel::loadInBackground(const QString &folder, std::shared_ptr<Catalog> catalog, quint64 generation)
{
    const QList<Shot> listed = m_options.list(folder);
    // Ratings another application (or an earlier hand-off) wrote into sidecars appear,
    // but never override what was rated here.
    catalog->adopt(XMPSidecar::ratingsOf(listed));
    const RatingMap ratings = catalog->ratings();
    postIfCurrent(generation, [this, listed, ratings] { publishListed(listed, ratings); });

    const QList<Shot> detailed = readDetails(listed, generation);
    const QList<QStringList> groups = Bursts::group(detailed, burstGap);
    postIfCurrent(generation, [this, generation, detailed, groups] { publishDetailed(generation, detailed, groups); });
}

QList<Shot> SorviModel::readDetails(const QList<Shot> &shots, quint64 generation)
{
    QList<Shot> detailed = shots;
    detailed.detach();
    std::vector<qsizetype> indices(size_t(shots.size()));
    std::iota(indices.begin(), indices.end(), qsizetype(0));
    QMutex lock;
    int done = 0;
    QtConcurrent::blockingMap(indices, [&](qsizetype i) {
        Shot shot = m_stopping ? shots[i] : ShotScanner::readDetails(shots[i]);
        const QMutexLocker locker(&lock);
        detailed[i] = std::move(shot);
        if (++done % detailsBatch == 0)
            postIfCurrent(generation, [this, count = done] { setDetailsRead(count); });
    });
    return detailed;
}

void SorviModel::publishListed(const QList<Shot> &shots, const RatingMap &ratings)
{
    m_shotsAreOpenFolders = true;
    setShots(shots);
    setRatings(ratings);
    setSelection(shots.isEmpty() ? QString() : shots.first().id);
    // A star minimum kept from the previous folder may hide the first shot.
    keepSelectionVisible();
}

void SorviModel::publishDetailed(quint64 generation, const QList<Shot> &shots, const QList<QStringList> &groups)
{
    setShots(shots);
    setBursts(numbered(groups));
    setDetailsRead(int(shots.size()));
    setLoading(false);
    runChecks(generation, groups);
}

void SorviModel::runChecks(quint64 generation, const QList<QStringList> &groups)
{
    if (m_folder.isEmpty() || !m_options.runsChecks)
        return;
    const auto store = std::make_shared<AssessmentStore>(m_folder, Catalog::defaultDirectory());
    QList<Shot> pending;
    for (const Shot &shot : std::as_const(m_shots))
        if (!store->result(shot.id))
            pending << shot;
    const int total = int(m_shots.size());
    const int before = total - int(pending.size());
    setChecking(true);
    setChecked(before);
    // A folder checked before shows its badges at once.
    publishChecks(store->results(), groups);

    m_tasks.start([this, generation, groups, store, pending, before, total] {
        checkInBackground(generation, groups, store, pending, before, total);
    });
}

void SorviModel::checkInBackground(quint64 generation, const QList<QStringList> &groups,
                                   std::shared_ptr<AssessmentStore> store, QList<Shot> pending, int before,
                                   int total)
{
    QMutex lock;
    int done = 0;
    QtConcurrent::blockingMap(pending, [&](const Shot &shot) {
        if (m_stopping)
            return;
        const std::optional<Assessment> result = assess(shot);
        if (!result)
            return; // tried again the next time the folder is opened
        store->set(*result, shot.id);
        const QMutexLocker locker(&lock);
        if (++done % checksBatch == 0)
            postIfCurrent(generation, [this, count = before + done] { setChecked(count); });
    });
    store->save();
    postIfCurrent(generation, [this, store, groups, total] {
        publishChecks(store->results(), groups);
        setChecked(total);
        setChecking(false);
    });
}

std::optional<Assessment> SorviModel::assess(const Shot &shot)
{
    const std::optional<ShotPreview> preview = m_previews.preview(shot, Assessor::workingPixels);
    if (!preview)
        return std::nullopt;
    return Assessor::assess(preview->image, preview->orientation, [&]() -> std::optional<Assessor::OrientedImage> {
        const std::optional<ShotPreview> larger = m_previews.preview(shot, Assessor::facePixels);
        if (!larger)
            return std::nullopt;
        return Assessor::OrientedImage{larger->image, larger->orientation};
    });
}

void SorviModel::publishChecks(const AssessmentMap &results, const QList<QStringList> &groups)
{
    setAssessments(results);
    setSoft(Assessor::soft(results, softFraction));
    setBestOfBurst(Assessor::bestOfBursts(groups, results));
}
