#include "SorviKit/ai/AIClient.h"

#include <QEventLoop>
#include <QHostAddress>
#include <QJsonArray>
#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QNetworkProxyFactory>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QTextBoundaryFinder>

#include <memory>

namespace {

// The first `count` characters as the reader sees them (grapheme clusters), so a cut
// never splits an accented letter or an emoji.
QString firstCharacters(const QString &text, int count)
{
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    for (int seen = 0; seen < count; ++seen)
        if (finder.toNextBoundary() < 0)
            return text;
    return text.left(finder.position());
}

QJsonObject textBlock(const QString &text)
{
    return {{"type", "text"}, {"text", text}};
}

QJsonObject anthropicImage(const QByteArray &jpeg)
{
    return {{"type", "image"},
            {"source", QJsonObject{{"type", "base64"},
                                   {"media_type", "image/jpeg"},
                                   {"data", QString::fromLatin1(jpeg.toBase64())}}}};
}

QJsonObject chatImage(const QByteArray &jpeg)
{
    return {{"type", "image_url"},
            {"image_url", QJsonObject{{"url", "data:image/jpeg;base64," + QString::fromLatin1(jpeg.toBase64())},
                                      {"detail", "low"}}}};
}

// Each element as an object, or nothing when any element is not one: a list that is
// only partly what we expect is not trusted.
std::optional<QList<QJsonObject>> objects(const QJsonValue &value)
{
    if (!value.isArray())
        return std::nullopt;
    QList<QJsonObject> list;
    for (const QJsonValue element : value.toArray()) {
        if (!element.isObject())
            return std::nullopt;
        list << element.toObject();
    }
    return list;
}

// Proxies come from the environment (http_proxy, https_proxy, no_proxy), as people who
// need one expect; a service on this machine itself is always reached directly.
class EnvironmentProxyFactory : public QNetworkProxyFactory {
public:
    QList<QNetworkProxy> queryProxy(const QNetworkProxyQuery &query) override
    {
        const QString host = query.peerHostName();
        if (host == QLatin1String("localhost") || QHostAddress(host).isLoopback())
            return {QNetworkProxy::NoProxy};
        return systemProxyForQuery(query);
    }
};

struct Response {
    int status = 0;
    QByteArray body;
};

QNetworkRequest request(const AIClient &client)
{
    QNetworkRequest request(client.target());
    request.setTransferTimeout(int(client.timeout.count()));
    request.setRawHeader("content-type", "application/json");
    if (client.provider == AIProvider::anthropic) {
        request.setRawHeader("x-api-key", client.key.toUtf8());
        request.setRawHeader("anthropic-version", "2023-06-01");
    } else if (!client.key.isEmpty()) {
        // A server of one's own may take no key at all.
        request.setRawHeader("authorization", "Bearer " + client.key.toUtf8());
    }
    return request;
}

// POSTs `data` and waits for the whole reply in a local event loop. Transport failures,
// time-outs and a requested stop become AIError::network.
Response post(const AIClient &client, const QByteArray &data, std::stop_token stop)
{
    QNetworkAccessManager manager;
    manager.setProxyFactory(new EnvironmentProxyFactory);
    const std::unique_ptr<QNetworkReply> reply(manager.post(request(client), data));
    bool stopped = false;
    // The callback may run on another thread; the abort is queued to the reply's own.
    const std::stop_callback onStop(stop, [&reply, &stopped] {
        QMetaObject::invokeMethod(reply.get(), [&reply, &stopped] {
            stopped = true;
            reply->abort();
        }, Qt::QueuedConnection);
    });
    if (!reply->isFinished()) {
        QEventLoop loop;
        QObject::connect(reply.get(), &QNetworkReply::finished, &loop, &QEventLoop::quit);
        loop.exec();
    }
    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    const bool failed = reply->error() != QNetworkReply::NoError;
    // A reply cut off mid-body carries a status of 200 but is still a transport failure.
    if (failed && (!status.isValid() || status.toInt() == 200)) {
        if (reply->error() == QNetworkReply::OperationCanceledError && !stopped)
            throw AIError::network(QStringLiteral("The request timed out."));
        throw AIError::network(reply->errorString());
    }
    return {status.isValid() ? status.toInt() : 0, reply->readAll()};
}

} // namespace

AIError::AIError(Kind kind, int status, QString text)
    : m_kind(kind), m_status(status), m_text(std::move(text))
{
    m_what = description().toUtf8();
}

QString AIError::description() const
{
    switch (m_kind) {
    case Kind::http:
        if (m_status == 401 || m_status == 403)
            return QStringLiteral("The AI service didn't accept the API key. Check it in Settings ▸ AI.");
        if (m_status == 404)
            return QStringLiteral("The AI service doesn't know that model. Check the model name in Settings ▸ AI. (")
                + firstCharacters(m_text, 160) + QLatin1Char(')');
        if (m_status == 429)
            return QStringLiteral("The AI service says you've hit a rate or spending limit. Try again in a minute, "
                                  "or check your account.");
        return QStringLiteral("The AI service returned an error (%1): ").arg(m_status) + firstCharacters(m_text, 200);
    case Kind::unreadableReply:
        return QStringLiteral("The AI's reply couldn't be read as a list of picks: ") + firstCharacters(m_text, 200);
    case Kind::network:
        return QStringLiteral("Couldn't reach the AI service: ") + m_text;
    case Kind::noKey:
        return QStringLiteral("Add your API key in Settings ▸ AI first.");
    }
    Q_UNREACHABLE();
}

AIClient::AIClient(AIProvider provider, QString model, QString key)
    : provider(provider), model(std::move(model)), key(std::move(key))
{
}

QString AIClient::systemPrompt()
{
    return QStringLiteral(
        "You are helping a photographer cull a shoot. You'll see numbered photos (P1, P2, …), each a small "
        "preview. Choose the photos that best answer the photographer's request. Judge the moment, expression, "
        "composition, light and focus, and prefer variety: don't choose near-duplicates of the same moment. "
        "Reply with JSON only, no other text: {\"picks\":[{\"id\":\"P3\",\"reason\":\"one short sentence\"}]}");
}

QString AIClient::requestText(const QString &request, int count)
{
    return QStringLiteral("Request: ") + request + QStringLiteral("\nChoose up to ") + QString::number(count)
        + QStringLiteral(" photos. Use only the ids shown.");
}

QJsonObject AIClient::body(const QList<AIPhoto> &photos, const QString &request, int count) const
{
    const bool isAnthropic = provider == AIProvider::anthropic;
    QJsonArray content;
    for (const AIPhoto &photo : photos) {
        content.append(textBlock(photo.id));
        content.append(isAnthropic ? anthropicImage(photo.jpeg) : chatImage(photo.jpeg));
    }
    content.append(textBlock(requestText(request, count)));
    if (isAnthropic)
        return {{"model", model},
                {"max_tokens", 2000},
                {"system", systemPrompt()},
                {"messages", QJsonArray{QJsonObject{{"role", "user"}, {"content", content}}}}};
    return {{"model", model},
            {"messages", QJsonArray{QJsonObject{{"role", "system"}, {"content", systemPrompt()}},
                                    QJsonObject{{"role", "user"}, {"content", content}}}}};
}

QList<AIPick> AIClient::choose(const QList<AIPhoto> &photos, const QString &request, int count,
                               std::stop_token stop) const
{
    if (key.isEmpty() && provider.hosted())
        throw AIError::noKey();
    const QByteArray data = QJsonDocument(body(photos, request, count)).toJson(QJsonDocument::Compact);
    const Response response = post(*this, data, stop);
    if (response.status != 200)
        throw AIError::http(response.status, QString::fromUtf8(response.body));
    QSet<QString> allowed;
    for (const AIPhoto &photo : photos)
        allowed.insert(photo.id);
    return picks(replyText(response.body, provider), allowed);
}

QString AIClient::replyText(const QByteArray &data, AIProvider provider)
{
    const QJsonDocument document = QJsonDocument::fromJson(data);
    if (!document.isObject())
        throw AIError::unreadableReply(QString::fromUtf8(data));
    const QJsonObject reply = document.object();
    if (provider == AIProvider::anthropic) {
        // The text may come in several blocks; only together do they hold the answer.
        QString text;
        for (const QJsonObject &block : objects(reply.value("content")).value_or(QList<QJsonObject>{}))
            if (block.value("type").toString() == QLatin1String("text") && block.value("text").isString())
                text += block.value("text").toString();
        return text;
    }
    const std::optional<QList<QJsonObject>> choices = objects(reply.value("choices"));
    if (!choices || choices->isEmpty())
        throw AIError::unreadableReply(QString::fromUtf8(data));
    const QJsonValue message = choices->first().value("message");
    const QJsonValue content = message.toObject().value("content");
    if (!message.isObject() || !content.isString())
        throw AIError::unreadableReply(QString::fromUtf8(data));
    return content.toString();
}

QList<AIPick> AIClient::picks(const QString &text, const QSet<QString> &allowed)
{
    const qsizetype open = text.indexOf(QLatin1Char('{'));
    const qsizetype close = text.lastIndexOf(QLatin1Char('}'));
    if (open < 0 || close <= open)
        throw AIError::unreadableReply(text);
    const QJsonDocument document = QJsonDocument::fromJson(text.mid(open, close - open + 1).toUtf8());
    // A document that is not an object has an empty object(), so no "picks" either.
    const std::optional<QList<QJsonObject>> entries = objects(document.object().value("picks"));
    if (!entries)
        throw AIError::unreadableReply(text);
    QList<AIPick> picks;
    QSet<QString> taken;
    for (const QJsonObject &entry : *entries) {
        const QJsonValue id = entry.value("id");
        if (!id.isString() || !allowed.contains(id.toString()) || taken.contains(id.toString()))
            continue;
        taken.insert(id.toString());
        picks.append({id.toString(), entry.value("reason").toString().trimmed()});
    }
    return picks;
}
