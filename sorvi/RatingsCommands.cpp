#include "SorviKit/library/Catalog.h"
#include "CommandLine.h"
#include "Commands.h"
#include "SorviKit/core/FileNameOrder.h"
#include "FolderShots.h"
#include "Terminal.h"

#include <QFileInfo>

#include <algorithm>

namespace {

QString ratingText(const Rating &rating)
{
    QStringList parts;
    parts << (rating.stars > 0 ? QString(rating.stars, QChar(0x2605)) : QStringLiteral("no stars"));
    if (rating.flag != Rating::Flag::none)
        parts << Rating::rawValue(rating.flag);
    if (rating.label != Rating::Label::none)
        parts << Rating::rawValue(rating.label);
    return parts.join(QStringLiteral(" · "));
}

// Applies the requested changes to `rating`; false (with a message) on a bad value.
bool applyChanges(const CommandLine &line, Rating &rating)
{
    if (const auto stars = line.value(QStringLiteral("--stars"))) {
        bool ok = false;
        const int value = stars->toInt(&ok);
        if (!ok || value < 0 || value > 5) {
            Terminal::printErr(QStringLiteral("sorvi: --stars takes a number from 0 to 5, not %1\n").arg(*stars));
            return false;
        }
        rating.stars = value;
    }
    const int flagOptions = int(line.has(QStringLiteral("--pick"))) + int(line.has(QStringLiteral("--reject")))
        + int(line.has(QStringLiteral("--unflag")));
    if (flagOptions > 1) {
        Terminal::printErr(QStringLiteral("sorvi: give only one of --pick, --reject and --unflag\n"));
        return false;
    }
    if (line.has(QStringLiteral("--pick")))
        rating.flag = Rating::Flag::pick;
    else if (line.has(QStringLiteral("--reject")))
        rating.flag = Rating::Flag::reject;
    else if (line.has(QStringLiteral("--unflag")))
        rating.flag = Rating::Flag::none;
    if (const auto label = line.value(QStringLiteral("--label"))) {
        const QString name = label->compare(QLatin1String("none"), Qt::CaseInsensitive) == 0
            ? QString()
            : label->left(1).toUpper() + label->mid(1).toLower();
        const auto parsed = Rating::labelFromRaw(name);
        if (!parsed) {
            Terminal::printErr(QStringLiteral("sorvi: unknown label %1 (use Red, Yellow, Green, Blue, Purple or none)\n")
                                   .arg(*label));
            return false;
        }
        rating.label = *parsed;
    }
    return true;
}

} // namespace

int Commands::ratings(const QStringList &args)
{
    const CommandLine line(args, {QStringLiteral("--json")}, {});
    int status = 0;
    const std::optional<QString> folder =
        FolderShots::onlyFolderArgument(line, QStringLiteral("usage: sorvi ratings FOLDER [--json]\n"), status);
    if (!folder)
        return status;
    // Opened as the application opens it, so sidecar ratings join the catalog the same way.
    FolderSession session(*folder);
    session.listShots();
    const QHash<QString, Rating> ratings = session.openCatalog();
    if (line.has(QStringLiteral("--json"))) {
        Terminal::printOut(QString::fromUtf8(Catalog::encode(*folder, ratings)) + QLatin1Char('\n'));
        return FolderShots::finish(session, 0);
    }
    QStringList ids = ratings.keys();
    std::sort(ids.begin(), ids.end(), FileNameOrder::lessThan);
    for (const QString &id : std::as_const(ids))
        Terminal::printOut(id + QStringLiteral("  ") + ratingText(ratings.value(id)) + QLatin1Char('\n'));
    Terminal::printOut(Wording::counted(ids.size(), QStringLiteral("rated photo")) + QLatin1Char('\n'));
    return FolderShots::finish(session, 0);
}

int Commands::rate(const QStringList &args)
{
    const CommandLine line(args, {QStringLiteral("--pick"), QStringLiteral("--reject"), QStringLiteral("--unflag")},
                           {QStringLiteral("--stars"), QStringLiteral("--label")});
    if (!line.isValid() || line.positional().size() != 2) {
        Terminal::printErr(QStringLiteral("usage: sorvi rate FOLDER ID [--stars N] [--pick|--reject|--unflag] "
                                          "[--label Red|Yellow|Green|Blue|Purple|none]\n"));
        return 2;
    }
    const auto folder = FolderShots::existingFolder(line.positional().at(0));
    if (!folder)
        return 1;
    const QString id = line.positional().at(1);
    FolderSession session(*folder);
    const QList<Shot> shots = session.listShots();
    if (std::none_of(shots.begin(), shots.end(), [&id](const Shot &shot) { return shot.id == id; })) {
        Terminal::printErr(QStringLiteral("sorvi: no photo with the id \"%1\" in %2\n").arg(id, *folder));
        return 2;
    }
    Rating rating = session.openCatalog().value(id);
    if (!applyChanges(line, rating))
        return FolderShots::finish(session, 2);
    session.catalog()->set(rating, id);
    Terminal::printOut(id + QStringLiteral("  ") + ratingText(rating) + QLatin1Char('\n'));
    return FolderShots::finish(session, 0);
}
