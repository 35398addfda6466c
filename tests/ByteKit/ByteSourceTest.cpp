#include "ByteKit/DeviceError.h"
#include "ByteKit/FileSource.h"
#include "ByteKit/MemorySource.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <limits>
#include <random>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace fs = std::filesystem;
using Bytes = std::vector<std::uint8_t>;

namespace {

// A private folder holding one file of `length` pseudo-random bytes.
class FileSourceTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        std::string name = (fs::temp_directory_path() / "filesource-XXXXXX").string();
        ASSERT_NE(::mkdtemp(name.data()), nullptr);
        directory_ = name;
    }
    void TearDown() override { fs::remove_all(directory_); }

    std::string writeFile(std::size_t length)
    {
        contents_.resize(length);
        std::mt19937 random(static_cast<unsigned>(length));
        for (std::uint8_t& byte : contents_)
            byte = static_cast<std::uint8_t>(random());
        const std::string path = (directory_ / "data.bin").string();
        std::ofstream(path, std::ios::binary)
            .write(reinterpret_cast<const char*>(contents_.data()), static_cast<std::streamsize>(length));
        return path;
    }
    Bytes expected(std::size_t from, std::size_t to) const
    {
        return {contents_.begin() + std::ptrdiff_t(from), contents_.begin() + std::ptrdiff_t(to)};
    }

    fs::path directory_;
    Bytes contents_;
};

std::size_t openDescriptorCount()
{
    return std::size_t(std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()));
}

} // namespace

TEST_F(FileSourceTest, ReadsOfEitherSourceAreCutAtTheEnd)
{
    const std::string path = writeFile(1000);
    const FileSource file(path);
    const MemorySource memory(contents_);
    EXPECT_EQ(file.descriptionForReport(), path);
    EXPECT_EQ(memory.descriptionForReport(), "memory(1000 bytes)");
    constexpr std::uint64_t huge = std::numeric_limits<std::uint64_t>::max() - 10;
    struct Case {
        std::uint64_t offset;
        std::int64_t count;
        std::size_t from, to;
    };
    const Case cases[] = {{0, 1000, 0, 1000}, {10, 20, 10, 30},  {990, 50, 990, 1000}, {999, 1, 999, 1000},
                          {1000, 10, 0, 0},   {5000, 10, 0, 0},  {10, 0, 0, 0},        {huge, 10, 0, 0},
                          {0, std::numeric_limits<std::int64_t>::max(), 0, 1000}};
    for (const ByteSource* source : {static_cast<const ByteSource*>(&file), static_cast<const ByteSource*>(&memory)}) {
        EXPECT_EQ(source->size(), 1000u);
        EXPECT_EQ(source->badReads(), 0);
        for (const Case& c : cases)
            EXPECT_EQ(source->read(c.offset, c.count), expected(c.from, c.to))
                << source->descriptionForReport() << " at " << c.offset << " for " << c.count;
    }
    EXPECT_TRUE(MemorySource({}).read(0, 1).empty());
}

TEST_F(FileSourceTest, SizeIsFixedAtOpening)
{
    const std::string path = writeFile(1000);
    const FileSource source(path);
    const int writer = ::open(path.c_str(), O_WRONLY);
    ASSERT_GE(writer, 0);
    ASSERT_EQ(::ftruncate(writer, 600), 0);
    EXPECT_EQ(source.size(), 1000u);
    EXPECT_EQ(source.read(500, 300), expected(500, 600)) << "a shrunk file gives a short result";
    EXPECT_TRUE(source.read(700, 100).empty());

    // Grown again, the file is still never read beyond the size it opened with.
    ASSERT_EQ(::ftruncate(writer, 5000), 0);
    ::close(writer);
    const Bytes all = source.read(0, 5000);
    ASSERT_EQ(all.size(), 1000u);
    EXPECT_EQ(Bytes(all.begin(), all.begin() + 600), expected(0, 600));
    EXPECT_EQ(std::count(all.begin() + 600, all.end(), 0), 400) << "the regrown part reads as zeros";
}

TEST_F(FileSourceTest, FailuresNameThePathTheOffsetAndTheReason)
{
    const std::string missing = (directory_ / "missing.bin").string();
    try {
        FileSource source(missing);
        ADD_FAILURE() << "opening a missing file must throw";
    } catch (const DeviceError& error) {
        EXPECT_EQ(error.kind(), DeviceError::Kind::cannotOpen);
        EXPECT_EQ(error.path(), missing);
        EXPECT_EQ(error.errorNumber(), ENOENT);
        EXPECT_STREQ(error.what(), ("Could not open " + missing + ": No such file or directory").c_str());
    }
    // A directory opens read-only and has a size, but every read of it fails.
    const FileSource folder(directory_.string());
    if (folder.size() >= 2) {
        const std::uint64_t offset = folder.size() - 1;
        try {
            (void)folder.read(offset, 100);
            ADD_FAILURE() << "reading a directory must throw";
        } catch (const DeviceError& error) {
            EXPECT_EQ(error.kind(), DeviceError::Kind::readFailed);
            EXPECT_EQ(error.offset(), offset);
            EXPECT_EQ(error.description(), "Read failed at offset " + std::to_string(offset) + ": Is a directory");
        }
    }
    const std::pair<DeviceError, std::string> messages[] = {
        {DeviceError::authorizationDenied("/dev/sdb"), "Authorization to read /dev/sdb was denied."},
        {DeviceError::notAFileOrDevice("/media/card/DCIM"), "/media/card/DCIM is not a readable file or device."},
        {DeviceError::readFailed(18446744073709551615ULL, EIO),
         "Read failed at offset 18446744073709551615: Input/output error"},
        {DeviceError::cannotOpen("/a b", EACCES), "Could not open /a b: Permission denied"},
        {DeviceError::cannotOpen("/x", 99999), "Could not open /x: Unknown error 99999"},
    };
    for (const auto& [error, message] : messages)
        EXPECT_EQ(error.description(), message);
}

TEST_F(FileSourceTest, DescriptorsAreClosed)
{
    const std::string path = writeFile(10);
    const std::size_t before = openDescriptorCount();
    for (int i = 0; i < 20; ++i) {
        const FileSource source(path);
        EXPECT_EQ(openDescriptorCount(), before + 1);
        EXPECT_THROW(FileSource((directory_ / "missing").string()), DeviceError);
    }
    EXPECT_EQ(openDescriptorCount(), before);
}

TEST_F(FileSourceTest, ConcurrentReadsGetTheirOwnBytes)
{
    const std::size_t length = 1 << 20;
    const FileSource source(writeFile(length));
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < 6; ++t)
        threads.emplace_back([&, t] {
            std::mt19937 random(t);
            for (int i = 0; i < 300; ++i) {
                const std::size_t offset = std::uniform_int_distribution<std::size_t>(0, length)(random);
                const std::size_t count = std::uniform_int_distribution<std::size_t>(0, 70000)(random);
                if (source.read(offset, std::int64_t(count)) != expected(offset, std::min(length, offset + count)))
                    ++wrong;
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(wrong.load(), 0);
}

TEST(ByteSourceDeathTest, BadArgumentsStopTheProgram)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const MemorySource source(Bytes(16));
    constexpr std::uint64_t last = std::numeric_limits<std::uint64_t>::max();
    EXPECT_DEATH((void)source.read(0, -1), "negative count");
    EXPECT_DEATH((void)source.read(last, 1), "overflows");
    EXPECT_DEATH((void)source.read(last - 5, std::numeric_limits<std::int64_t>::max()), "overflows");
}
