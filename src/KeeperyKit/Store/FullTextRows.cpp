#include "Store/FullTextRows.h"

namespace keepery {
namespace {

std::int64_t dataVersion(Database& db) {
    auto rows = db.query("PRAGMA data_version");
    if (rows.empty()) {
        return -1;
    }
    auto it = rows.front().find("data_version");
    return it == rows.front().end() ? -1 : it->second.asInt().value_or(-1);
}

} // namespace

std::vector<std::int64_t> FullTextRows::rowsOf(Database& db, const std::string& id) {
    refresh(db);
    std::vector<std::int64_t> rowids;
    auto [first, last] = rows_.equal_range(id);
    for (auto it = first; it != last; ++it) {
        rowids.push_back(it->second);
    }
    return rowids;
}

void FullTextRows::forget(const std::string& id) {
    rows_.erase(id);
}

void FullTextRows::add(const std::string& id, std::int64_t rowid) {
    rows_.emplace(id, rowid);
}

void FullTextRows::refresh(Database& db) {
    const std::int64_t version = dataVersion(db);
    if (valid_ && version == dataVersion_ && version >= 0) {
        return;
    }
    valid_ = false;
    rows_.clear();
    db.forEachRow("SELECT rowid, id FROM captures_fts", {}, [&](const Database::Cursor& cursor) {
        auto rowid = cursor.value(0).asInt();
        auto id = cursor.text(1);
        if (rowid && id) {
            rows_.emplace(std::string(*id), *rowid);
        }
    });
    dataVersion_ = version;
    valid_ = true;
}

} // namespace keepery
