#pragma once

#include "Store/Database.h"

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

namespace keepery {

// Where each capture's full-text rows lie. The full-text table's id column cannot be indexed, so finding a
// capture's row by id scans the whole table; this map of id to FTS rowid turns that into one lookup. It is
// valid while no other connection has committed: every lookup runs inside the store's write transaction,
// where "PRAGMA data_version" says whether anyone else wrote since the map was read, and the map is read
// again when they did. The store tells it of its own changes, and drops it when a transaction fails.
// Not thread-safe; one store, one caller at a time.
class FullTextRows {
public:
    // The FTS rowids of the rows whose id is `id` (several only if another program wrote duplicates).
    // Throws Database::Failure.
    [[nodiscard]] std::vector<std::int64_t> rowsOf(Database& db, const std::string& id);
    // The rows of `id` were deleted.
    void forget(const std::string& id);
    // A row for `id` was inserted at `rowid`.
    void add(const std::string& id, std::int64_t rowid);
    // What the map holds may no longer be what the table holds.
    void invalidate() { valid_ = false; }

private:
    void refresh(Database& db);

    bool valid_ = false;
    std::int64_t dataVersion_ = 0;
    std::unordered_multimap<std::string, std::int64_t> rows_;
};

} // namespace keepery
