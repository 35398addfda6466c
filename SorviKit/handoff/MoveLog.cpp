#include "SorviKit/handoff/MoveLog.h"
#include "SorviKit/library/Catalog.h"
#include "SorviKit/core/FileError.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

MoveLog::MoveLog(const QString &folder, const QString &directory)
    : m_folder(QFileInfo(folder).absoluteFilePath())
    , m_file(directory + QLatin1Char('/') + Catalog::key(folder) + QStringLiteral(".moves.json"))
{
}

QString MoveLog::defaultDirectory()
{
    return Catalog::defaultDirectory();
}

QList<Handoff::Move> MoveLog::load() const
{
    QFile file(m_file);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QList<Handoff::Move> moves;
    const QJsonArray stored = QJsonDocument::fromJson(file.readAll()).object().value(QLatin1String("moves")).toArray();
    for (const QJsonValue &value : stored) {
        const QString source = value[QLatin1String("source")].toString();
        const QString moved = value[QLatin1String("moved")].toString();
        if (source.isEmpty() || moved.isEmpty())
            return {}; // a damaged log is not trusted with moving files
        moves.append({source, moved});
    }
    return moves;
}

void MoveLog::save(const QList<Handoff::Move> &moves) const
{
    if (moves.isEmpty()) {
        QFile::remove(m_file);
        return;
    }
    QJsonArray stored;
    for (const Handoff::Move &move : moves)
        stored.append(QJsonObject{{QStringLiteral("source"), move.source}, {QStringLiteral("moved"), move.moved}});
    const QJsonObject root{{QStringLiteral("folder"), m_folder}, {QStringLiteral("moves"), stored}};
    QDir().mkpath(QFileInfo(m_file).absolutePath());
    QSaveFile file(m_file);
    if (!file.open(QIODevice::WriteOnly) || file.write(QJsonDocument(root).toJson()) < 0 || !file.commit())
        throw FileError::couldNot(QStringLiteral("remember the moved rejects in"), m_file, file.errorString());
}
