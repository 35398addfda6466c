#include "SorviKit/library/VolumeIdentity.h"

#include <QDir>
#include <QFileInfo>
#include <QStorageInfo>

namespace {

QString uuidOfDevice(const QString &device)
{
    const QString devicePath = QFileInfo(device).canonicalFilePath();
    if (devicePath.isEmpty())
        return {};
    const QDir byUuid(QStringLiteral("/dev/disk/by-uuid"));
    const QFileInfoList links = byUuid.entryInfoList(QDir::System | QDir::Files | QDir::NoDotAndDotDot);
    for (const QFileInfo &link : links)
        if (link.canonicalFilePath() == devicePath)
            return link.fileName();
    return {};
}

} // namespace

VolumeIdentity VolumeIdentity::of(const QString &path)
{
    const QStorageInfo storage(path);
    if (!storage.isValid())
        return {};
    return {uuidOfDevice(QString::fromLocal8Bit(storage.device())), storage.rootPath()};
}
