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
    /// `compatible` is the photographer's own server speaking the chat-completions dialect
    /// (a vision model on their machine or network): no company, no fixed address.
    enum Value { anthropic, openai, xai, compatible };

    constexpr AIProvider(Value value) : m_value(value) {}
    constexpr operator Value() const { return m_value; }

    static const std::array<AIProvider, 4> &allCases();
    /// Exact, case-sensitive match of "anthropic", "openai" or "xai"; anything else gives
    /// no provider.
    static std::optional<AIProvider> fromRawValue(const QString &rawValue);

    QString id() const;           ///< the raw value, e.g. "openai"
    QString name() const;         ///< what pickers and messages show, e.g. "ChatGPT (OpenAI)"
    QString company() const;      ///< used inside sentences, e.g. "OpenAI"
    QString defaultModel() const; ///< the model asked for when none is stored
    QUrl keyPage() const;         ///< where the user creates an API key; empty for `compatible`
    QUrl privacyPage() const;     ///< empty for `compatible`
    QUrl endpoint() const; ///< the service's messages or chat-completions URL; empty for `compatible`
    /// A company's service, reached at a fixed address with a key the company issued.
    bool hosted() const { return m_value != compatible; }
    /// The chat-completions URL of a server from the address a user typed: a base such as
    /// "http://localhost:8080/v1" gets "/chat/completions" added; a full URL stays as it is.
    static QUrl completionsEndpoint(const QString &address);

private:
    Value m_value;
};

inline size_t qHash(AIProvider provider, size_t seed = 0) noexcept
{
    return qHash(int(AIProvider::Value(provider)), seed);
}
