#pragma once

#include "SorviKit/ai/AIClient.h"
#include "SorviKit/previews/JpegEncoder.h"
#include "LocalHttpServer.h"

#include <QColor>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPainter>
#include <QRegularExpression>

#include <ostream>

inline void PrintTo(const QString &text, std::ostream *out)
{
    *out << '"' << text.toStdString() << '"';
}

/// Helpers shared by the AI tests: real pictures, and replies shaped like each service's.
namespace AITest {

/// A real JPEG of `width` × `height` with a gradient and a mark, different for each `seed`.
inline QByteArray jpeg(int width, int height, int seed = 0)
{
    QImage image(width, height, QImage::Format_RGB32);
    QPainter painter(&image);
    QLinearGradient gradient(0, 0, width, height);
    gradient.setColorAt(0, QColor::fromHsv((seed * 37) % 360, 160, 220));
    gradient.setColorAt(1, QColor::fromHsv((seed * 37 + 120) % 360, 200, 90));
    painter.fillRect(image.rect(), gradient);
    painter.fillRect(width / 4, height / 4, width / 3, height / 3, Qt::white);
    painter.end();
    return JpegEncoder::encode(image, 85).value_or(QByteArray());
}

inline QJsonObject json(const QByteArray &body)
{
    return QJsonDocument::fromJson(body).object();
}

/// A successful Anthropic Messages reply whose content holds the given text blocks.
inline QByteArray anthropicReply(const QStringList &texts)
{
    QJsonArray content;
    for (const QString &text : texts)
        content.append(QJsonObject{{"type", "text"}, {"text", text}});
    return QJsonDocument(QJsonObject{{"id", "msg_01"}, {"type", "message"}, {"role", "assistant"},
                                     {"model", "claude-sonnet-5-5"}, {"content", content}, {"stop_reason", "end_turn"},
                                     {"usage", QJsonObject{{"input_tokens", 1200}, {"output_tokens", 80}}}})
        .toJson(QJsonDocument::Compact);
}

/// A successful chat-completions reply (OpenAI, xAI) whose message says `text`.
inline QByteArray chatReply(const QString &text)
{
    const QJsonObject choice{{"index", 0}, {"message", QJsonObject{{"role", "assistant"}, {"content", text}}},
                             {"finish_reason", "stop"}};
    return QJsonDocument(QJsonObject{{"id", "chatcmpl-1"}, {"object", "chat.completion"}, {"model", "gpt-5"},
                                     {"choices", QJsonArray{choice}},
                                     {"usage", QJsonObject{{"prompt_tokens", 1200}, {"completion_tokens", 80}}}})
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

/// What one request of either dialect carried: the photo labels in order, each photo's
/// JPEG bytes, and the closing request text.
struct SentPhotos {
    QStringList labels;
    QList<QByteArray> jpegs;
    QString requestText;
    int askedFor = -1; ///< the N of "Choose up to N photos"
};

inline SentPhotos sentPhotos(const QByteArray &body)
{
    const QJsonObject request = json(body);
    const QJsonArray messages = request.value("messages").toArray();
    const QJsonArray content = messages.last().toObject().value("content").toArray();
    SentPhotos sent;
    for (qsizetype i = 0; i + 1 < content.size(); i += 2) {
        sent.labels << content[i].toObject().value("text").toString();
        const QJsonObject image = content[i + 1].toObject();
        const QString data = image.value("type").toString() == "image"
            ? image.value("source").toObject().value("data").toString()
            : image.value("image_url").toObject().value("url").toString().section(',', 1);
        sent.jpegs << QByteArray::fromBase64(data.toLatin1());
    }
    sent.requestText = content.last().toObject().value("text").toString();
    const QRegularExpressionMatch match =
        QRegularExpression(QStringLiteral("Choose up to (\\d+) photos")).match(sent.requestText);
    if (match.hasMatch())
        sent.askedFor = match.captured(1).toInt();
    return sent;
}

} // namespace AITest
