#pragma once

#include "ByteKit/ByteSource.h"

/// A ByteSource over a file or device opened read-only. The size is taken once at
/// opening and never refreshed: if the file shrinks later, reads past its new end come
/// back short. Reads are positioned (no shared file position), so concurrent reads from
/// several threads are safe.
class FileSource final : public ByteSource {
public:
    /// Opens `path` read-only and takes its size.
    /// Throws DeviceError (Kind::cannotOpen) when the path cannot be opened or examined.
    explicit FileSource(std::string path);
    /// Closes the descriptor.
    ~FileSource() override;

    [[nodiscard]] std::uint64_t size() const override;
    [[nodiscard]] std::int64_t badReads() const override;
    /// The path given at construction, unchanged.
    [[nodiscard]] std::string descriptionForReport() const override;

protected:
    /// Throws DeviceError (Kind::readFailed) carrying the position of the read that
    /// failed, which may lie past `offset` when part of the request was already read;
    /// the bytes read before the failure are dropped.
    [[nodiscard]] std::vector<std::uint8_t> readChecked(std::uint64_t offset,
                                                        std::uint64_t count) const override;

private:
    int fd_;
    std::uint64_t size_;
    std::int64_t badReads_ = 0;
    std::string path_;
};
