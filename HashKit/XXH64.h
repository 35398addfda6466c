#pragma once

#include "HashKit/StreamingHasher.h"

#include <cstdint>

/// The 64-bit xxHash (XXH64) of a stream, computed incrementally; its digest equals the
/// one-shot XXH64 of everything fed, however the stream was split. Whole 32-byte stripes
/// are consumed straight from the caller's buffer, so feeding large chunks copies almost
/// nothing. A value type: copying a hasher forks the stream.
///
/// The library state lives inline in this object. xxhash.h is deliberately not included
/// here: it declares a global function named XXH64, which would hide this class in every
/// file that includes both.
class XXH64 final : public StreamingHasher {
public:
    /// A fresh hasher for `seed` (the file copier uses 0).
    explicit XXH64(std::uint64_t seed = 0);

    using StreamingHasher::update;
    void update(const void* data, std::size_t length) override;

    /// The numeric digest of everything fed so far; the state is unchanged.
    [[nodiscard]] std::uint64_t value() const;

    /// value() as exactly 16 lower-case hexadecimal digits, zero-padded on the left.
    [[nodiscard]] std::string finalize() const override;

    [[nodiscard]] std::uint64_t seed() const { return seed_; }

private:
    std::uint64_t seed_;
    // Holds an XXH64_state_t; its size and alignment are checked against the library's
    // header where the state is used.
    alignas(8) std::byte state_[88];
};
