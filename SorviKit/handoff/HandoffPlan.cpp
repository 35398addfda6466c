#include "SorviKit/handoff/HandoffPlan.h"
#include "SorviKit/core/Wording.h"
#include "SorviKit/core/FileError.h"
#include "SorviKit/handoff/Handoff.h"
#include "SorviKit/handoff/MoveLog.h"

#include <QDir>
#include <QFileInfo>

#include <algorithm>

namespace HandoffPlan {

namespace {

// A folder as the photographer knows it, also when given with a trailing slash.
QString nameOf(const QString &folder)
{
    return QFileInfo(QDir::cleanPath(folder)).fileName();
}

QString sidecarsLine(int written, const QString &folder)
{
    return QStringLiteral("Ratings written for %1%2.")
        .arg(Wording::counted(written, QStringLiteral("RAW file")),
             folder.isEmpty() ? QString() : QStringLiteral(" in ") + nameOf(folder));
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
            ? Handoff::writeSidecars(folder.shots, folder.ratings)
            : Handoff::writeSidecars(folder.shots, folder.ratings, folder.path, choices.sidecarFolder);
        lines << sidecarsLine(written, choices.sidecarFolder);
    }
    if (choices.flagsList)
        lines << flagsListLine(
            Handoff::writeFlagsList(folder.shots, folder.ratings, folder.path, choices.sidecarFolder));
}

// The copy first, so that sidecars and the flags list describe exactly what was copied.
// Returns false when the copy was cancelled, so that nothing runs after it.
bool copyThenDescribe(const Choices &choices, const Folder &folder, const Handoff::CopyWatch &watch,
                      QStringList &lines)
{
    const QList<Shot> chosen = toCopy(folder, choices.copyWhat);
    const Handoff::CopyResult copied =
        Handoff::copy(chosen, folder.path, choices.destination, choices.removeLocation, watch);
    lines << copyLine(copied, choices.destination);
    if (copied.notCopied > 0) {
        lines << QStringLiteral("Cancelled: %1 not copied.").arg(Wording::counted(copied.notCopied, QStringLiteral("file")));
        return false;
    }
    if (choices.sidecars)
        lines << sidecarsLine(Handoff::writeSidecars(chosen, folder.ratings, folder.path, choices.destination),
                              choices.destination);
    if (choices.flagsList)
        lines << flagsListLine(Handoff::writeFlagsList(chosen, folder.ratings, folder.path, choices.destination));
    return true;
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
        else if (!choices.destination.isEmpty() && !copyThenDescribe(choices, folder, watch, report.lines)) {
            report.cancelled = true;
            return report;
        }
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
