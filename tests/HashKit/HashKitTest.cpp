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

std::vector<std::byte> countingBytes(std::size_t length)
{
    std::vector<std::byte> bytes(length);
    for (std::size_t i = 0; i < length; ++i)
        bytes[i] = static_cast<std::byte>(i);
    return bytes;
}

std::span<const std::byte> bytesOf(std::string_view text)
{
    return std::as_bytes(std::span(text.data(), text.size()));
}

// Feeds `bytes` to `hasher` in random pieces, some of them empty.
void feedInRandomPieces(StreamingHasher& hasher, std::span<const std::byte> bytes, std::mt19937& random)
{
    std::size_t at = 0;
    while (at < bytes.size()) {
        const std::size_t piece =
            std::min<std::size_t>(std::uniform_int_distribution<std::size_t>(0, 70)(random), bytes.size() - at);
        hasher.update(bytes.subspan(at, piece));
        at += piece;
    }
}

bool isLowerHex(const std::string& text, std::size_t digits)
{
    return text.size() == digits
        && std::all_of(text.begin(), text.end(), [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); });
}

} // namespace

TEST(XXH64Test, MatchesPublishedDigests)
{
    struct Case {
        std::size_t length;
        std::uint64_t seed;
        std::uint64_t digest;
    };
    const Case cases[] = {
        {0, 0, 0xef46db3751d8e999ULL},   {1, 0, 0xe934a84adb052768ULL},
        {1, prime32, 0x5014607643a9b4c3ULL}, {4, 0, 0x9136a0dca57457eeULL},
        {14, 0, 0x8282dcc4994e35c8ULL},  {14, prime32, 0xc3bd6bf63deb6df0ULL},
        {222, 0, 0xb641ae8cb691c174ULL}, {222, prime32, 0x20cb8ab7ae10c14aULL},
    };
    for (const Case& c : cases) {
        XXH64 hasher(c.seed);
        hasher.update(referenceBuffer(c.length));
        EXPECT_EQ(hasher.value(), c.digest) << "length " << c.length << " seed " << c.seed;
        EXPECT_EQ(hasher.seed(), c.seed);
    }
    EXPECT_EQ(XXH64().finalize(), "ef46db3751d8e999");
    EXPECT_EQ(hash(HashAlgorithm::xxh64, bytesOf("abc")), "44bc2cf5ad770999");
    EXPECT_EQ(hash(HashAlgorithm::xxh64, countingBytes(100)), "6ac1e58032166597");
}

TEST(XXH64Test, AnySplitGivesTheSameDigest)
{
    const std::vector<std::byte> bytes = countingBytes(100);
    const std::string expected = "6ac1e58032166597";

    XXH64 threePieces;
    threePieces.update(std::span(bytes).first(1));
    threePieces.update(std::span(bytes).subspan(1, 31));
    threePieces.update(std::span(bytes).subspan(32));
    EXPECT_EQ(threePieces.finalize(), expected);

    XXH64 byteByByte;
    for (const std::byte& byte : bytes)
        byteByByte.update(&byte, 1);
    EXPECT_EQ(byteByByte.finalize(), expected);

    std::mt19937 random(20240611);
    const std::vector<std::byte> reference = referenceBuffer(222);
    for (int trial = 0; trial < 200; ++trial) {
        XXH64 hundred;
        feedInRandomPieces(hundred, bytes, random);
        ASSERT_EQ(hundred.finalize(), expected) << "trial " << trial;
        XXH64 seeded(prime32);
        feedInRandomPieces(seeded, reference, random);
        ASSERT_EQ(seeded.value(), 0x20cb8ab7ae10c14aULL) << "trial " << trial;
    }
}

TEST(XXH64Test, EmptyOrNullUpdatesFeedNothing)
{
    XXH64 hasher;
    const std::byte byte{0x61};
    hasher.update(nullptr, 5);
    hasher.update(&byte, 0);
    hasher.update(std::span<const std::byte>());
    EXPECT_EQ(hasher.finalize(), "ef46db3751d8e999");
    hasher.update(bytesOf("abc"));
    EXPECT_EQ(hasher.finalize(), "44bc2cf5ad770999");
}

TEST(XXH64Test, DigestMidwayLeavesTheStreamIntact)
{
    const std::vector<std::byte> bytes = countingBytes(100);
    for (const std::size_t cut : {0, 5, 31, 32, 33, 50, 64, 99}) {
        XXH64 hasher;
        hasher.update(std::span(bytes).first(cut));
        const std::uint64_t midway = hasher.value();
        EXPECT_EQ(hasher.finalize(), hash(HashAlgorithm::xxh64, std::span(bytes).first(cut)));
        EXPECT_EQ(hasher.value(), midway);
        hasher.update(std::span(bytes).subspan(cut));
        EXPECT_EQ(hasher.finalize(), "6ac1e58032166597") << "cut at " << cut;
    }
}

TEST(XXH64Test, SeedChangesTheDigestAndPaddingKeepsSixteenDigits)
{
    const std::vector<std::byte> bytes = countingBytes(100);
    XXH64 seeded(1);
    seeded.update(bytes);
    EXPECT_EQ(seeded.finalize(), "3d19a3a2098a7023");
    EXPECT_NE(seeded.finalize(), hash(HashAlgorithm::xxh64, bytes));

    // Some digests have leading zero nibbles; look for one to check the padding.
    bool sawLeadingZero = false;
    for (std::uint64_t seed = 0; seed < 400 && !sawLeadingZero; ++seed) {
        XXH64 hasher(seed);
        hasher.update(bytes);
        const std::string text = hasher.finalize();
        ASSERT_TRUE(isLowerHex(text, 16)) << text;
        EXPECT_EQ(std::stoull(text, nullptr, 16), hasher.value());
        sawLeadingZero = text.front() == '0';
    }
    EXPECT_TRUE(sawLeadingZero);
}

TEST(XXH64Test, CopyingForksTheStream)
{
    const std::vector<std::byte> bytes = referenceBuffer(222);
    const auto all = std::span(bytes);
    XXH64 original(prime32);
    original.update(all.first(45)); // leaves bytes pending inside the state
    XXH64 copy = original;
    XXH64 assigned;
    assigned = original;

    original.update(all.subspan(45));
    copy.update(all.subspan(45, 100));
    EXPECT_EQ(original.value(), 0x20cb8ab7ae10c14aULL);
    XXH64 direct(prime32);
    direct.update(all.first(145));
    EXPECT_EQ(copy.value(), direct.value());
    assigned.update(all.subspan(45));
    EXPECT_EQ(assigned.seed(), prime32);
    EXPECT_EQ(assigned.value(), 0x20cb8ab7ae10c14aULL);
}

TEST(CryptoHasherTest, MatchesPublishedDigests)
{
    EXPECT_EQ(hash(HashAlgorithm::md5, {}), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(hash(HashAlgorithm::md5, bytesOf("abc")), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(hash(HashAlgorithm::md5, bytesOf("message digest")), "f96b697d7cb7938d525a2f31aaf161d0");
    EXPECT_EQ(hash(HashAlgorithm::sha256, {}),
              "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(hash(HashAlgorithm::sha256, bytesOf("abc")),
              "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(hash(HashAlgorithm::sha256, bytesOf("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq")),
              "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
}

TEST(CryptoHasherTest, SplitsMidwayDigestsAndCopiesKeepTheStream)
{
    const std::vector<std::byte> bytes = referenceBuffer(222);
    const auto all = std::span(bytes);
    std::mt19937 random(7);
    for (const auto function : {CryptoHasher::Function::md5, CryptoHasher::Function::sha256}) {
        const HashAlgorithm algorithm =
            function == CryptoHasher::Function::md5 ? HashAlgorithm::md5 : HashAlgorithm::sha256;
        const std::string whole = hash(algorithm, all);

        CryptoHasher pieces(function);
        feedInRandomPieces(pieces, all, random);
        EXPECT_EQ(pieces.finalize(), whole);
        EXPECT_EQ(pieces.finalize(), whole) << "finalize must not consume the state";

        CryptoHasher forked(function);
        forked.update(all.first(100));
        EXPECT_EQ(forked.finalize(), hash(algorithm, all.first(100)));
        CryptoHasher copy = forked;
        CryptoHasher assigned(CryptoHasher::Function::md5);
        assigned = forked;
        forked.update(all.subspan(100));
        copy.update(all.subspan(100, 20));
        assigned.update(all.subspan(100));
        EXPECT_EQ(forked.finalize(), whole);
        EXPECT_EQ(copy.finalize(), hash(algorithm, all.first(120)));
        EXPECT_EQ(assigned.function(), function);
        EXPECT_EQ(assigned.finalize(), whole);

        CryptoHasher moved = std::move(copy);
        EXPECT_EQ(moved.finalize(), hash(algorithm, all.first(120)));
    }
}

TEST(HashAlgorithmTest, NamesAndRawValues)
{
    ASSERT_EQ(allHashAlgorithms.size(), 3u);
    EXPECT_EQ(allHashAlgorithms[0], HashAlgorithm::xxh64);
    EXPECT_EQ(allHashAlgorithms[1], HashAlgorithm::md5);
    EXPECT_EQ(allHashAlgorithms[2], HashAlgorithm::sha256);
    EXPECT_EQ(displayName(HashAlgorithm::xxh64), "XXH64");
    EXPECT_EQ(displayName(HashAlgorithm::md5), "MD5");
    EXPECT_EQ(displayName(HashAlgorithm::sha256), "SHA-256");
    EXPECT_EQ(mhlName(HashAlgorithm::xxh64), "xxh64");
    EXPECT_EQ(mhlName(HashAlgorithm::md5), "md5");
    EXPECT_EQ(mhlName(HashAlgorithm::sha256), "sha256");
    for (const HashAlgorithm algorithm : allHashAlgorithms)
        EXPECT_EQ(hashAlgorithmFromRaw(mhlName(algorithm)), algorithm);
    for (const std::string_view raw : {"SHA256", "XXH64", "MD5", "SHA-256", "sha-256", "Md5", " md5", "md5 ", ""})
        EXPECT_FALSE(hashAlgorithmFromRaw(raw).has_value()) << '"' << raw << '"';
}

TEST(HashAlgorithmTest, HashersAreFreshAndDigestsLowerCase)
{
    const std::size_t digits[] = {16, 32, 64};
    const std::vector<std::byte> bytes = referenceBuffer(222);
    for (std::size_t i = 0; i < allHashAlgorithms.size(); ++i) {
        const HashAlgorithm algorithm = allHashAlgorithms[i];
        const std::unique_ptr<StreamingHasher> hasher = makeHasher(algorithm);
        EXPECT_EQ(hasher->finalize(), hash(algorithm, {})) << displayName(algorithm);
        hasher->update(bytes);
        EXPECT_EQ(hasher->finalize(), hash(algorithm, bytes)) << displayName(algorithm);
        for (std::size_t length : {0, 1, 3, 57, 222})
            EXPECT_TRUE(isLowerHex(hash(algorithm, std::span(bytes).first(length)), digits[i]));
    }
    const auto xxh = makeHasher(HashAlgorithm::xxh64);
    ASSERT_NE(dynamic_cast<XXH64*>(xxh.get()), nullptr);
    EXPECT_EQ(dynamic_cast<XXH64*>(xxh.get())->seed(), 0u);
}
