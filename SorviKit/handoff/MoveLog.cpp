#include "SorviKit/handoff/MoveLog.h"
#include "SorviKit/core/FileError.h"
#include "SorviKit/core/OwnFile.h"
#include "SorviKit/handoff/Handoff_p.h"
#include "SorviKit/library/Catalog.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <fcntl.h>

#include <optional>

using namespace Handoff::detail;

namespace {

struct Parsed {
    QList<Handoff::Move> moves;
    bool tidy = true; ///< false: a line cut short, or the older format; rewritten before appending
};

std::optional<Handoff::Move> moveFrom(const QJsonValue &value)
{
    const QString source = value[QLatin1String("source")].toString();
    const QString moved = value[QLatin1String("moved")].toString();
    if (source.isEmpty() || moved.isEmpty())
        return std::nullopt;
    return Handoff::Move{source, moved};
}

// Earlier versions kept the last run's moves as one document: {"folder":…,"moves":[…]}.
std::optional<Parsed> parseDocument(const QJsonArray &stored)
{
    Parsed parsed{{}, false};
    for (const QJsonValue &value : stored) {
        const std::optional<Handoff::Move> move = moveFrom(value);
        if (!move)
            return std::nullopt;
        parsed.moves.append(*move);
    }
    return parsed;
}

// None when the record is damaged: a damaged record is not trusted with moving files.
std::optional<Parsed> parse(const QByteArray &bytes)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &error);
    if (error.error == QJsonParseError::NoError && document.object().value(QLatin1String("moves")).isArray())
        return parseDocument(document.object().value(QLatin1String("moves")).toArray());
    // Each line is written whole before its move begins, so only the last can be cut short.
    const qsizetype complete = bytes.lastIndexOf('\n') + 1;
    Parsed parsed{{}, complete == bytes.size()};
    for (const QByteArray &line : bytes.first(complete).split('\n')) {
        if (line.isEmpty())
            continue; // after the last newline, where split gives an empty piece
        const QJsonDocument object = QJsonDocument::fromJson(line, &error);
        const std::optional<Handoff::Move> move =
            error.error == QJsonParseError::NoError && object.isObject() ? moveFrom(object.object()) : std::nullopt;
        if (!move)
            return std::nullopt;
        parsed.moves.append(*move);
    }
    return parsed;
}

QByteArray encode(const Handoff::Move &move)
{
    const QJsonObject object{{QStringLiteral("source"), move.source}, {QStringLiteral("moved"), move.moved}};
    return QJsonDocument(object).toJson(QJsonDocument::Compact) + '\n';
}

// None when there is no record; throws when there is one that cannot be read.
std::optional<QByteArray> readRecord(const QString &path)
{
    QFile file(path);
    if (!file.exists())
        return std::nullopt;
    if (!file.open(QIODevice::ReadOnly))
        throw FileError::couldNot(QStringLiteral("read the record of moved rejects"), path, file.errorString());
    const QByteArray bytes = file.readAll();
    if (file.error() != QFileDevice::NoError)
        throw FileError::couldNot(QStringLiteral("read the record of moved rejects"), path, file.errorString());
    return bytes;
}

void writeLine(const Descriptor &fd, const QByteArray &line, const QString &path)
{
    for (qsizetype written = 0; written < line.size();) {
        const ssize_t put = ::write(fd.get(), line.constData() + written, std::size_t(line.size() - written));
        if (put < 0 && errno == EINTR)
            continue;
        if (put < 0)
            throw FileError::couldNot(QStringLiteral("record the moved reject in"), path, errnoText(errno));
        written += put;
    }
}

// A new file's name must survive a crash as well as its first line.
void syncFolder(const QString &folder)
{
    const Descriptor fd(::open(native(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!fd.isOpen() || (::fsync(fd.get()) != 0 && errno != EINVAL))
        throw FileError::couldNot(QStringLiteral("record the moved rejects in"), folder, errnoText(errno));
}

} // namespace

MoveLog::MoveLog(const QString &folder, const QString &directory)
    : m_file(directory + QLatin1Char('/') + Catalog::key(folder) + QStringLiteral(".moves.json"))
{
}

QString MoveLog::defaultDirectory()
{
    return Catalog::defaultDirectory();
}

QList<Handoff::Move> MoveLog::load() const
{
    const std::optional<QByteArray> bytes = readRecord(m_file);
    if (!bytes)
        return {};
    const std::optional<Parsed> parsed = parse(*bytes);
    if (!parsed)
        throw FileError(QStringLiteral("Couldn't read the record of moved rejects %1: it is damaged.").arg(m_file));
    return parsed->moves;
}

QString MoveLog::prepare() const
{
    const std::optional<QByteArray> bytes = readRecord(m_file);
    if (!bytes)
        return {};
    const std::optional<Parsed> parsed = parse(*bytes);
    if (parsed) {
        if (!parsed->tidy)
            save(parsed->moves);
        return {};
    }
    // Appending to it would bury what it still says about moved photos.
    const OwnFile::KeptAside aside = OwnFile::keepAside(m_file);
    if (aside.path.isEmpty())
        throw FileError(QStringLiteral("Couldn't record the moved rejects: %1 could not be read, and setting it aside "
                                       "failed (%2).")
                            .arg(m_file, aside.error));
    return QStringLiteral("The record of moved rejects %1 could not be read; it was kept as %2 and a new one started.")
        .arg(QFileInfo(m_file).fileName(), aside.path);
}

void MoveLog::append(const Handoff::Move &move) const
{
    const QString folder = QFileInfo(m_file).absolutePath();
    QDir().mkpath(folder);
    const bool created = !occupied(m_file);
    Descriptor fd(::open(native(m_file).constData(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666));
    if (!fd.isOpen())
        throw FileError::couldNot(QStringLiteral("record the moved reject in"), m_file, errnoText(errno));
    writeLine(fd, encode(move), m_file);
    if (::fdatasync(fd.get()) != 0 || fd.close() != 0)
        throw FileError::couldNot(QStringLiteral("record the moved reject in"), m_file, errnoText(errno));
    if (created)
        syncFolder(folder);
}

void MoveLog::save(const QList<Handoff::Move> &moves) const
{
    if (moves.isEmpty()) {
        if (::unlink(native(m_file).constData()) != 0 && errno != ENOENT)
            throw FileError::couldNot(QStringLiteral("remove the record of moved rejects"), m_file, errnoText(errno));
        return;
    }
    QByteArray lines;
    for (const Handoff::Move &move : moves)
        lines += encode(move);
    QDir().mkpath(QFileInfo(m_file).absolutePath());
    const QString error = OwnFile::write(m_file, lines);
    if (!error.isEmpty())
        throw FileError::couldNot(QStringLiteral("record the moved rejects in"), m_file, error);
}
