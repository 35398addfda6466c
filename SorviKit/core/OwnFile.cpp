#include "SorviKit/core/OwnFile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>

namespace OwnFile {

std::optional<QByteArray> read(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    return file.readAll();
}

QString write(const QString &path, const QByteArray &bytes)
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.commit())
        return file.errorString();
    return {};
}

QString asideName(const QString &path, const QDateTime &when)
{
    const QFileInfo info(path);
    // The first dot ends the store's own name: "k.checks.json" keeps ".checks".
    const QString name = info.fileName();
    const qsizetype lastDot = name.lastIndexOf(QLatin1Char('.'));
    const QString stem = lastDot > 0 ? name.left(lastDot) : name;
    const QString extension = lastDot > 0 ? name.mid(lastDot) : QString();
    return info.dir().filePath(stem + QStringLiteral(".unreadable-") + when.toString(QStringLiteral("yyyyMMdd-HHmmss"))
                               + extension);
}

KeptAside keepAside(const QString &path, const QDateTime &when)
{
    const QString first = asideName(path, when);
    const QFileInfo info(first);
    for (int n = 1; n < 1000; ++n) {
        const QString target = n == 1 ? first
                                      : info.dir().filePath(info.completeBaseName() + QStringLiteral(" %1.").arg(n)
                                                            + info.suffix());
        // RENAME_NOREPLACE: an aside file of an earlier day is never replaced.
        const QByteArray from = QFile::encodeName(path);
        const QByteArray to = QFile::encodeName(target);
        if (::renameat2(AT_FDCWD, from.constData(), AT_FDCWD, to.constData(), RENAME_NOREPLACE) == 0)
            return {target, {}};
        if ((errno == EINVAL || errno == ENOSYS) && !QFileInfo::exists(target)) {
            // A file system without the flag: the check just before the rename must do.
            if (std::rename(from.constData(), to.constData()) == 0)
                return {target, {}};
        }
        if (errno != EEXIST)
            return {{}, QString::fromLocal8Bit(std::strerror(errno))};
    }
    return {{}, QStringLiteral("no free name beside it")};
}

} // namespace OwnFile
