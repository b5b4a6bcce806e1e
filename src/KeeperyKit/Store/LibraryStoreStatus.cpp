// How far the pipeline has come: captures per stage and the captures waiting for another attempt; and the
// files interrupted keeps left behind.
#include "Store/LibraryStore.h"

#include <algorithm>

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

LibraryStore::Leftovers LibraryStore::leftovers() {
    const std::lock_guard guard(mutex_);
    std::unordered_set<std::string> named;
    db_.forEachRow(
        "SELECT id, image_file, original_file FROM captures", {}, [&](const Database::Cursor& row) {
            const std::optional<std::string_view> id = row.text(0);
            if (!id) {
                return;
            }
            Capture capture;
            capture.id = std::string(*id);
            if (const auto image = row.text(1)) {
                capture.imageFile = std::string(*image);
            }
            if (const auto original = row.text(2)) {
                capture.originalFile = std::string(*original);
            }
            for (const std::filesystem::path& path :
                 {imageURL(capture.id), imageURL(capture), thumbURL(capture.id), sheetURL(capture.id)}) {
                named.insert(path.lexically_normal().string());
            }
            if (const auto original = originalURL(capture)) {
                named.insert(original->lexically_normal().string());
            }
        });

    const auto before = clock_.now() - leftoverAge;
    Leftovers found;
    for (const char* sub : {"captures", "thumbs", "media"}) {
        const std::filesystem::path directory = root_ / sub;
        std::error_code error;
        if (!std::filesystem::is_directory(std::filesystem::symlink_status(directory, error))) {
            continue;
        }
        for (auto it = std::filesystem::directory_iterator(directory, error);
             !error && it != std::filesystem::directory_iterator(); it.increment(error)) {
            std::error_code fileError;
            if (!it->is_regular_file(fileError) || it->is_symlink(fileError) ||
                named.contains(it->path().lexically_normal().string())) {
                continue;
            }
            const auto modified = it->last_write_time(fileError);
            const std::uintmax_t size = fileError ? 0 : it->file_size(fileError);
            if (fileError || std::chrono::file_clock::to_sys(modified) >= before) {
                continue;
            }
            found.files.push_back(it->path());
            found.bytes += size;
        }
    }
    std::sort(found.files.begin(), found.files.end());
    return found;
}

LibraryStore::Leftovers LibraryStore::removeLeftovers() {
    const std::lock_guard guard(mutex_);
    Leftovers removed;
    for (const std::filesystem::path& file : leftovers().files) {
        std::error_code error;
        const std::uintmax_t size = std::filesystem::file_size(file, error);
        try {
            if (files_.remove(file)) {
                removed.files.push_back(file);
                removed.bytes += error ? 0 : size;
            }
        } catch (const std::filesystem::filesystem_error&) {
            // Left for the next clean; the others still go.
        }
    }
    return removed;
}

} // namespace keepery
