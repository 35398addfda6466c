#include "CommandLine.h"
#include "Commands.h"
#include "FolderShots.h"
#include "SorviKit/checks/CheckReasons.h"
#include "SorviKit/checks/CheckSettings.h"
#include "SorviKit/core/JsonText.h"
#include "Terminal.h"

namespace {

// Why the shot got its marks, as the window's inspector says it: focus, faces and, for a
// burst member, what made the best frame win.
QStringList reasons(const Shot &shot, const CheckMarks &marks, const QList<QStringList> &bursts)
{
    QStringList lines{CheckReasons::focus(shot.id, marks.results, marks.soft),
                      QStringLiteral("Faces: ") + CheckReasons::faces(marks.results.value(shot.id))};
    for (const QStringList &burst : bursts)
        if (burst.contains(shot.id)) {
            const QString why = CheckReasons::burst(shot.id, burst, marks.results, marks.bestOfBurst);
            if (!why.isEmpty())
                lines << why;
        }
    return lines;
}

QByteArray stringList(const QStringList &texts)
{
    QByteArray json;
    for (const QString &text : texts)
        json += (json.isEmpty() ? "" : ",") + JsonText::quoted(text);
    return "[" + json + "]";
}

QByteArray number(double value)
{
    return QByteArray::number(value, 'g', 10);
}

QByteArray idList(const QStringList &ids)
{
    QByteArray json;
    for (const QString &id : ids)
        json += (json.isEmpty() ? "" : ",") + JsonText::quoted(id);
    return "[" + json + "]";
}

// The ids of `marked` in the order the shots are listed.
QStringList inShotOrder(const QList<Shot> &shots, const QSet<QString> &marked)
{
    QStringList ids;
    for (const Shot &shot : shots)
        if (marked.contains(shot.id))
            ids << shot.id;
    return ids;
}

void printJson(const QList<Shot> &shots, const CheckMarks &marks, const QList<QStringList> &bursts)
{
    QByteArray json = "{\"shots\":{";
    bool first = true;
    for (const Shot &shot : shots) {
        const auto it = marks.results.constFind(shot.id);
        if (it == marks.results.constEnd())
            continue;
        json += (first ? "\n" : ",\n") + JsonText::quoted(shot.id) + ":{\"sharpness\":" + number(it->sharpness)
            + ",\"faces\":" + QByteArray::number(it->faces) + ",\"eyesClosed\":" + QByteArray::number(it->eyesClosed)
            + ",\"faceQuality\":" + (it->faceQuality ? number(*it->faceQuality) : QByteArray("null"))
            + ",\"reasons\":" + stringList(reasons(shot, marks, bursts)) + "}";
        first = false;
    }
    QByteArray burstsJson;
    for (const QStringList &burst : bursts)
        burstsJson += (burstsJson.isEmpty() ? "" : ",") + idList(burst);
    json += "},\n\"soft\":" + idList(inShotOrder(shots, marks.soft)) + ",\n\"bursts\":[" + burstsJson
        + "],\n\"bestOfBurst\":" + idList(inShotOrder(shots, marks.bestOfBurst)) + "}\n";
    Terminal::printOut(QString::fromUtf8(json));
}

void printText(const QList<Shot> &shots, const CheckMarks &marks, const QList<QStringList> &bursts)
{
    for (const Shot &shot : shots) {
        const auto it = marks.results.constFind(shot.id);
        if (it == marks.results.constEnd()) {
            Terminal::printOut(shot.id + QStringLiteral("\n    not checked: its picture could not be read\n"));
            continue;
        }
        QStringList facts{QStringLiteral("sharpness %1").arg(it->sharpness, 0, 'f', 1),
                          Wording::counted(it->faces, QStringLiteral("face")),
                          QStringLiteral("eyes closed %1").arg(it->eyesClosed)};
        facts << (it->faceQuality ? QStringLiteral("face quality %1").arg(*it->faceQuality, 0, 'f', 2)
                                  : QStringLiteral("no face quality"));
        Terminal::printOut(shot.id + QStringLiteral("\n    ") + facts.join(QStringLiteral(" · ")) + QStringLiteral("\n    ")
                           + reasons(shot, marks, bursts).join(QStringLiteral("\n    ")) + QLatin1Char('\n'));
    }
    const QStringList soft = inShotOrder(shots, marks.soft);
    Terminal::printOut(QStringLiteral("Soft: %1\n").arg(soft.isEmpty() ? QStringLiteral("none") : soft.join(", ")));
    for (qsizetype i = 0; i < bursts.size(); ++i) {
        const QStringList best = inShotOrder(shots, QSet<QString>(marks.bestOfBurst).intersect(
                                                        QSet<QString>(bursts[i].begin(), bursts[i].end())));
        Terminal::printOut(QStringLiteral("Burst %1: %2 · best: %3\n")
                               .arg(i + 1)
                               .arg(bursts[i].join(", "), best.isEmpty() ? QStringLiteral("not decided") : best.first()));
    }
}

} // namespace

int Commands::check(const QStringList &args)
{
    const CommandLine line(args, {QStringLiteral("--json")}, {});
    int status = 0;
    const std::optional<QString> folder =
        FolderShots::onlyFolderArgument(line, QStringLiteral("usage: sorvi check FOLDER [--json]\n"), status);
    if (!folder)
        return status;
    // The thresholds the user set in the window's Checks settings.
    FolderSession::Options options;
    const CheckThresholds thresholds = CheckSettings::read();
    options.softFraction = thresholds.softFraction;
    options.burstGapSeconds = thresholds.burstGapSeconds;
    FolderSession session(*folder, options);
    Terminal::ProgressLine progress;
    const QList<Shot> shots = FolderShots::withDetails(session, progress);
    const FolderSession::Checked checked = session.check([&](int done, int total) {
        progress.show(QStringLiteral("Checking sharpness and eyes %1 of %2").arg(done).arg(total));
    });
    progress.clear();

    if (line.has(QStringLiteral("--json")))
        printJson(shots, checked.marks, session.bursts());
    else
        printText(shots, checked.marks, session.bursts());
    Terminal::printErr(QStringLiteral("%1 checked now, %2 stored from before%3\n")
                           .arg(Wording::counted(checked.checkedNow, QStringLiteral("photo")))
                           .arg(checked.marks.results.size() - checked.checkedNow)
                           .arg(checked.unreadable.isEmpty()
                                    ? QString()
                                    : QStringLiteral(", %1 could not be read").arg(checked.unreadable.size())));
    return FolderShots::finish(session, 0);
}
