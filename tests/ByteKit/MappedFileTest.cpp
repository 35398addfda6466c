#include "ByteKit/DeviceError.h"
#include "ByteKit/MappedFile.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <utility>

#include <unistd.h>

namespace fs = std::filesystem;

namespace {

std::size_t openDescriptorCount()
{
    return std::size_t(std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()));
}

// The message of the error that mapping `path` throws.
std::string failure(const std::string &path)
{
    try {
        MappedFile file(path);
    } catch (const DeviceError &error) {
        return error.what();
    }
    return "no error";
}

} // namespace

TEST(MappedFileTest, ShowsTheFileKeepsNoDescriptorAndSaysWhatFailed)
{
    std::string name = (fs::temp_directory_path() / "mappedfile-XXXXXX").string();
    ASSERT_NE(::mkdtemp(name.data()), nullptr);
    const fs::path folder(name);
    const std::string path = (folder / "photo.raw").string();
    const std::string contents("II*\0\xff\xd8 stored bytes", 19);
    std::ofstream(path, std::ios::binary) << contents;

    const std::size_t before = openDescriptorCount();
    for (int i = 0; i < 20; ++i) {
        MappedFile first(path);
        const MappedFile mapped(std::move(first));
        EXPECT_TRUE(first.bytes().empty());
        EXPECT_EQ(std::string(reinterpret_cast<const char *>(mapped.bytes().data()), mapped.bytes().size()), contents);
        EXPECT_THROW(MappedFile(folder.string()), DeviceError);
    }
    EXPECT_EQ(openDescriptorCount(), before);

    const std::string missing = (folder / "missing.raw").string();
    EXPECT_EQ(failure(missing), "Could not open " + missing + ": No such file or directory");
    EXPECT_EQ(failure(folder.string()), folder.string() + " is not a readable file or device.");
    std::ofstream(path, std::ios::trunc).close();
    EXPECT_TRUE(MappedFile(path).bytes().empty());
    fs::remove_all(folder);
}
