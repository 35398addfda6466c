#pragma once

#include "HashKit/StreamingHasher.h"

#include <array>
#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

/// The content hashes on offer. The raw form (for files and settings) is mhlName().
enum class HashAlgorithm { xxh64, md5, sha256 };

/// Every algorithm, in declaration order.
inline constexpr std::array<HashAlgorithm, 3> allHashAlgorithms{
    HashAlgorithm::xxh64, HashAlgorithm::md5, HashAlgorithm::sha256};

/// Name for people: "XXH64", "MD5", "SHA-256".
[[nodiscard]] std::string_view displayName(HashAlgorithm algorithm);

/// Raw name for files and settings: "xxh64", "md5", "sha256".
[[nodiscard]] std::string_view mhlName(HashAlgorithm algorithm);

/// The algorithm whose mhlName() is exactly `raw` (case-sensitive); none otherwise.
[[nodiscard]] std::optional<HashAlgorithm> hashAlgorithmFromRaw(std::string_view raw);

/// A fresh hasher: XXH64 with seed 0, MD5 or SHA-256.
/// Throws std::runtime_error when the crypto library cannot provide the digest.
[[nodiscard]] std::unique_ptr<StreamingHasher> makeHasher(HashAlgorithm algorithm);

/// Lower-case hexadecimal digest of `bytes` (an empty span gives the digest of no bytes).
/// Throws std::runtime_error when the crypto library cannot provide the digest.
[[nodiscard]] std::string hash(HashAlgorithm algorithm, std::span<const std::byte> bytes);
