#pragma once

#include "HashKit/StreamingHasher.h"

#include <memory>

struct evp_md_ctx_st;

/// MD5 or SHA-256 of a stream, through the system's crypto library. A value type:
/// copying a hasher forks the stream. A moved-from hasher may only be assigned to or
/// destroyed.
class CryptoHasher final : public StreamingHasher {
public:
    enum class Function { md5, sha256 };

    /// A fresh hasher for `function`.
    /// Throws std::runtime_error when the crypto library cannot provide the function
    /// (for example MD5 under a FIPS-only configuration).
    explicit CryptoHasher(Function function);
    CryptoHasher(const CryptoHasher& other);
    CryptoHasher& operator=(const CryptoHasher& other);
    CryptoHasher(CryptoHasher&& other) noexcept = default;
    CryptoHasher& operator=(CryptoHasher&& other) noexcept = default;
    ~CryptoHasher() override = default;

    using StreamingHasher::update;
    /// Throws std::runtime_error if the crypto library reports a failure.
    void update(const void* data, std::size_t length) override;

    /// Each digest byte as two lower-case hexadecimal digits (32 digits for MD5, 64 for
    /// SHA-256). Finishes a copy of the state, so feeding may continue afterwards.
    /// Throws std::runtime_error if the crypto library reports a failure.
    [[nodiscard]] std::string finalize() const override;

    [[nodiscard]] Function function() const { return function_; }

private:
    struct ContextDeleter {
        void operator()(evp_md_ctx_st* context) const;
    };
    using Context = std::unique_ptr<evp_md_ctx_st, ContextDeleter>;

    [[nodiscard]] static Context copyOf(const Context& context);

    Function function_;
    Context context_;
};
