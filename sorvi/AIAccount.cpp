#include "AIAccount.h"

#include "SorviKit/ai/AIKeyStore.h"
#include "SorviKit/ai/AISettings.h"
#include "Terminal.h"

namespace AIAccount {

std::optional<AIProvider> provider(const std::optional<QString> &name)
{
    if (!name)
        return AISettings::provider();
    const std::optional<AIProvider> named = AIProvider::fromRawValue(*name);
    if (!named)
        Terminal::printErr(QStringLiteral("sorvi: unknown AI service '%1' (anthropic, openai, xai or compatible)\n").arg(*name));
    return named;
}

QString environmentVariable(AIProvider provider)
{
    return provider.id().toUpper() + QStringLiteral("_API_KEY");
}

std::optional<AIClient> client(AIProvider provider, const std::optional<QString> &model,
                               const std::optional<QString> &endpoint, bool environmentKey)
{
    std::optional<QString> key;
    const QByteArray variable = environmentVariable(provider).toLatin1();
    if (environmentKey && !qEnvironmentVariableIsEmpty(variable.constData()))
        key = qEnvironmentVariable(variable.constData()).trimmed();
    else
        key = AIKeyStore::key(provider);
    const QUrl target = !endpoint ? AISettings::endpoint(provider)
                        : provider.hosted() ? QUrl(*endpoint)
                                            : AIProvider::completionsEndpoint(*endpoint);
    if (target.isEmpty() || ((!key || key->isEmpty()) && provider.hosted()))
        return std::nullopt;
    AIClient client(provider, model.value_or(AISettings::model(provider)), key.value_or(QString()));
    if (target != provider.endpoint())
        client.endpointOverride = target;
    return client;
}

} // namespace AIAccount
