#pragma once

#include "SorviKit/ai/AIClient.h"
#include "SorviKit/previews/JpegEncoder.h"
#include "LocalHttpServer.h"
#include "TestFiles.h"

#include <QColor>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPainter>

/// Helpers shared by the AI tests: real pictures, and replies shaped like each service's.
namespace AITest {

/// A real JPEG of `width` × `height` with a mark, different for each `seed`.
inline QByteArray jpeg(int width, int height, int seed = 0)
{
    QImage image(width, height, QImage::Format_RGB32);
    image.fill(QColor::fromHsv((seed * 37) % 360, 160, 220));
    QPainter(&image).fillRect(width / 4, height / 4, width / 3, height / 3, Qt::white);
    return JpegEncoder::encode(image, 85).value_or(QByteArray());
}

/// A successful Anthropic Messages reply whose one text block says `text`.
inline QByteArray anthropicReply(const QString &text)
{
    const QJsonObject block{{"type", "text"}, {"text", text}};
    return QJsonDocument(QJsonObject{{"type", "message"}, {"content", QJsonArray{block}}, {"stop_reason", "end_turn"}})
        .toJson(QJsonDocument::Compact);
}

/// A successful chat-completions reply (OpenAI, xAI) whose message says `text`.
inline QByteArray chatReply(const QString &text)
{
    const QJsonObject choice{{"index", 0}, {"message", QJsonObject{{"role", "assistant"}, {"content", text}}}};
    return QJsonDocument(QJsonObject{{"object", "chat.completion"}, {"choices", QJsonArray{choice}}})
        .toJson(QJsonDocument::Compact);
}

/// The JSON a model writes for the given ids, each with the reason "Chosen: <id>".
inline QString picksJson(const QStringList &ids)
{
    QJsonArray picks;
    for (const QString &id : ids)
        picks.append(QJsonObject{{"id", id}, {"reason", "Chosen: " + id}});
    return QString::fromUtf8(QJsonDocument(QJsonObject{{"picks", picks}}).toJson(QJsonDocument::Compact));
}

/// What one Anthropic request carried: the photo labels in order, each photo's JPEG bytes,
/// the closing request text and the N of its "Choose up to N photos".
struct SentPhotos {
    QStringList labels;
    QList<QByteArray> jpegs;
    QString requestText;
    int askedFor = 0;
};

inline SentPhotos sentPhotos(const QByteArray &body)
{
    const QJsonArray messages = QJsonDocument::fromJson(body)["messages"].toArray();
    const QJsonArray content = messages.last()["content"].toArray();
    SentPhotos sent;
    for (qsizetype i = 0; i + 1 < content.size(); i += 2) {
        sent.labels << content[i]["text"].toString();
        sent.jpegs << QByteArray::fromBase64(content[i + 1]["source"]["data"].toString().toLatin1());
    }
    sent.requestText = content.last()["text"].toString();
    sent.askedFor = sent.requestText.section(QStringLiteral("Choose up to "), -1).section(' ', 0, 0).toInt();
    return sent;
}

} // namespace AITest
