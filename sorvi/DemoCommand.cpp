#include "Commands.h"
#include "SorviKit/core/FileError.h"
#include "SorviKit/demo/DemoShoot.h"
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

// "51 JPEG only, 7 RAW+JPEG pairs, 2 RAW only": what the shoot holds, so that whoever
// tries it knows what to look for. Only called after every planned file was written.
QString fileKinds(int count)
{
    int kinds[3] = {0, 0, 0};
    for (const DemoShoot::DemoFrame &frame : DemoShoot::plan(count))
        ++kinds[int(frame.files)];
    using Files = DemoShoot::DemoFrame::Files;
    return QStringLiteral("%1 JPEG only, %2, %3 RAW only")
        .arg(kinds[int(Files::jpeg)])
        .arg(Wording::counted(kinds[int(Files::rawAndJpeg)], QStringLiteral("RAW+JPEG pair")))
        .arg(kinds[int(Files::raw)]);
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
    DemoShoot::WriteResult result;
    try {
        result = DemoShoot::write(parsed.dir, parsed.count, [&line](int done, int total) {
            line.show(QStringLiteral("Writing demo photos: %1/%2").arg(done).arg(total));
        });
    } catch (const FileError &error) {
        line.clear();
        Terminal::printErr(QStringLiteral("sorvi: %1\n").arg(error.description()));
        return 1;
    }
    line.clear();
    Terminal::printOut(QStringLiteral("Wrote %1 in %2 to %3 (%4)\n")
                           .arg(Wording::counted(result.photos, QStringLiteral("photo")),
                                Wording::counted(result.written, QStringLiteral("file")),
                                QDir::toNativeSeparators(parsed.dir), fileKinds(parsed.count)));
    return 0;
}
