#pragma once

#include "Handoff.h"

#include <QByteArray>
#include <QCryptographicHash>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QMap>
#include <QRandomGenerator>
#include <QString>
#include <QStringList>

#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ostream>

inline void PrintTo(const QString &text, std::ostream *out)
{
    *out << '"' << text.toStdString() << '"';
}
inline void PrintTo(const QStringList &list, std::ostream *out)
{
    *out << '[' << list.join(", ").toStdString() << ']';
}

namespace Handoff {
inline void PrintTo(const CopyResult &result, std::ostream *out)
{
    *out << "{files " << result.files << ", bytes " << result.bytes << ", alreadyThere " << result.alreadyThere
         << ", locationRemoved " << result.locationRemoved << '}';
}
} // namespace Handoff

/// Real files in temporary folders for the hand-off tests.
namespace HandoffTest {

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

/// Bytes that differ for every seed and never compress to nothing.
inline QByteArray noise(qsizetype size, quint32 seed)
{
    QByteArray bytes(size, Qt::Uninitialized);
    QRandomGenerator generator(seed);
    for (qsizetype i = 0; i < size; ++i)
        bytes[i] = char(generator.bounded(256));
    return bytes;
}

/// SHA-256 of a file, computed apart from the engine's own hashing; empty when unreadable.
inline QString digest(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QCryptographicHash hasher(QCryptographicHash::Sha256);
    hasher.addData(&file);
    return QString::fromLatin1(hasher.result().toHex());
}

inline QMap<QString, QString> digests(const QStringList &paths)
{
    QMap<QString, QString> result;
    for (const QString &path : paths)
        result.insert(path, digest(path));
    return result;
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

inline bool isRoot()
{
    return ::geteuid() == 0;
}

/// A small tmpfs mounted over a folder for as long as the object lives.
class TmpfsMount {
public:
    TmpfsMount(const QString &folder, const char *options) : m_folder(QFile::encodeName(folder))
    {
        m_mounted = ::mount("tmpfs", m_folder.constData(), "tmpfs", 0, options) == 0;
        m_error = m_mounted ? 0 : errno;
    }
    TmpfsMount(const TmpfsMount &) = delete;
    TmpfsMount &operator=(const TmpfsMount &) = delete;
    ~TmpfsMount()
    {
        if (m_mounted)
            ::umount2(m_folder.constData(), MNT_DETACH);
    }
    bool isMounted() const { return m_mounted; }
    int error() const { return m_error; }
    bool remountReadOnly()
    {
        return ::mount(nullptr, m_folder.constData(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) == 0;
    }

private:
    QByteArray m_folder;
    bool m_mounted = false;
    int m_error = 0;
};

} // namespace HandoffTest

#define SKIP_UNLESS_MOUNTED(mount)                                                                  \
    if (!HandoffTest::isRoot())                                                                     \
        GTEST_SKIP() << "needs root to mount a small tmpfs; run the tests as root to cover this case"; \
    if (!(mount).isMounted())                                                                       \
    GTEST_SKIP() << "mounting a tmpfs failed (" << std::strerror((mount).error())                    \
                 << "); the container may lack CAP_SYS_ADMIN"
