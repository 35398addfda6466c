#pragma once

#include <cstddef>
#include <span>
#include <string>

/// Incremental hashing of a byte stream fed in pieces. The digest of a stream does not
/// depend on how it was split into update() calls. A hasher is a plain value without
/// locking: one hasher serves one stream on one thread.
class StreamingHasher {
public:
    virtual ~StreamingHasher() = default;

    /// Feeds `length` bytes at `data` (not kept after the call). A null `data` or a zero
    /// `length` feeds nothing.
    virtual void update(const void* data, std::size_t length) = 0;

    /// Feeds `bytes` (not kept after the call).
    void update(std::span<const std::byte> bytes) { update(bytes.data(), bytes.size()); }

    /// Digest of everything fed so far, as lower-case hexadecimal text. Does not change
    /// the state: feeding may continue afterwards.
    [[nodiscard]] virtual std::string finalize() const = 0;

protected:
    // Copying is for the concrete value types; through the interface it would slice.
    StreamingHasher() = default;
    StreamingHasher(const StreamingHasher&) = default;
    StreamingHasher& operator=(const StreamingHasher&) = default;
};
