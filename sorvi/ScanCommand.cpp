#include "CommandLine.h"
#include "Commands.h"
#include "FolderShots.h"
#include "SorviKit/core/JsonText.h"
#include "Terminal.h"

#include <QDir>
#include <QFileInfo>

namespace {

QByteArray jsonOptional(const std::optional<QString> &text)
{
    return text ? JsonText::quoted(*text) : QByteArray("null");
}

QString isoDate(const std::optional<QDateTime> &date)
{
    return date ? date->toUTC().toString(Qt::ISODateWithMs) : QString();
}

QByteArray shotJson(const Shot &shot, const QDir &root)
{
    QByteArray files;
    for (const QString &file : shot.files)
        files += (files.isEmpty() ? "" : ",") + JsonText::quoted(root.relativeFilePath(file));
    return "{\"id\":" + JsonText::quoted(shot.id) + ",\"files\":[" + files + "]"
        + ",\"kinds\":" + JsonText::quoted(shot.kinds())
        + ",\"captureDate\":" + (shot.captureDate ? JsonText::quoted(isoDate(shot.captureDate)) : "null")
        + ",\"camera\":" + jsonOptional(shot.camera) + ",\"lens\":" + jsonOptional(shot.lens)
        + ",\"exposure\":" + jsonOptional(shot.exposure)
        + ",\"width\":" + QByteArray::number(shot.width) + ",\"height\":" + QByteArray::number(shot.height)
        + ",\"orientation\":" + QByteArray::number(shot.orientation)
        + ",\"byteSize\":" + QByteArray::number(quint64(shot.byteSize)) + "}";
}

void printJson(const QString &folder, const QList<Shot> &shots, const QList<QStringList> &bursts)
{
    const QDir root(folder);
    QByteArray json = "{\"folder\":" + JsonText::quoted(folder) + ",\"shots\":[";
    for (qsizetype i = 0; i < shots.size(); ++i)
        json += (i ? ",\n" : "\n") + shotJson(shots[i], root);
    json += "],\"bursts\":[";
    for (qsizetype i = 0; i < bursts.size(); ++i) {
        QByteArray ids;
        for (const QString &id : bursts[i])
            ids += (ids.isEmpty() ? "" : ",") + JsonText::quoted(id);
        json += (i ? "," : "") + QByteArray("[") + ids + "]";
    }
    Terminal::printOut(QString::fromUtf8(json + "]}\n"));
}

QString sizeText(std::uint64_t bytes)
{
    return QStringLiteral("%1 MB").arg(double(bytes) / 1e6, 0, 'f', 1);
}

void printText(const QString &folder, const QList<Shot> &shots, const QList<QStringList> &bursts)
{
    const QDir root(folder);
    qsizetype files = 0, pairs = 0;
    for (const Shot &shot : shots) {
        files += shot.files.size();
        pairs += shot.isPair() ? 1 : 0;
        QStringList names;
        for (const QString &file : shot.files)
            names << root.relativeFilePath(file).section(QLatin1Char('/'), -1);
        QStringList facts{names.join(QStringLiteral(" + "))};
        // Capture times are shown on the computer's clock, to the millisecond that bursts need.
        facts << (shot.captureDate ? shot.captureDate->toLocalTime().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss.zzz"))
                                   : QStringLiteral("no date"));
        for (const auto &text : {shot.camera, shot.lens, shot.exposure})
            if (text)
                facts << *text;
        if (shot.width > 0)
            facts << QStringLiteral("%1×%2").arg(shot.width).arg(shot.height);
        if (shot.orientation != 1)
            facts << QStringLiteral("orientation %1").arg(shot.orientation);
        facts << sizeText(shot.byteSize);
        Terminal::printOut(shot.id + QLatin1Char('\n') + QStringLiteral("    ") + facts.join(QStringLiteral(" · "))
                           + QLatin1Char('\n'));
    }
    for (qsizetype i = 0; i < bursts.size(); ++i)
        Terminal::printOut(QStringLiteral("Burst %1: %2\n").arg(i + 1).arg(bursts[i].join(QStringLiteral(", "))));
    Terminal::printOut(QStringLiteral("%1 in %2, %3\n")
                           .arg(Wording::counted(shots.size(), QStringLiteral("photo")),
                                Wording::counted(files, QStringLiteral("file")),
                                Wording::counted(pairs, QStringLiteral("RAW+JPEG pair"))));
}

} // namespace

int Commands::scan(const QStringList &args)
{
    const CommandLine line(args, {QStringLiteral("--json")}, {});
    int status = 0;
    const std::optional<QString> folder =
        FolderShots::onlyFolderArgument(line, QStringLiteral("usage: sorvi scan FOLDER [--json]\n"), status);
    if (!folder)
        return status;
    FolderSession session(*folder);
    Terminal::ProgressLine progress;
    const QList<Shot> shots = FolderShots::withDetails(session, progress);
    progress.clear();
    if (line.has(QStringLiteral("--json")))
        printJson(*folder, shots, session.bursts());
    else
        printText(*folder, shots, session.bursts());
    return FolderShots::finish(session, 0);
}
