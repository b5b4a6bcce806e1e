#include "Platform/Files.h"

#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <sys/stat.h>

namespace keepery::testing {
namespace {

std::string contents(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

std::vector<std::uint8_t> bytes(std::string_view text) {
    return {text.begin(), text.end()};
}

TEST(Files, WritesReplaceWholeFilesAndLeaveNothingBehind) {
    TemporaryDirectory directory;
    const auto file = directory / "image.png";
    Files::writeAtomically(file, bytes("first"));
    Files::writeAtomically(file, bytes(std::string(100000, 'x') + "second"));
    EXPECT_EQ(contents(file).size(), 100006u);
    Files::writeAtomically(file, {});
    EXPECT_EQ(contents(file), "");
    struct stat info {};
    ASSERT_EQ(::stat(file.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0644u);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory.path()), {}), 1)
        << "no temporary file stays";

    EXPECT_THROW(Files::writeAtomically(directory / "missing" / "x.png", bytes("x")),
                 std::filesystem::filesystem_error);
    // Renaming onto a directory fails; the temporary file goes and the directory stays.
    std::filesystem::create_directories(directory / "taken" / "inner");
    EXPECT_THROW(Files::writeAtomically(directory / "taken", bytes("x")), std::filesystem::filesystem_error);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory.path()), {}), 2);
}

TEST(Files, RemovalIgnoresEveryFailure) {
    TemporaryDirectory directory;
    const auto file = directory / "thumb.jpg";
    Files::writeAtomically(file, bytes("x"));
    Files::removeQuietly(file);
    EXPECT_FALSE(std::filesystem::exists(file));
    Files::removeQuietly(file);
    Files::removeQuietly(directory / "no" / "such" / "file");
    std::filesystem::create_directories(directory / "full" / "inner");
    Files::removeQuietly(directory / "full");
    EXPECT_TRUE(std::filesystem::exists(directory / "full"));
}

} // namespace
} // namespace keepery::testing
