#include "SorviKit/library/Catalog.h"
#include "CommandLine.h"
#include "Commands.h"
#include "SorviKit/core/FileError.h"
#include "SorviKit/handoff/Handoff.h"
#include "SorviKit/handoff/MoveLog.h"
#include "SorviKit/library/ShotScanner.h"
#include "Terminal.h"
#include "SorviKit/handoff/XMPSidecar.h"

#include <QDir>
#include <QFileInfo>

namespace {

struct Options {
    QString folder;
    bool sidecars = false;
    bool flagsList = false;
    QString copyDestination;
    QString copyWhat = QStringLiteral("picks");
    bool removeLocation = false;
    bool moveRejects = false;
    QString sidecarFolder;
};

const char *const handoffUsage =
    "usage: sorvi handoff FOLDER [--sidecars] [--flags-list] [--copy DEST [--what picks|rated|all]]\n"
    "                            [--remove-location] [--move-rejects] [--sidecar-folder DIR]\n";

std::optional<Options> parseOptions(const QStringList &args)
{
    const CommandLine line(args,
                           {"--sidecars", "--flags-list", "--remove-location", "--move-rejects"},
                           {"--copy", "--what", "--sidecar-folder"});
    if (!line.isValid() || line.positional().size() != 1) {
        Terminal::printErr((line.isValid() ? QString() : QStringLiteral("sorvi: ") + line.error() + '\n') + handoffUsage);
        return std::nullopt;
    }
    Options options;
    options.folder = QFileInfo(line.positional().first()).canonicalFilePath();
    options.sidecars = line.has("--sidecars");
    options.flagsList = line.has("--flags-list");
    options.copyDestination = line.value("--copy").value_or(QString());
    options.copyWhat = line.value("--what").value_or(options.copyWhat);
    options.removeLocation = line.has("--remove-location");
    options.moveRejects = line.has("--move-rejects");
    options.sidecarFolder = line.value("--sidecar-folder").value_or(QString());
    if (!QStringList{"picks", "rated", "all"}.contains(options.copyWhat)) {
        Terminal::printErr(QStringLiteral("sorvi: --what takes picks, rated or all\n"));
        return std::nullopt;
    }
    return options;
}

// The shots the copy takes: picks; rated (not rejected, one star or more); or all but rejects.
QList<Shot> shotsToCopy(const QList<Shot> &shots, const QHash<QString, Rating> &ratings, const QString &what)
{
    QList<Shot> chosen;
    for (const Shot &shot : shots) {
        const Rating rating = ratings.value(shot.id);
        const bool taken = what == QLatin1String("picks") ? rating.flag == Rating::Flag::pick
            : what == QLatin1String("rated")              ? rating.flag != Rating::Flag::reject && rating.stars >= 1
                                                          : rating.flag != Rating::Flag::reject;
        if (taken)
            chosen << shot;
    }
    return chosen;
}

QString sidecarLine(int count, const QString &folder)
{
    return QStringLiteral("Ratings written for %1%2.")
        .arg(Terminal::counted(count, QStringLiteral("RAW file")),
             folder.isEmpty() ? QString() : QStringLiteral(" in ") + QFileInfo(folder).fileName());
}

QString flagsLine(int count)
{
    return QStringLiteral("Picks and rejects marked for Lightroom (%1). In Lightroom Classic, select them and choose "
                          "Library \u25B8 Plug-in Extras \u25B8 Apply Sorvi Picks and Rejects.")
        .arg(Terminal::counted(count, QStringLiteral("photo")));
}

QString copyLine(const Handoff::CopyResult &result, const QString &destination)
{
    QString line = QStringLiteral("Copied %1 to %2, each checked against the original.")
                       .arg(Terminal::counted(result.files, QStringLiteral("file")), QFileInfo(destination).fileName());
    if (result.alreadyThere >= 1)
        line += QStringLiteral(" %1 were already there.").arg(result.alreadyThere);
    if (result.locationRemoved >= 1)
        line += QStringLiteral(" Location removed from %1.").arg(result.locationRemoved);
    return line;
}

void report(const QString &line)
{
    Terminal::printOut(line + QLatin1Char('\n'));
}

// The steps in the order the hand-off panel runs them; any error stops at that step.
void run(const Options &options, const QList<Shot> &shots, const QHash<QString, Rating> &ratings, bool writable)
{
    if (options.copyDestination.isEmpty()) {
        if (options.sidecars) {
            const int count = options.sidecarFolder.isEmpty()
                ? Handoff::writeSidecars(shots, ratings)
                : Handoff::writeSidecars(shots, ratings, options.folder, options.sidecarFolder);
            report(sidecarLine(count, options.sidecarFolder));
        }
        if (options.flagsList)
            report(flagsLine(Handoff::writeFlagsList(shots, ratings, options.folder, options.sidecarFolder)));
    } else {
        const QList<Shot> chosen = shotsToCopy(shots, ratings, options.copyWhat);
        Terminal::ProgressLine progress;
        const auto showProgress = [&progress](double fraction) {
            const int filled = int(fraction * 30);
            progress.show(QStringLiteral("Copying [%1%2] %3%")
                              .arg(QString(filled, QLatin1Char('#')), QString(30 - filled, QLatin1Char('-')))
                              .arg(int(fraction * 100)));
        };
        const Handoff::CopyResult result =
            Handoff::copy(chosen, options.folder, options.copyDestination, options.removeLocation, showProgress);
        progress.clear();
        report(copyLine(result, options.copyDestination));
        if (options.sidecars)
            report(sidecarLine(Handoff::writeSidecars(chosen, ratings, options.folder, options.copyDestination),
                               options.copyDestination));
        if (options.flagsList)
            report(flagsLine(Handoff::writeFlagsList(chosen, ratings, options.folder, options.copyDestination)));
    }
    if (options.moveRejects && writable) {
        QList<Shot> rejects;
        for (const Shot &shot : shots)
            if (ratings.value(shot.id).flag == Rating::Flag::reject)
                rejects << shot;
        const Handoff::MoveResult moved = Handoff::moveRejects(rejects, options.folder);
        MoveLog(options.folder).save(moved.moves);
        report(QStringLiteral("Moved %1 into the Rejected folder.").arg(Terminal::counted(rejects.size(), QStringLiteral("reject"))));
    }
}

QHash<QString, Rating> ratingsAtOpen(const QString &folder, const QList<Shot> &shots)
{
    Catalog catalog(folder);
    catalog.adopt(XMPSidecar::ratingsOf(shots));
    return catalog.ratings();
}

} // namespace

int Commands::handoff(const QStringList &args)
{
    const std::optional<Options> options = parseOptions(args);
    if (!options)
        return 2;
    if (options->folder.isEmpty() || !QFileInfo(options->folder).isDir()) {
        Terminal::printErr(QStringLiteral("sorvi: %1 is not a folder\n").arg(args.first()));
        return 1;
    }
    const bool writable = Handoff::canWrite(options->folder, true);
    const bool copying = !options->copyDestination.isEmpty();
    if (!options->sidecars && !copying && (!options->moveRejects || !writable)) {
        Terminal::printErr(QStringLiteral("sorvi: nothing to do: choose --sidecars, --copy or --move-rejects\n"));
        return 2;
    }
    if (!writable && (options->sidecars || options->flagsList) && !copying && options->sidecarFolder.isEmpty()) {
        Terminal::printErr(QStringLiteral("This card can't be written to. Choose a folder for the sidecars "
                                          "(--sidecar-folder), or copy your picks first.\n"));
        return 1;
    }
    const QList<Shot> shots = ShotScanner::list(options->folder);
    try {
        run(*options, shots, ratingsAtOpen(options->folder, shots), writable);
    } catch (const Handoff::VerifyFailed &failure) {
        Terminal::printErr(failure.description() + QLatin1Char('\n'));
        return 1;
    } catch (const FileError &error) {
        Terminal::printErr(error.description() + QLatin1Char('\n'));
        return 1;
    }
    if (options->moveRejects && !writable) {
        Terminal::printErr(QStringLiteral("Can't move rejects: this card can't be written to.\n"));
        return 1;
    }
    return 0;
}

int Commands::putBack(const QStringList &args)
{
    const CommandLine line(args, {}, {});
    if (!line.isValid() || line.positional().size() != 1) {
        Terminal::printErr(QStringLiteral("usage: sorvi put-back FOLDER\n"));
        return 2;
    }
    const QString folder = QFileInfo(line.positional().first()).canonicalFilePath();
    if (folder.isEmpty()) {
        Terminal::printErr(QStringLiteral("sorvi: %1 is not a folder\n").arg(line.positional().first()));
        return 1;
    }
    const MoveLog log(folder);
    const QList<Handoff::Move> moves = log.load();
    if (moves.isEmpty()) {
        Terminal::printErr(QStringLiteral("sorvi: no moved rejects to put back in %1\n").arg(folder));
        return 1;
    }
    try {
        Handoff::undo(moves);
        log.save({});
    } catch (const FileError &error) {
        Terminal::printErr(error.description() + QLatin1Char('\n'));
        return 1;
    }
    report(QStringLiteral("Rejects put back."));
    return 0;
}
