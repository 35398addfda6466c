#include "ByteKit/MemorySource.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <vector>

namespace {

std::vector<std::uint8_t> pattern(std::size_t length)
{
    std::vector<std::uint8_t> bytes(length);
    for (std::size_t i = 0; i < length; ++i)
        bytes[i] = static_cast<std::uint8_t>(i * 7 + 3);
    return bytes;
}

std::vector<std::uint8_t> slice(const std::vector<std::uint8_t>& bytes, std::size_t from, std::size_t to)
{
    return {bytes.begin() + static_cast<std::ptrdiff_t>(from), bytes.begin() + static_cast<std::ptrdiff_t>(to)};
}

} // namespace

TEST(MemorySourceTest, DescribesItself)
{
    const MemorySource source(pattern(4096));
    EXPECT_EQ(source.size(), 4096u);
    EXPECT_EQ(source.badReads(), 0);
    EXPECT_EQ(source.descriptionForReport(), "memory(4096 bytes)");
    EXPECT_EQ(MemorySource({}).descriptionForReport(), "memory(0 bytes)");
}

TEST(MemorySourceTest, ReadsAreCutAtTheEnd)
{
    const std::vector<std::uint8_t> bytes = pattern(1000);
    const MemorySource source(bytes);
    EXPECT_EQ(source.read(0, 1000), bytes);
    EXPECT_EQ(source.read(10, 20), slice(bytes, 10, 30));
    EXPECT_EQ(source.read(990, 50), slice(bytes, 990, 1000)) << "straddling read";
    EXPECT_EQ(source.read(999, 1), slice(bytes, 999, 1000));
    EXPECT_TRUE(source.read(1000, 10).empty()) << "read at exactly size";
    EXPECT_TRUE(source.read(5000, 10).empty());
    EXPECT_TRUE(source.read(10, 0).empty());
    EXPECT_TRUE(source.read(std::numeric_limits<std::uint64_t>::max() - 10, 10).empty());
    EXPECT_EQ(source.read(0, std::numeric_limits<std::int64_t>::max()), bytes);
    EXPECT_TRUE(MemorySource({}).read(0, 1).empty());
}

TEST(MemorySourceDeathTest, BadArgumentsStopTheProgram)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const MemorySource source(pattern(16));
    EXPECT_DEATH((void)source.read(0, -1), "negative count");
    EXPECT_DEATH((void)source.read(std::numeric_limits<std::uint64_t>::max(), 1), "overflows");
    EXPECT_DEATH((void)source.read(std::numeric_limits<std::uint64_t>::max() - 5,
                                   std::numeric_limits<std::int64_t>::max()),
                 "overflows");
}
