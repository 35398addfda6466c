#include "SorviKit/session/FolderSession.h"

#include "SorviKit/checks/AssessmentStore.h"
#include "SorviKit/checks/Assessor.h"
#include "SorviKit/checks/Bursts.h"
#include "SorviKit/checks/CheckRun.h"
#include "SorviKit/handoff/XMPSidecar.h"
#include "SorviKit/library/DetailReader.h"
#include "SorviKit/previews/PreviewLoader.h"

#include <QDir>
#include <QFileInfo>

namespace {

QString standardised(const QString &folder)
{
    const QFileInfo info(folder);
    const QString canonical = info.canonicalFilePath();
    return canonical.isEmpty() ? QDir::cleanPath(info.absoluteFilePath()) : canonical;
}

} // namespace

FolderSession::FolderSession(const QString &folder)
    : FolderSession(folder, Options{})
{
}

FolderSession::FolderSession(const QString &folder, Options options)
    : m_folder(standardised(folder))
    , m_options(std::move(options))
{
}

FolderSession::~FolderSession() = default;

QList<Shot> FolderSession::listShots()
{
    if (!isCancelled())
        m_shots = m_options.list(m_folder);
    return m_shots;
}

QHash<QString, Rating> FolderSession::openCatalog()
{
    m_catalog = std::make_shared<Catalog>(m_folder, m_options.storeDirectory, m_options.writer,
                                          m_options.writeFile);
    m_catalog->storeFile().setListener(m_options.storeEvents);
    // Ratings another application (or an earlier hand-off) wrote into sidecars appear,
    // but never override what was rated here.
    if (!isCancelled())
        m_catalog->adopt(XMPSidecar::ratingsOf(m_shots));
    return m_catalog->ratings();
}

QList<Shot> FolderSession::readDetails(const Progress &progress)
{
    m_shots = DetailReader::readAll(m_shots, progress, m_stop.get_token());
    m_bursts = Bursts::group(m_shots, m_options.burstGapSeconds);
    return m_shots;
}

CheckMarks FolderSession::openChecks()
{
    m_checks = std::make_shared<AssessmentStore>(m_folder, m_options.storeDirectory, m_options.writer,
                                                 m_options.writeFile);
    m_checks->storeFile().setListener(m_options.storeEvents);
    return marks(m_checks->results(), m_bursts, m_options.softFraction);
}

int FolderSession::pendingChecks() const
{
    return m_checks ? int(CheckRun::pending(m_shots, *m_checks).size()) : int(m_shots.size());
}

FolderSession::Checked FolderSession::check(const Progress &progress)
{
    if (!m_checks)
        openChecks();
    PreviewLoader *previews = m_options.previews;
    if (!previews) {
        if (!m_ownPreviews)
            m_ownPreviews = std::make_unique<PreviewLoader>(ownPreviewCacheBytes);
        previews = m_ownPreviews.get();
    }
    const CheckRun::Outcome outcome = CheckRun::checkPending(m_shots, *m_checks, *previews, progress, m_stop.get_token(),
                                                                    m_options.checkFirst);
    return {marks(m_checks->results(), m_bursts, m_options.softFraction), outcome.checked, outcome.unreadable};
}

QStringList FolderSession::flush()
{
    QStringList failures;
    for (StoreFile *file : stores()) {
        file->flush();
        if (!file->lastError().isEmpty())
            failures << file->lastError();
    }
    return failures;
}

QStringList FolderSession::keptAside() const
{
    QStringList notices;
    for (const StoreFile *file : stores())
        if (!file->keptAsideNotice().isEmpty())
            notices << file->keptAsideNotice();
    return notices;
}

QList<StoreFile *> FolderSession::stores() const
{
    QList<StoreFile *> files;
    if (m_catalog)
        files << &m_catalog->storeFile();
    if (m_checks)
        files << &m_checks->storeFile();
    return files;
}

CheckMarks FolderSession::marks(const QHash<QString, Assessment> &results, const QList<QStringList> &bursts,
                                double softFraction)
{
    return {results, Assessor::soft(results, softFraction), Assessor::bestOfBursts(bursts, results)};
}
