#include "CommandLine.h"
#include "Commands.h"
#include "FolderShots.h"
#include "SorviKit/handoff/ManifestCheck.h"
#include "Terminal.h"

namespace {

QString stateWord(ManifestCheck::State state)
{
    switch (state) {
    case ManifestCheck::State::matches: return QStringLiteral("matches");
    case ManifestCheck::State::differs: return QStringLiteral("DIFFERS");
    case ManifestCheck::State::missing: return QStringLiteral("MISSING");
    case ManifestCheck::State::unchecked: return QStringLiteral("NOT CHECKED");
    }
    return {};
}

// One line a file on stdout, then the counts; lists that could not be read go to stderr.
void print(const ManifestCheck::Result &result)
{
    for (const ManifestCheck::Finding &finding : result.findings)
        Terminal::printOut(QStringLiteral("%1  %2%3\n")
                               .arg(stateWord(finding.state), finding.file,
                                    finding.reason.isEmpty() ? QString() : QStringLiteral(" (") + finding.reason + ')'));
    for (const QString &unreadable : result.unreadable)
        Terminal::printErr(QStringLiteral("sorvi: %1\n").arg(unreadable));
    using ManifestCheck::State;
    Terminal::printOut(QStringLiteral("%1 listed in %2: %3 match, %4 differ, %5 missing, %6 not checked.\n")
                           .arg(Wording::counted(result.findings.size(), QStringLiteral("file")),
                                result.manifests.join(QStringLiteral(", ")))
                           .arg(result.count(State::matches))
                           .arg(result.count(State::differs))
                           .arg(result.count(State::missing))
                           .arg(result.count(State::unchecked)));
}

} // namespace

int Commands::verify(const QStringList &args)
{
    int status = 0;
    const std::optional<QString> destination = FolderShots::onlyFolderArgument(
        CommandLine(args, {}, {}), QStringLiteral("usage: sorvi verify DESTINATION\n"), status);
    if (!destination)
        return status;
    const QString &folder = *destination;
    ManifestCheck::Result result;
    {
        Terminal::ProgressLine progress;
        result = ManifestCheck::check(folder, [&progress](double fraction) {
            progress.show(Terminal::progressBar(QStringLiteral("Checking"), fraction));
        });
    }
    if (result.manifests.isEmpty()) {
        Terminal::printErr(QStringLiteral("sorvi: no checksum list (.mhl) in %1; copy with sorvi handoff --manifest "
                                          "to make one\n")
                               .arg(folder));
        return 1;
    }
    print(result);
    return result.allMatch() ? 0 : 1;
}
