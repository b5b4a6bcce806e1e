// Writes and reads of single captures: insert, the stage updates, notes, favourites, tags, delete, the row
// fetch every capture listing shares, and the lenient row decoder.
#include "Store/LibraryStore.h"

#include "Platform/Files.h"
#include "Platform/JSONReader.h"
#include "Platform/Text.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <set>

namespace keepery {
namespace {

using Value = Database::Value;

// Compact JSON array of strings. Text that is not UTF-8 is kept with U+FFFD in place of the bad bytes
// rather than lost.
std::string json(std::span<const std::string> strings) {
    try {
        nlohmann::json array = nlohmann::json::array();
        for (const std::string& s : strings) {
            array.push_back(s);
        }
        return array.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    } catch (const std::exception&) {
        return "[]";
    }
}

// The strings of a JSON array of strings; anything else (not JSON, not an array, a non-string element)
// reads as an empty list.
std::vector<std::string> stringList(std::string_view text) {
    const std::optional<nlohmann::json> parsed = JSONReader::read(text);
    if (!parsed || !parsed->is_array()) {
        return {};
    }
    std::vector<std::string> strings;
    strings.reserve(parsed->size());
    for (const nlohmann::json& element : *parsed) {
        if (!element.is_string()) {
            return {};
        }
        strings.push_back(element.get<std::string>());
    }
    return strings;
}

Value optionalReal(const std::optional<double>& value) {
    return value ? Value(*value) : Value::null();
}

// The columns the decoder reads, resolved to positions once per statement.
enum Column : std::size_t {
    id,
    createdAt,
    app,
    bundleID,
    windowTitle,
    url,
    documentPath,
    width,
    height,
    stage,
    ocrText,
    title,
    summary,
    kind,
    tagList,
    highlights,
    links,
    note,
    favorite,
    collectionID,
    lastError,
    media,
    duration,
    takenAt,
    imageFile,
    originalFile,
    transcript,
    columnCount
};

constexpr std::array<std::string_view, columnCount> columnNames{
    "id",       "created_at", "app",      "bundle_id",  "window_title",  "url",           "document_path",
    "width",    "height",     "stage",    "ocr_text",   "title",         "summary",       "kind",
    "tag_list", "highlights", "links",    "note",       "favorite",      "collection_id", "last_error",
    "media",    "duration",   "taken_at", "image_file", "original_file", "transcript"};

// Reads one row through its column positions; a missing column or a value of another type is absent.
class RowReader {
public:
    explicit RowReader(const Database::Cursor& cursor) : cursor_(cursor) {
        positions_.fill(-1);
        // Where two columns share a name the later one counts, as in a fetched row.
        for (int i = 0; i < cursor.columnCount(); ++i) {
            const std::string_view name = cursor.columnName(i);
            for (std::size_t c = 0; c < columnCount; ++c) {
                if (columnNames[c] == name) {
                    positions_[c] = i;
                }
            }
        }
    }

    std::optional<std::string_view> text(Column c) const {
        return positions_[c] < 0 ? std::nullopt : cursor_.text(positions_[c]);
    }
    std::optional<std::string> optionalText(Column c) const {
        auto t = text(c);
        return t ? std::optional<std::string>(std::string(*t)) : std::nullopt;
    }
    std::string textOrEmpty(Column c) const { return std::string(text(c).value_or(std::string_view())); }
    std::optional<std::int64_t> integer(Column c) const {
        return positions_[c] < 0 ? std::nullopt : cursor_.value(positions_[c]).asInt();
    }
    // A REAL, or an INTEGER converted.
    std::optional<double> real(Column c) const {
        return positions_[c] < 0 ? std::nullopt : cursor_.value(positions_[c]).asDouble();
    }

    Capture capture() const {
        Capture capture;
        capture.id = textOrEmpty(id);
        capture.createdAt = real(createdAt).value_or(0);
        capture.app = textOrEmpty(app);
        capture.bundleID = optionalText(bundleID);
        capture.windowTitle = textOrEmpty(windowTitle);
        capture.url = optionalText(url);
        capture.documentPath = optionalText(documentPath);
        capture.width = integer(width).value_or(0);
        capture.height = integer(height).value_or(0);
        capture.stage = CaptureStage::fromRawValue(text(stage).value_or("")).value_or(CaptureStage::captured);
        capture.ocrText = optionalText(ocrText);
        capture.title = optionalText(title);
        capture.summary = optionalText(summary);
        if (auto raw = text(kind)) {
            capture.kind = CaptureKind::fromRawValue(*raw);
        }
        if (auto list = text(tagList)) {
            std::string_view rest = *list;
            while (!rest.empty()) {
                const std::size_t end = std::min(rest.find('\x1F'), rest.size());
                if (end > 0) {
                    capture.tags.emplace_back(rest.substr(0, end));
                }
                rest.remove_prefix(std::min(end + 1, rest.size()));
            }
            std::sort(capture.tags.begin(), capture.tags.end());
        }
        if (auto raw = text(highlights)) {
            capture.highlights = stringList(*raw);
        }
        if (auto raw = text(links)) {
            capture.links = stringList(*raw);
        }
        capture.note = optionalText(note);
        capture.favorite = integer(favorite).value_or(0) != 0;
        capture.collectionID = optionalText(collectionID);
        capture.lastError = optionalText(lastError);
        capture.media = CaptureMedia::fromRawValue(text(media).value_or("")).value_or(CaptureMedia::screen);
        capture.duration = real(duration);
        capture.takenAt = real(takenAt);
        capture.imageFile = optionalText(imageFile);
        capture.originalFile = optionalText(originalFile);
        capture.transcript = optionalText(transcript);
        return capture;
    }

private:
    const Database::Cursor& cursor_;
    std::array<int, columnCount> positions_{};
};

// True when `path`, taken lexically, lies inside `root`: a stored path must never reach outside the library.
bool isInside(const std::filesystem::path& path, const std::filesystem::path& root) {
    const std::filesystem::path relative =
        path.lexically_normal().lexically_relative(root.lexically_normal());
    return !relative.empty() && *relative.begin() != ".." && relative != ".";
}

} // namespace

void LibraryStore::insert(const Capture& capture) {
    const std::lock_guard guard(mutex_);
    indexedTransaction([&] {
        db_.run("INSERT INTO captures (id, created_at, app, bundle_id, window_title, url, document_path,\n"
                "    source, width, height, stage, note, favorite, media, duration, taken_at, image_file, "
                "original_file)\n"
                "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)",
                {capture.id, capture.createdAt, capture.app, capture.bundleID, capture.windowTitle,
                 capture.url, capture.documentPath, capture.sourceName(), capture.width, capture.height,
                 capture.stage.rawValue(), capture.note, capture.favorite ? 1 : 0, capture.media.rawValue(),
                 optionalReal(capture.duration), optionalReal(capture.takenAt), capture.imageFile,
                 capture.originalFile});
        reindex(capture.id);
    });
}

void LibraryStore::setRead(const std::string& id, const std::string& ocrText,
                           const std::optional<std::string>& transcript) {
    const std::lock_guard guard(mutex_);
    indexedTransaction([&] {
        db_.run(
            "UPDATE captures SET ocr_text = ?, transcript = ?, stage = ?, attempts = 0, last_error = NULL "
            "WHERE id = ?",
            {ocrText, transcript, stageText(CaptureStage::read), id});
        reindex(id);
    });
}

void LibraryStore::setDescribed(const std::string& id, const Description& description) {
    const std::lock_guard guard(mutex_);
    indexedTransaction([&] {
        db_.run("UPDATE captures SET title = ?, summary = ?, kind = ?, highlights = ?, links = ?,\n"
                "    stage = ?, attempts = 0, last_error = NULL WHERE id = ?",
                {description.title, description.summary, description.kind.rawValue(),
                 json(description.highlights), json(description.links), stageText(CaptureStage::described),
                 id});
        writeTags(id, description.tags);
        reindex(id);
    });
}

void LibraryStore::recordFailure(const std::string& id, const std::string& error,
                                 std::chrono::duration<double> retryAfter, Instant now) {
    const std::lock_guard guard(mutex_);
    db_.run("UPDATE captures SET attempts = attempts + 1, last_error = ?, next_attempt_at = ? WHERE id = ?",
            {error, now + retryAfter.count(), id});
}

void LibraryStore::setNote(const std::string& id, const std::optional<std::string>& note) {
    const std::lock_guard guard(mutex_);
    std::optional<std::string> trimmed;
    if (note) {
        trimmed = Text::trimWhitespaceAndNewlines(*note);
        if (trimmed->empty()) {
            trimmed.reset();
        }
    }
    indexedTransaction([&] {
        db_.run("UPDATE captures SET note = ? WHERE id = ?", {trimmed, id});
        reindex(id);
    });
}

void LibraryStore::setFavorite(const std::string& id, bool favorite) {
    const std::lock_guard guard(mutex_);
    db_.run("UPDATE captures SET favorite = ? WHERE id = ?", {favorite ? 1 : 0, id});
}

void LibraryStore::setTags(const std::string& id, const std::vector<std::string>& tags) {
    const std::lock_guard guard(mutex_);
    indexedTransaction([&] {
        writeTags(id, tags);
        reindex(id);
    });
}

void LibraryStore::deleteCapture(const std::string& id) {
    const std::lock_guard guard(mutex_);
    const std::optional<Capture> existing = capture(id);
    indexedTransaction([&] {
        for (std::int64_t rowid : ftsRows_.rowsOf(db_, id)) {
            db_.run("DELETE FROM captures_fts WHERE rowid = ?", {rowid});
        }
        ftsRows_.forget(id);
        // Tag and vector rows go with it: their foreign keys cascade.
        db_.run("DELETE FROM captures WHERE id = ?", {id});
    });
    std::vector<std::filesystem::path> files{imageURL(id), thumbURL(id), sheetURL(id)};
    if (existing) {
        files.push_back(imageURL(*existing));
        if (auto original = originalURL(*existing)) {
            files.push_back(*original);
        }
    }
    for (const std::filesystem::path& file : files) {
        if (isInside(file, root_)) {
            files_.removeQuietly(file);
        }
    }
}

std::optional<Capture> LibraryStore::capture(const std::string& id) {
    const std::lock_guard guard(mutex_);
    std::vector<Capture> found = capturesWhere("c.id = ?", {id}, 1, "c.created_at DESC");
    if (found.empty()) {
        return std::nullopt;
    }
    return std::move(found.front());
}

std::vector<Capture> LibraryStore::captures(const std::vector<std::string>& ids) {
    const std::lock_guard guard(mutex_);
    if (ids.empty()) {
        return {};
    }
    // One statement holds at most 32766 parameters; longer lists are read in parts with the same answer.
    constexpr std::size_t partSize = 10000;
    std::unordered_map<std::string, Capture> byID;
    for (std::size_t start = 0; start < ids.size(); start += partSize) {
        const std::size_t end = std::min(ids.size(), start + partSize);
        std::string condition = "c.id IN (";
        std::vector<Value> values;
        values.reserve(end - start);
        for (std::size_t i = start; i < end; ++i) {
            condition += i == start ? "?" : ",?";
            values.emplace_back(ids[i]);
        }
        condition += ")";
        for (Capture& found : capturesWhere(condition, std::move(values),
                                            static_cast<std::int64_t>(end - start), "c.created_at DESC")) {
            std::string key = found.id;
            byID.insert_or_assign(std::move(key), std::move(found));
        }
    }
    std::vector<Capture> ordered;
    ordered.reserve(byID.size());
    for (const std::string& id : ids) {
        if (auto it = byID.find(id); it != byID.end()) {
            ordered.push_back(it->second);
        }
    }
    return ordered;
}

std::vector<Capture> LibraryStore::pending(Instant now, std::int64_t limit) {
    const std::lock_guard guard(mutex_);
    // In a settled library few captures wait, and the stage index finds them at once, where a walk by time
    // from the oldest capture reads nearly every row first. After a large import most wait, and that walk
    // finds the oldest due ones soonest. "stage < x OR stage > x" is "stage != x" in a form the stage
    // index serves; ties of time keep the walk's order, the row's.
    const std::string organized(stageText(CaptureStage::organized));
    std::int64_t waiting = 0;
    db_.forEachRow("SELECT count(*) FROM captures WHERE stage < ?1 OR stage > ?1", {organized},
                   [&](const Database::Cursor& cursor) { waiting = cursor.value(0).asInt().value_or(0); });
    if (waiting <= fewWaiting) {
        return capturesWhere("(c.stage < ? OR c.stage > ?) AND c.next_attempt_at <= ?",
                             {organized, organized, now}, limit, "+c.created_at ASC, c.rowid ASC");
    }
    return capturesWhere("c.stage != ? AND c.next_attempt_at <= ?", {organized, now}, limit,
                         "c.created_at ASC");
}

std::string LibraryStore::normalizedTag(std::string_view tag) {
    const std::u32string points = Text::codePoints(tag);
    auto strip = [](char32_t c) { return c == U'#' || Text::isWhitespaceOrNewline(c); };
    std::size_t start = 0;
    std::size_t end = points.size();
    while (start < end && strip(points[start])) {
        ++start;
    }
    while (end > start && strip(points[end - 1])) {
        --end;
    }
    return Text::lowercased(Text::utf8(std::u32string_view(points).substr(start, end - start)));
}

void LibraryStore::indexedTransaction(const std::function<void()>& body) {
    try {
        db_.transaction(body);
    } catch (...) {
        ftsRows_.invalidate();
        throw;
    }
}

void LibraryStore::reindex(const std::string& id) {
    // Deleting "WHERE id = ?" would scan the whole full-text table; the rows' places are known instead.
    for (std::int64_t rowid : ftsRows_.rowsOf(db_, id)) {
        db_.run("DELETE FROM captures_fts WHERE rowid = ?", {rowid});
    }
    ftsRows_.forget(id);
    const std::int64_t inserted = db_.run(
        "INSERT INTO captures_fts (id, title, summary, ocr, note, tags, source)\n"
        "SELECT c.id, coalesce(c.title, '') || ' ' || c.window_title, coalesce(c.summary, ''),\n"
        "    coalesce(c.ocr_text, '') || ' ' || coalesce(c.transcript, ''), coalesce(c.note, ''),\n"
        "    coalesce((SELECT group_concat(tag, ' ') FROM capture_tags WHERE capture_id = c.id), ''),\n"
        "    c.source || ' ' || c.app\n"
        "FROM captures c WHERE c.id = ?",
        {id});
    if (inserted > 0) {
        ftsRows_.add(id, db_.lastInsertRowID());
    }
}

void LibraryStore::writeTags(const std::string& id, std::span<const std::string> tags) {
    db_.run("DELETE FROM capture_tags WHERE capture_id = ?", {id});
    std::set<std::string> distinct;
    for (const std::string& tag : tags) {
        if (std::string normalized = normalizedTag(tag); !normalized.empty()) {
            distinct.insert(std::move(normalized));
        }
    }
    // Tags of an id without a row would break their foreign key; a write to a missing capture changes
    // nothing and succeeds, like every other.
    if (distinct.empty() || db_.query("SELECT 1 AS found FROM captures WHERE id = ?", {id}).empty()) {
        return;
    }
    for (const std::string& tag : distinct) {
        db_.run("INSERT INTO capture_tags (capture_id, tag) VALUES (?, ?)", {id, tag});
    }
}

std::vector<Capture> LibraryStore::capturesWhere(const std::string& condition, std::vector<Value> values,
                                                 std::int64_t limit, const std::string& order) {
    values.emplace_back(limit);
    std::vector<Capture> captures;
    std::optional<RowReader> reader;
    db_.forEachRow(
        "SELECT c.*, (SELECT group_concat(tag, char(31)) FROM capture_tags WHERE capture_id = c.id) "
        "AS tag_list\nFROM captures c WHERE " +
            condition + " ORDER BY " + order + " LIMIT ?",
        values, [&](const Database::Cursor& cursor) {
            if (!reader) {
                reader.emplace(cursor);
            }
            captures.push_back(reader->capture());
        });
    return captures;
}

} // namespace keepery
