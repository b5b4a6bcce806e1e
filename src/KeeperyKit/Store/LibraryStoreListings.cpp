// Listings by filter, counts, and full-text search.
#include "Store/LibraryStore.h"

#include "Platform/Text.h"

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
        return capturesWhere("c.collection_id = ?", {text()}, limit, order);
    case LibraryFilter::Case::kind:
        return capturesWhere("c.kind = ?", {std::get<CaptureKind>(payload).rawValue()}, limit, order);
    case LibraryFilter::Case::source:
        return capturesWhere("c.source = ?", {text()}, limit, order);
    case LibraryFilter::Case::since:
        return capturesWhere("c.created_at >= ?", {std::get<Instant>(payload)}, limit, order);
    case LibraryFilter::Case::media:
        return capturesWhere("c.media = ?", {std::get<CaptureMedia>(payload).rawValue()}, limit, order);
    case LibraryFilter::Case::recent:
        return capturesWhere("1", {}, limit, order);
    case LibraryFilter::Case::favorites:
        return capturesWhere("c.favorite = 1", {}, limit, order);
    case LibraryFilter::Case::unsorted:
        return capturesWhere("c.collection_id IS NULL", {}, limit, order);
    }
    return {};
}

std::vector<LibraryStore::Membership> LibraryStore::memberships(std::int64_t limit) {
    const std::lock_guard guard(mutex_);
    // The listing's condition, order and cut, so that SQLite walks the rows the same way.
    std::vector<Membership> found;
    db_.forEachRow(
        "SELECT c.id, c.collection_id, c.created_at, c.stage FROM captures c WHERE 1 ORDER BY c.created_at "
        "DESC LIMIT ?",
        {limit}, [&](const Database::Cursor& cursor) {
            Membership membership{std::string(cursor.text(0).value_or(std::string_view())), std::nullopt};
            if (auto collection = cursor.text(1)) {
                membership.collectionID.emplace(*collection);
            }
            membership.createdAt = cursor.value(2).asDouble().value_or(0);
            membership.organized = cursor.text(3) == stageText(CaptureStage::organized);
            found.push_back(std::move(membership));
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
