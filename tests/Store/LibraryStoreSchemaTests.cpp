#include "Store/LibraryStore.h"

#include "support/EnvironmentOverride.h"
#include "support/FakeFiles.h"
#include "support/TemporaryDirectory.h"

#include <fstream>
#include <gtest/gtest.h>
#include <thread>

namespace keepery::testing {
namespace {

using Value = Database::Value;

// The creating script of the first schema version, as the companion app wrote it.
constexpr const char* version1Script = R"sql(
CREATE TABLE captures (
    id TEXT PRIMARY KEY NOT NULL, created_at REAL NOT NULL, app TEXT NOT NULL DEFAULT '', bundle_id TEXT,
    window_title TEXT NOT NULL DEFAULT '', url TEXT, document_path TEXT, source TEXT NOT NULL DEFAULT '',
    width INTEGER NOT NULL DEFAULT 0, height INTEGER NOT NULL DEFAULT 0, stage TEXT NOT NULL DEFAULT 'captured',
    ocr_text TEXT, title TEXT, summary TEXT, kind TEXT, highlights TEXT NOT NULL DEFAULT '[]',
    links TEXT NOT NULL DEFAULT '[]', note TEXT, favorite INTEGER NOT NULL DEFAULT 0,
    collection_id TEXT REFERENCES collections(id) ON DELETE SET NULL, attempts INTEGER NOT NULL DEFAULT 0,
    next_attempt_at REAL NOT NULL DEFAULT 0, last_error TEXT);
CREATE INDEX idx_captures_created ON captures(created_at);
CREATE INDEX idx_captures_stage ON captures(stage, next_attempt_at);
CREATE INDEX idx_captures_collection ON captures(collection_id);
CREATE INDEX idx_captures_kind ON captures(kind);
CREATE INDEX idx_captures_source ON captures(source);
CREATE TABLE capture_tags (capture_id TEXT NOT NULL REFERENCES captures(id) ON DELETE CASCADE,
    tag TEXT NOT NULL, PRIMARY KEY (capture_id, tag));
CREATE INDEX idx_capture_tags_tag ON capture_tags(tag);
CREATE TABLE collections (id TEXT PRIMARY KEY NOT NULL, name TEXT NOT NULL, emoji TEXT NOT NULL DEFAULT '',
    created_at REAL NOT NULL, updated_at REAL NOT NULL, named_at_count INTEGER NOT NULL DEFAULT 0,
    user_named INTEGER NOT NULL DEFAULT 0);
CREATE TABLE vectors (capture_id TEXT NOT NULL REFERENCES captures(id) ON DELETE CASCADE,
    space TEXT NOT NULL, model TEXT NOT NULL, dim INTEGER NOT NULL, vector BLOB NOT NULL,
    PRIMARY KEY (capture_id, space));
CREATE VIRTUAL TABLE captures_fts USING fts5(id UNINDEXED, title, summary, ocr, note, tags, source,
    tokenize = 'porter unicode61 remove_diacritics 2');
INSERT INTO collections VALUES ('c1', 'Cooking', '🍳', 10, 20, 2, 0);
INSERT INTO captures (id, created_at, app, window_title, title, collection_id)
    VALUES ('a', 100, 'Safari', 'Pasta', 'Pasta night', 'c1'), ('b', 200, 'Notes', 'List', NULL, NULL);
INSERT INTO capture_tags VALUES ('a', 'pasta');
INSERT INTO captures_fts (id, title) VALUES ('a', 'Pasta night');
PRAGMA user_version = 1;
)sql";

std::vector<std::string> columns(Database& db, const std::string& table) {
    std::vector<std::string> names;
    for (const auto& row : db.query("PRAGMA table_info(" + table + ")")) {
        names.push_back(*row.at("name").asText());
    }
    return names;
}

std::string schemaText(Database& db) {
    std::string text;
    for (const auto& row : db.query("SELECT name, sql FROM sqlite_master ORDER BY name")) {
        text += row.at("name").asText().value_or("") + ":" + row.at("sql").asText().value_or("") + "\n";
    }
    return text;
}

TEST(LibraryStoreSchema, OpeningAMissingDirectoryCreatesTheWholeLibraryOnce) {
    TemporaryDirectory dir;
    const auto root = dir / "deep" / "Keepery";
    { LibraryStore store(root); }
    for (const char* entry : {"captures", "thumbs", "media"}) {
        EXPECT_TRUE(std::filesystem::is_directory(root / entry)) << entry;
    }
    Database db((root / "library.sqlite").string());
    EXPECT_EQ(db.userVersion(), 2);
    EXPECT_EQ(columns(db, "captures_fts"),
              (std::vector<std::string>{"id", "title", "summary", "ocr", "note", "tags", "source"}));
    // Defaults of the storage format, as another program inserting a bare row sees them.
    db.run("INSERT INTO captures (id, created_at) VALUES ('x', 1)");
    const auto row = db.query("SELECT stage, media, highlights, next_attempt_at FROM captures")[0];
    EXPECT_EQ(row, (Database::Row{{"stage", Value("captured")},
                                  {"media", Value("screen")},
                                  {"highlights", Value("[]")},
                                  {"next_attempt_at", Value(0.0)}}));

    const std::string before = schemaText(db);
    { LibraryStore again(root); }
    EXPECT_EQ(schemaText(db), before) << "reopening changes nothing";
}

// The watcher and an import started together on a new library: both find it unmade, and the one that
// gets the write lock second must find the schema made meanwhile instead of making it again.
TEST(LibraryStoreSchema, ProgramsOpeningANewLibraryAtOnceMakeItOnce) {
    TemporaryDirectory dir;
    Database holder((dir / "library.sqlite").string());
    holder.execute("BEGIN IMMEDIATE");
    std::vector<std::thread> openers;
    for (int i = 0; i < 2; ++i) {
        openers.emplace_back([&] {
            try {
                LibraryStore store(dir.path());
            } catch (const Database::Failure& failure) {
                ADD_FAILURE() << failure.description();
            }
        });
    }
    // Both have read the version and wait for the lock (the busy time-out is five seconds).
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    holder.execute("COMMIT");
    for (std::thread& opener : openers) {
        opener.join();
    }
    EXPECT_EQ(holder.userVersion(), 2);
}

TEST(LibraryStoreSchema, AVersionOneLibraryGainsTheMediaColumnsAndKeepsItsRows) {
    TemporaryDirectory dir;
    Database db((dir / "library.sqlite").string());
    db.execute(version1Script);
    { LibraryStore store(dir.path()); }
    EXPECT_EQ(db.userVersion(), 2);
    const auto rows = db.query("SELECT id, title, collection_id, media, duration, taken_at, image_file, "
                               "original_file, transcript FROM captures ORDER BY id");
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(rows[0].at("title"), Value("Pasta night"));
    EXPECT_EQ(rows[0].at("collection_id"), Value("c1"));
    for (const auto& row : rows) {
        EXPECT_EQ(row.at("media"), Value("screen"));
        for (const char* column : {"duration", "taken_at", "image_file", "original_file", "transcript"}) {
            EXPECT_TRUE(row.at(column).isNull()) << column;
        }
    }
    EXPECT_EQ(db.query("SELECT tag FROM capture_tags")[0].at("tag"), Value("pasta"));
    EXPECT_EQ(db.query("SELECT id FROM captures_fts WHERE captures_fts MATCH 'pasta'").size(), 1u);
    EXPECT_EQ(db.query("SELECT name FROM sqlite_master WHERE name = 'idx_captures_media'").size(), 1u);
}

TEST(LibraryStoreSchema, ANewerVersionIsLeftAloneAndAFailedMigrationLeavesTheFileAsItWas) {
    TemporaryDirectory dir;
    std::filesystem::create_directory(dir / "newer");
    Database newer((dir / "newer" / "library.sqlite").string());
    newer.execute("CREATE TABLE future (x); PRAGMA user_version = 3");
    { LibraryStore store(dir / "newer"); }
    EXPECT_EQ(schemaText(newer), "future:CREATE TABLE future (x)\n");

    // Version 0, but a collections table already there: the creating script fails half way.
    Database old((dir / "library.sqlite").string());
    old.execute("CREATE TABLE collections (id TEXT)");
    try {
        LibraryStore store(dir.path());
        FAIL();
    } catch (const Database::Failure& failure) {
        EXPECT_EQ(failure.message(), "table collections already exists");
        EXPECT_NE(failure.sql().find("CREATE TABLE captures"), std::string::npos);
    }
    EXPECT_EQ(old.userVersion(), 0);
    EXPECT_TRUE(old.query("SELECT name FROM sqlite_master WHERE name = 'captures'").empty());
}

TEST(LibraryStoreSchema, AFileWhereTheDirectoryShouldBeFailsWithTheFileSystemError) {
    TemporaryDirectory dir;
    std::ofstream(dir / "Keepery") << "not a directory";
    EXPECT_THROW(LibraryStore store(dir / "Keepery"), std::filesystem::filesystem_error);
    // A directory that fails half way stops the opening before any database exists.
    FakeFiles files;
    files.failNext(FakeFiles::Operation::createDirectories, dir / "lib2" / "thumbs");
    EXPECT_THROW(LibraryStore store(dir / "lib2", Clock::system(), files), std::filesystem::filesystem_error);
    EXPECT_FALSE(std::filesystem::exists(dir / "lib2" / "library.sqlite"));
    // A directory where the database file should be fails in the access layer.
    std::filesystem::create_directories(dir / "lib" / "library.sqlite");
    EXPECT_THROW(LibraryStore store(dir / "lib"), Database::Failure);
}

TEST(LibraryStoreSchema, ARelativeDataHomeIsIgnored) {
    EnvironmentOverride env{{"XDG_DATA_HOME", "relative/ignored"}, {"HOME", "/home/someone"}};
    EXPECT_EQ(LibraryStore::defaultRoot(), std::filesystem::path("/home/someone/.local/share/Keepery"));
}

} // namespace
} // namespace keepery::testing
