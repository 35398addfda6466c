#pragma once

#include <cstdint>
#include <span>
#include <stdexcept>
#include <stop_token>
#include <string>

/// A new file written in full before it appears under its name: the bytes go to a
/// temporary file in the same folder, are flushed to the disk, and the file is then
/// renamed into place, never over an existing file. Dropped unfinished, the temporary
/// file is removed.
class AtomicFile {
public:
    /// Thrown when the folder cannot be written, the disk fills up or the name is taken.
    class Failed : public std::runtime_error {
    public:
        using std::runtime_error::runtime_error;
    };

    explicit AtomicFile(std::string path);
    AtomicFile(const AtomicFile &) = delete;
    AtomicFile &operator=(const AtomicFile &) = delete;
    ~AtomicFile();

    void write(std::span<const std::uint8_t> bytes);
    /// Appends `length` bytes of the open file `fd` from `offset`, copied by the system
    /// without passing through this process. Returns early, with what was copied so far,
    /// once `stop` is requested.
    void copyFrom(int fd, std::uint64_t offset, std::uint64_t length, std::stop_token stop = {});
    /// Cuts the file to `size` bytes (of those written so far); writing goes on from there.
    void truncate(std::uint64_t size);
    /// Writes `bytes` over what was written at `offset`, which must lie within the file.
    void overwrite(std::uint64_t offset, std::span<const std::uint8_t> bytes);
    [[nodiscard]] std::uint64_t written() const { return m_written; }
    /// Flushes, syncs and renames the file into place. Throws Failed.
    void commit();

private:
    void flush();
    void writeAll(const void *data, std::size_t size);
    void handedOver(std::uint64_t size);

    std::string m_path;
    std::string m_temporary;
    int m_fd = -1;
    std::string m_buffer;
    std::uint64_t m_written = 0;
    std::uint64_t m_onDisk = 0;            // handed to the system
    std::uint64_t m_writebackStarted = 0; // of which the disk was asked to write
};

/// `path` with "-SUFFIX" before its extension ("clip.mp4" -> "clip-repaired.mp4"), with a
/// number added until no file of that name exists.
std::string freeNameBeside(const std::string &path, const std::string &suffix);
