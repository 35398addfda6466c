#pragma once

#include "SorviKit/ai/AIProvider.h"

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QSet>
#include <QString>
#include <QUrl>

#include <chrono>
#include <exception>
#include <optional>
#include <stop_token>

/// One photo the AI chose: its label as sent ("P3") and the AI's one-sentence reason.
struct AIPick {
    QString id;
    QString reason;
    friend bool operator==(const AIPick &, const AIPick &) = default;
};

inline size_t qHash(const AIPick &pick, size_t seed = 0) noexcept
{
    return qHashMulti(seed, pick.id, pick.reason);
}

/// A labelled JPEG preview as sent to the AI service.
struct AIPhoto {
    QString id;      ///< the label, e.g. "P1"
    QByteArray jpeg; ///< the JPEG file's bytes
};

/// Why asking the AI failed. Its description is shown to the user as it stands.
class AIError : public std::exception {
public:
    enum class Kind { http, unreadableReply, network, noKey };

    static AIError http(int status, const QString &body) { return {Kind::http, status, body}; }
    static AIError unreadableReply(const QString &text) { return {Kind::unreadableReply, 0, text}; }
    static AIError network(const QString &description) { return {Kind::network, 0, description}; }
    static AIError noKey() { return {Kind::noKey, 0, {}}; }

    Kind kind() const { return m_kind; }
    int status() const { return m_status; }          ///< the HTTP status of `http`; 0 otherwise
    const QString &payload() const { return m_text; } ///< the body, the unread text or the transport error
    QString description() const;
    const char *what() const noexcept override { return m_what.constData(); }

private:
    AIError(Kind kind, int status, QString text);

    Kind m_kind;
    int m_status;
    QString m_text;
    QByteArray m_what;
};

/// Sends one set of labelled JPEG previews and one request to an AI service and returns
/// the photos it picked. Speaks Anthropic's Messages API and the chat-completions API
/// OpenAI and xAI share. A plain value; knows nothing of shots or batches.
class AIClient {
public:
    AIClient(AIProvider provider, QString model, QString key);

    AIProvider provider;
    QString model; ///< the model identifier sent in the body
    QString key;   ///< the user's API key
    /// Replaces the provider's endpoint when set; lets tests talk to a local server.
    std::optional<QUrl> endpointOverride;
    /// How long the transfer may go without any progress before it is abandoned.
    std::chrono::milliseconds timeout = std::chrono::seconds(300);

    /// One request and its reply: the picks among `photos`, in the AI's order, at most one
    /// per id, only ids that were sent (not cut to `count`). Blocks the calling thread
    /// (any thread with a Qt event dispatcher; a QCoreApplication must exist) until the
    /// reply arrives or `stop` is requested, which abandons the transfer. Throws AIError.
    QList<AIPick> choose(const QList<AIPhoto> &photos, const QString &request, int count,
                         std::stop_token stop = {}) const;

    /// The JSON object of the request, in this client's dialect.
    QJsonObject body(const QList<AIPhoto> &photos, const QString &request, int count) const;

    /// The instructions sent with every request, the same for every service.
    static QString systemPrompt();
    /// The closing text block: the request and how many photos to choose.
    static QString requestText(const QString &request, int count);
    /// The model's text out of a successful reply body; throws AIError::unreadableReply.
    static QString replyText(const QByteArray &data, AIProvider provider);
    /// The picks written in the model's text, tolerating prose or code fences around the
    /// JSON object; unknown and repeated ids are skipped. Throws AIError::unreadableReply.
    static QList<AIPick> picks(const QString &text, const QSet<QString> &allowed);

    QUrl target() const { return endpointOverride.value_or(provider.endpoint()); }
};
