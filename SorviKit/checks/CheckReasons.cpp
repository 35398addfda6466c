#include "SorviKit/checks/CheckReasons.h"

#include "SorviKit/checks/Assessor.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace CheckReasons {
namespace {

QString ordinal(int n)
{
    const int lastTwo = n % 100, last = n % 10;
    const char *suffix = (lastTwo >= 11 && lastTwo <= 13) ? "th" : last == 1 ? "st" : last == 2 ? "nd" : last == 3 ? "rd" : "th";
    return QString::number(n) + QLatin1String(suffix);
}

QString percentOf(double value, double typical)
{
    const double percent = 100 * value / typical;
    return percent < 0.5 ? QStringLiteral("less than 1 %") : QStringLiteral("%1 %").arg(qRound(percent));
}

QString sharperText(double winner, double other)
{
    if (other <= 0)
        return QStringLiteral("sharper");
    const double ratio = winner / other;
    if (ratio >= 1.5)
        return QStringLiteral("sharper, %1\u00D7").arg(ratio, 0, 'f', 1);
    const int percent = qRound(100 * (ratio - 1));
    return percent < 1 ? QStringLiteral("slightly sharper") : QStringLiteral("sharper by %1 %").arg(percent);
}

// The frame among `burst` other than `except` that would win without it.
QString runnerUp(const QStringList &burst, const QString &except, const QHash<QString, Assessment> &results)
{
    QString best;
    for (const QString &id : burst)
        if (id != except && (best.isEmpty() || Assessor::edge(results[id], results[best]) != Assessor::Edge::none))
            best = id;
    return best;
}

QString edgeText(Assessor::Edge edge, const Assessment &winner, const Assessment &other)
{
    switch (edge) {
    case Assessor::Edge::eyesOpen:
        return QStringLiteral("eyes open");
    case Assessor::Edge::betterFaces:
        return QStringLiteral("faces caught better (quality %1 against %2)")
            .arg(*winner.faceQuality, 0, 'f', 2)
            .arg(*other.faceQuality, 0, 'f', 2);
    case Assessor::Edge::sharper:
        return sharperText(winner.sharpness, other.sharpness);
    case Assessor::Edge::none:
        break;
    }
    return QStringLiteral("the earliest of equal frames");
}

} // namespace

QString focus(const QString &id, const QHash<QString, Assessment> &results, const QSet<QString> &soft)
{
    const auto result = results.constFind(id);
    const std::optional<double> typical = Assessor::typicalSharpness(results);
    const QString word = soft.contains(id) ? QStringLiteral("Soft") : QStringLiteral("Sharp");
    if (result == results.cend() || !typical || *typical <= 0)
        return word;
    return word + QStringLiteral(": ") + percentOf(result->sharpness, *typical) + QStringLiteral(" of the shoot's typical sharpness");
}

QString whichFaces(const QList<FaceMark> &marks, const std::function<bool(const FaceMark &)> &pick)
{
    std::vector<FaceMark> byPlace(marks.begin(), marks.end());
    std::stable_sort(byPlace.begin(), byPlace.end(),
                     [](const FaceMark &a, const FaceMark &b) { return a.box.center().x() < b.box.center().x(); });
    QStringList places;
    for (std::size_t i = 0; i < byPlace.size(); ++i)
        if (pick(byPlace[i]))
            places << ordinal(int(i) + 1);
    if (places.isEmpty())
        return {};
    if (byPlace.size() == 1)
        return QStringLiteral("the face");
    const QString last = places.takeLast();
    return QStringLiteral("the ") + (places.isEmpty() ? last : places.join(QStringLiteral(", ")) + QStringLiteral(" and ") + last)
           + QStringLiteral(" from the left");
}

QString faces(const Assessment &result)
{
    if (result.faces == 0)
        return QStringLiteral("None found");
    QString text = QString::number(result.faces);
    if (result.eyesClosed > 0) {
        text += QStringLiteral(" \u00B7 eyes closed on %1").arg(result.eyesClosed);
        const QString which = whichFaces(result.faceMarks, [](const FaceMark &m) { return m.eyesClosed; });
        if (!which.isEmpty() && result.faces > 1)
            text += QStringLiteral(": ") + which;
    } else {
        text += QStringLiteral(" \u00B7 eyes open");
    }
    const auto unclear = std::count_if(result.faceMarks.begin(), result.faceMarks.end(),
                                       [](const FaceMark &m) { return m.eyesUnclear; });
    if (unclear == result.faces && result.eyesClosed == 0)
        return QString::number(result.faces) + QStringLiteral(" \u00B7 eyes not clear");
    if (unclear > 0)
        text += QStringLiteral(" \u00B7 eyes not clear on %1").arg(unclear);
    return text;
}

QString burst(const QString &id, const QStringList &burst, const QHash<QString, Assessment> &results,
              const QSet<QString> &bestOfBurst, const std::function<QString(const QString &)> &name)
{
    const auto best = std::find_if(burst.begin(), burst.end(), [&](const QString &member) { return bestOfBurst.contains(member); });
    if (best == burst.end() || !burst.contains(id) || burst.size() < 2)
        return {};
    if (*best == id) {
        const QString other = runnerUp(burst, id, results);
        return QStringLiteral("Best of this burst: ")
               + edgeText(Assessor::edge(results[id], results[other]), results[id], results[other]);
    }
    return QStringLiteral("Another frame is better: ") + (name ? name(*best) : *best) + QStringLiteral(", ")
           + edgeText(Assessor::edge(results[*best], results[id]), results[*best], results[id]);
}

} // namespace CheckReasons
