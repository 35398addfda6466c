// Opening and closing a folder: its session's stages run as one background task, and
// what they report reaches the GUI thread only while the folder is still the open one.
#include "SorviApp/model/SorviModel.h"

#include "SorviKit/checks/Bursts.h"
#include "SorviKit/library/Catalog.h"

#include <QDir>
#include <QFileInfo>

namespace {

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
    if (m_session)
        m_session->cancel();
    // The previous folder's shots stay on screen until this one's are listed, but they
    // are no longer rated: their catalog is let go, and the new one arrives with the list.
    m_shotsAreOpenFolders = false;
    m_catalog.reset();
    setFolder(path);
    setSelection({});
    setFilter(Filter::all);
    keepSelectionVisible();
    setLoading(true);
    resetFolderState();
    holdAccess(path);
    remember(path);
    m_session = std::make_shared<FolderSession>(path, sessionOptions());
    m_stages.start([this, session = m_session, generation] { runSession(*session, generation); });
}

void SorviModel::close()
{
    ++m_generation;
    if (m_session)
        m_session->cancel();
    m_session.reset();
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
    // What was said about the last folder's files goes; a settings failure stands.
    const QString settingsFailure = m_writeFailures.value(QLatin1String(settingsKey));
    m_writeFailures.clear();
    if (!settingsFailure.isEmpty())
        m_writeFailures.insert(QLatin1String(settingsKey), settingsFailure);
    m_notice.clear();
    refreshWarning();
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

FolderSession::Options SorviModel::sessionOptions()
{
    FolderSession::Options options;
    options.list = m_options.list;
    options.storeDirectory = m_options.storeDirectory;
    options.writer = &m_writer;
    options.writeFile = m_options.writeFile;
    options.previews = &m_previews;
    options.burstGapSeconds = m_checkThresholds.burstGapSeconds;
    options.softFraction = m_checkThresholds.softFraction;
    options.checkFirst = [first = m_checkFirst] {
        const QMutexLocker locker(&first->lock);
        return first->selection.isEmpty() ? first->inView : QStringList{first->selection} + first->inView;
    };
    // Not tied to a generation: a write of the folder before that failed is still news.
    options.storeEvents = [this](const StoreEvent &event) {
        if (!m_stopping)
            QMetaObject::invokeMethod(this, [this, event] { noteStoreEvent(event); }, Qt::QueuedConnection);
    };
    return options;
}

void SorviModel::runSession(FolderSession &session, quint64 generation)
{
    const QList<Shot> listed = session.listShots();
    const RatingMap ratings = session.openCatalog();
    postIfCurrent(generation, [this, listed, ratings, catalog = session.catalog()] {
        publishListed(listed, ratings, catalog);
    });

    const QList<Shot> detailed = session.readDetails([this, generation](int done, int) {
        postIfCurrent(generation, [this, done] { setDetailsRead(done); });
    });
    const QList<QStringList> groups = session.bursts();
    if (!m_options.runsChecks || session.isCancelled()) {
        postIfCurrent(generation, [this, detailed, groups] { publishDetailed(detailed, groups); });
        return;
    }

    // A folder checked before shows its badges as soon as its details are in.
    const CheckMarks stored = session.openChecks();
    const int total = int(detailed.size());
    const int before = total - session.pendingChecks();
    postIfCurrent(generation, [this, detailed, groups, stored, before] {
        publishDetailed(detailed, groups);
        setChecking(true);
        setChecked(before);
        publishChecks(stored);
    });
    const CheckMarks marks = session.check([this, generation, before](int done, int) {
        postIfCurrent(generation, [this, count = before + done] { setChecked(count); });
    }).marks;
    postIfCurrent(generation, [this, marks, total] {
        publishChecks(marks);
        setChecked(total);
        setChecking(false);
    });
}

void SorviModel::publishListed(const QList<Shot> &shots, const RatingMap &ratings, std::shared_ptr<Catalog> catalog)
{
    m_catalog = std::move(catalog);
    m_shotsAreOpenFolders = true;
    setShots(shots);
    setRatings(ratings);
    setSelection(shots.isEmpty() ? QString() : shots.first().id);
    // A star minimum kept from the previous folder may hide the first shot.
    keepSelectionVisible();
}

void SorviModel::publishDetailed(const QList<Shot> &shots, const QList<QStringList> &groups)
{
    setShots(shots);
    // The thresholds may have changed while the details were read.
    setBursts(numbered(m_session && m_session->options().burstGapSeconds == m_checkThresholds.burstGapSeconds
                           ? groups
                           : Bursts::group(shots, m_checkThresholds.burstGapSeconds)));
    setDetailsRead(int(shots.size()));
    setLoading(false);
}

void SorviModel::setCheckThresholds(const CheckThresholds &thresholds)
{
    const CheckThresholds wanted = CheckSettings::clamped(thresholds);
    if (wanted == m_checkThresholds)
        return;
    const bool regroup = wanted.burstGapSeconds != m_checkThresholds.burstGapSeconds;
    m_checkThresholds = wanted;
    writeSettings([wanted] { return CheckSettings::write(wanted); });
    if (regroup && !m_loading)
        setBursts(numbered(Bursts::group(m_shots, wanted.burstGapSeconds)));
    remark();
    emit checkThresholdsChanged();
}

void SorviModel::setShotsInView(const QStringList &ids)
{
    const QMutexLocker locker(&m_checkFirst->lock);
    m_checkFirst->inView = ids;
}

void SorviModel::remark()
{
    const CheckMarks marks = FolderSession::marks(m_assessments, burstGroups(), m_checkThresholds.softFraction);
    setSoft(marks.soft);
    setBestOfBurst(marks.bestOfBurst);
}

void SorviModel::publishChecks(const CheckMarks &marks)
{
    setAssessments(marks.results);
    // Marked here rather than taken from the run, which began under the thresholds of its day.
    remark();
}

void SorviModel::noteStoreEvent(const StoreEvent &event)
{
    switch (event.kind) {
    case StoreEvent::Kind::written:
        m_writeFailures.remove(event.file);
        break;
    case StoreEvent::Kind::writeFailed:
        m_writeFailures.insert(event.file, event.message);
        break;
    case StoreEvent::Kind::keptAside:
        m_notice = event.message;
        break;
    }
    refreshWarning();
}
