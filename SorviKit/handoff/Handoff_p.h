#pragma once

#include "SorviKit/library/Shot.h"

#include <QFile>
#include <QString>
#include <QStringList>

#include <cerrno>
#include <cstring>
#include <optional>
#include <unistd.h>
#include <utility>

// Helpers shared by the hand-off engine's translation units; not part of its interface.
namespace Handoff::detail {

/// The operating system's sentence for an errno value.
inline QString errnoText(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}

inline QByteArray native(const QString &path)
{
    return QFile::encodeName(path);
}

/// Owns a file descriptor and closes it however the scope is left.
class Descriptor {
public:
    explicit Descriptor(int fd) : m_fd(fd) {}
    Descriptor(Descriptor &&other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    ~Descriptor() { close(); }
    int get() const { return m_fd; }
    bool isOpen() const { return m_fd >= 0; }
    /// Closes now, so that a deferred write error (NFS, FUSE) can be seen; returns
    /// close's result, 0 when already closed.
    int close()
    {
        if (m_fd < 0)
            return 0;
        return ::close(std::exchange(m_fd, -1));
    }

private:
    int m_fd;
};

/// True when anything (file, folder, even a dangling link) occupies the path.
bool occupied(const QString &path);
/// Creates `folder` and any missing parents. Throws FileError naming the folder.
void makeFolder(const QString &folder);
/// The folder holding `path`.
QString folderOf(const QString &path);
/// Every file of the shots plus each one's existing sidecars, once each, sorted by path.
QStringList gatherFiles(const QList<Shot> &shots);

/// JPEG and HEIC files, whose copies may be written without location.
bool carriesLocation(const QString &path);
/// The file's bytes with its GPS IFD and XMP GPS properties removed and the image data
/// left as it was; none when Exiv2 cannot read or cannot write the format.
std::optional<QByteArray> bytesWithoutLocation(const QString &source);

} // namespace Handoff::detail
