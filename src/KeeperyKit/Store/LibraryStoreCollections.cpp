// Collections: insert, filing captures, renames, dropping empty ones, and the listing with member counts.
#include "Store/LibraryStore.h"

#include <algorithm>
#include <unordered_map>

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

namespace {

// A collection row read as "id, name, emoji, created_at, updated_at, named_at_count, user_named", with its
// member count given.
CaptureCollection collectionOf(const Database::Cursor& cursor, std::int64_t count) {
    const auto text = [&](int column) { return cursor.value(column).asText().value_or(""); };
    const auto real = [&](int column) { return cursor.value(column).asDouble().value_or(0); };
    const auto integer = [&](int column) { return cursor.value(column).asInt().value_or(0); };
    return CaptureCollection{.id = text(0),
                             .name = text(1),
                             .emoji = text(2),
                             .createdAt = real(3),
                             .updatedAt = real(4),
                             .count = count,
                             .namedAtCount = integer(5),
                             .userNamed = integer(6) != 0};
}

constexpr const char* collectionColumns =
    "id, name, emoji, created_at, updated_at, named_at_count, user_named";

} // namespace

std::vector<CaptureCollection> LibraryStore::collections() {
    const std::lock_guard guard(mutex_);
    const Generation now = generation();
    if (collectionsGeneration_ == now) {
        return collections_;
    }
    // The members are counted in one walk of the collection index rather than one look-up per collection.
    std::unordered_map<std::string, std::int64_t> counts;
    db_.forEachRow("SELECT collection_id, count(*) FROM captures WHERE collection_id IS NOT NULL GROUP BY "
                   "collection_id",
                   {}, [&](const Database::Cursor& cursor) {
                       if (const auto id = cursor.text(0)) {
                           counts.try_emplace(std::string(*id), cursor.value(1).asInt().value_or(0));
                       }
                   });
    std::vector<CaptureCollection> collections;
    db_.forEachRow(std::string("SELECT ") + collectionColumns + " FROM collections ORDER BY updated_at DESC",
                   {}, [&](const Database::Cursor& cursor) {
                       CaptureCollection collection = collectionOf(cursor, 0);
                       if (const auto count = counts.find(collection.id); count != counts.end()) {
                           collection.count = count->second;
                       }
                       collections.push_back(std::move(collection));
                   });
    collections_ = collections;
    collectionsGeneration_ = now;
    return collections;
}

std::optional<CaptureCollection> LibraryStore::collection(const std::string& id) {
    const std::lock_guard guard(mutex_);
    std::optional<CaptureCollection> found;
    db_.forEachRow(
        std::string("SELECT ") + collectionColumns +
            ", (SELECT count(*) FROM captures WHERE collection_id = ?1) FROM collections WHERE id = ?1",
        {id}, [&](const Database::Cursor& cursor) {
            found = collectionOf(cursor, cursor.value(7).asInt().value_or(0));
        });
    return found;
}

namespace {

LibraryStore::CollectionName collectionName(const Database::Cursor& cursor) {
    return {cursor.value(0).asText().value_or(""), cursor.value(1).asText().value_or(""),
            cursor.value(2).asText().value_or("")};
}

} // namespace

std::vector<LibraryStore::CollectionName> LibraryStore::collectionNames() {
    const std::lock_guard guard(mutex_);
    std::vector<CollectionName> names;
    db_.forEachRow("SELECT id, name, emoji FROM collections ORDER BY updated_at DESC", {},
                   [&](const Database::Cursor& cursor) { names.push_back(collectionName(cursor)); });
    return names;
}

std::vector<LibraryStore::CollectionName> LibraryStore::collectionNames(const std::vector<std::string>& ids) {
    const std::lock_guard guard(mutex_);
    std::vector<CollectionName> names;
    // One statement holds at most 32766 parameters; a longer list is read in parts.
    constexpr std::size_t partSize = 10000;
    for (std::size_t start = 0; start < ids.size(); start += partSize) {
        const std::size_t end = std::min(ids.size(), start + partSize);
        std::string sql = "SELECT id, name, emoji FROM collections WHERE id IN (";
        std::vector<Database::Value> values;
        values.reserve(end - start);
        for (std::size_t i = start; i < end; ++i) {
            sql += i == start ? "?" : ",?";
            values.emplace_back(ids[i]);
        }
        sql += ")";
        db_.forEachRow(sql, values,
                       [&](const Database::Cursor& cursor) { names.push_back(collectionName(cursor)); });
    }
    return names;
}

} // namespace keepery
