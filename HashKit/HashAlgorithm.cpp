#include "HashKit/HashAlgorithm.h"

#include "HashKit/CryptoHasher.h"
#include "HashKit/XXH64.h"

#include <stdexcept>

std::string_view displayName(HashAlgorithm algorithm)
{
    switch (algorithm) {
    case HashAlgorithm::xxh64:
        return "XXH64";
    case HashAlgorithm::md5:
        return "MD5";
    case HashAlgorithm::sha256:
        return "SHA-256";
    }
    throw std::invalid_argument("displayName: unknown HashAlgorithm");
}

std::string_view mhlName(HashAlgorithm algorithm)
{
    switch (algorithm) {
    case HashAlgorithm::xxh64:
        return "xxh64";
    case HashAlgorithm::md5:
        return "md5";
    case HashAlgorithm::sha256:
        return "sha256";
    }
    throw std::invalid_argument("mhlName: unknown HashAlgorithm");
}

std::optional<HashAlgorithm> hashAlgorithmFromRaw(std::string_view raw)
{
    for (const HashAlgorithm algorithm : allHashAlgorithms) {
        if (mhlName(algorithm) == raw)
            return algorithm;
    }
    return std::nullopt;
}

std::unique_ptr<StreamingHasher> makeHasher(HashAlgorithm algorithm)
{
    switch (algorithm) {
    case HashAlgorithm::xxh64:
        return std::make_unique<XXH64>(0);
    case HashAlgorithm::md5:
        return std::make_unique<CryptoHasher>(CryptoHasher::Function::md5);
    case HashAlgorithm::sha256:
        return std::make_unique<CryptoHasher>(CryptoHasher::Function::sha256);
    }
    throw std::invalid_argument("makeHasher: unknown HashAlgorithm");
}

std::string hash(HashAlgorithm algorithm, std::span<const std::byte> bytes)
{
    const std::unique_ptr<StreamingHasher> hasher = makeHasher(algorithm);
    hasher->update(bytes);
    return hasher->finalize();
}
