#include "Commands.h"
#include "DemoShoot.h"

#include <QDir>
#include <QTextStream>

#include <cstdio>
#include <optional>
#include <unistd.h>

namespace {

const char *const demoUsage = "usage: sorvi demo DIR [--count N]\n";

struct DemoArguments {
    QString dir;
    int count = DemoShoot::defaultCount;
};

std::optional<int> parseCount(const QString &text)
{
    bool isNumber = false;
    const int count = text.toInt(&isNumber);
    if (!isNumber || count < DemoShoot::minimumCount || count > DemoShoot::maximumCount)
        return std::nullopt;
    return count;
}

// Fills `parsed` or returns the sentence explaining what is wrong with the arguments.
std::optional<QString> parse(const QStringList &args, DemoArguments &parsed)
{
    for (int i = 0; i < args.size(); ++i) {
        const QString &arg = args[i];
        if (arg == "--count" || arg.startsWith("--count=")) {
            const QString value = arg == "--count" ? (++i < args.size() ? args[i] : QString()) : arg.mid(8);
            const std::optional<int> count = parseCount(value);
            if (!count)
                return QStringLiteral("--count needs a whole number from %1 to %2")
                    .arg(DemoShoot::minimumCount)
                    .arg(DemoShoot::maximumCount);
            parsed.count = *count;
        } else if (arg.startsWith("-") && arg != "-") {
            return QStringLiteral("unknown option '%1'").arg(arg);
        } else if (parsed.dir.isEmpty()) {
            parsed.dir = arg;
        } else {
            return QStringLiteral("only one folder may be given");
        }
    }
    if (parsed.dir.isEmpty())
        return QStringLiteral("the folder to write into is missing");
    return std::nullopt;
}

// The progress line is redrawn in place, which only makes sense on a terminal.
void showProgress(int done, int total)
{
    QTextStream(stderr) << "\rWriting demo photos: " << done << '/' << total << (done == total ? "\n" : "")
                        << Qt::flush;
}

} // namespace

int Commands::demo(const QStringList &args)
{
    QTextStream err(stderr);
    DemoArguments parsed;
    if (const std::optional<QString> problem = parse(args, parsed)) {
        err << "sorvi demo: " << *problem << "\n" << demoUsage;
        return 2;
    }
    const bool isTerminal = isatty(fileno(stderr)) == 1;
    const DemoShoot::WriteResult result =
        DemoShoot::write(parsed.dir, parsed.count, isTerminal ? showProgress : std::function<void(int, int)>());
    if (!result.ok) {
        err << "sorvi demo: " << result.error << "\n";
        if (result.written > 0)
            err << "sorvi demo: " << result.written << " photos were written before the failure.\n";
        return 1;
    }
    QTextStream(stdout) << "Wrote " << result.written << " photos to " << QDir::toNativeSeparators(parsed.dir)
                        << "\n";
    return 0;
}
