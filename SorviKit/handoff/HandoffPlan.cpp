#include "SorviKit/handoff/HandoffPlan.h"
#include "SorviKit/core/Wording.h"
#include "SorviKit/core/FileError.h"
#include "SorviKit/handoff/Handoff.h"
#include "SorviKit/handoff/MediaHashList.h"
#include "SorviKit/handoff/MoveLog.h"

#include <QDir>
#include <QFileInfo>

#include <algorithm>
#include <exception>
#include <optional>

namespace HandoffPlan {

namespace {

// A folder as the photographer knows it, also when given with a trailing slash.
QString nameOf(const QString &folder)
{
    return QFileInfo(QDir::cleanPath(folder)).fileName();
}

QString sidecarsLine(int written, const QString &folder, SidecarStyle style)
{
    const QString where = folder.isEmpty() ? QString() : QStringLiteral(" in ") + nameOf(folder);
    if (style == SidecarStyle::darktable)
        return QStringLiteral("Ratings written for %1%2, for darktable and digiKam.")
            .arg(Wording::counted(written, QStringLiteral("file")), where);
    return QStringLiteral("Ratings written for %1%2.").arg(Wording::counted(written, QStringLiteral("RAW file")), where);
}

QString manifestLine(int listed, const QString &destination)
{
    return QStringLiteral("Checksums of %1 listed in %2/%3.")
        .arg(Wording::counted(listed, QStringLiteral("file")), nameOf(destination), MediaHashList::manifestName);
}

// Two names of one folder, also through a link or a trailing slash.
bool sameFolder(const QString &first, const QString &second)
{
    const QString a = QFileInfo(first).canonicalFilePath(), b = QFileInfo(second).canonicalFilePath();
    return a.isEmpty() || b.isEmpty() ? QDir::cleanPath(first) == QDir::cleanPath(second) : a == b;
}

// The sentence of a failure carried from the copy.
QString describe(const std::exception_ptr &failure)
{
    try {
        std::rethrow_exception(failure);
    } catch (const Handoff::VerifyFailed &error) {
        return error.description();
    } catch (const FileError &error) {
        return error.description();
    } catch (const std::exception &error) {
        return QString::fromLocal8Bit(error.what());
    }
}

QString flagsListLine(int listed)
{
    return QStringLiteral("Picks and rejects marked for Lightroom (%1). In Lightroom Classic, select them and choose "
                          "Library \u25B8 Plug-in Extras \u25B8 Apply Sorvi Picks and Rejects.")
        .arg(Wording::counted(listed, QStringLiteral("photo")));
}

QString copyLine(const Handoff::CopyResult &result, const QString &destination)
{
    QString line = QStringLiteral("Copied %1 to %2, each checked against the original.")
                       .arg(Wording::counted(result.files, QStringLiteral("file")), nameOf(destination));
    if (result.alreadyThere >= 1)
        line += QStringLiteral(" %1 were already there.").arg(result.alreadyThere);
    if (result.locationRemoved >= 1)
        line += QStringLiteral(" Location removed from %1.").arg(result.locationRemoved);
    return line;
}

// Sidecars and the flags list beside the photos, or in the sidecar folder when one is chosen.
void writeInPlace(const Choices &choices, const Folder &folder, QStringList &lines)
{
    if (choices.sidecars) {
        const int written = choices.sidecarFolder.isEmpty()
            ? Handoff::writeSidecars(folder.shots, folder.ratings, choices.sidecarStyle)
            : Handoff::writeSidecars(folder.shots, folder.ratings, folder.path, choices.sidecarFolder,
                                     choices.sidecarStyle);
        lines << sidecarsLine(written, choices.sidecarFolder, choices.sidecarStyle);
    }
    if (choices.flagsList)
        lines << flagsListLine(
            Handoff::writeFlagsList(folder.shots, folder.ratings, folder.path, choices.sidecarFolder));
}

// The destinations of one copy, each carrying on until something fails there; with two,
// each failure names its destination.
class Destinations {
public:
    explicit Destinations(const QList<Handoff::DestinationCopy> &copies) : m_named(copies.size() > 1)
    {
        for (const Handoff::DestinationCopy &copy : copies)
            if (copy.failure)
                fail(copy.destination, describe(copy.failure));
            else
                m_going << &copy;
    }
    const QList<const Handoff::DestinationCopy *> &going() const { return m_going; }
    QString failure() const { return m_failures.join(QLatin1Char('\n')); }
    bool anyFailed() const { return !m_failures.isEmpty(); }

    /// Runs `step` on each destination still going; one that throws FileError stops there.
    template<typename Step>
    void forEach(Step step)
    {
        for (auto it = m_going.begin(); it != m_going.end();) {
            try {
                step(**it);
                ++it;
            } catch (const FileError &error) {
                fail((*it)->destination, error.description());
                it = m_going.erase(it);
            }
        }
    }

private:
    void fail(const QString &destination, const QString &description)
    {
        m_failures << (m_named ? QStringLiteral("Stopped on %1: %2").arg(nameOf(destination), description) : description);
    }

    bool m_named;
    QList<const Handoff::DestinationCopy *> m_going;
    QStringList m_failures;
};

// The copy first, so that sidecars, the flags list and the manifest describe exactly
// what was copied. Returns false when the copy was cancelled or something failed, so
// that nothing runs after it.
bool copyThenDescribe(const Choices &choices, const Folder &folder, const Handoff::CopyWatch &watch, Report &report)
{
    const QList<Shot> chosen = toCopy(folder, choices.copyWhat);
    QStringList targets{choices.destination};
    if (!choices.secondDestination.isEmpty())
        targets << choices.secondDestination;
    if (targets.size() > 1 && sameFolder(targets[0], targets[1])) {
        report.failure = QStringLiteral("The second copy would go to %1 too. Choose another drive for it.")
                             .arg(nameOf(targets[0]));
        return false;
    }
    const QList<Handoff::DestinationCopy> copies =
        Handoff::copyToEach(chosen, folder.path, targets, choices.removeLocation, watch);
    Destinations destinations(copies);
    for (const Handoff::DestinationCopy *copy : destinations.going())
        report.lines << copyLine(copy->result, copy->destination);
    const int notCopied = destinations.going().isEmpty() ? 0 : destinations.going().first()->result.notCopied;
    if (notCopied > 0) {
        report.lines << QStringLiteral("Cancelled: %1 not copied.").arg(Wording::counted(notCopied, QStringLiteral("file")));
        report.failure = destinations.failure();
        return false;
    }
    if (choices.sidecars)
        destinations.forEach([&](const Handoff::DestinationCopy &copy) {
            const int written = Handoff::writeSidecars(chosen, folder.ratings, folder.path, copy.destination,
                                                       choices.sidecarStyle);
            report.lines << sidecarsLine(written, copy.destination, choices.sidecarStyle);
        });
    if (choices.flagsList) {
        // One sentence for all destinations: the list is the same on each.
        std::optional<int> listed;
        destinations.forEach([&](const Handoff::DestinationCopy &copy) {
            listed = Handoff::writeFlagsList(chosen, folder.ratings, folder.path, copy.destination);
        });
        if (listed)
            report.lines << flagsListLine(*listed);
    }
    if (choices.manifest)
        destinations.forEach([&](const Handoff::DestinationCopy &copy) {
            const MediaHashList::Recorded recorded = MediaHashList::record(copy.destination, copy.verified);
            if (!recorded.notice.isEmpty())
                report.lines << recorded.notice;
            report.lines << manifestLine(recorded.listed, copy.destination);
        });
    report.failure = destinations.failure();
    return !destinations.anyFailed();
}

void moveRejectsAside(const Folder &folder, const MoveLog &log, QStringList &lines)
{
    const QString notice = log.prepare();
    if (!notice.isEmpty())
        lines << notice;
    const QList<Shot> moving = rejects(folder);
    Handoff::moveRejects(moving, folder.path, [&log](const Handoff::Move &move) { log.append(move); });
    lines << QStringLiteral("Moved %1 into the Rejected folder.").arg(Wording::counted(moving.size(), QStringLiteral("reject")));
}

} // namespace

QList<Shot> toCopy(const Folder &folder, const QString &what)
{
    QList<Shot> chosen;
    for (const Shot &shot : folder.shots) {
        const Rating rating = folder.ratings.value(shot.id);
        const bool taken = what == QLatin1String("picks") ? rating.flag == Rating::Flag::pick
            : what == QLatin1String("rated")              ? rating.flag != Rating::Flag::reject && rating.stars >= 1
                                                          : rating.flag != Rating::Flag::reject;
        if (taken)
            chosen << shot;
    }
    return chosen;
}

QList<Shot> rejects(const Folder &folder)
{
    QList<Shot> chosen;
    for (const Shot &shot : folder.shots)
        if (folder.ratings.value(shot.id).flag == Rating::Flag::reject)
            chosen << shot;
    return chosen;
}

int rawShots(const QList<Shot> &shots)
{
    return int(std::count_if(shots.begin(), shots.end(), [](const Shot &shot) { return shot.raw().has_value(); }));
}

bool nothingToDo(const Choices &choices, bool readOnly)
{
    return !choices.sidecars && !choices.copy && (!choices.moveRejects || readOnly);
}

bool needsSidecarFolder(const Choices &choices, bool readOnly)
{
    return readOnly && (choices.sidecars || choices.flagsList) && !choices.copy && choices.sidecarFolder.isEmpty();
}

Report run(const Choices &choices, const Folder &folder, const MoveLog &log, const Handoff::CopyWatch &watch)
{
    Report report;
    try {
        if (!choices.copy)
            writeInPlace(choices, folder, report.lines);
        else if (!choices.destination.isEmpty() && !copyThenDescribe(choices, folder, watch, report))
            return report;
        if (choices.moveRejects && folder.writable)
            moveRejectsAside(folder, log, report.lines);
    } catch (const Handoff::VerifyFailed &failure) {
        report.failure = failure.description();
    } catch (const FileError &error) {
        report.failure = error.description();
    }
    return report;
}

Report putBack(const MoveLog &log)
{
    Report report;
    QList<Handoff::Move> moves;
    try {
        moves = log.load();
        if (moves.isEmpty())
            return report;
        Handoff::undo(moves);
        report.lines << QStringLiteral("Rejects put back.");
        log.save({});
    } catch (const FileError &error) {
        report.failure = error.description();
    }
    if (report.failure.isEmpty() || moves.isEmpty())
        return report;
    // Part-way: what came back is forgotten, the rest stays recorded for the next try.
    try {
        log.save(moves);
    } catch (const FileError &error) {
        report.failure += QLatin1Char(' ') + error.description();
    }
    return report;
}

} // namespace HandoffPlan
