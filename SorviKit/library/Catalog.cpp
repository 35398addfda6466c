#include "SorviKit/library/Catalog.h"
#include "SorviKit/core/JsonText.h"
#include "SorviKit/library/VolumeIdentity.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QStandardPaths>

#include <cmath>

Q_LOGGING_CATEGORY(lcCatalog, "sorvi.catalog", QtWarningMsg)

namespace {

QString standardised(const QString &folder)
{
    const QFileInfo info(folder);
    const QString canonical = info.canonicalFilePath();
    return canonical.isEmpty() ? QDir::cleanPath(info.absoluteFilePath()) : canonical;
}

std::optional<Rating> decodeRating(const QJsonValue &value)
{
    const QJsonObject object = value.toObject();
    const QJsonValue stars = object.value(QLatin1String("stars"));
    const QJsonValue flag = object.value(QLatin1String("flag"));
    const QJsonValue label = object.value(QLatin1String("label"));
    if (!value.isObject() || !stars.isDouble() || !flag.isString() || !label.isString())
        return std::nullopt;
    const double starsNumber = stars.toDouble();
    if (starsNumber != std::floor(starsNumber) || std::abs(starsNumber) > 1e9)
        return std::nullopt;
    const auto parsedFlag = Rating::flagFromRaw(flag.toString());
    const auto parsedLabel = Rating::labelFromRaw(label.toString());
    if (!parsedFlag || !parsedLabel)
        return std::nullopt;
    return Rating{int(starsNumber), *parsedFlag, *parsedLabel};
}

} // namespace

QString Catalog::defaultDirectory()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation)
        + QStringLiteral("/Kestrane Sorvi/Catalogs");
}

QString Catalog::key(const QString &folder)
{
    const QString path = standardised(folder);
    const VolumeIdentity volume = VolumeIdentity::of(path);
    return key(volume.uuid.isEmpty() ? QStringLiteral("local") : volume.uuid, volume.root, path);
}

QString Catalog::key(const QString &volumeId, const QString &volumeRoot, const QString &folderPath)
{
    // A card contributes only the path below its mount point, so the same card keeps its
    // key wherever it is mounted; folders on the system volume keep their full path.
    QString path = folderPath;
    if (!volumeRoot.isEmpty() && volumeRoot != QLatin1String("/") && path.startsWith(volumeRoot))
        path.remove(0, volumeRoot.size());
    const QByteArray digest = QCryptographicHash::hash((volumeId + QLatin1Char('|') + path).toUtf8(),
                                                       QCryptographicHash::Sha256);
    return QString::fromLatin1(digest.left(12).toHex());
}

Catalog::Catalog(const QString &folder, const QString &directory, SerialWriter *writer,
                 StoreFile::WriteFunction write)
    : m_folder(standardised(folder))
    , m_ratings(std::make_shared<Ratings>())
{
    if (!QDir().mkpath(directory))
        qCWarning(lcCatalog) << "cannot create catalog folder" << directory;
    m_file = StoreFile::create(directory + QLatin1Char('/') + key(m_folder) + QStringLiteral(".json"),
                               QStringLiteral("ratings"), writer, std::move(write));
    const std::optional<QByteArray> bytes = m_file->load();
    if (!bytes)
        return;
    if (auto stored = decode(*bytes)) {
        m_ratings->byId = *stored;
    } else {
        qCWarning(lcCatalog) << "unreadable catalog, kept aside before the next save:" << m_file->path();
        m_file->markUnreadable();
    }
}

std::optional<Rating> Catalog::rating(const QString &id) const
{
    const QMutexLocker locker(&m_ratings->lock);
    const auto it = m_ratings->byId.constFind(id);
    return it == m_ratings->byId.constEnd() ? std::nullopt : std::optional<Rating>(*it);
}

QHash<QString, Rating> Catalog::ratings() const
{
    const QMutexLocker locker(&m_ratings->lock);
    return m_ratings->byId;
}

void Catalog::set(const Rating &rating, const QString &id)
{
    set(QHash<QString, Rating>{{id, rating}});
}

void Catalog::set(const QHash<QString, Rating> &ratings)
{
    {
        const QMutexLocker locker(&m_ratings->lock);
        for (auto it = ratings.constBegin(); it != ratings.constEnd(); ++it) {
            if (it->isEmpty())
                m_ratings->byId.remove(it.key());
            else
                m_ratings->byId.insert(it.key(), *it);
        }
    }
    save();
}

void Catalog::adopt(const QHash<QString, Rating> &ratings)
{
    bool added = false;
    {
        const QMutexLocker locker(&m_ratings->lock);
        for (auto it = ratings.constBegin(); it != ratings.constEnd(); ++it) {
            // What the photographer did here always wins over what other tools wrote.
            if (it->isEmpty() || m_ratings->byId.contains(it.key()))
                continue;
            m_ratings->byId.insert(it.key(), *it);
            added = true;
        }
    }
    if (added)
        save();
}

void Catalog::save()
{
    // Encoded when the write runs, from the newest ratings; the lock is not held while writing.
    m_file->save([ratings = m_ratings, folder = m_folder] {
        QHash<QString, Rating> snapshot;
        {
            const QMutexLocker locker(&ratings->lock);
            snapshot = ratings->byId;
        }
        return encode(folder, snapshot);
    });
}

QByteArray Catalog::encode(const QString &folderPath, const QHash<QString, Rating> &ratings)
{
    // Written by hand because each rating's keys keep the order stars, flag, label.
    QByteArray json = "{\"version\":1,\"folder\":" + JsonText::quoted(folderPath) + ",\"ratings\":{";
    bool first = true;
    for (auto it = ratings.constBegin(); it != ratings.constEnd(); ++it) {
        if (!first)
            json += ',';
        first = false;
        json += JsonText::quoted(it.key()) + ":{\"stars\":" + QByteArray::number(it->stars)
            + ",\"flag\":" + JsonText::quoted(Rating::rawValue(it->flag))
            + ",\"label\":" + JsonText::quoted(Rating::rawValue(it->label)) + '}';
    }
    return json + "}}";
}

std::optional<QHash<QString, Rating>> Catalog::decode(const QByteArray &json)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(json, &error);
    const QJsonObject root = document.object();
    if (error.error != QJsonParseError::NoError || !root.value(QLatin1String("version")).isDouble()
        || !root.value(QLatin1String("folder")).isString() || !root.value(QLatin1String("ratings")).isObject())
        return std::nullopt;
    QHash<QString, Rating> ratings;
    const QJsonObject stored = root.value(QLatin1String("ratings")).toObject();
    for (auto it = stored.constBegin(); it != stored.constEnd(); ++it) {
        const auto rating = decodeRating(it.value());
        if (!rating)
            return std::nullopt; // one bad rating makes the whole document unreadable
        ratings.insert(it.key(), *rating);
    }
    return ratings;
}
