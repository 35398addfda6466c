#include "FolderShots.h"

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

QList<Shot> withDetails(FolderSession &session, Terminal::ProgressLine &progress)
{
    progress.show(QStringLiteral("Listing %1…").arg(session.folder()));
    session.listShots();
    return session.readDetails([&progress](int done, int total) {
        progress.show(QStringLiteral("Reading details %1 of %2").arg(done).arg(total));
    });
}

int finish(FolderSession &session, int status)
{
    const QStringList failures = session.flush();
    for (const QString &notice : session.keptAside())
        Terminal::printErr(notice + QLatin1Char('\n'));
    for (const QString &failure : failures)
        Terminal::printErr(failure + QLatin1Char('\n'));
    return failures.isEmpty() ? status : 1;
}

} // namespace FolderShots
