// The byte sources: reads cut at the end of the source, the size fixed at opening,
// concurrent reads, and errors that name the path, the offset and the cause.
#include "ByteKit/DeviceError.h"
#include "ByteKit/FileSource.h"
#include "ByteKit/MemorySource.h"

#include <gtest/gtest.h>

#include <atomic>
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

Bytes randomBytes(std::size_t length)
{
    Bytes bytes(length);
    std::mt19937 random(static_cast<unsigned>(length));
    for (std::uint8_t &byte : bytes)
        byte = static_cast<std::uint8_t>(random());
    return bytes;
}

std::string writeFile(const Bytes &bytes)
{
    const std::string path = (fs::temp_directory_path() / ("bytesource-" + std::to_string(::getpid()))).string();
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char *>(bytes.data()), std::streamsize(bytes.size()));
    return path;
}

Bytes slice(const Bytes &bytes, std::size_t from, std::size_t to)
{
    return {bytes.begin() + std::ptrdiff_t(from), bytes.begin() + std::ptrdiff_t(to)};
}

} // namespace

TEST(ByteSource, ReadsAreCutAtTheEndAndTheSizeIsFixedAtOpening)
{
    const Bytes contents = randomBytes(1000);
    const std::string path = writeFile(contents);
    const FileSource file(path);
    const MemorySource memory(contents);
    constexpr std::uint64_t huge = std::numeric_limits<std::uint64_t>::max() - 10;
    struct Case {
        std::uint64_t offset;
        std::int64_t count;
        std::size_t from, to;
    };
    const Case cases[] = {{0, 1000, 0, 1000}, {10, 20, 10, 30}, {990, 50, 990, 1000}, {1000, 10, 0, 0},
                          {10, 0, 0, 0},      {huge, 10, 0, 0}, {0, std::numeric_limits<std::int64_t>::max(), 0, 1000}};
    for (const ByteSource *source : {static_cast<const ByteSource *>(&file), static_cast<const ByteSource *>(&memory)})
        for (const Case &c : cases)
            EXPECT_EQ(source->read(c.offset, c.count), slice(contents, c.from, c.to))
                << source->descriptionForReport() << " at " << c.offset << " for " << c.count;

    // A file that shrinks gives short reads, and one that grows is never read past its first size.
    ASSERT_EQ(::truncate(path.c_str(), 600), 0);
    EXPECT_EQ(file.read(500, 300), slice(contents, 500, 600));
    ASSERT_EQ(::truncate(path.c_str(), 5000), 0);
    EXPECT_EQ(file.read(0, 5000).size(), 1000u);
    fs::remove(path);
}

TEST(ByteSource, ConcurrentReadsGetTheirOwnBytes)
{
    const Bytes contents = randomBytes(1 << 20);
    const std::string path = writeFile(contents);
    const FileSource source(path);
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < 6; ++t)
        threads.emplace_back([&, t] {
            std::mt19937 random(t);
            for (int i = 0; i < 200; ++i) {
                const std::size_t offset = std::uniform_int_distribution<std::size_t>(0, contents.size())(random);
                const std::size_t count = std::uniform_int_distribution<std::size_t>(0, 70000)(random);
                if (source.read(offset, std::int64_t(count)) != slice(contents, offset, std::min(contents.size(), offset + count)))
                    ++wrong;
            }
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(wrong.load(), 0);
    fs::remove(path);
}

TEST(ByteSource, FailuresNameThePathTheOffsetAndTheCause)
{
    const std::string missing = (fs::temp_directory_path() / "bytesource-missing").string();
    try {
        FileSource source(missing);
        ADD_FAILURE() << "opening a missing file must throw";
    } catch (const DeviceError &error) {
        EXPECT_STREQ(error.what(), ("Could not open " + missing + ": No such file or directory").c_str());
    }
    EXPECT_EQ(DeviceError::readFailed(42, EIO).description(), "Read failed at offset 42: Input/output error");
    EXPECT_EQ(DeviceError::notAFileOrDevice("/media/card/DCIM").description(),
              "/media/card/DCIM is not a readable file or device.");
}
