#include "MediaKit/repair/AtomicFile.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr std::size_t bufferLimit = std::size_t{4} << 20;
constexpr std::uint64_t writebackStep = std::uint64_t{8} << 20;

std::string folderOf(const std::string &path)
{
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string(".") : slash == 0 ? std::string("/") : path.substr(0, slash);
}

std::string failure(const std::string &what, const std::string &path)
{
    return what + " " + path + ": " + std::strerror(errno);
}

bool exists(const std::string &path)
{
    struct stat info {};
    return lstat(path.c_str(), &info) == 0;
}

} // namespace

AtomicFile::AtomicFile(std::string path) : m_path(std::move(path))
{
    const std::size_t slash = m_path.rfind('/');
    const std::string name = slash == std::string::npos ? m_path : m_path.substr(slash + 1);
    std::string pattern = folderOf(m_path) + "/." + name + ".XXXXXX";
    m_fd = mkstemp(pattern.data());
    if (m_fd < 0)
        throw Failed(failure("Could not create a file in the folder of", m_path));
    m_temporary = pattern;
    fchmod(m_fd, 0644);
}

AtomicFile::~AtomicFile()
{
    if (m_fd >= 0) {
        close(m_fd);
        unlink(m_temporary.c_str());
    }
}

void AtomicFile::write(std::span<const std::uint8_t> bytes)
{
    m_written += bytes.size();
    // Large runs go to the file straight from the caller's memory, small ones are gathered.
    if (bytes.size() >= bufferLimit / 4) {
        flush();
        writeAll(bytes.data(), bytes.size());
        return;
    }
    m_buffer.append(reinterpret_cast<const char *>(bytes.data()), bytes.size());
    if (m_buffer.size() >= bufferLimit)
        flush();
}

void AtomicFile::writeAll(const void *data, std::size_t size)
{
    std::size_t done = 0;
    while (done < size) {
        const ssize_t count = ::write(m_fd, static_cast<const char *>(data) + done, size - done);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            throw Failed(failure("Could not write", m_path));
        done += std::size_t(count);
    }
    handedOver(size);
}

void AtomicFile::handedOver(std::uint64_t size)
{
    m_onDisk += size;
    // Start the disk writing what has piled up, so that the flush at commit waits only
    // for the tail instead of the whole file.
    if (m_onDisk - m_writebackStarted >= writebackStep) {
        ::sync_file_range(m_fd, off64_t(m_writebackStarted), off64_t(m_onDisk - m_writebackStarted), SYNC_FILE_RANGE_WRITE);
        m_writebackStarted = m_onDisk;
    }
}

void AtomicFile::copyFrom(int fd, std::uint64_t offset, std::uint64_t length, std::stop_token stop)
{
    flush();
    bool inKernel = true;
    std::vector<char> block;
    while (length > 0 && !stop.stop_requested()) {
        const std::size_t step = std::size_t(std::min<std::uint64_t>(length, writebackStep));
        ssize_t count = -1;
        if (inKernel) {
            loff_t from = loff_t(offset);
            count = ::copy_file_range(fd, &from, m_fd, nullptr, step, 0);
            // Not between these two file systems, or not on this system: copy it ourselves.
            if (count < 0 && (errno == EXDEV || errno == EINVAL || errno == ENOSYS || errno == EOPNOTSUPP)) {
                inKernel = false;
                block.resize(std::size_t{1} << 20);
                continue;
            }
            if (count < 0 && errno == EINTR)
                continue;
            if (count < 0)
                throw Failed(failure("Could not write", m_path));
            if (count == 0)
                throw Failed("Could not write " + m_path + ": its source ended early");
            handedOver(std::uint64_t(count));
        } else {
            count = ::pread(fd, block.data(), std::min(step, block.size()), off_t(offset));
            if (count < 0 && errno == EINTR)
                continue;
            if (count <= 0)
                throw Failed(failure("Could not read the source of", m_path));
            writeAll(block.data(), std::size_t(count));
        }
        m_written += std::uint64_t(count);
        offset += std::uint64_t(count);
        length -= std::uint64_t(count);
    }
}

void AtomicFile::truncate(std::uint64_t size)
{
    flush();
    if (size > m_written || ::ftruncate(m_fd, off_t(size)) != 0 || ::lseek(m_fd, off_t(size), SEEK_SET) < 0)
        throw Failed(failure("Could not write", m_path));
    m_written = m_onDisk = size;
    m_writebackStarted = std::min(m_writebackStarted, size);
}

void AtomicFile::overwrite(std::uint64_t offset, std::span<const std::uint8_t> bytes)
{
    flush();
    if (offset + bytes.size() > m_written)
        throw Failed("Could not write " + m_path + ": nothing written there yet");
    for (std::size_t done = 0; done < bytes.size();) {
        const ssize_t count = ::pwrite(m_fd, bytes.data() + done, bytes.size() - done, off_t(offset + done));
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            throw Failed(failure("Could not write", m_path));
        done += std::size_t(count);
    }
}

void AtomicFile::flush()
{
    writeAll(m_buffer.data(), m_buffer.size());
    m_buffer.clear();
}

void AtomicFile::commit()
{
    flush();
    if (fsync(m_fd) != 0)
        throw Failed(failure("Could not write", m_path));
    close(m_fd);
    m_fd = -1;
    // link() fails when the name is taken, so an existing file is never replaced.
    if (link(m_temporary.c_str(), m_path.c_str()) != 0) {
        const std::string message = failure("Could not create", m_path);
        unlink(m_temporary.c_str());
        throw Failed(message);
    }
    unlink(m_temporary.c_str());
    const int folder = open(folderOf(m_path).c_str(), O_RDONLY | O_DIRECTORY);
    if (folder >= 0) {
        fsync(folder);
        close(folder);
    }
}

std::string freeNameBeside(const std::string &path, const std::string &suffix)
{
    const std::size_t slash = path.rfind('/');
    std::size_t dot = path.rfind('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash))
        dot = path.size();
    const std::string stem = path.substr(0, dot), extension = path.substr(dot);
    std::string candidate = stem + "-" + suffix + extension;
    for (int number = 2; exists(candidate); ++number)
        candidate = stem + "-" + suffix + "-" + std::to_string(number) + extension;
    return candidate;
}
