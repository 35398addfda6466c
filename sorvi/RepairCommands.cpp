#include "CommandLine.h"
#include "Commands.h"
#include "MediaKit/repair/ClipJoin.h"
#include "MediaKit/repair/ClipRepair.h"
#include "MediaKit/repair/JpegHeader.h"
#include "Terminal.h"

#include <QFile>

#include <fstream>

namespace {

const char *const repairUsage = "usage: sorvi repair CLIP|PHOTO --reference GOOD_FILE [-o OUT]\n";
const char *const joinUsage = "usage: sorvi join PART1 PART2 ... [-o OUT]\n";

std::string local(const QString &path)
{
    return QFile::encodeName(path).toStdString();
}

QString text(const std::string &utf8)
{
    return QString::fromStdString(utf8);
}

// "-o OUT" reads as "--output OUT", the parser's long form.
QStringList withLongOptions(QStringList args)
{
    for (QString &arg : args)
        if (arg == QLatin1String("-o"))
            arg = QStringLiteral("--output");
    return args;
}

bool referenceIsPhoto(const std::string &reference)
{
    std::ifstream in(reference, std::ios::binary);
    std::uint8_t start[3] = {};
    in.read(reinterpret_cast<char *>(start), 3);
    return in && JpegHeader::startsLikeJpeg(start);
}

int repairPhoto(const std::string &photo, const std::string &reference, const std::string &output)
{
    std::string written;
    const JpegHeader::Result result = JpegHeader::repair(photo, reference, output, written);
    for (const std::string &warning : result.warnings)
        Terminal::printErr(QStringLiteral("sorvi: warning: %1\n").arg(text(warning)));
    Terminal::printOut(QStringLiteral("Rebuilt the header of %1 from %2: picture data from byte %3 kept (%4 bytes).\n"
                                      "Written to %5\n")
                           .arg(text(photo), text(reference))
                           .arg(result.dataOffset)
                           .arg(result.jpeg.size())
                           .arg(text(written)));
    return 0;
}

int repairClip(const std::string &clip, const std::string &reference, const std::string &output)
{
    ClipRepair::Report report;
    {
        Terminal::ProgressLine progress;
        report = ClipRepair::repair(clip, reference, output, [&progress](double fraction) {
            progress.show(Terminal::progressBar(QStringLiteral("Repairing"), fraction));
        });
    }
    Terminal::printOut(report.ownIndex ? QStringLiteral("The clip's own index was kept; samples past its end were left out.\n")
                                       : QStringLiteral("Index rebuilt from %1 with the layout of %2.\n")
                                             .arg(text(clip), text(reference)));
    for (const ClipRepair::TrackReport &track : report.tracks)
        Terminal::printOut(QStringLiteral("  track %1 %2 %3: %4\n")
                               .arg(track.id)
                               .arg(text(track.handler), text(track.codec),
                                    !track.recognised ? QStringLiteral("kept empty (this kind of track cannot be found without an index)")
                                                      : QStringLiteral("%1 samples, %2 bytes, %3 s")
                                                            .arg(track.samples)
                                                            .arg(track.bytes)
                                                            .arg(track.seconds, 0, 'f', 2)));
    if (!report.ownIndex && report.recoveredUntil < report.fileSize)
        Terminal::printOut(QStringLiteral("Nothing recoverable after byte %1 (the file has %2 bytes).\n")
                               .arg(report.recoveredUntil)
                               .arg(report.fileSize));
    if (report.unreadableBytes > 0)
        Terminal::printOut(QStringLiteral("%1 bytes matched no track (lost or damaged blocks).\n").arg(report.unreadableBytes));
    Terminal::printOut(QStringLiteral("Written to %1\n").arg(text(report.output)));
    return 0;
}

} // namespace

int Commands::repair(const QStringList &args)
{
    const CommandLine line(withLongOptions(args), {}, {QStringLiteral("--reference"), QStringLiteral("--output")});
    if (!line.isValid() || line.positional().size() != 1) {
        Terminal::printErr((line.isValid() ? QString() : QStringLiteral("sorvi: ") + line.error() + '\n') + repairUsage);
        return 2;
    }
    const std::string damaged = local(line.positional().first());
    const std::string reference = local(line.value(QStringLiteral("--reference")).value_or(QString()));
    const std::string output = local(line.value(QStringLiteral("--output")).value_or(QString()));
    try {
        if (!reference.empty() && referenceIsPhoto(reference))
            return repairPhoto(damaged, reference, output);
        return repairClip(damaged, reference, output);
    } catch (const ClipRepair::Error &error) {
        Terminal::printErr(QStringLiteral("sorvi: %1\n").arg(text(error.what())));
        return error.kind() == ClipRepair::Error::Kind::noReference ? 2 : 1;
    } catch (const JpegHeader::Error &error) {
        Terminal::printErr(QStringLiteral("sorvi: %1\n").arg(text(error.what())));
        return 1;
    }
}

int Commands::join(const QStringList &args)
{
    const CommandLine line(withLongOptions(args), {}, {QStringLiteral("--output")});
    if (!line.isValid() || line.positional().size() < 2) {
        Terminal::printErr((line.isValid() ? QString() : QStringLiteral("sorvi: ") + line.error() + '\n') + joinUsage);
        return 2;
    }
    std::vector<std::string> parts;
    for (const QString &part : line.positional())
        parts.push_back(local(part));
    try {
        ClipJoin::Report report;
        {
            Terminal::ProgressLine progress;
            report = ClipJoin::join(parts, local(line.value(QStringLiteral("--output")).value_or(QString())),
                                    [&progress](double fraction) {
                                        progress.show(Terminal::progressBar(QStringLiteral("Joining"), fraction));
                                    });
        }
        Terminal::printOut(QStringLiteral("Joined %1 parts.\n").arg(parts.size()));
        for (const ClipJoin::TrackReport &track : report.tracks)
            Terminal::printOut(QStringLiteral("  track %1 %2 %3: %4 samples, %5 s\n")
                                   .arg(track.id)
                                   .arg(text(track.handler), text(track.codec))
                                   .arg(track.samples)
                                   .arg(track.seconds, 0, 'f', 2));
        double widest = 0;
        for (double offset : report.seamOffsets)
            widest = std::max(widest, offset);
        Terminal::printOut(QStringLiteral("Sound starts within %1 ms of the pictures at every seam.\nWritten to %2\n")
                               .arg(widest * 1000, 0, 'f', 1)
                               .arg(text(report.output)));
        return 0;
    } catch (const ClipJoin::Error &error) {
        Terminal::printErr(QStringLiteral("sorvi: %1\n").arg(text(error.what())));
        return 1;
    }
}
