#include "Store/LibraryStore.h"

#include "Platform/Paths.h"

namespace keepery {
namespace {

constexpr const char* createScript = R"sql(
CREATE TABLE captures (
    id TEXT PRIMARY KEY NOT NULL,
    created_at REAL NOT NULL,
    app TEXT NOT NULL DEFAULT '',
    bundle_id TEXT,
    window_title TEXT NOT NULL DEFAULT '',
    url TEXT,
    document_path TEXT,
    source TEXT NOT NULL DEFAULT '',
    width INTEGER NOT NULL DEFAULT 0,
    height INTEGER NOT NULL DEFAULT 0,
    stage TEXT NOT NULL DEFAULT 'captured',
    ocr_text TEXT,
    title TEXT,
    summary TEXT,
    kind TEXT,
    highlights TEXT NOT NULL DEFAULT '[]',
    links TEXT NOT NULL DEFAULT '[]',
    note TEXT,
    favorite INTEGER NOT NULL DEFAULT 0,
    collection_id TEXT REFERENCES collections(id) ON DELETE SET NULL,
    attempts INTEGER NOT NULL DEFAULT 0,
    next_attempt_at REAL NOT NULL DEFAULT 0,
    last_error TEXT
);
CREATE INDEX idx_captures_created ON captures(created_at);
CREATE INDEX idx_captures_stage ON captures(stage, next_attempt_at);
CREATE INDEX idx_captures_collection ON captures(collection_id);
CREATE INDEX idx_captures_kind ON captures(kind);
CREATE INDEX idx_captures_source ON captures(source);
CREATE TABLE capture_tags (
    capture_id TEXT NOT NULL REFERENCES captures(id) ON DELETE CASCADE,
    tag TEXT NOT NULL,
    PRIMARY KEY (capture_id, tag)
);
CREATE INDEX idx_capture_tags_tag ON capture_tags(tag);
CREATE TABLE collections (
    id TEXT PRIMARY KEY NOT NULL,
    name TEXT NOT NULL,
    emoji TEXT NOT NULL DEFAULT '',
    created_at REAL NOT NULL,
    updated_at REAL NOT NULL,
    named_at_count INTEGER NOT NULL DEFAULT 0,
    user_named INTEGER NOT NULL DEFAULT 0
);
CREATE TABLE vectors (
    capture_id TEXT NOT NULL REFERENCES captures(id) ON DELETE CASCADE,
    space TEXT NOT NULL,
    model TEXT NOT NULL,
    dim INTEGER NOT NULL,
    vector BLOB NOT NULL,
    PRIMARY KEY (capture_id, space)
);
CREATE VIRTUAL TABLE captures_fts USING fts5(
    id UNINDEXED, title, summary, ocr, note, tags, source,
    tokenize = 'porter unicode61 remove_diacritics 2'
);
)sql";

constexpr const char* version2Script = R"sql(
ALTER TABLE captures ADD COLUMN media TEXT NOT NULL DEFAULT 'screen';
ALTER TABLE captures ADD COLUMN duration REAL;
ALTER TABLE captures ADD COLUMN taken_at REAL;
ALTER TABLE captures ADD COLUMN image_file TEXT;
ALTER TABLE captures ADD COLUMN original_file TEXT;
ALTER TABLE captures ADD COLUMN transcript TEXT;
CREATE INDEX idx_captures_media ON captures(media);
)sql";

std::filesystem::path makeDirectories(const Files& files, std::filesystem::path root) {
    for (const char* sub : {"", "captures", "thumbs", "media"}) {
        files.createDirectories(*sub ? root / sub : root);
    }
    files.makePrivate(root);
    return root;
}

// The database and the files SQLite keeps beside it; the write-ahead log and the shared memory are made
// again with the database's own permissions.
void makeDatabasePrivate(const Files& files, const std::filesystem::path& root) {
    for (const char* name : {"library.sqlite", "library.sqlite-wal", "library.sqlite-shm"}) {
        std::error_code error;
        if (std::filesystem::exists(root / name, error)) {
            files.makePrivate(root / name);
        }
    }
}

// `id` as a file name: its last component, so that no id names a file outside its directory.
std::string fileName(const std::string& id) {
    return std::filesystem::path(id).filename().string();
}

// `stored` read relative to `root`; absent when it leads outside the root or to the root itself.
std::optional<std::filesystem::path> inside(const std::filesystem::path& root, const std::string& stored) {
    const std::filesystem::path path =
        (root / std::filesystem::path(stored).relative_path()).lexically_normal();
    const std::filesystem::path relative = path.lexically_relative(root.lexically_normal());
    if (relative.empty() || *relative.begin() == ".." || relative == ".") {
        return std::nullopt;
    }
    return root / std::filesystem::path(stored).relative_path();
}

} // namespace

std::filesystem::path LibraryStore::defaultRoot() {
    return Paths::applicationSupportDirectory() / "Keepery";
}

LibraryStore::LibraryStore(std::filesystem::path root, const Clock& clock, const Files& files)
    : clock_(clock), files_(files), root_(makeDirectories(files, std::move(root))),
      db_((root_ / "library.sqlite").string()) {
    makeDatabasePrivate(files_, root_);
    migrate();
    makeDatabasePrivate(files_, root_);
}

LibraryStore::LibraryStore(ReadOnly, std::filesystem::path root)
    : clock_(Clock::system()), files_(Files::local()), root_(std::move(root)),
      db_((root_ / "library.sqlite").string(), Database::Access::readOnly) {}

void LibraryStore::migrate() {
    if (db_.userVersion() >= schemaVersion) {
        return;
    }
    db_.transaction([&] {
        // Another program opening the library at the same moment may have migrated it while this one
        // waited for the write lock: the version that counts is the one read under the lock.
        const std::int64_t version = db_.userVersion();
        if (version >= schemaVersion) {
            return;
        }
        if (version <= 0) {
            db_.execute(createScript);
        }
        db_.execute(version2Script);
        db_.setUserVersion(schemaVersion);
    });
}

std::filesystem::path LibraryStore::imageURL(const std::string& id) const {
    return root_ / "captures" / (fileName(id) + ".png");
}

std::filesystem::path LibraryStore::thumbURL(const std::string& id) const {
    return root_ / "thumbs" / (fileName(id) + ".jpg");
}

std::filesystem::path LibraryStore::sheetURL(const std::string& id) const {
    return root_ / "media" / (fileName(id) + "-sheet.jpg");
}

std::filesystem::path LibraryStore::imageURL(const Capture& capture) const {
    // Stored paths are relative to the library; a leading slash does not escape it, nor does "..".
    std::optional<std::filesystem::path> stored =
        capture.imageFile ? inside(root_, *capture.imageFile) : std::nullopt;
    return stored ? *stored : imageURL(capture.id);
}

std::optional<std::filesystem::path> LibraryStore::originalURL(const Capture& capture) const {
    return capture.originalFile ? inside(root_, *capture.originalFile) : std::nullopt;
}

} // namespace keepery
