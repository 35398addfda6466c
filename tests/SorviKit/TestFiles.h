#pragma once

#include <QByteArray>
#include <QCryptographicHash>
#include <QDateTime>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>
#include <QMap>
#include <QString>
#include <QStringList>

#include <ostream>

// Readable failure messages for the Qt types the tests compare.
inline void PrintTo(const QString &text, std::ostream *out)
{
    *out << '"' << text.toStdString() << '"';
}
inline void PrintTo(const QStringList &list, std::ostream *out)
{
    *out << '[' << list.join(", ").toStdString() << ']';
}
inline void PrintTo(const QDateTime &moment, std::ostream *out)
{
    *out << moment.toUTC().toString(Qt::ISODateWithMs).toStdString();
}

/// Small helpers for tests that build folders of real files.
namespace TestFiles {

inline void write(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (file.open(QIODevice::WriteOnly))
        file.write(bytes);
}

inline QByteArray read(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// SHA-256 of a file, computed apart from any hashing of ours; empty when unreadable.
inline QString digest(const QString &path)
{
    QFile file(path);
    QCryptographicHash hasher(QCryptographicHash::Sha256);
    if (!file.open(QIODevice::ReadOnly) || !hasher.addData(&file))
        return {};
    return QString::fromLatin1(hasher.result().toHex());
}

/// Every file below `folder` (hidden ones too) as sorted relative paths.
inline QStringList tree(const QString &folder)
{
    QStringList files;
    const QDir base(folder);
    QDirIterator it(folder, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext())
        files << base.relativeFilePath(it.next());
    files.sort();
    return files;
}

/// The digest of every file below `folder`, by relative path.
inline QMap<QString, QString> snapshot(const QString &folder)
{
    QMap<QString, QString> result;
    for (const QString &file : tree(folder))
        result.insert(file, digest(folder + QLatin1Char('/') + file));
    return result;
}

inline QString corpus()
{
    return QStringLiteral(SORVI_CORPUS_DIR);
}

/// The bursts a corpus truth file lists, each as its frame ids in order.
inline QList<QStringList> truthBursts(const QJsonObject &truth)
{
    QList<QStringList> bursts;
    for (const QJsonValue &burst : truth[QStringLiteral("bursts")].toArray()) {
        QStringList frames;
        for (const QJsonValue &frame : burst.toObject()[QStringLiteral("frames")].toArray())
            frames << frame.toString();
        bursts << frames;
    }
    return bursts;
}

} // namespace TestFiles

#define SKIP_WITHOUT_CORPUS()                                                                    \
    if (!QFileInfo::exists(TestFiles::corpus() + "/shoot/truth.json"))                          \
    GTEST_SKIP() << "camera corpus not found at " << SORVI_CORPUS_DIR                            \
                 << " (set -DSORVI_CORPUS_DIR=…/shared/corpus to run this test)"
