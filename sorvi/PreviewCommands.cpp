#include "CommandLine.h"
#include "Commands.h"
#include "SorviKit/previews/PreviewLoader.h"
#include "SorviKit/library/ShotScanner.h"
#include "Terminal.h"

#include "ByteKit/DeviceError.h"
#include "ByteKit/MappedFile.h"
#include "MediaKit/RAWPreview.h"

#include <QDir>
#include <QFileInfo>
#include <QImageWriter>
#include <QSaveFile>

namespace {

constexpr int defaultMaxPixels = 1024;
constexpr int outputQuality = 90;

QString candidateJson(const RAWPreview::Candidate &candidate)
{
    return QStringLiteral(R"({"start":%1,"end":%2,"width":%3,"height":%4,"incomplete":%5})")
        .arg(candidate.start)
        .arg(candidate.end)
        .arg(candidate.width)
        .arg(candidate.height)
        .arg(candidate.incomplete ? QStringLiteral("true") : QStringLiteral("false"));
}

void printCandidates(const QString &path, const std::vector<RAWPreview::Candidate> &found, bool json)
{
    if (json) {
        QStringList items;
        for (const RAWPreview::Candidate &candidate : found)
            items << candidateJson(candidate);
        Terminal::printOut(QLatin1Char('[') + items.join(QStringLiteral(",\n")) + QStringLiteral("]\n"));
        return;
    }
    const QString count = Wording::counted(qsizetype(found.size()), QStringLiteral("stored JPEG"));
    Terminal::printOut(QStringLiteral("%1: %2\n").arg(path, count));
    for (const RAWPreview::Candidate &candidate : found) {
        const QString cut = candidate.incomplete ? QStringLiteral("  incomplete: no end marker") : QString();
        Terminal::printOut(QStringLiteral("  %1×%2  bytes %3–%4 (%5 bytes)%6\n")
                               .arg(candidate.width)
                               .arg(candidate.height)
                               .arg(candidate.start)
                               .arg(candidate.end)
                               .arg(candidate.end - candidate.start)
                               .arg(cut));
    }
}

// The shots of every path: folders are scanned, files grouped. A path that does not
// exist is reported and leaves `ok` false.
QList<Shot> shotsOf(const QStringList &paths, bool &ok)
{
    QList<Shot> shots;
    QStringList files;
    for (const QString &path : paths) {
        const QFileInfo info(path);
        if (info.isDir())
            shots << ShotScanner::list(info.absoluteFilePath());
        else if (info.isFile())
            files << path;
        else {
            Terminal::printErr(QStringLiteral("sorvi: %1 is not a file or folder\n").arg(path));
            ok = false;
        }
    }
    return shots + ShotScanner::group(files);
}

bool writeJpeg(const QImage &image, const QString &path)
{
    QSaveFile file(path);
    QString problem;
    if (!file.open(QIODevice::WriteOnly)) {
        problem = file.errorString();
    } else {
        QImageWriter writer(&file, "jpeg");
        writer.setQuality(outputQuality);
        if (!writer.write(image))
            problem = writer.errorString();
        else if (!file.commit())
            problem = file.errorString();
    }
    if (!problem.isEmpty())
        Terminal::printErr(QStringLiteral("sorvi: could not write %1: %2\n").arg(path, problem));
    return problem.isEmpty();
}

bool previewShot(PreviewLoader &loader, const Shot &listed, int maxPixels, const QDir &out)
{
    const QString target = out.filePath(listed.name() + QStringLiteral(".jpg"));
    if (QFileInfo::exists(target)) {
        Terminal::printErr(QStringLiteral("sorvi: %1 already exists; not overwriting it\n").arg(target));
        return false;
    }
    // The orientation matters for RAW shots, whose stored pictures are not turned.
    const Shot shot = ShotScanner::readDetails(listed);
    const std::optional<ShotPreview> preview = loader.preview(shot, maxPixels);
    if (!preview) {
        Terminal::printErr(QStringLiteral("sorvi: no picture could be decoded from %1\n")
                               .arg(shot.files.join(QStringLiteral(" + "))));
        return false;
    }
    const QImage upright = PreviewLoader::upright(preview->image, preview->orientation);
    if (!writeJpeg(upright, target))
        return false;
    const QString turn = preview->orientation == 1
        ? QString()
        : QStringLiteral(", turned from orientation %1").arg(preview->orientation);
    Terminal::printOut(QStringLiteral("%1: %2%3 → %4 (%5×%6)\n")
                           .arg(shot.name(), preview->source, turn, target)
                           .arg(upright.width())
                           .arg(upright.height()));
    return true;
}

std::optional<int> maxPixelsOf(const CommandLine &line)
{
    const std::optional<QString> text = line.value(QStringLiteral("--max"));
    if (!text)
        return defaultMaxPixels;
    bool ok = false;
    const int value = text->toInt(&ok);
    return ok && value >= 1 ? std::optional<int>(value) : std::nullopt;
}

} // namespace

int Commands::previews(const QStringList &args)
{
    const CommandLine line(args, {QStringLiteral("--json")}, {});
    if (!line.isValid() || line.positional().size() != 1) {
        Terminal::printErr(QStringLiteral("usage: sorvi previews FILE [--json]\n"));
        return 2;
    }
    const QString path = line.positional().first();
    std::vector<RAWPreview::Candidate> found;
    try {
        const MappedFile file(QFile::encodeName(path).toStdString());
        found = RAWPreview::candidates(file.bytes());
    } catch (const DeviceError &error) {
        Terminal::printErr(QStringLiteral("sorvi: %1\n").arg(QString::fromStdString(error.description())));
        return 1;
    }
    printCandidates(path, found, line.has(QStringLiteral("--json")));
    return 0;
}

int Commands::preview(const QStringList &args)
{
    const CommandLine line(args, {}, {QStringLiteral("--max"), QStringLiteral("--out")});
    const std::optional<int> maxPixels = maxPixelsOf(line);
    const std::optional<QString> out = line.value(QStringLiteral("--out"));
    if (!line.isValid() || line.positional().isEmpty() || !out || !maxPixels) {
        Terminal::printErr(QStringLiteral("usage: sorvi preview PATH… [--max N] --out DIR"
                                          "  (N ≥ 1 pixels, default %1)\n")
                               .arg(defaultMaxPixels));
        return 2;
    }
    if (!QDir().mkpath(*out)) {
        Terminal::printErr(QStringLiteral("sorvi: could not create the folder %1\n").arg(*out));
        return 1;
    }
    bool ok = true;
    const QList<Shot> shots = shotsOf(line.positional(), ok);
    // Every shot is previewed once, so the loader keeps nothing in its cache.
    PreviewLoader loader(0);
    const QDir outDir(*out);
    for (const Shot &shot : shots)
        ok = previewShot(loader, shot, *maxPixels, outDir) && ok;
    return ok ? 0 : 1;
}
