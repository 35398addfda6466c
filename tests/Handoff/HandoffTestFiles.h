#pragma once

#include "SorviKit/core/FileError.h"
#include "SorviKit/handoff/Handoff.h"
#include "TestFiles.h"

#include <QRandomGenerator>

#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace Handoff {
inline void PrintTo(const CopyResult &result, std::ostream *out)
{
    *out << "{files " << result.files << ", bytes " << result.bytes << ", alreadyThere " << result.alreadyThere
         << ", locationRemoved " << result.locationRemoved << '}';
}
inline void PrintTo(const Move &move, std::ostream *out)
{
    *out << move.source.toStdString() << " -> " << move.moved.toStdString();
}
} // namespace Handoff

/// Real files in temporary folders for the hand-off tests.
namespace HandoffTest {

using namespace TestFiles;

/// Bytes that differ for every seed and never compress to nothing.
inline QByteArray noise(qsizetype size, quint32 seed)
{
    QByteArray bytes(size, Qt::Uninitialized);
    QRandomGenerator generator(seed);
    for (qsizetype i = 0; i < size; ++i)
        bytes[i] = char(generator.bounded(256));
    return bytes;
}

/// The sentence of the FileError that `run` throws; empty when it throws none.
template <typename Run>
QString fileError(Run run)
{
    try {
        run();
    } catch (const FileError &error) {
        return error.description();
    }
    return {};
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
        detach();
    }
    bool isMounted() const { return m_mounted; }
    /// Unmounts at once, as when a drive is pulled: files still open keep working, but
    /// the path now leads to the empty folder underneath.
    void detach()
    {
        if (m_mounted)
            ::umount2(m_folder.constData(), MNT_DETACH);
        m_mounted = false;
    }
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
    if (::geteuid() != 0)                                                                           \
        GTEST_SKIP() << "needs root to mount a small tmpfs; run the tests as root to cover this case"; \
    if (!(mount).isMounted())                                                                       \
    GTEST_SKIP() << "mounting a tmpfs failed (" << std::strerror((mount).error())                    \
                 << "); the container may lack CAP_SYS_ADMIN"
