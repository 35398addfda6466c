#include "CommandLine.h"
#include "Commands.h"
#include "FolderShots.h"
#include "SorviKit/handoff/Handoff.h"
#include "SorviKit/handoff/HandoffPlan.h"
#include "SorviKit/handoff/MoveLog.h"
#include "Terminal.h"

#include <QFileInfo>

namespace {

struct Request {
    QString folder;
    HandoffPlan::Choices choices;
};

const char *const handoffUsage =
    "usage: sorvi handoff FOLDER [--sidecars] [--sidecar-style lightroom|darktable] [--flags-list]\n"
    "                            [--copy DEST [--second-copy DEST2] [--what picks|rated|all] [--manifest]]\n"
    "                            [--remove-location] [--move-rejects] [--sidecar-folder DIR]\n";

// The options that only mean something beside a copy.
bool usedWithoutCopy(const CommandLine &line)
{
    for (const char *option : {"--second-copy", "--manifest"})
        if (line.has(option) || line.value(option)) {
            Terminal::printErr(QStringLiteral("sorvi: %1 goes with --copy\n%2").arg(option, handoffUsage));
            return true;
        }
    return false;
}

std::optional<HandoffPlan::SidecarStyle> sidecarStyle(const QString &name)
{
    if (name == QLatin1String("lightroom"))
        return HandoffPlan::SidecarStyle::lightroom;
    if (name == QLatin1String("darktable"))
        return HandoffPlan::SidecarStyle::darktable;
    Terminal::printErr(QStringLiteral("sorvi: --sidecar-style takes lightroom or darktable\n"));
    return std::nullopt;
}

std::optional<Request> parseRequest(const QStringList &args)
{
    const CommandLine line(args,
                           {"--sidecars", "--flags-list", "--remove-location", "--move-rejects", "--manifest"},
                           {"--copy", "--second-copy", "--what", "--sidecar-folder", "--sidecar-style"});
    if (!line.isValid() || line.positional().size() != 1) {
        Terminal::printErr((line.isValid() ? QString() : QStringLiteral("sorvi: ") + line.error() + '\n') + handoffUsage);
        return std::nullopt;
    }
    Request request;
    request.folder = QFileInfo(line.positional().first()).canonicalFilePath();
    HandoffPlan::Choices &choices = request.choices;
    choices.sidecars = line.has("--sidecars");
    choices.flagsList = line.has("--flags-list");
    choices.destination = line.value("--copy").value_or(QString());
    choices.copy = !choices.destination.isEmpty();
    choices.copyWhat = line.value("--what").value_or(choices.copyWhat);
    choices.removeLocation = line.has("--remove-location");
    choices.moveRejects = line.has("--move-rejects");
    choices.sidecarFolder = line.value("--sidecar-folder").value_or(QString());
    choices.secondDestination = line.value("--second-copy").value_or(QString());
    choices.manifest = line.has("--manifest");
    if (!QStringList{"picks", "rated", "all"}.contains(choices.copyWhat)) {
        Terminal::printErr(QStringLiteral("sorvi: --what takes picks, rated or all\n"));
        return std::nullopt;
    }
    const std::optional<HandoffPlan::SidecarStyle> style = sidecarStyle(line.value("--sidecar-style").value_or("lightroom"));
    if (!style || (!choices.copy && usedWithoutCopy(line)))
        return std::nullopt;
    choices.sidecarStyle = *style;
    return request;
}

// The folder as it is opened: its shots, with ratings from existing sidecars adopted
// into the catalog for shots that have none yet.
// The folder's shots and ratings as the application sees them when it opens it.
HandoffPlan::Folder openFolder(FolderSession &session, bool writable)
{
    const QList<Shot> shots = session.listShots();
    return {session.folder(), shots, session.openCatalog(), writable};
}

// The lines on stdout, the failure on stderr; 1 when there was one.
int print(const HandoffPlan::Report &report)
{
    for (const QString &line : report.lines)
        Terminal::printOut(line + QLatin1Char('\n'));
    if (report.failure.isEmpty())
        return 0;
    Terminal::printErr(report.failure + QLatin1Char('\n'));
    return 1;
}

} // namespace

int Commands::handoff(const QStringList &args)
{
    const std::optional<Request> request = parseRequest(args);
    if (!request)
        return 2;
    const HandoffPlan::Choices &choices = request->choices;
    if (request->folder.isEmpty() || !QFileInfo(request->folder).isDir()) {
        Terminal::printErr(QStringLiteral("sorvi: %1 is not a folder\n").arg(args.first()));
        return 1;
    }
    const bool writable = Handoff::canWrite(request->folder, true);
    if (HandoffPlan::nothingToDo(choices, !writable)) {
        Terminal::printErr(QStringLiteral("sorvi: nothing to do: choose --sidecars, --copy or --move-rejects\n"));
        return 2;
    }
    if (HandoffPlan::needsSidecarFolder(choices, !writable)) {
        Terminal::printErr(QStringLiteral("This card can't be written to. Choose a folder for the sidecars "
                                          "(--sidecar-folder), or copy your picks first.\n"));
        return 1;
    }
    FolderSession session(request->folder);
    HandoffPlan::Report report;
    {
        Terminal::ProgressLine progress;
        const auto showProgress = [&progress](double fraction) {
            progress.show(Terminal::progressBar(QStringLiteral("Copying"), fraction));
        };
        report = HandoffPlan::run(choices, openFolder(session, writable), MoveLog(request->folder), {.progress = showProgress});
    }
    int status = print(report);
    if (status == 0 && choices.moveRejects && !writable) {
        Terminal::printErr(QStringLiteral("Can't move rejects: this card can't be written to.\n"));
        status = 1;
    }
    return FolderShots::finish(session, status);
}

int Commands::putBack(const QStringList &args)
{
    int status = 0;
    const std::optional<QString> chosen = FolderShots::onlyFolderArgument(
        CommandLine(args, {}, {}), QStringLiteral("usage: sorvi put-back FOLDER\n"), status);
    if (!chosen)
        return status;
    const QString &folder = *chosen;
    const HandoffPlan::Report report = HandoffPlan::putBack(MoveLog(folder));
    if (report.lines.isEmpty() && report.failure.isEmpty()) {
        Terminal::printErr(QStringLiteral("sorvi: no moved rejects to put back in %1\n").arg(folder));
        return 1;
    }
    return print(report);
}
