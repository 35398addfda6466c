#include "AIAccount.h"
#include "SorviKit/ai/AIKeyStore.h"
#include "SorviKit/ai/AIKeyTest.h"
#include "CommandLine.h"
#include "Commands.h"
#include "Terminal.h"

#include <QTextStream>

#include <termios.h>
#include <unistd.h>

namespace {

const QString usage = QStringLiteral(
    "usage: sorvi key set PROVIDER        read the API key from standard input and keep it in the keyring\n"
    "       sorvi key remove PROVIDER     remove the stored key\n"
    "       sorvi key test PROVIDER [--model M] [--endpoint URL]\n"
    "                                     send one tiny picture with the stored key\n"
    "PROVIDER is anthropic, openai or xai.\n");

// A key typed at a terminal is not shown; one piped in is read as it comes. The key
// never appears on the command line, where other users could see it in the process list.
QString readKey(AIProvider provider)
{
    const bool interactive = isatty(STDIN_FILENO) == 1;
    termios saved{};
    if (interactive) {
        Terminal::printErr(QStringLiteral("Paste your %1 API key: ").arg(provider.company()));
        tcgetattr(STDIN_FILENO, &saved);
        termios silent = saved;
        silent.c_lflag &= ~tcflag_t(ECHO);
        tcsetattr(STDIN_FILENO, TCSANOW, &silent);
    }
    const QString key = QTextStream(stdin).readLine();
    if (interactive) {
        tcsetattr(STDIN_FILENO, TCSANOW, &saved);
        Terminal::printErr(QStringLiteral("\n"));
    }
    return key.trimmed();
}

} // namespace

int Commands::key(const QStringList &args)
{
    const CommandLine line(args, {}, {QStringLiteral("--model"), QStringLiteral("--endpoint")});
    const QStringList words = line.positional();
    const QStringList actions{QStringLiteral("set"), QStringLiteral("remove"), QStringLiteral("test")};
    if (!line.isValid() || words.size() != 2 || !actions.contains(words[0])) {
        Terminal::printErr(usage);
        return 2;
    }
    const std::optional<AIProvider> provider = AIAccount::provider(words[1]);
    if (!provider)
        return 2;
    if (words[0] != QLatin1String("test")) {
        const QString key = words[0] == QLatin1String("set") ? readKey(*provider) : QString();
        if (const std::optional<QString> error = AIKeyStore::setKey(key, *provider)) {
            Terminal::printErr(QStringLiteral("sorvi: %1\n").arg(*error));
            return 1;
        }
        Terminal::printOut(key.isEmpty() ? QStringLiteral("Key removed.\n") : QStringLiteral("Saved.\n"));
        return 0;
    }
    // The test checks what is stored, so a key in the environment is not used here.
    const std::optional<AIClient> client =
        AIAccount::client(*provider, line.value(QStringLiteral("--model")), line.value(QStringLiteral("--endpoint")), false);
    if (!client) {
        Terminal::printErr(AIError::noKey().description() + QLatin1Char('\n'));
        return 1;
    }
    const QString result = AIKeyTest::run(*client);
    const bool works = result.startsWith(QLatin1String("Works: "));
    (works ? Terminal::printOut : Terminal::printErr)(result + QLatin1Char('\n'));
    return works ? 0 : 1;
}
