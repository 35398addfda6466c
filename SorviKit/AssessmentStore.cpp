#include "AssessmentStore.h"

#include "Catalog.h"
#include "JsonText.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

#include <algorithm>

namespace {

// Shortest text that reads back as the same double.
QByteArray number(double value)
{
    return QByteArray::number(value, 'g', 17);
}

std::optional<Assessment> decodeOne(const QJsonValue &value)
{
    const QJsonObject object = value.toObject();
    const QJsonValue sharpness = object.value("sharpness"), faces = object.value("faces"),
                     eyesClosed = object.value("eyesClosed"), quality = object.value("faceQuality");
    if (!sharpness.isDouble() || !faces.isDouble() || !eyesClosed.isDouble())
        return std::nullopt;
    if (!quality.isUndefined() && !quality.isDouble() && !quality.isNull())
        return std::nullopt;
    Assessment assessment;
    assessment.sharpness = sharpness.toDouble();
    assessment.faces = faces.toInt();
    assessment.eyesClosed = eyesClosed.toInt();
    if (quality.isDouble())
        assessment.faceQuality = quality.toDouble();
    return assessment;
}

} // namespace

AssessmentStore::AssessmentStore(const QString &folder, const QString &directory)
{
    QDir().mkpath(directory);
    m_file = QDir(directory).filePath(Catalog::key(folder) + QStringLiteral(".checks.json"));
    QFile file(m_file);
    if (file.open(QIODevice::ReadOnly))
        m_results = decode(file.readAll()).value_or(QHash<QString, Assessment>());
}

std::optional<Assessment> AssessmentStore::result(const QString &id) const
{
    const QMutexLocker locker(&m_lock);
    const auto it = m_results.constFind(id);
    return it == m_results.constEnd() ? std::nullopt : std::optional(*it);
}

QHash<QString, Assessment> AssessmentStore::results() const
{
    const QMutexLocker locker(&m_lock);
    return m_results;
}

void AssessmentStore::set(const Assessment &assessment, const QString &id)
{
    const QMutexLocker locker(&m_lock);
    m_results.insert(id, assessment);
}

void AssessmentStore::save() const
{
    const QByteArray bytes = encode(results());
    QSaveFile file(m_file);
    if (file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size())
        file.commit();
}

QByteArray AssessmentStore::encode(const QHash<QString, Assessment> &results)
{
    QStringList ids = results.keys();
    std::sort(ids.begin(), ids.end()); // the same results always make the same file
    QByteArray json = "{\"version\":" + QByteArray::number(version) + ",\"results\":{";
    for (qsizetype i = 0; i < ids.size(); ++i) {
        const Assessment &a = results[ids[i]];
        json += (i ? "," : "") + JsonText::quoted(ids[i]) + ":{\"sharpness\":" + number(a.sharpness)
            + ",\"faces\":" + QByteArray::number(a.faces) + ",\"eyesClosed\":" + QByteArray::number(a.eyesClosed)
            + (a.faceQuality ? ",\"faceQuality\":" + number(*a.faceQuality) : QByteArray()) + "}";
    }
    return json + "}}";
}

std::optional<QHash<QString, Assessment>> AssessmentStore::decode(const QByteArray &json)
{
    const QJsonDocument document = QJsonDocument::fromJson(json);
    const QJsonObject root = document.object();
    if (!document.isObject() || root.value("version").toInt(-1) != version || !root.value("results").isObject())
        return std::nullopt;
    QHash<QString, Assessment> results;
    const QJsonObject stored = root.value("results").toObject();
    for (auto it = stored.begin(); it != stored.end(); ++it) {
        const std::optional<Assessment> assessment = decodeOne(it.value());
        if (!assessment)
            return std::nullopt;
        results.insert(it.key(), *assessment);
    }
    return results;
}
