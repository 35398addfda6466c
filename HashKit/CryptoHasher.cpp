#include "HashKit/CryptoHasher.h"

#include <openssl/evp.h>

#include <new>
#include <stdexcept>

namespace {

const EVP_MD* digestFor(CryptoHasher::Function function)
{
    switch (function) {
    case CryptoHasher::Function::md5:
        return EVP_md5();
    case CryptoHasher::Function::sha256:
        return EVP_sha256();
    }
    throw std::invalid_argument("CryptoHasher: unknown hash function");
}

EVP_MD_CTX* newContext()
{
    EVP_MD_CTX* context = EVP_MD_CTX_new();
    if (context == nullptr)
        throw std::bad_alloc();
    return context;
}

} // namespace

void CryptoHasher::ContextDeleter::operator()(evp_md_ctx_st* context) const
{
    EVP_MD_CTX_free(context);
}

CryptoHasher::Context CryptoHasher::copyOf(const Context& context)
{
    Context copy(newContext());
    if (EVP_MD_CTX_copy_ex(copy.get(), context.get()) != 1)
        throw std::runtime_error("CryptoHasher: could not copy the digest state");
    return copy;
}

CryptoHasher::CryptoHasher(Function function)
    : function_(function)
    , context_(newContext())
{
    if (EVP_DigestInit_ex(context_.get(), digestFor(function), nullptr) != 1)
        throw std::runtime_error("CryptoHasher: the crypto library cannot provide this digest");
}

CryptoHasher::CryptoHasher(const CryptoHasher& other)
    : StreamingHasher(other)
    , function_(other.function_)
    , context_(copyOf(other.context_))
{
}

CryptoHasher& CryptoHasher::operator=(const CryptoHasher& other)
{
    if (this != &other) {
        context_ = copyOf(other.context_);
        function_ = other.function_;
    }
    return *this;
}

void CryptoHasher::update(const void* data, std::size_t length)
{
    if (data == nullptr || length == 0)
        return;
    if (EVP_DigestUpdate(context_.get(), data, length) != 1)
        throw std::runtime_error("CryptoHasher: digest update failed");
}

std::string CryptoHasher::finalize() const
{
    // Finishing a copy keeps this hasher usable, like XXH64::value().
    const Context finished = copyOf(context_);
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (EVP_DigestFinal_ex(finished.get(), digest, &length) != 1)
        throw std::runtime_error("CryptoHasher: digest finalization failed");
    static constexpr char hexDigits[] = "0123456789abcdef";
    std::string text(2 * std::size_t{length}, '\0');
    for (unsigned int i = 0; i < length; ++i) {
        text[2 * i] = hexDigits[digest[i] >> 4];
        text[2 * i + 1] = hexDigits[digest[i] & 0x0f];
    }
    return text;
}
