#include "SorviKit/checks/AssessmentStore.h"

#include "SorviKit/library/Catalog.h"
#include "SorviKit/core/JsonText.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>

namespace {

// Shortest text that reads back as the same double.
QByteArray number(double value)
{
    return QByteArray::number(value, 'g', 17);
}

QByteArray encodeMarks(const QList<FaceMark> &marks)
{
    QByteArrayList entries;
    for (const FaceMark &mark : marks)
        entries << "{\"x\":" + number(mark.box.x()) + ",\"y\":" + number(mark.box.y()) + ",\"w\":"
                       + number(mark.box.width()) + ",\"h\":" + number(mark.box.height())
                       + ",\"eyesClosed\":" + (mark.eyesClosed ? "true" : "false")
                       + (mark.eyesUnclear ? ",\"eyesUnclear\":true" : "") + "}";
    return "[" + entries.join(',') + "]";
}

// An array of marks, each with all its fields; anything else is malformed.
std::optional<QList<FaceMark>> decodeMarks(const QJsonValue &value)
{
    if (!value.isArray())
        return std::nullopt;
    QList<FaceMark> marks;
    for (const QJsonValue &entry : value.toArray()) {
        const QJsonObject object = entry.toObject();
        const QJsonValue x = object.value("x"), y = object.value("y"), w = object.value("w"),
                         h = object.value("h"), closed = object.value("eyesClosed"),
                         unclear = object.value("eyesUnclear");
        if (!x.isDouble() || !y.isDouble() || !w.isDouble() || !h.isDouble() || !closed.isBool()
            || !(unclear.isUndefined() || unclear.isBool()))
            return std::nullopt;
        marks.append({QRectF(x.toDouble(), y.toDouble(), w.toDouble(), h.toDouble()), closed.toBool(),
                      unclear.toBool(false)});
    }
    return marks;
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
    // Results stored before faces were kept have no marks.
    const QJsonValue marksValue = object.value("faceMarks");
    const std::optional<QList<FaceMark>> marks =
        marksValue.isUndefined() ? QList<FaceMark>() : decodeMarks(marksValue);
    if (!marks)
        return std::nullopt;
    Assessment assessment;
    assessment.faceMarks = *marks;
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
            + (a.faceQuality ? ",\"faceQuality\":" + number(*a.faceQuality) : QByteArray())
            + (a.faceMarks.isEmpty() ? QByteArray() : ",\"faceMarks\":" + encodeMarks(a.faceMarks)) + "}";
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
