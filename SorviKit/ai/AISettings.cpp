#include "SorviKit/ai/AISettings.h"

#include "SorviKit/ai/AIKeyStore.h"

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

std::optional<AIClient> client()
{
    const AIProvider chosen = provider();
    const std::optional<QString> key = AIKeyStore::key(chosen);
    if (!key || key->isEmpty())
        return std::nullopt;
    return AIClient(chosen, model(chosen), *key);
}

} // namespace AISettings
