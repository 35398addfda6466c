#pragma once

#include "ByteKit/ByteSource.h"

/// A ByteSource over bytes already in memory. Owns its buffer; never fails.
class MemorySource final : public ByteSource {
public:
    /// Takes ownership of `data`.
    explicit MemorySource(std::vector<std::uint8_t> data);

    [[nodiscard]] std::uint64_t size() const override;
    /// Always 0: reading memory cannot go wrong.
    [[nodiscard]] std::int64_t badReads() const override;
    /// "memory(<length> bytes)", e.g. "memory(4096 bytes)".
    [[nodiscard]] std::string descriptionForReport() const override;

protected:
    [[nodiscard]] std::vector<std::uint8_t> readChecked(std::uint64_t offset,
                                                        std::uint64_t count) const override;

private:
    std::vector<std::uint8_t> data_;
    std::int64_t badReads_ = 0;
};
