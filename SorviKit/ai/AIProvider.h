#pragma once

#include <QHashFunctions>
#include <QString>
#include <QUrl>

#include <array>
#include <optional>

/// One of the AI services a photographer can connect with their own API key. A small
/// value; the closed list and its order (also the order of every picker) is `allCases`.
class AIProvider {
public:
    enum Value { anthropic, openai, xai };

    constexpr AIProvider(Value value) : m_value(value) {}
    constexpr operator Value() const { return m_value; }

    static const std::array<AIProvider, 3> &allCases();
    /// Exact, case-sensitive match of "anthropic", "openai" or "xai"; anything else gives
    /// no provider.
    static std::optional<AIProvider> fromRawValue(const QString &rawValue);

    QString id() const;           ///< the raw value, e.g. "openai"
    QString name() const;         ///< what pickers and messages show, e.g. "ChatGPT (OpenAI)"
    QString company() const;      ///< used inside sentences, e.g. "OpenAI"
    QString defaultModel() const; ///< the model asked for when none is stored
    QUrl keyPage() const;         ///< where the user creates an API key
    QUrl privacyPage() const;
    QUrl endpoint() const; ///< the service's messages or chat-completions URL

private:
    Value m_value;
};

inline size_t qHash(AIProvider provider, size_t seed = 0) noexcept
{
    return qHash(int(AIProvider::Value(provider)), seed);
}
