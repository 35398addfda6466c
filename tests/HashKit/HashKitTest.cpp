#include "HashKit/CryptoHasher.h"
#include "HashKit/HashAlgorithm.h"
#include "HashKit/XXH64.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr std::uint64_t prime32 = 2654435761U;

// The self-test buffer of the reference xxHash tool, whose published digests cover short
// inputs, the 4- and 8-byte tail paths and several whole stripes.
std::vector<std::byte> referenceBuffer(std::size_t length)
{
    std::vector<std::byte> buffer(length);
    std::uint64_t generator = prime32;
    for (std::byte& byte : buffer) {
        byte = static_cast<std::byte>(generator >> 56);
        generator *= 11400714785074694797ULL;
    }
    return buffer;
}

std::span<const std::byte> bytesOf(std::string_view text)
{
    return std::as_bytes(std::span(text.data(), text.size()));
}

// However a stream is split into updates (empty and null ones included), digested midway
// or forked by copying, each hasher ends at the digest of the bytes it was fed.
template <typename Hasher>
void expectStreams(const Hasher& fresh, HashAlgorithm algorithm)
{
    const std::vector<std::byte> bytes = referenceBuffer(222);
    const auto all = std::span<const std::byte>(bytes);
    const std::string whole = hash(algorithm, all);
    std::mt19937 random(20240611);
    for (int trial = 0; trial < 100; ++trial) {
        Hasher pieces = fresh;
        pieces.update(nullptr, 5);
        for (std::size_t at = 0; at < all.size();) {
            const std::size_t piece = std::min(std::uniform_int_distribution<std::size_t>(0, 70)(random), all.size() - at);
            pieces.update(all.subspan(at, piece));
            at += piece;
        }
        ASSERT_EQ(pieces.finalize(), whole) << "trial " << trial;
    }
    for (const std::size_t cut : {0, 5, 31, 32, 33, 45, 64, 100, 221}) {
        Hasher midway = fresh;
        midway.update(all.first(cut));
        EXPECT_EQ(midway.finalize(), hash(algorithm, all.first(cut))) << "cut at " << cut;
        const Hasher copy = midway;
        midway.update(all.subspan(cut));
        EXPECT_EQ(midway.finalize(), whole) << "finalize must not consume the state; cut at " << cut;
        EXPECT_EQ(copy.finalize(), hash(algorithm, all.first(cut))) << "a copy is a stream of its own";
    }
}

} // namespace

TEST(XXH64Test, MatchesPublishedDigests)
{
    // {length of the reference buffer, seed, digest}
    const std::tuple<std::size_t, std::uint64_t, std::uint64_t> cases[] = {
        {0, 0, 0xef46db3751d8e999ULL},   {1, 0, 0xe934a84adb052768ULL},
        {1, prime32, 0x5014607643a9b4c3ULL}, {4, 0, 0x9136a0dca57457eeULL},
        {14, 0, 0x8282dcc4994e35c8ULL},  {14, prime32, 0xc3bd6bf63deb6df0ULL},
        {222, 0, 0xb641ae8cb691c174ULL}, {222, prime32, 0x20cb8ab7ae10c14aULL},
    };
    for (const auto& [length, seed, digest] : cases) {
        XXH64 hasher(seed);
        hasher.update(referenceBuffer(length));
        EXPECT_EQ(hasher.value(), digest) << "length " << length << " seed " << seed;
    }
}

TEST(HashTest, TextDigestsMatchPublishedOnes)
{
    const std::tuple<HashAlgorithm, std::string_view, std::string> cases[] = {
        {HashAlgorithm::xxh64, "abc", "44bc2cf5ad770999"},
        {HashAlgorithm::xxh64, "n", "017397ff2676b47e"}, // the text keeps leading zeros
        {HashAlgorithm::md5, "", "d41d8cd98f00b204e9800998ecf8427e"},
        {HashAlgorithm::md5, "abc", "900150983cd24fb0d6963f7d28e17f72"},
        {HashAlgorithm::md5, "message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
        {HashAlgorithm::sha256, "", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
        {HashAlgorithm::sha256, "abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
        {HashAlgorithm::sha256, "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
         "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"},
    };
    for (const auto& [algorithm, text, digest] : cases)
        EXPECT_EQ(hash(algorithm, bytesOf(text)), digest) << displayName(algorithm) << " of \"" << text << '"';
}

TEST(StreamingHasherTest, SplitsMidwayDigestsAndCopiesKeepTheStream)
{
    expectStreams(XXH64(), HashAlgorithm::xxh64);
    expectStreams(CryptoHasher(CryptoHasher::Function::md5), HashAlgorithm::md5);
    expectStreams(CryptoHasher(CryptoHasher::Function::sha256), HashAlgorithm::sha256);
}
