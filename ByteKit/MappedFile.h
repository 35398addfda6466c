#pragma once

#include <cstdint>
#include <span>
#include <string>

/// A whole file mapped read-only into memory, so its bytes can be searched without
/// copying them; pages are read from disk only when touched. Move-only; unmaps on
/// destruction. An empty file maps to an empty span.
class MappedFile {
public:
    /// Maps `path`. Throws DeviceError (cannotOpen, notAFileOrDevice) when the file cannot
    /// be opened, is not a regular file, or cannot be mapped.
    explicit MappedFile(const std::string &path);
    MappedFile(MappedFile &&other) noexcept;
    MappedFile &operator=(MappedFile &&other) noexcept;
    MappedFile(const MappedFile &) = delete;
    MappedFile &operator=(const MappedFile &) = delete;
    ~MappedFile();

    /// The file's bytes, valid while this object lives. Reading them may raise SIGBUS if
    /// the file is truncated by someone else meanwhile, as with any mapping.
    [[nodiscard]] std::span<const std::uint8_t> bytes() const { return {data_, size_}; }

    /// Asks the system to start reading `length` bytes from `offset` now, in large
    /// requests, so that a walk that touches only a few bytes of each page it passes does
    /// not wait on one small read per page fault. A hint: never fails, never blocks long.
    void readAhead(std::size_t offset, std::size_t length) const noexcept;

private:
    void release() noexcept;

    const std::uint8_t *data_ = nullptr;
    std::size_t size_ = 0;
};
