#include "ByteKit/FileSource.h"

#include "ByteKit/DeviceError.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

int openReadOnly(const std::string& path)
{
    const int fd = ::open(path.c_str(), O_RDONLY);
    if (fd < 0)
        throw DeviceError::cannotOpen(path, errno);
    return fd;
}

std::uint64_t sizeOfOpenFile(int fd, const std::string& path)
{
    struct stat info {};
    if (::fstat(fd, &info) != 0) {
        const int error = errno;
        ::close(fd);
        throw DeviceError::cannotOpen(path, error);
    }
    return static_cast<std::uint64_t>(info.st_size);
}

} // namespace

FileSource::FileSource(std::string path)
    : fd_(openReadOnly(path))
    , size_(sizeOfOpenFile(fd_, path))
    , path_(std::move(path))
{
}

FileSource::~FileSource()
{
    ::close(fd_);
}

std::uint64_t FileSource::size() const
{
    return size_;
}

std::int64_t FileSource::badReads() const
{
    return badReads_;
}

std::string FileSource::descriptionForReport() const
{
    return path_;
}

std::vector<std::uint8_t> FileSource::readChecked(std::uint64_t offset, std::uint64_t count) const
{
    if (offset >= size_)
        return {};
    const std::uint64_t wanted = std::min(size_ - offset, count);
    std::vector<std::uint8_t> buffer(wanted);
    std::uint64_t done = 0;
    while (done < wanted) {
        const ssize_t got = ::pread(fd_, buffer.data() + done, wanted - done,
                                    static_cast<off_t>(offset + done));
        if (got > 0) {
            done += static_cast<std::uint64_t>(got);
        } else if (got == 0) {
            break; // the file shrank after it was opened
        } else if (errno != EINTR) {
            throw DeviceError::readFailed(offset + done, errno);
        }
    }
    buffer.resize(done);
    return buffer;
}
