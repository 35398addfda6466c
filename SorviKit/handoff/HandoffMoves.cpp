#include "SorviKit/core/FileError.h"
#include "SorviKit/handoff/Handoff.h"
#include "SorviKit/handoff/Handoff_p.h"

#include <fcntl.h>
#include <stdio.h>

namespace Handoff {

using namespace detail;

namespace {

enum class MoveOutcome { moved, targetTaken };

QString moveCause(int error, const QString &to)
{
    if (error == EXDEV)
        return QStringLiteral("%1 is on another drive, and rejects are only moved within the folder they are in")
            .arg(to);
    return errnoText(error);
}

// Renames without ever replacing: RENAME_NOREPLACE refuses an occupied target in the
// same step as the move, so a file that appeared there meanwhile is left alone.
MoveOutcome moveFile(const QString &from, const QString &to)
{
    if (::renameat2(AT_FDCWD, native(from).constData(), AT_FDCWD, native(to).constData(), RENAME_NOREPLACE) == 0)
        return MoveOutcome::moved;
    int error = errno;
    if (error == EINVAL || error == ENOSYS) {
        // A file system without the flag: the check just before the rename must do.
        if (occupied(to))
            return MoveOutcome::targetTaken;
        if (::rename(native(from).constData(), native(to).constData()) == 0)
            return MoveOutcome::moved;
        error = errno;
    }
    if (error == EEXIST)
        return MoveOutcome::targetTaken;
    throw FileError::couldNot(QStringLiteral("move"), from + QStringLiteral(" to ") + to, moveCause(error, to));
}

} // namespace

MoveResult moveRejects(const QList<Shot> &shots, const QString &root, const std::function<void(const Move &)> &record,
                       const std::function<void(const Move &)> &afterMove)
{
    Q_ASSERT(record);
    MoveResult result;
    result.rejectedFolder = root + QLatin1Char('/') + rejectedFolderName;
    for (const QString &file : gatherFiles(shots)) {
        const QString target = result.rejectedFolder + QLatin1Char('/') + relativePath(file, root);
        makeFolder(folderOf(target));
        Move move{file, {}};
        do {
            // Recorded before the rename is tried: a record whose move never happened is
            // skipped when putting back, a move without a record would be lost.
            move.moved = uniqueTarget(target);
            record(move);
        } while (moveFile(file, move.moved) == MoveOutcome::targetTaken);
        result.moves.append(move);
        if (afterMove)
            afterMove(move);
    }
    return result;
}

void undo(QList<Move> &moves)
{
    while (!moves.isEmpty()) {
        const Move &move = moves.constLast();
        // Only our own moves come back: a file that never reached Rejected is not looked
        // for, and a new file at the old place wins, leaving the moved one in Rejected.
        if (occupied(move.moved) && !occupied(move.source)) {
            makeFolder(folderOf(move.source));
            moveFile(move.moved, move.source);
        }
        moves.removeLast();
    }
}

} // namespace Handoff
