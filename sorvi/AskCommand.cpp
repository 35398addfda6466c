#include "AIAccount.h"
#include "SorviKit/ai/AICuller.h"
#include "SorviKit/ai/AIPreset.h"
#include "SorviKit/ai/AISettings.h"
#include "SorviKit/ai/AIWording.h"
#include "CommandLine.h"
#include "Commands.h"
#include "FolderShots.h"
#include "SorviKit/previews/PreviewLoader.h"
#include "Terminal.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTextStream>

#include <variant>

namespace {

const QString usage = QStringLiteral(
    "usage: sorvi ask FOLDER --count N (--preset album|story|portraits|bursts | --request TEXT)\n"
    "       [--provider anthropic|openai|xai|compatible] [--model M] [--endpoint URL] [--yes] [--json]\n");

// Previews are made one after another and each is kept for a possible second ask, as in
// the application; 768-pixel pictures are small.
constexpr qint64 askCacheBytes = 512'000'000;

struct AskOptions {
    QString folder;
    int count = 0;
    QString request;
    AIProvider provider = AIProvider::anthropic;
};

// Everything the command line says, or the exit status of a bad one (message printed).
std::variant<AskOptions, int> parse(const CommandLine &line)
{
    const std::optional<QString> preset = line.value(QStringLiteral("--preset"));
    const std::optional<QString> request = line.value(QStringLiteral("--request"));
    bool isNumber = false;
    const int count = line.value(QStringLiteral("--count")).value_or(QString()).toInt(&isNumber);
    if (!line.isValid() || line.positional().size() != 1 || !isNumber || preset.has_value() == request.has_value()) {
        Terminal::printErr(usage);
        return 2;
    }
    if (count < 1 || count > 200) {
        Terminal::printErr(QStringLiteral("sorvi: --count must be between 1 and 200\n"));
        return 2;
    }
    const std::optional<AIPreset::Preset> chosen = preset ? AIPreset::fromName(*preset) : AIPreset::Preset::custom;
    if (!chosen || (preset && *chosen == AIPreset::Preset::custom)) {
        Terminal::printErr(QStringLiteral("sorvi: unknown preset '%1' (album, story, portraits or bursts)\n").arg(*preset));
        return 2;
    }
    if (request && request->trimmed().isEmpty()) {
        Terminal::printErr(QStringLiteral("sorvi: the request is empty\n"));
        return 2;
    }
    const std::optional<AIProvider> provider = AIAccount::provider(line.value(QStringLiteral("--provider")));
    if (!provider)
        return 2;
    const std::optional<QString> folder = FolderShots::existingFolder(line.positional().first());
    if (!folder)
        return 1;
    return AskOptions{*folder, count, request ? *request : AIPreset::requestText(*chosen), *provider};
}

// The shots that may be sent: every shot not rejected, with the ratings the application
// would show (sidecar ratings adopted where the catalog has none).
QList<Shot> sendable(const QString &folder)
{
    FolderSession session(folder);
    Terminal::ProgressLine progress;
    const QList<Shot> shots = FolderShots::withDetails(session, progress);
    const QHash<QString, Rating> ratings = session.openCatalog();
    // Adopting sidecar ratings may have written the catalog; a failure is said, the ask goes on.
    FolderShots::finish(session, 0);
    QList<Shot> kept;
    for (const Shot &shot : shots)
        if (ratings.value(shot.id).flag != Rating::Flag::reject)
            kept << shot;
    return kept;
}

// Asks once per service, as the application does, and remembers a yes.
bool consent(const AIClient &client, bool alreadyYes)
{
    const AIProvider provider = client.provider;
    if (AISettings::consented(provider))
        return true;
    if (!alreadyYes) {
        QString question = QStringLiteral("\n") + AIWording::consentTitle(provider) + QStringLiteral("\n\n")
                           + AIWording::consentText(provider, client.target()).join(QStringLiteral("\n\n"));
        if (provider.hosted())
            question += QStringLiteral("\n%1's privacy policy: %2").arg(provider.company(), provider.privacyPage().toString());
        Terminal::printErr(question + QStringLiteral("\n\nAllow? [y/N] "));
        const QString answer = QTextStream(stdin).readLine().trimmed().toLower();
        if (answer != QLatin1String("y") && answer != QLatin1String("yes"))
            return false;
    }
    // The yes is for sending now; remembering it only spares the question next time. So a
    // failed write is said and the ask goes on, as the user who just said yes expects, and
    // the exit status stays that of the ask itself.
    const UserSettings::Outcome remembered = AISettings::setConsent(true, provider);
    if (remembered.failed())
        Terminal::printErr(QStringLiteral("sorvi: %1 The answer is not remembered; you will be asked again.\n")
                               .arg(remembered.message()));
    else if (!remembered.notice.isEmpty())
        Terminal::printErr(QStringLiteral("sorvi: %1\n").arg(remembered.notice));
    return true;
}

void printResults(const QList<AIResult> &results, bool json)
{
    if (json) {
        QJsonArray list;
        for (const AIResult &result : results)
            list.append(QJsonObject{{"id", result.shotID}, {"reason", result.reason}});
        Terminal::printOut(QString::fromUtf8(QJsonDocument(list).toJson(QJsonDocument::Indented)));
        return;
    }
    Terminal::printOut(QStringLiteral("%1 chosen\n").arg(Wording::counted(results.size(), QStringLiteral("photo"))));
    for (const AIResult &result : results)
        Terminal::printOut(result.shotID + QStringLiteral("\n    ") + result.reason + QLatin1Char('\n'));
}

} // namespace

int Commands::ask(const QStringList &args)
{
    const CommandLine line(args, {QStringLiteral("--yes"), QStringLiteral("--json")},
                           {QStringLiteral("--count"), QStringLiteral("--preset"), QStringLiteral("--request"),
                            QStringLiteral("--provider"), QStringLiteral("--model"), QStringLiteral("--endpoint")});
    const std::variant<AskOptions, int> parsed = parse(line);
    if (const int *status = std::get_if<int>(&parsed))
        return *status;
    const AskOptions &options = std::get<AskOptions>(parsed);
    const std::optional<AIClient> client = AIAccount::client(options.provider, line.value(QStringLiteral("--model")),
                                                             line.value(QStringLiteral("--endpoint")), true);
    if (!client && !options.provider.hosted()) {
        Terminal::printErr(QStringLiteral("sorvi: give your server's address with --endpoint URL (for example "
                                          "http://localhost:8080/v1), or set it in Settings ▸ AI\n"));
        return 1;
    }
    if (!client) {
        Terminal::printErr(QStringLiteral("sorvi: %1 (or run `sorvi key set %2`, or set %3)\n")
                               .arg(AIError::noKey().description(), options.provider.id(),
                                    AIAccount::environmentVariable(options.provider)));
        return 1;
    }
    const QList<Shot> photos = sendable(options.folder);
    Terminal::printErr(AIWording::summary(int(photos.size()), options.provider) + QLatin1Char('\n'));
    if (photos.isEmpty()) {
        Terminal::printErr(QStringLiteral("sorvi: there are no photos to send\n"));
        return 1;
    }
    if (!consent(*client, line.has(QStringLiteral("--yes")))) {
        Terminal::printErr(QStringLiteral("Nothing was sent.\n"));
        return 1;
    }
    Terminal::printErr(QStringLiteral("Preparing previews…\n"));
    PreviewLoader previews(askCacheBytes);
    try {
        const QList<AIResult> results = AICuller(*client).run(
            photos, options.request, options.count, previews,
            [](const QString &status) { Terminal::printErr(status + QLatin1Char('\n')); });
        printResults(results, line.has(QStringLiteral("--json")));
    } catch (const AIError &error) {
        Terminal::printErr(QStringLiteral("sorvi: %1\n").arg(error.description()));
        return 1;
    }
    return 0;
}
