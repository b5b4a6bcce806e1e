// Collections: insert, filing captures, renames, dropping empty ones, and the listing with member counts.
#include "Store/LibraryStore.h"

namespace keepery {

void LibraryStore::insertCollection(const CaptureCollection& collection) {
    const std::lock_guard guard(mutex_);
    db_.run("INSERT INTO collections (id, name, emoji, created_at, updated_at, named_at_count, user_named)\n"
            "VALUES (?, ?, ?, ?, ?, ?, ?)",
            {collection.id, collection.name, collection.emoji, collection.createdAt, collection.updatedAt,
             collection.namedAtCount, collection.userNamed ? 1 : 0});
}

void LibraryStore::moveCapture(const std::string& id, const std::optional<std::string>& collectionID) {
    const std::lock_guard guard(mutex_);
    db_.run("UPDATE captures SET collection_id = ? WHERE id = ?", {collectionID, id});
}

void LibraryStore::setCollection(const std::string& id, const std::optional<std::string>& collectionID) {
    const std::lock_guard guard(mutex_);
    db_.run("UPDATE captures SET collection_id = ?, stage = ?, attempts = 0, last_error = NULL WHERE id = ?",
            {collectionID, stageText(CaptureStage::organized), id});
}

void LibraryStore::touchCollection(const std::string& collectionID) {
    const std::lock_guard guard(mutex_);
    db_.run("UPDATE collections SET updated_at = ? WHERE id = ?", {clock_.secondsSince1970(), collectionID});
}

void LibraryStore::renameCollection(const std::string& collectionID, const std::string& name,
                                    const std::string& emoji, std::int64_t namedAtCount, NamedBy namedBy) {
    const std::lock_guard guard(mutex_);
    db_.run("UPDATE collections SET name = ?, emoji = ?, named_at_count = ?, updated_at = ?,\n"
            "    user_named = CASE WHEN ? THEN 1 ELSE user_named END\n"
            "WHERE id = ?",
            {name, emoji, namedAtCount, clock_.secondsSince1970(), namedBy == NamedBy::user ? 1 : 0,
             collectionID});
}

void LibraryStore::dropEmptyCollections() {
    const std::lock_guard guard(mutex_);
    db_.run(
        "DELETE FROM collections WHERE id NOT IN (SELECT collection_id FROM captures WHERE collection_id IS "
        "NOT NULL)");
}

std::vector<CaptureCollection> LibraryStore::collections() {
    const std::lock_guard guard(mutex_);
    return collectionsWhere("1", {});
}

std::optional<CaptureCollection> LibraryStore::collection(const std::string& id) {
    const std::lock_guard guard(mutex_);
    std::vector<CaptureCollection> found = collectionsWhere("c.id = ?", {id});
    if (found.empty()) {
        return std::nullopt;
    }
    return std::move(found.front());
}

std::vector<CaptureCollection> LibraryStore::collectionsWhere(const std::string& condition,
                                                              const std::vector<Database::Value>& values) {
    std::vector<CaptureCollection> collections;
    for (const Database::Row& row :
         db_.query("SELECT c.*, (SELECT count(*) FROM captures WHERE collection_id = c.id) AS n\n"
                   "FROM collections c WHERE " +
                       condition + " ORDER BY c.updated_at DESC",
                   values)) {
        auto get = [&row](const char* name) -> const Database::Value* {
            auto it = row.find(name);
            return it == row.end() ? nullptr : &it->second;
        };
        auto text = [&](const char* name) {
            const Database::Value* v = get(name);
            const std::string* s = v ? v->textPointer() : nullptr;
            return s ? *s : std::string();
        };
        auto real = [&](const char* name) {
            const Database::Value* v = get(name);
            return v ? v->asDouble().value_or(0) : 0.0;
        };
        auto integer = [&](const char* name) {
            const Database::Value* v = get(name);
            return v ? v->asInt().value_or(0) : std::int64_t{0};
        };
        collections.push_back(CaptureCollection{.id = text("id"),
                                                .name = text("name"),
                                                .emoji = text("emoji"),
                                                .createdAt = real("created_at"),
                                                .updatedAt = real("updated_at"),
                                                .count = integer("n"),
                                                .namedAtCount = integer("named_at_count"),
                                                .userNamed = integer("user_named") != 0});
    }
    return collections;
}

} // namespace keepery
