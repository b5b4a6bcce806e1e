// Listings by filter, counts, and full-text search.
#include "Store/LibraryStore.h"

#include "Platform/Text.h"

#include <functional>
#include <unordered_map>

namespace keepery {
namespace {

using Value = Database::Value;

std::int64_t integerOr0(const Database::Row& row, const char* column) {
    auto it = row.find(column);
    return it == row.end() ? 0 : it->second.asInt().value_or(0);
}

const std::string* textOf(const Database::Row& row, const char* column) {
    auto it = row.find(column);
    return it == row.end() ? nullptr : it->second.textPointer();
}

} // namespace

std::vector<Capture> LibraryStore::captures(const LibraryFilter& filter, std::int64_t limit) {
    const std::lock_guard guard(mutex_);
    const auto& payload = filter.payload();
    auto text = [&] { return Value(std::get<std::string>(payload)); };
    const std::string order = "c.created_at DESC";
    switch (filter.which()) {
    case LibraryFilter::Case::collection:
        return newestWhere("c.collection_id = ?", {text()}, "idx_captures_collection", limit);
    case LibraryFilter::Case::kind:
        return newestWhere("c.kind = ?", {std::get<CaptureKind>(payload).rawValue()}, "idx_captures_kind",
                           limit);
    case LibraryFilter::Case::source:
        return newestWhere("c.source = ?", {text()}, "idx_captures_source", limit);
    case LibraryFilter::Case::since:
        return capturesWhere("c.created_at >= ?", {std::get<Instant>(payload)}, limit, order);
    case LibraryFilter::Case::media:
        return newestWhere("c.media = ?", {std::get<CaptureMedia>(payload).rawValue()}, "idx_captures_media",
                           limit);
    case LibraryFilter::Case::recent:
        return capturesWhere("1", {}, limit, order);
    case LibraryFilter::Case::favorites:
        return newestWhere("c.favorite = 1", {}, nullptr, limit);
    case LibraryFilter::Case::unsorted:
        return newestWhere("c.collection_id IS NULL", {}, "idx_captures_collection", limit);
    }
    return {};
}

void LibraryStore::snapshot(const std::function<void()>& body) {
    db_.execute("BEGIN");
    try {
        body();
    } catch (...) {
        try {
            db_.execute("ROLLBACK");
        } catch (const Database::Failure&) {
        }
        throw;
    }
    db_.execute("COMMIT");
}

std::vector<Capture> LibraryStore::newestWhere(const std::string& condition, const std::vector<Value>& values,
                                               const char* index, std::int64_t limit) {
    std::vector<Value> bound = values;
    bound.emplace_back(limit);
    std::vector<std::string> ids;
    const auto findIDs = [&](const std::string& from) {
        ids.clear();
        db_.forEachRow("SELECT c.id FROM " + from + " WHERE " + condition +
                           " ORDER BY c.created_at DESC, c.rowid DESC LIMIT ?",
                       bound, [&](const Database::Cursor& cursor) {
                           if (auto id = cursor.value(0).asText()) {
                               ids.push_back(std::move(*id));
                           }
                       });
    };
    std::vector<Capture> found;
    snapshot([&] {
        try {
            // Which way finds the ids sooner. A walk down the time index stops once `limit` captures have
            // matched, after about limit × all / matching rows, each read past its long texts to the tested
            // column; the condition's own index gives every match, each read only for its time, then sorted.
            bool walk = index == nullptr;
            if (!walk) {
                std::int64_t matching = 0;
                std::int64_t all = 0;
                db_.forEachRow(
                    "SELECT count(*), (SELECT max(rowid) FROM captures) FROM captures c INDEXED BY " +
                        std::string(index) + " WHERE " + condition,
                    values, [&](const Database::Cursor& cursor) {
                        matching = cursor.value(0).asInt().value_or(0);
                        all = cursor.value(1).asInt().value_or(0);
                    });
                if (matching == 0) {
                    return;
                }
                walk = limit >= 0 && 2.0 * static_cast<double>(limit) * static_cast<double>(all) <
                                         static_cast<double>(matching) * static_cast<double>(matching);
            }
            findIDs("captures c INDEXED BY " + std::string(walk ? "idx_captures_created" : index));
        } catch (const Database::Failure&) {
            // A library made elsewhere may lack an index: SQLite then finds the same ids its own way.
            findIDs("captures c");
        }
        found = captures(ids);
    });
    return found;
}

std::vector<LibraryStore::Membership> LibraryStore::memberships(std::int64_t limit) {
    const std::lock_guard guard(mutex_);
    // Walks of indexes alone, never of the rows with their long texts: the listing's order and times from
    // the time index it walks itself, each id from the key's index, each collection from the collection's
    // index, the organized ones from the stage's index; in one snapshot, so that all see the same rows.
    std::vector<Membership> found;
    snapshot([&] {
        std::vector<std::int64_t> order;
        found.clear();
        db_.forEachRow(
            "SELECT c.rowid, c.created_at FROM captures c INDEXED BY idx_captures_created ORDER BY "
            "c.created_at DESC LIMIT ?",
            {limit}, [&](const Database::Cursor& cursor) {
                order.push_back(cursor.value(0).asInt().value_or(0));
                found.emplace_back().createdAt = cursor.value(1).asDouble().value_or(0);
            });
        std::unordered_map<std::int64_t, std::size_t> position;
        position.reserve(order.size());
        for (std::size_t i = 0; i < order.size(); ++i) {
            position.emplace(order[i], i);
        }
        const auto each = [&](const std::string& sql, const std::vector<Value>& values,
                              const std::function<void(Membership&, std::string_view)>& set) {
            db_.forEachRow(sql, values, [&](const Database::Cursor& cursor) {
                const auto at = position.find(cursor.value(0).asInt().value_or(0));
                const auto text = cursor.text(1);
                if (at != position.end() && text) {
                    set(found[at->second], *text);
                }
            });
        };
        each("SELECT rowid, id FROM captures", {},
             [](Membership& membership, std::string_view id) { membership.captureID = id; });
        each("SELECT rowid, collection_id FROM captures WHERE collection_id IS NOT NULL", {},
             [](Membership& membership, std::string_view id) { membership.collectionID.emplace(id); });
        each("SELECT rowid, stage FROM captures WHERE stage = ?", {stageText(CaptureStage::organized)},
             [](Membership& membership, std::string_view) { membership.organized = true; });
    });
    return found;
}

LibraryStore::Generation LibraryStore::generation() {
    const std::lock_guard guard(mutex_);
    return Generation{db_.dataVersion(), db_.totalChanges()};
}

std::vector<std::pair<CaptureKind, std::int64_t>> LibraryStore::kindCounts() {
    const std::lock_guard guard(mutex_);
    std::vector<std::pair<CaptureKind, std::int64_t>> counts;
    for (const Database::Row& row : db_.query("SELECT kind, count(*) AS n FROM captures WHERE kind IS NOT "
                                              "NULL GROUP BY kind ORDER BY n DESC")) {
        const std::string* raw = textOf(row, "kind");
        if (auto kind = raw ? CaptureKind::fromRawValue(*raw) : std::nullopt) {
            counts.emplace_back(*kind, integerOr0(row, "n"));
        }
    }
    return counts;
}

std::unordered_map<CaptureMedia, std::int64_t> LibraryStore::mediaCounts() {
    const std::lock_guard guard(mutex_);
    std::unordered_map<CaptureMedia, std::int64_t> counts;
    for (const Database::Row& row : db_.query("SELECT media, count(*) AS n FROM captures GROUP BY media")) {
        const std::string* raw = textOf(row, "media");
        if (auto media = raw ? CaptureMedia::fromRawValue(*raw) : std::nullopt) {
            counts[*media] = integerOr0(row, "n");
        }
    }
    return counts;
}

std::vector<std::pair<std::string, std::int64_t>> LibraryStore::sourceCounts(std::int64_t limit) {
    const std::lock_guard guard(mutex_);
    std::vector<std::pair<std::string, std::int64_t>> counts;
    for (const Database::Row& row : db_.query(
             "SELECT source, count(*) AS n FROM captures WHERE source != '' AND media = 'screen' GROUP BY "
             "source ORDER BY n DESC, source LIMIT ?",
             {limit})) {
        const std::string* source = textOf(row, "source");
        counts.emplace_back(source ? *source : std::string(), integerOr0(row, "n"));
    }
    return counts;
}

std::int64_t LibraryStore::count() {
    const std::lock_guard guard(mutex_);
    auto rows = db_.query("SELECT count(*) AS n FROM captures");
    return rows.empty() ? 0 : integerOr0(rows.front(), "n");
}

std::int64_t LibraryStore::count(Instant start) {
    const std::lock_guard guard(mutex_);
    auto rows = db_.query("SELECT count(*) AS n FROM captures WHERE created_at >= ?", {start});
    return rows.empty() ? 0 : integerOr0(rows.front(), "n");
}

const std::unordered_set<std::string_view>& LibraryStore::stopwords() {
    static const std::unordered_set<std::string_view> words{
        "a",    "an",   "the",  "of",   "in",  "on", "at", "to", "for", "and", "or",   "with", "about",
        "from", "that", "this", "what", "was", "is", "it", "my", "i",   "me",  "some", "page", "screen"};
    return words;
}

std::string LibraryStore::ftsQuery(std::string_view text) {
    const std::u32string points = Text::codePoints(Text::lowercased(text));
    const auto& stop = stopwords();
    std::string query;
    std::size_t terms = 0;
    std::size_t start = 0;
    // One step past the end closes the last word.
    for (std::size_t i = 0; i <= points.size() && terms < mostQueryTerms; ++i) {
        if (i < points.size() && Text::isAlphanumeric(points[i])) {
            continue;
        }
        if (i > start) {
            const std::string word = Text::utf8(std::u32string_view(points).substr(start, i - start));
            if (!stop.contains(word)) {
                // Only letters, marks and numbers stand between the quotes, so no word can close the string
                // early or become an operator.
                if (!query.empty()) {
                    query += ' ';
                }
                query += '"';
                query += word;
                query += "\"*";
                ++terms;
            }
        }
        start = i + 1;
    }
    return query;
}

std::vector<LibraryStore::TextMatch> LibraryStore::textSearch(const std::string& text, std::int64_t limit) {
    const std::lock_guard guard(mutex_);
    const std::string query = ftsQuery(text);
    if (query.empty()) {
        return {};
    }
    std::vector<TextMatch> matches;
    db_.forEachRow(
        "SELECT id, bm25(captures_fts) AS r FROM captures_fts WHERE captures_fts MATCH ? ORDER BY r "
        "LIMIT ?",
        {query, limit}, [&](const Database::Cursor& cursor) {
            if (auto id = cursor.text(0)) {
                matches.push_back(TextMatch{std::string(*id), cursor.value(1).asDouble().value_or(0)});
            }
        });
    return matches;
}

} // namespace keepery
