#include "SorviKit/handoff/Handoff.h"
#include "SorviKit/core/FileError.h"
#include "SorviKit/handoff/Handoff_p.h"
#include "SorviKit/handoff/XMPSidecar.h"

#include <QDir>
#include <QFileInfo>
#include <QSaveFile>
#include <QSet>
#include <QUuid>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <algorithm>

namespace Handoff {

namespace detail {

bool occupied(const QString &path)
{
    struct stat info;
    return ::lstat(native(path).constData(), &info) == 0;
}

void makeFolder(const QString &folder)
{
    struct stat info;
    if (::stat(native(folder).constData(), &info) == 0 && S_ISDIR(info.st_mode))
        return;
    const QString parent = folderOf(folder);
    if (parent != folder)
        makeFolder(parent);
    if (::mkdir(native(folder).constData(), 0777) == 0)
        return;
    const int error = errno;
    // Another writer may have made it between the check and the mkdir; that is success.
    if (error == EEXIST && ::stat(native(folder).constData(), &info) == 0 && S_ISDIR(info.st_mode))
        return;
    throw FileError::couldNot(QStringLiteral("create the folder"), folder, errnoText(error));
}

QString folderOf(const QString &path)
{
    const QString clean = QDir::cleanPath(path);
    const qsizetype slash = clean.lastIndexOf(QLatin1Char('/'));
    if (slash < 0)
        return QStringLiteral(".");
    return slash == 0 ? QStringLiteral("/") : clean.left(slash);
}

QStringList gatherFiles(const QList<Shot> &shots)
{
    QSet<QString> gathered;
    for (const Shot &shot : shots) {
        for (const QString &file : shot.files) {
            gathered.insert(file);
            // A pair shares one Lightroom sidecar; the set keeps it from travelling twice.
            for (const XMPSidecar::Style style : {XMPSidecar::Style::lightroom, XMPSidecar::Style::darktable}) {
                const QString sidecar = XMPSidecar::pathFor(file, style);
                if (QFileInfo(sidecar).isFile())
                    gathered.insert(sidecar);
            }
        }
    }
    QStringList files(gathered.begin(), gathered.end());
    std::sort(files.begin(), files.end());
    return files;
}

} // namespace detail

using namespace detail;

namespace {

QString verifyFailedSentence(const QString &name)
{
    return QStringLiteral("The copy of ") + name
           + QStringLiteral(" didn't match the original when read back. The drive may be failing; nothing was "
                            "overwritten.");
}

struct SidecarJob {
    QString photo;
    Rating rating;
};

// Lightroom style: RAW files only, as Lightroom reads JPEG and HEIC ratings from inside
// them. darktable style: every file, since darktable and digiKam keep a sidecar for each.
// An empty rating still goes out when a sidecar exists, so that clearing a rating
// reaches the editors too.
QList<SidecarJob> sidecarJobs(const QList<Shot> &shots, const QHash<QString, Rating> &ratings,
                              XMPSidecar::Style style)
{
    QList<SidecarJob> jobs;
    for (const Shot &shot : shots) {
        const Rating rating = ratings.value(shot.id);
        QStringList photos = shot.files;
        if (style == XMPSidecar::Style::lightroom) {
            const std::optional<QString> raw = shot.raw();
            photos = raw ? QStringList{*raw} : QStringList();
        }
        for (const QString &photo : photos)
            if (!rating.isEmpty() || occupied(XMPSidecar::pathFor(photo, style)))
                jobs.append({photo, rating});
    }
    return jobs;
}

int flagValue(Rating::Flag flag)
{
    switch (flag) {
    case Rating::Flag::pick: return 1;
    case Rating::Flag::reject: return -1;
    case Rating::Flag::none: break;
    }
    return 0;
}

} // namespace

VerifyFailed::VerifyFailed(const QString &name)
    : std::runtime_error(verifyFailedSentence(name).toStdString()), m_name(name)
{
}

QString VerifyFailed::description() const
{
    return verifyFailedSentence(m_name);
}

int writeSidecars(const QList<Shot> &shots, const QHash<QString, Rating> &ratings, XMPSidecar::Style style)
{
    int written = 0;
    for (const SidecarJob &job : sidecarJobs(shots, ratings, style)) {
        XMPSidecar::write(job.rating, job.photo, style);
        ++written;
    }
    return written;
}

int writeSidecars(const QList<Shot> &shots, const QHash<QString, Rating> &ratings, const QString &root,
                  const QString &into, XMPSidecar::Style style)
{
    int written = 0;
    for (const SidecarJob &job : sidecarJobs(shots, ratings, style)) {
        const QString mirror = into + QLatin1Char('/') + relativePath(job.photo, root);
        makeFolder(folderOf(mirror));
        const QString sourceSidecar = XMPSidecar::pathFor(job.photo, style);
        const QString mirrorSidecar = XMPSidecar::pathFor(mirror, style);
        // Starting from the card's sidecar keeps what other tools wrote into it.
        if (occupied(sourceSidecar) && !occupied(mirrorSidecar))
            copyHashing(sourceSidecar, mirrorSidecar);
        XMPSidecar::write(job.rating, mirror, style);
        ++written;
    }
    return written;
}

int writeFlagsList(const QList<Shot> &shots, const QHash<QString, Rating> &ratings, const QString &root,
                   const QString &folder)
{
    QStringList lines{
        QStringLiteral("# Kestrane Sorvi picks and rejects, for the Lightroom Classic plug-in. Safe to delete.")};
    int listed = 0;
    for (const Shot &shot : shots) {
        const auto found = ratings.constFind(shot.id);
        if (found == ratings.constEnd() || found->isEmpty())
            continue;
        for (const QString &file : shot.files)
            lines << QStringList{QString::number(flagValue(found->flag)), QString::number(found->stars),
                                 Rating::rawValue(found->label), relativePath(file, root)}
                         .join(QLatin1Char('\t'));
        ++listed;
    }
    const QString path = (folder.isEmpty() ? root : folder) + QLatin1Char('/') + flagsListName;
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        throw FileError::couldNot(QStringLiteral("write"), path, file.errorString());
    file.write((lines.join(QLatin1Char('\n')) + QLatin1Char('\n')).toUtf8());
    if (!file.commit())
        throw FileError::couldNot(QStringLiteral("write"), path, file.errorString());
    return listed;
}

bool canWrite(const QString &folder, bool test)
{
    struct statvfs volume;
    if (::statvfs(native(folder).constData(), &volume) == 0) {
        if (volume.f_flag & ST_RDONLY)
            return false;
        if (!test)
            return true;
    } else if (!test) {
        return true;
    }
    // A writable mount can still refuse us (permissions, a card's lock switch seen only
    // by the card), so creating a file is the only real answer.
    const QString probe = folder + QLatin1Char('/') + writeProbePrefix
                          + QUuid::createUuid().toString(QUuid::WithoutBraces);
    const int fd = ::open(native(probe).constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd < 0)
        return false;
    ::close(fd);
    ::unlink(native(probe).constData());
    return true;
}

QString uniqueTarget(const QString &path)
{
    if (!occupied(path))
        return path;
    const QString folder = folderOf(path);
    const QString name = path.section(QLatin1Char('/'), -1);
    // A leading dot names a hidden file, not an extension; a trailing dot has none either.
    const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
    const bool hasExtension = dot > 0 && dot < name.size() - 1;
    const QString base = hasExtension ? name.left(dot) : name;
    const QString extension = hasExtension ? name.mid(dot) : QString();
    for (int n = 2;; ++n) {
        const QString candidate =
            folder + QLatin1Char('/') + base + QLatin1Char(' ') + QString::number(n) + extension;
        if (!occupied(candidate))
            return candidate;
    }
}

QString relativePath(const QString &file, const QString &root)
{
    const QString cleanFile = QDir::cleanPath(file);
    QString prefix = QDir::cleanPath(root);
    if (!prefix.endsWith(QLatin1Char('/')))
        prefix += QLatin1Char('/');
    if (cleanFile.startsWith(prefix) && cleanFile.size() > prefix.size())
        return cleanFile.mid(prefix.size());
    return cleanFile.section(QLatin1Char('/'), -1);
}

std::uint64_t size(const QString &path)
{
    struct stat info;
    if (::stat(native(path).constData(), &info) != 0)
        return 0;
    return std::uint64_t(info.st_size);
}

} // namespace Handoff
