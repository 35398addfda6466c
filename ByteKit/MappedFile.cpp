#include "ByteKit/MappedFile.h"

#include "ByteKit/DeviceError.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

MappedFile::MappedFile(const std::string &path)
{
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        throw DeviceError::cannotOpen(path, errno);
    struct stat info {};
    if (::fstat(fd, &info) != 0) {
        const int error = errno;
        ::close(fd);
        throw DeviceError::cannotOpen(path, error);
    }
    if (!S_ISREG(info.st_mode)) {
        ::close(fd);
        throw DeviceError::notAFileOrDevice(path);
    }
    size_ = std::size_t(info.st_size);
    if (size_ > 0) {
        void *mapped = ::mmap(nullptr, size_, PROT_READ, MAP_PRIVATE, fd, 0);
        if (mapped == MAP_FAILED) {
            const int error = errno;
            ::close(fd);
            throw DeviceError::cannotOpen(path, error);
        }
        data_ = static_cast<const std::uint8_t *>(mapped);
    }
    // The mapping keeps the file's pages reachable on its own.
    ::close(fd);
}

MappedFile::MappedFile(MappedFile &&other) noexcept
    : data_(std::exchange(other.data_, nullptr)), size_(std::exchange(other.size_, 0))
{
}

MappedFile &MappedFile::operator=(MappedFile &&other) noexcept
{
    if (this != &other) {
        release();
        data_ = std::exchange(other.data_, nullptr);
        size_ = std::exchange(other.size_, 0);
    }
    return *this;
}

MappedFile::~MappedFile()
{
    release();
}

void MappedFile::release() noexcept
{
    if (data_)
        ::munmap(const_cast<std::uint8_t *>(data_), size_);
    data_ = nullptr;
    size_ = 0;
}

void MappedFile::readAhead(std::size_t offset, std::size_t length) const noexcept
{
    if (offset >= size_)
        return;
    length = std::min(length, size_ - offset);
    // madvise wants a page-aligned start.
    const auto page = std::size_t(::sysconf(_SC_PAGESIZE));
    const std::size_t start = offset / page * page;
    ::madvise(const_cast<std::uint8_t *>(data_) + start, length + (offset - start), MADV_WILLNEED);
}
