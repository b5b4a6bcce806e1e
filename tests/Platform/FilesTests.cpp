#include "Platform/Files.h"

#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

namespace keepery::testing {
namespace {

namespace fs = std::filesystem;

std::string contents(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

fs::perms mode(const fs::path& path) {
    return fs::status(path).permissions();
}

std::vector<std::uint8_t> bytes(std::string_view text) {
    return {text.begin(), text.end()};
}

TEST(Files, WritesReplaceWholePrivateFilesAndLeaveNothingBehind) {
    TemporaryDirectory directory;
    const auto file = directory / "image.png";
    Files::local().writeAtomically(file, bytes(std::string(100000, 'x') + "second"));
    Files::local().writeAtomically(file, bytes("first"));
    EXPECT_EQ(contents(file), "first");
    EXPECT_EQ(mode(file), fs::perms(0600));
    EXPECT_THROW(Files::local().writeAtomically(directory / "missing" / "x.png", bytes("x")),
                 fs::filesystem_error);
    // Renaming onto a directory fails; the temporary file goes and the directory stays.
    fs::create_directories(directory / "taken" / "inner");
    EXPECT_THROW(Files::local().writeAtomically(directory / "taken", bytes("x")), fs::filesystem_error);
    EXPECT_EQ(std::distance(fs::directory_iterator(directory.path()), {}), 2) << "a temporary file stayed";
}

TEST(Files, DirectoriesCopiesTighteningAndRemovals) {
    TemporaryDirectory directory;
    const Files& files = Files::local();
    files.createDirectories(directory / "media" / "inner");
    files.createDirectories(directory / "media");
    EXPECT_EQ(mode(directory / "media"), fs::perms(0700));
    EXPECT_EQ(mode(directory / "media" / "inner"), fs::perms(0700));
    const auto file = directory / "media" / "thumb.jpg";
    files.writeAtomically(file, bytes("x"));
    EXPECT_THROW(files.createDirectories(file / "below"), fs::filesystem_error);

    fs::permissions(file, fs::perms(0644));
    files.copy(file, directory / "copy.jpg");
    EXPECT_EQ(contents(directory / "copy.jpg"), "x");
    EXPECT_EQ(mode(directory / "copy.jpg"), fs::perms(0600)) << "a copy is private whatever its source";
    EXPECT_THROW(files.copy(file, directory / "copy.jpg"), fs::filesystem_error) << "a copy never replaces";
    EXPECT_THROW(files.copy(directory / "media", directory / "m.mov"), fs::filesystem_error);
    EXPECT_FALSE(fs::exists(directory / "m.mov")) << "a failed copy leaves nothing";

    // Tightening takes group and other permissions away and leaves the owner's.
    fs::permissions(file, fs::perms(0444));
    files.makePrivate(file);
    EXPECT_EQ(mode(file), fs::perms(0400));
    EXPECT_THROW(files.makePrivate(directory / "missing"), fs::filesystem_error);

    EXPECT_TRUE(files.remove(directory / "copy.jpg"));
    EXPECT_FALSE(files.remove(directory / "copy.jpg"));
    EXPECT_THROW(files.remove(directory / "media"), fs::filesystem_error);
    files.removeQuietly(directory / "media");
    files.removeQuietly(directory / "no" / "such" / "file");
    EXPECT_TRUE(fs::exists(directory / "media" / "inner"));
}

} // namespace
} // namespace keepery::testing
