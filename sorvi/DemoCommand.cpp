#include "Commands.h"
#include "DemoShoot.h"
#include "Terminal.h"

#include <QDir>

#include <optional>

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

} // namespace

int Commands::demo(const QStringList &args)
{
    DemoArguments parsed;
    if (const std::optional<QString> problem = parse(args, parsed)) {
        Terminal::printErr(QStringLiteral("sorvi: %1\n%2").arg(*problem, QString::fromLatin1(demoUsage)));
        return 2;
    }
    Terminal::ProgressLine line;
    const DemoShoot::WriteResult result = DemoShoot::write(parsed.dir, parsed.count, [&line](int done, int total) {
        line.show(QStringLiteral("Writing demo photos: %1/%2").arg(done).arg(total));
    });
    line.clear();
    if (!result.ok) {
        Terminal::printErr(QStringLiteral("sorvi: %1\n").arg(result.error));
        if (result.written > 0)
            Terminal::printErr(QStringLiteral("sorvi: %1 written before the failure\n")
                                   .arg(Terminal::counted(result.written, QStringLiteral("photo"))));
        return 1;
    }
    Terminal::printOut(QStringLiteral("Wrote %1 to %2\n")
                           .arg(Terminal::counted(result.written, QStringLiteral("photo")),
                                QDir::toNativeSeparators(parsed.dir)));
    return 0;
}
