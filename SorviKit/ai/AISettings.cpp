#include "SorviKit/ai/AISettings.h"

#include <QSettings>

namespace {

QString modelKey(AIProvider provider)
{
    return QStringLiteral("AIModel.") + provider.id();
}

QString consentKey(AIProvider provider)
{
    return QStringLiteral("AIConsent.") + provider.id();
}

QString addressKey(AIProvider provider)
{
    return QStringLiteral("AIEndpoint.") + provider.id();
}

} // namespace

namespace AISettings {

AIProvider provider()
{
    return AIProvider::fromRawValue(QSettings().value("AIProvider").toString()).value_or(AIProvider::anthropic);
}

UserSettings::Outcome setProvider(AIProvider provider)
{
    return UserSettings::setValue(QStringLiteral("AIProvider"), provider.id());
}

QString storedModel(AIProvider provider)
{
    return QSettings().value(modelKey(provider)).toString();
}

QString model(AIProvider provider)
{
    const QString stored = storedModel(provider);
    return stored.isEmpty() ? provider.defaultModel() : stored;
}

UserSettings::Outcome setModel(const QString &model, AIProvider provider)
{
    return UserSettings::setValue(modelKey(provider), model);
}

bool consented(AIProvider provider)
{
    return QSettings().value(consentKey(provider), false).toBool();
}

UserSettings::Outcome setConsent(bool allowed, AIProvider provider)
{
    return UserSettings::setValue(consentKey(provider), allowed);
}

QString serverAddress(AIProvider provider)
{
    return QSettings().value(addressKey(provider)).toString();
}

UserSettings::Outcome setServerAddress(const QString &address, AIProvider provider)
{
    return UserSettings::setValue(addressKey(provider), address);
}

QUrl endpoint(AIProvider provider)
{
    const QString stored = serverAddress(provider);
    if (!provider.hosted())
        return AIProvider::completionsEndpoint(stored);
    const QUrl url(stored, QUrl::StrictMode);
    return !stored.isEmpty() && url.isValid() && !url.host().isEmpty() ? url : provider.endpoint();
}

std::optional<AIClient> clientWith(const std::optional<QString> &storedKey)
{
    const AIProvider chosen = provider();
    const QUrl target = endpoint(chosen);
    if (target.isEmpty())
        return std::nullopt;
    const QString key = storedKey.value_or(QString());
    if (key.isEmpty() && chosen.hosted())
        return std::nullopt;
    AIClient client(chosen, model(chosen), key);
    if (target != chosen.endpoint())
        client.endpointOverride = target;
    return client;
}

} // namespace AISettings
