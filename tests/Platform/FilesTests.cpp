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

unsigned mode(const std::filesystem::path& path) {
    struct stat info {};
    EXPECT_EQ(::stat(path.c_str(), &info), 0) << path;
    return info.st_mode & 0777;
}

std::vector<std::uint8_t> bytes(std::string_view text) {
    return {text.begin(), text.end()};
}

TEST(Files, WritesReplaceWholeFilesAndLeaveNothingBehind) {
    TemporaryDirectory directory;
    const auto file = directory / "image.png";
    Files::local().writeAtomically(file, bytes("first"));
    Files::local().writeAtomically(file, bytes(std::string(100000, 'x') + "second"));
    EXPECT_EQ(contents(file).size(), 100006u);
    Files::local().writeAtomically(file, {});
    EXPECT_EQ(contents(file), "");
    struct stat info {};
    ASSERT_EQ(::stat(file.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u) << "the owner's only";
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory.path()), {}), 1)
        << "no temporary file stays";

    EXPECT_THROW(Files::local().writeAtomically(directory / "missing" / "x.png", bytes("x")),
                 std::filesystem::filesystem_error);
    // Renaming onto a directory fails; the temporary file goes and the directory stays.
    std::filesystem::create_directories(directory / "taken" / "inner");
    EXPECT_THROW(Files::local().writeAtomically(directory / "taken", bytes("x")),
                 std::filesystem::filesystem_error);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory.path()), {}), 2);
}

TEST(Files, DirectoriesCopiesAndRemovals) {
    TemporaryDirectory directory;
    const Files& files = Files::local();
    files.createDirectories(directory / "media" / "inner");
    files.createDirectories(directory / "media");
    const auto file = directory / "media" / "thumb.jpg";
    files.writeAtomically(file, bytes("x"));
    EXPECT_THROW(files.createDirectories(file / "below"), std::filesystem::filesystem_error);

    std::filesystem::permissions(file, std::filesystem::perms(0644));
    files.copy(file, directory / "copy.jpg");
    EXPECT_EQ(contents(directory / "copy.jpg"), "x");
    EXPECT_EQ(mode(directory / "copy.jpg"), 0600u) << "a copy is private whatever its source";
    EXPECT_EQ(mode(directory / "media"), 0700u);
    EXPECT_EQ(mode(directory / "media" / "inner"), 0700u);
    EXPECT_THROW(files.copy(file, directory / "copy.jpg"), std::filesystem::filesystem_error)
        << "a copy never replaces a file";
    EXPECT_THROW(files.copy(directory / "missing.mov", directory / "m.mov"),
                 std::filesystem::filesystem_error);
    EXPECT_THROW(files.copy(directory / "media", directory / "m.mov"), std::filesystem::filesystem_error);
    EXPECT_FALSE(std::filesystem::exists(directory / "m.mov")) << "a failed copy leaves nothing";

    // Tightening takes group and other permissions away and leaves the owner's.
    std::filesystem::create_directories(directory / "old");
    std::filesystem::permissions(directory / "old", std::filesystem::perms(0755));
    std::filesystem::permissions(file, std::filesystem::perms(0444));
    files.makePrivate(directory / "old");
    files.makePrivate(file);
    EXPECT_EQ(mode(directory / "old"), 0700u);
    EXPECT_EQ(mode(file), 0400u);
    EXPECT_THROW(files.makePrivate(directory / "missing"), std::filesystem::filesystem_error);
    std::filesystem::permissions(file, std::filesystem::perms(0600));

    EXPECT_TRUE(files.remove(file));
    EXPECT_FALSE(std::filesystem::exists(file));
    EXPECT_FALSE(files.remove(file));
    EXPECT_THROW(files.remove(directory / "media"), std::filesystem::filesystem_error);
    files.removeQuietly(directory / "media");
    files.removeQuietly(directory / "no" / "such" / "file");
    EXPECT_TRUE(std::filesystem::exists(directory / "media" / "inner"));
}

} // namespace
} // namespace keepery::testing
