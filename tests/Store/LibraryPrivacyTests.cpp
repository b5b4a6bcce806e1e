// The library is its owner's alone: its directory and database are closed to others, and no path a
// database row names leads a read or a removal outside the library directory.
#include "Store/StoreTesting.h"

#include <fstream>

namespace keepery::testing {
namespace {

namespace fs = std::filesystem;

using LibraryPrivacy = StoreTest;

TEST_F(LibraryPrivacy, TheDirectoryAndTheDatabaseAreTheOwnersOnlyAndAnOlderLibraryIsTightened) {
    const fs::path root = directory / "Library";
    store.insert(screen("a", 1));
    for (const char* name :
         {"", "captures", "thumbs", "media", "library.sqlite", "library.sqlite-wal", "library.sqlite-shm"}) {
        EXPECT_EQ(fs::status(root / name).permissions(),
                  fs::is_directory(root / name) ? fs::perms(0700) : fs::perms(0600))
            << name;
    }
    // As an earlier version left it: open to everyone's reading.
    fs::permissions(root, fs::perms(0755));
    fs::permissions(root / "library.sqlite", fs::perms(0644));
    LibraryStore reopened(root);
    EXPECT_EQ(fs::status(root).permissions(), fs::perms(0700));
    EXPECT_EQ(fs::status(root / "library.sqlite").permissions(), fs::perms(0600));
}

TEST_F(LibraryPrivacy, StoredPathsThatLeaveTheLibraryAreNeverReadNorRemoved) {
    const fs::path root = directory / "Library";
    for (const char* name : {"outside.png", "secret.mov", "x.png", "x.jpg", "x-sheet.jpg"}) {
        std::ofstream(directory / name) << "precious";
    }
    Capture capture = screen("../x", 1);
    capture.imageFile = "media/../../outside.png";
    capture.originalFile = "../secret.mov";
    store.insert(capture);
    const Capture read = *store.capture("../x");

    EXPECT_EQ(store.imageURL(read), root / "captures" / "x.png") << "the default image instead";
    EXPECT_EQ(store.originalURL(read), std::nullopt);
    EXPECT_EQ(store.thumbURL(read.id), root / "thumbs" / "x.jpg");
    EXPECT_EQ(store.sheetURL(read.id), root / "media" / "x-sheet.jpg");
    for (const std::string stored : {"", ".", "media/..", "/../secret.mov"}) {
        capture.originalFile = stored;
        EXPECT_EQ(store.originalURL(capture), std::nullopt) << stored;
    }
    capture.originalFile = "media/../media/a.mov";
    EXPECT_EQ(store.originalURL(capture), root / "media/../media/a.mov") << "inside after all";

    store.deleteCapture("../x");
    for (const char* name : {"outside.png", "secret.mov", "x.png", "x.jpg", "x-sheet.jpg"}) {
        EXPECT_TRUE(fs::exists(directory / name)) << name;
    }
}

} // namespace
} // namespace keepery::testing
