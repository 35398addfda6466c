#include "FolderShots.h"

#include "SorviKit/library/DetailReader.h"
#include "SorviKit/library/ShotScanner.h"

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

std::optional<QString> onlyFolderArgument(const CommandLine &line, const QString &usage, int &exitCode)
{
    if (!line.isValid() || line.positional().size() != 1) {
        Terminal::printErr(usage);
        exitCode = 2;
        return std::nullopt;
    }
    const std::optional<QString> folder = existingFolder(line.positional().first());
    exitCode = folder ? 0 : 1;
    return folder;
}

QList<Shot> withDetails(const QString &folder, Terminal::ProgressLine &progress)
{
    progress.show(QStringLiteral("Listing %1…").arg(folder));
    return DetailReader::readAll(ShotScanner::list(folder), [&progress](qsizetype done, qsizetype total) {
        progress.show(QStringLiteral("Reading details %1 of %2").arg(done).arg(total));
    });
}

} // namespace FolderShots
