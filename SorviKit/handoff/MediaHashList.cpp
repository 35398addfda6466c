#include "SorviKit/handoff/MediaHashList.h"

#include "SorviKit/core/FileError.h"
#include "SorviKit/core/OwnFile.h"

#include <QFileInfo>
#include <QMap>
#include <QSysInfo>
#include <QXmlStreamReader>
#include <QXmlStreamWriter>

#include <pwd.h>
#include <unistd.h>

#include <algorithm>

namespace MediaHashList {

namespace {

const QString ourAlgorithm = QStringLiteral("xxhash64be");
const QStringList digestElements{ourAlgorithm,          QStringLiteral("xxhash64"), QStringLiteral("md5"),
                                 QStringLiteral("sha1"), QStringLiteral("xxhash"),   QStringLiteral("null")};

QString isoTime(const QDateTime &moment)
{
    return moment.toUTC().toString(Qt::ISODate);
}

QDateTime parseTime(const QString &text)
{
    return QDateTime::fromString(text.trimmed(), Qt::ISODate).toUTC();
}

QString userName()
{
    if (const passwd *user = ::getpwuid(::getuid()))
        return QString::fromLocal8Bit(user->pw_name);
    return qEnvironmentVariable("USER");
}

std::optional<Entry> readHash(QXmlStreamReader &reader)
{
    Entry entry;
    while (reader.readNextStartElement()) {
        const QString name = reader.name().toString();
        const QString text = reader.readElementText(QXmlStreamReader::SkipChildElements).trimmed();
        if (name == QLatin1String("file"))
            entry.file = text;
        else if (name == QLatin1String("size"))
            entry.size = text.toULongLong();
        else if (name == QLatin1String("lastmodificationdate"))
            entry.lastModified = parseTime(text);
        else if (name == QLatin1String("hashdate"))
            entry.hashDate = parseTime(text);
        else if (digestElements.contains(name) && entry.algorithm.isEmpty()) {
            entry.algorithm = name;
            entry.digest = text.toLower();
        }
    }
    if (entry.file.isEmpty())
        return std::nullopt;
    return entry;
}

// The entries a run leaves: the new ones, and the earlier ones of files still there.
QList<Entry> merged(const QString &folder, const QList<Entry> &earlier, const QList<Handoff::VerifiedFile> &verified)
{
    QMap<QString, Entry> byFile;
    for (const Entry &entry : earlier)
        if (QFileInfo(folder + QLatin1Char('/') + entry.file).isFile())
            byFile.insert(entry.file, entry);
    for (const Handoff::VerifiedFile &file : verified) {
        const QFileInfo info(folder + QLatin1Char('/') + file.path);
        byFile.insert(file.path, {file.path, file.size, ourAlgorithm, file.xxh64, info.lastModified().toUTC(),
                                  file.verifiedAt.toUTC()});
    }
    return byFile.values();
}

} // namespace

QByteArray render(const QList<Entry> &entries, const Creator &creator)
{
    QByteArray bytes;
    QXmlStreamWriter writer(&bytes);
    writer.setAutoFormatting(true);
    writer.setAutoFormattingIndent(2);
    writer.writeStartDocument();
    writer.writeStartElement(QStringLiteral("hashlist"));
    writer.writeAttribute(QStringLiteral("version"), QStringLiteral("1.1"));
    writer.writeStartElement(QStringLiteral("creatorinfo"));
    writer.writeTextElement(QStringLiteral("username"), creator.username);
    writer.writeTextElement(QStringLiteral("hostname"), creator.hostname);
    writer.writeTextElement(QStringLiteral("tool"), QStringLiteral("Kestrane Sorvi"));
    writer.writeTextElement(QStringLiteral("startdate"), isoTime(creator.start));
    writer.writeTextElement(QStringLiteral("finishdate"), isoTime(creator.finish));
    writer.writeEndElement();
    for (const Entry &entry : entries) {
        writer.writeStartElement(QStringLiteral("hash"));
        writer.writeTextElement(QStringLiteral("file"), entry.file);
        writer.writeTextElement(QStringLiteral("size"), QString::number(entry.size));
        if (entry.lastModified.isValid())
            writer.writeTextElement(QStringLiteral("lastmodificationdate"), isoTime(entry.lastModified));
        writer.writeTextElement(entry.algorithm, entry.digest);
        if (entry.hashDate.isValid())
            writer.writeTextElement(QStringLiteral("hashdate"), isoTime(entry.hashDate));
        writer.writeEndElement();
    }
    writer.writeEndElement();
    writer.writeEndDocument();
    return bytes;
}

std::optional<QList<Entry>> parse(const QByteArray &bytes)
{
    QXmlStreamReader reader(bytes);
    if (!reader.readNextStartElement() || reader.name() != QLatin1String("hashlist")
        || !reader.attributes().value(QLatin1String("version")).startsWith(QLatin1String("1.")))
        return std::nullopt;
    QList<Entry> entries;
    while (reader.readNextStartElement()) {
        if (reader.name() != QLatin1String("hash")) {
            reader.skipCurrentElement();
            continue;
        }
        if (std::optional<Entry> entry = readHash(reader))
            entries << *entry;
    }
    if (reader.hasError())
        return std::nullopt;
    return entries;
}

Recorded record(const QString &folder, const QList<Handoff::VerifiedFile> &verified)
{
    const QString path = folder + QLatin1Char('/') + manifestName;
    Recorded recorded;
    QList<Entry> earlier;
    if (const std::optional<QByteArray> bytes = OwnFile::read(path)) {
        if (const std::optional<QList<Entry>> parsed = parse(*bytes)) {
            earlier = *parsed;
        } else {
            // What it still says about earlier copies must not be written over.
            const OwnFile::KeptAside aside = OwnFile::keepAside(path);
            if (aside.path.isEmpty())
                throw FileError(QStringLiteral("Couldn't list the checksums: %1 could not be read, and setting it "
                                               "aside failed (%2).")
                                    .arg(path, aside.error));
            recorded.notice = QStringLiteral("The checksum list %1 could not be read; it was kept as %2 and a new "
                                             "one started.")
                                  .arg(path, aside.path);
        }
    }
    const QList<Entry> entries = merged(folder, earlier, verified);
    recorded.listed = int(entries.size());
    if (entries.isEmpty())
        return recorded;
    const QDateTime now = QDateTime::currentDateTimeUtc();
    QDateTime start = now;
    for (const Handoff::VerifiedFile &file : verified)
        start = std::min(start, file.verifiedAt.toUTC());
    const QString error = OwnFile::write(path, render(entries, {userName(), QSysInfo::machineHostName(), start, now}));
    if (!error.isEmpty())
        throw FileError::couldNot(QStringLiteral("write"), path, error);
    return recorded;
}

} // namespace MediaHashList
