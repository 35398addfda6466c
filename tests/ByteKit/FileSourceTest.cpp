#include "ByteKit/DeviceError.h"
#include "ByteKit/FileSource.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

class FileSourceTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        std::string name = (fs::temp_directory_path() / "filesource-XXXXXX").string();
        ASSERT_NE(::mkdtemp(name.data()), nullptr);
        directory_ = name;
    }

    void TearDown() override { fs::remove_all(directory_); }

    // Writes `length` pseudo-random bytes to a new file and returns its path.
    std::string writeFile(const std::string& name, std::size_t length)
    {
        contents_.resize(length);
        std::mt19937 random(static_cast<unsigned>(length));
        for (std::uint8_t& byte : contents_)
            byte = static_cast<std::uint8_t>(random());
        const std::string path = (directory_ / name).string();
        std::ofstream(path, std::ios::binary)
            .write(reinterpret_cast<const char*>(contents_.data()), static_cast<std::streamsize>(length));
        return path;
    }

    std::vector<std::uint8_t> expected(std::size_t from, std::size_t to) const
    {
        return {contents_.begin() + static_cast<std::ptrdiff_t>(from),
                contents_.begin() + static_cast<std::ptrdiff_t>(to)};
    }

    fs::path directory_;
    std::vector<std::uint8_t> contents_;
};

std::size_t openDescriptorCount()
{
    return static_cast<std::size_t>(std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()));
}

} // namespace

TEST_F(FileSourceTest, ReadsAreCutAtTheEnd)
{
    const std::string path = writeFile("plain.bin", 10000);
    const FileSource source(path);
    EXPECT_EQ(source.size(), 10000u);
    EXPECT_EQ(source.badReads(), 0);
    EXPECT_EQ(source.descriptionForReport(), path);

    EXPECT_EQ(source.read(0, 10000), contents_);
    EXPECT_EQ(source.read(1234, 100), expected(1234, 1334));
    EXPECT_EQ(source.read(9990, 4096), expected(9990, 10000)) << "straddling read";
    EXPECT_TRUE(source.read(10000, 1).empty()) << "read at exactly size";
    EXPECT_TRUE(source.read(20000, 1).empty());
    EXPECT_TRUE(source.read(500, 0).empty());
}

TEST_F(FileSourceTest, SizeIsFixedAtOpening)
{
    const std::string path = writeFile("changing.bin", 1000);
    const FileSource source(path);

    const int writer = ::open(path.c_str(), O_WRONLY);
    ASSERT_GE(writer, 0);
    ASSERT_EQ(::ftruncate(writer, 600), 0);
    EXPECT_EQ(source.size(), 1000u);
    EXPECT_EQ(source.read(500, 300), expected(500, 600)) << "a shrunk file gives a short result";
    EXPECT_TRUE(source.read(700, 100).empty());

    // Growing the file again: the source still never reads beyond the size it opened with.
    ASSERT_EQ(::ftruncate(writer, 5000), 0);
    ::close(writer);
    const std::vector<std::uint8_t> all = source.read(0, 5000);
    ASSERT_EQ(all.size(), 1000u);
    EXPECT_EQ(std::vector<std::uint8_t>(all.begin(), all.begin() + 600), expected(0, 600));
    EXPECT_EQ(std::count(all.begin() + 600, all.end(), 0), 400) << "the regrown part reads as zeros";
}

TEST_F(FileSourceTest, OpenFailureNamesThePathAndTheReason)
{
    const std::string path = (directory_ / "missing.bin").string();
    try {
        FileSource source(path);
        FAIL() << "opening a missing file must throw";
    } catch (const DeviceError& error) {
        EXPECT_EQ(error.kind(), DeviceError::Kind::cannotOpen);
        EXPECT_EQ(error.path(), path);
        EXPECT_EQ(error.errorNumber(), ENOENT);
        EXPECT_EQ(error.description(), "Could not open " + path + ": No such file or directory");
        EXPECT_STREQ(error.what(), error.description().c_str());
    }
}

TEST_F(FileSourceTest, ReadFailureReportsTheOffsetOfTheFailingRead)
{
    // A directory opens read-only and has a size, but every read of it fails.
    const FileSource source(directory_.string());
    if (source.size() < 2)
        GTEST_SKIP() << "this file system gives directories no size, so nothing reaches pread";
    const std::uint64_t offset = source.size() - 1;
    try {
        (void)source.read(offset, 100);
        FAIL() << "reading a directory must throw";
    } catch (const DeviceError& error) {
        EXPECT_EQ(error.kind(), DeviceError::Kind::readFailed);
        EXPECT_EQ(error.offset(), offset);
        EXPECT_EQ(error.errorNumber(), EISDIR);
        EXPECT_EQ(error.description(), "Read failed at offset " + std::to_string(offset) + ": Is a directory");
    }
}

TEST_F(FileSourceTest, DescriptorsAreClosed)
{
    const std::string path = writeFile("descriptors.bin", 10);
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
    const FileSource source(writeFile("shared.bin", length));
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < 6; ++t) {
        threads.emplace_back([&, t] {
            std::mt19937 random(t);
            for (int i = 0; i < 300; ++i) {
                const std::size_t offset = std::uniform_int_distribution<std::size_t>(0, length)(random);
                const std::size_t count = std::uniform_int_distribution<std::size_t>(0, 70000)(random);
                const std::size_t end = std::min(length, offset + count);
                if (source.read(offset, static_cast<std::int64_t>(count)) != expected(offset, end))
                    ++wrong;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(wrong.load(), 0);
}

TEST(DeviceErrorTest, MessagesOfEveryKind)
{
    const DeviceError denied = DeviceError::authorizationDenied("/dev/sdb");
    EXPECT_EQ(denied.kind(), DeviceError::Kind::authorizationDenied);
    EXPECT_EQ(denied.path(), "/dev/sdb");
    EXPECT_EQ(denied.description(), "Authorization to read /dev/sdb was denied.");

    const DeviceError notFile = DeviceError::notAFileOrDevice("/media/card/DCIM");
    EXPECT_EQ(notFile.kind(), DeviceError::Kind::notAFileOrDevice);
    EXPECT_STREQ(notFile.what(), "/media/card/DCIM is not a readable file or device.");

    const DeviceError readFailed = DeviceError::readFailed(18446744073709551615ULL, EIO);
    EXPECT_EQ(readFailed.kind(), DeviceError::Kind::readFailed);
    EXPECT_EQ(readFailed.description(), "Read failed at offset 18446744073709551615: Input/output error");

    EXPECT_EQ(DeviceError::cannotOpen("/a b", EACCES).description(), "Could not open /a b: Permission denied");
    EXPECT_EQ(DeviceError::cannotOpen("/x", 99999).description(), "Could not open /x: Unknown error 99999");
}
