#include "SorviKit/checks/AssessmentStore.h"

#include "SorviKit/library/Catalog.h"
#include "SorviKit/core/JsonText.h"

#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>

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

AssessmentStore::AssessmentStore(const QString &folder, const QString &directory, SerialWriter *writer,
                                 StoreFile::WriteFunction write)
    : m_results(std::make_shared<Results>())
{
    QDir().mkpath(directory);
    m_file = StoreFile::create(QDir(directory).filePath(Catalog::key(folder) + QStringLiteral(".checks.json")),
                               QStringLiteral("check results"), writer, std::move(write));
    if (const std::optional<QByteArray> bytes = m_file->load()) {
        if (auto stored = decode(*bytes))
            m_results->byId = *stored;
        else
            m_file->markUnreadable();
    }
}

std::optional<Assessment> AssessmentStore::result(const QString &id) const
{
    const QMutexLocker locker(&m_results->lock);
    const auto it = m_results->byId.constFind(id);
    return it == m_results->byId.constEnd() ? std::nullopt : std::optional(*it);
}

QHash<QString, Assessment> AssessmentStore::results() const
{
    const QMutexLocker locker(&m_results->lock);
    return m_results->byId;
}

void AssessmentStore::set(const Assessment &assessment, const QString &id)
{
    const QMutexLocker locker(&m_results->lock);
    m_results->byId.insert(id, assessment);
}

void AssessmentStore::save() const
{
    m_file->save([results = m_results] {
        QHash<QString, Assessment> snapshot;
        {
            const QMutexLocker locker(&results->lock);
            snapshot = results->byId;
        }
        return encode(snapshot);
    });
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
