#include "FolderShots.h"

#include "DetailReader.h"
#include "ShotScanner.h"

#include <QFileInfo>

namespace FolderShots {

std::optional<QString> existingFolder(const QString &path)
{
    const QFileInfo info(path);
    if (!info.isDir()) {
        Terminal::printErr(QStringLiteral("sorvi: %1 is not a folder\n").arg(path));
        return std::nullopt;
    }
    return info.canonicalFilePath();
}

QList<Shot> withDetails(const QString &folder, Terminal::ProgressLine &progress)
{
    progress.show(QStringLiteral("Listing %1…").arg(folder));
    return DetailReader::readAll(ShotScanner::list(folder), [&progress](qsizetype done, qsizetype total) {
        progress.show(QStringLiteral("Reading details %1 of %2").arg(done).arg(total));
    });
}

} // namespace FolderShots
