// How far the pipeline has come: captures per stage and the captures waiting for another attempt.
#include "Store/LibraryStore.h"

namespace keepery {

std::unordered_map<CaptureStage, std::int64_t> LibraryStore::stageCounts() {
    const std::lock_guard guard(mutex_);
    std::unordered_map<CaptureStage, std::int64_t> counts;
    for (const Database::Row& row : db_.query("SELECT stage, count(*) AS n FROM captures GROUP BY stage")) {
        const auto stage = row.find("stage");
        const auto n = row.find("n");
        const std::string* raw = stage == row.end() ? nullptr : stage->second.textPointer();
        if (auto known = raw ? CaptureStage::fromRawValue(*raw) : std::nullopt) {
            counts[*known] = n == row.end() ? 0 : n->second.asInt().value_or(0);
        }
    }
    return counts;
}

std::vector<LibraryStore::Failing> LibraryStore::failing(std::int64_t limit) {
    const std::lock_guard guard(mutex_);
    std::vector<std::string> ids;
    std::unordered_map<std::string, std::pair<std::int64_t, Instant>> attempts;
    for (const Database::Row& row : db_.query(
             "SELECT id, attempts, next_attempt_at FROM captures WHERE stage != ? AND last_error IS NOT "
             "NULL ORDER BY next_attempt_at, created_at LIMIT ?",
             {std::string(stageText(CaptureStage::organized)), limit})) {
        const auto id = row.find("id");
        const std::string* text = id == row.end() ? nullptr : id->second.textPointer();
        if (text == nullptr) {
            continue;
        }
        const auto count = row.find("attempts");
        const auto next = row.find("next_attempt_at");
        attempts[*text] = {count == row.end() ? 0 : count->second.asInt().value_or(0),
                           next == row.end() ? 0 : next->second.asDouble().value_or(0)};
        ids.push_back(*text);
    }
    std::vector<Failing> found;
    for (Capture& capture : captures(ids)) {
        const auto [count, next] = attempts[capture.id];
        found.push_back(Failing{std::move(capture), count, next});
    }
    return found;
}

} // namespace keepery
