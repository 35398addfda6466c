#include "HashKit/CryptoHasher.h"
#include "HashKit/XXH64.h"

#include <benchmark/benchmark.h>

#include <cstddef>
#include <random>
#include <span>
#include <vector>

namespace {

constexpr std::size_t bufferSize = std::size_t{64} << 20;
constexpr std::size_t chunkSize = std::size_t{1} << 20;

// 64 MiB of pseudo-random bytes, built once so the benchmarks measure hashing alone.
const std::vector<std::byte>& buffer()
{
    static const std::vector<std::byte> bytes = [] {
        std::vector<std::byte> filled(bufferSize);
        std::mt19937_64 random(42);
        for (std::size_t i = 0; i < filled.size(); i += 8) {
            const std::uint64_t word = random();
            for (std::size_t j = 0; j < 8; ++j)
                filled[i + j] = static_cast<std::byte>(word >> (8 * j));
        }
        return filled;
    }();
    return bytes;
}

// Hashes the whole buffer in chunks of `state.range(0)` bytes, the last chunk shorter.
template <typename MakeHasher>
void hashInChunks(benchmark::State& state, MakeHasher makeHasher)
{
    const std::span<const std::byte> bytes = buffer();
    const auto chunk = static_cast<std::size_t>(state.range(0));
    for (auto _ : state) {
        auto hasher = makeHasher();
        for (std::size_t at = 0; at < bytes.size(); at += chunk)
            hasher.update(bytes.subspan(at, std::min(chunk, bytes.size() - at)));
        benchmark::DoNotOptimize(hasher.finalize());
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes.size()));
}

void BM_XXH64(benchmark::State& state)
{
    hashInChunks(state, [] { return XXH64(0); });
}

void BM_MD5(benchmark::State& state)
{
    hashInChunks(state, [] { return CryptoHasher(CryptoHasher::Function::md5); });
}

void BM_SHA256(benchmark::State& state)
{
    hashInChunks(state, [] { return CryptoHasher(CryptoHasher::Function::sha256); });
}

} // namespace

BENCHMARK(BM_XXH64)->Arg(chunkSize)->Arg(chunkSize + 13)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MD5)->Arg(chunkSize)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SHA256)->Arg(chunkSize)->Unit(benchmark::kMillisecond);
