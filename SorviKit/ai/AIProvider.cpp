#include "SorviKit/ai/AIProvider.h"

#include <QtGlobal>

namespace {

// The URLs are constants of this program; one that fails to parse is a bug to fix, not a
// condition to handle.
QUrl constantUrl(const char *text)
{
    const QUrl url(QString::fromLatin1(text), QUrl::StrictMode);
    if (!url.isValid() || url.scheme() != QLatin1String("https"))
        qFatal("Invalid constant URL %s", text);
    return url;
}

} // namespace

const std::array<AIProvider, 4> &AIProvider::allCases()
{
    static const std::array<AIProvider, 4> cases{anthropic, openai, xai, compatible};
    return cases;
}

std::optional<AIProvider> AIProvider::fromRawValue(const QString &rawValue)
{
    for (const AIProvider provider : allCases())
        if (provider.id() == rawValue)
            return provider;
    return std::nullopt;
}

QString AIProvider::id() const
{
    switch (m_value) {
    case anthropic: return QStringLiteral("anthropic");
    case openai: return QStringLiteral("openai");
    case xai: return QStringLiteral("xai");
    case compatible: return QStringLiteral("compatible");
    }
    Q_UNREACHABLE();
}

QString AIProvider::name() const
{
    switch (m_value) {
    case anthropic: return QStringLiteral("Claude (Anthropic)");
    case openai: return QStringLiteral("ChatGPT (OpenAI)");
    case xai: return QStringLiteral("Grok (xAI)");
    case compatible: return QStringLiteral("Your own server (OpenAI-compatible)");
    }
    Q_UNREACHABLE();
}

QString AIProvider::company() const
{
    switch (m_value) {
    case anthropic: return QStringLiteral("Anthropic");
    case openai: return QStringLiteral("OpenAI");
    case xai: return QStringLiteral("xAI");
    case compatible: return QStringLiteral("your own server");
    }
    Q_UNREACHABLE();
}

QString AIProvider::defaultModel() const
{
    switch (m_value) {
    case anthropic: return QStringLiteral("claude-sonnet-5-5");
    case openai: return QStringLiteral("gpt-5");
    case xai: return QStringLiteral("grok-4");
    case compatible: return QStringLiteral("default");
    }
    Q_UNREACHABLE();
}

QUrl AIProvider::keyPage() const
{
    switch (m_value) {
    case anthropic: return constantUrl("https://console.anthropic.com/settings/keys");
    case openai: return constantUrl("https://platform.openai.com/api-keys");
    case xai: return constantUrl("https://console.x.ai");
    case compatible: return {};
    }
    Q_UNREACHABLE();
}

QUrl AIProvider::privacyPage() const
{
    switch (m_value) {
    case anthropic: return constantUrl("https://www.anthropic.com/legal/privacy");
    case openai: return constantUrl("https://openai.com/policies/privacy-policy/");
    case xai: return constantUrl("https://x.ai/legal/privacy-policy");
    case compatible: return {};
    }
    Q_UNREACHABLE();
}

QUrl AIProvider::endpoint() const
{
    switch (m_value) {
    case anthropic: return constantUrl("https://api.anthropic.com/v1/messages");
    case openai: return constantUrl("https://api.openai.com/v1/chat/completions");
    case xai: return constantUrl("https://api.x.ai/v1/chat/completions");
    case compatible: return {};
    }
    Q_UNREACHABLE();
}

QUrl AIProvider::completionsEndpoint(const QString &address)
{
    QString text = address.trimmed();
    while (text.endsWith(QLatin1Char('/')))
        text.chop(1);
    if (text.isEmpty())
        return {};
    if (!text.endsWith(QLatin1String("/chat/completions")))
        text += QLatin1String("/chat/completions");
    const QUrl url(text, QUrl::StrictMode);
    const bool web = url.scheme() == QLatin1String("http") || url.scheme() == QLatin1String("https");
    return url.isValid() && web && !url.host().isEmpty() ? url : QUrl();
}
