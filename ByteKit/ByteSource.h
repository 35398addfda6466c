#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// Random-access reading of bytes from something of known, fixed size (a buffer, a file,
/// a whole device). A source keeps no read position and no cache, so one source may be
/// read from several threads at once. Sources are shared by reference; they are neither
/// copyable nor movable.
class ByteSource {
public:
    ByteSource() = default;
    ByteSource(const ByteSource&) = delete;
    ByteSource& operator=(const ByteSource&) = delete;
    virtual ~ByteSource() = default;

    /// Number of readable bytes, fixed for the life of the source.
    [[nodiscard]] virtual std::uint64_t size() const = 0;

    /// Count of reads that went wrong, for reports. Starts at 0.
    [[nodiscard]] virtual std::int64_t badReads() const = 0;

    /// One-line description of the source for reports and messages.
    [[nodiscard]] virtual std::string descriptionForReport() const = 0;

    /// Returns up to `count` bytes starting at byte `offset`. The result is shorter than
    /// `count` only at the end of the data (callers treat that as end of data, not as an
    /// error); an offset at or past size() gives an empty result. Thread-safe.
    /// A negative `count`, or an `offset + count` that does not fit in 64 bits, is a
    /// programming error: the program is stopped with a message on stderr.
    /// Throws DeviceError when the underlying device fails.
    [[nodiscard]] std::vector<std::uint8_t> read(std::uint64_t offset, std::int64_t count) const;

protected:
    /// Does the reading for read(), which has already checked its arguments:
    /// `count` >= 0 and `offset + count` fits in 64 bits.
    [[nodiscard]] virtual std::vector<std::uint8_t> readChecked(std::uint64_t offset,
                                                                std::uint64_t count) const = 0;
};
