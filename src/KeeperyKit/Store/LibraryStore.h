#pragma once

#include "Model/Capture.h"
#include "Platform/Clock.h"
#include "Platform/Files.h"
#include "Store/Database.h"
#include "Store/FullTextRows.h"
#include "Store/LibraryFilter.h"

#include <array>
#include <chrono>
#include <concepts>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

namespace keepery {

// A record with the six fields a description stores (the describer's CaptureDescription is one), so that
// the store does not depend on the layer that makes descriptions.
template <typename D>
concept DescriptionRecord = requires(const D& d) {
    { d.title } -> std::convertible_to<std::string_view>;
    { d.summary } -> std::convertible_to<std::string_view>;
    { d.kind } -> std::convertible_to<CaptureKind>;
    { d.tags } -> std::convertible_to<std::span<const std::string>>;
    { d.highlights } -> std::convertible_to<std::span<const std::string>>;
    { d.links } -> std::convertible_to<std::span<const std::string>>;
};

// The library: one directory holding the SQLite database `library.sqlite` and the image files
// (`captures/`, `thumbs/`, `media/`). The layout and schema are a storage format shared with the companion
// app. Any thread may use the store: every operation holds the store's one lock for its whole run (a
// transaction included), so no two threads interleave statements on the one connection; `exclusively`
// holds it across several operations. Other processes may write the same database at any time; what the store
// remembers between calls (where the full-text rows lie) is checked against their writes before it is used.
class LibraryStore {
public:
    static constexpr std::int64_t schemaVersion = 2;

    // The application-support directory of the current user with `Keepery` appended.
    [[nodiscard]] static std::filesystem::path defaultRoot();

    // Creates the directories (through `files`) and the database when missing and migrates the schema to
    // version 2 (a newer version is left alone). The library directory and the database files are made
    // private to their owner on every opening (an older library made with wider permissions is tightened;
    // the files inside it are then out of others' reach). Times the store sets itself are read from `clock`;
    // files are removed through `files`. Both must outlive the store. Throws
    // std::filesystem::filesystem_error when a directory cannot be made, Database::Failure when the database
    // cannot be opened or migrated (the migration then leaves nothing behind).
    explicit LibraryStore(std::filesystem::path root, const Clock& clock = Clock::system(),
                          const Files& files = Files::local());

    // A second, read-only connection to the existing library at `root`, for reading on another thread:
    // makes no directory and migrates nothing. Throws Database::Failure when it cannot be opened.
    struct ReadOnly {};
    LibraryStore(ReadOnly, std::filesystem::path root);

    // Makes the operation running on another thread stop soon and throw Database::Failure. Any thread.
    void interrupt() { db_.interrupt(); }

    LibraryStore(const LibraryStore&) = delete;
    LibraryStore& operator=(const LibraryStore&) = delete;

    [[nodiscard]] const std::filesystem::path& root() const { return root_; }

    // Runs `body` holding the store's lock, so that no other thread's store operation falls between the
    // operations `body` makes. Returns what `body` returns and passes on what it throws.
    template <typename Body>
    decltype(auto) exclusively(Body&& body) {
        const std::lock_guard guard(mutex_);
        return body();
    }

    // File locations; pure functions of `root`, none touches the disk. Every one lies inside the library,
    // whatever a database row says: an id is used only as a file name (its last path component), and a
    // stored `imageFile` or `originalFile` is read relative to the root; one that leads outside it ("..")
    // or to the root itself gives the default `captures/<id>.png` (imageURL) or absent (originalURL).
    [[nodiscard]] std::filesystem::path imageURL(const std::string& id) const;
    [[nodiscard]] std::filesystem::path thumbURL(const std::string& id) const;
    [[nodiscard]] std::filesystem::path sheetURL(const std::string& id) const;
    [[nodiscard]] std::filesystem::path imageURL(const Capture& capture) const;
    [[nodiscard]] std::optional<std::filesystem::path> originalURL(const Capture& capture) const;

    // Every operation below is synchronous and throws Database::Failure when a statement fails; one marked
    // "one transaction" then leaves no change behind. An operation on an id that has no row changes nothing
    // and succeeds. None opens a transaction inside another.

    // --- Captures -------------------------------------------------------------------------------------

    // Inserts the capture's row (its kept fields: never its recognised text, description, tags, collection
    // or failure, which start empty) with its source word fixed now, and its full-text row. One
    // transaction. A second insert of an id fails.
    void insert(const Capture& capture);

    // Stores the recognised text and transcript, moves to stage `read` and clears the failure; refreshes
    // the full-text row. One transaction.
    void setRead(const std::string& id, const std::string& ocrText,
                 const std::optional<std::string>& transcript);

    // The describer's fields as the store takes them.
    struct Description {
        std::string_view title;
        std::string_view summary;
        CaptureKind kind;
        std::span<const std::string> tags;
        std::span<const std::string> highlights;
        std::span<const std::string> links;
    };

    // Stores title, summary, kind, highlights and links, replaces the tags, moves to stage `described` and
    // clears the failure; refreshes the full-text row. One transaction.
    void setDescribed(const std::string& id, const Description& description);
    template <DescriptionRecord D>
    void setDescribed(const std::string& id, const D& description) {
        setDescribed(id, Description{description.title, description.summary, description.kind,
                                     description.tags, description.highlights, description.links});
    }

    // Writes one vector per entry (replacing the capture's vector of that space; other spaces stay), moves
    // to stage `embedded` and clears the failure. One transaction.
    void setEmbedding(const std::string& id, const std::string& model,
                      const std::map<VectorSpace, std::vector<float>>& vectors);

    // Counts one more failed attempt, keeps `error` as the last error and makes the capture due again
    // `retryAfter` after `now`. The stage stays.
    void recordFailure(const std::string& id, const std::string& error,
                       std::chrono::duration<double> retryAfter, Instant now);

    // Sets the note trimmed of white space and line breaks; an absent or blank note clears it. Refreshes the
    // full-text row. One transaction.
    void setNote(const std::string& id, const std::optional<std::string>& note);

    void setFavorite(const std::string& id, bool favorite);

    // Replaces the tags with the distinct non-empty normalised ones; refreshes the full-text row. One
    // transaction.
    void setTags(const std::string& id, const std::vector<std::string>& tags);

    // Deletes the capture's rows in every table (one transaction), then, after the commit, its image,
    // thumbnail, sheet and original files, ignoring every file failure. The collection it was in stays.
    void deleteCapture(const std::string& id);

    // The capture with this id, or absent.
    [[nodiscard]] std::optional<Capture> capture(const std::string& id);

    // The captures of the given ids in the order asked; ids without a row are skipped, a repeated id gives
    // its capture again. An empty list reads nothing.
    [[nodiscard]] std::vector<Capture> captures(const std::vector<std::string>& ids);

    // At most `limit` captures not yet organized whose next attempt is due at `now`, oldest kept first.
    [[nodiscard]] std::vector<Capture> pending(Instant now, std::int64_t limit);
    // Up to this many captures not yet organized are found through the stage index and sorted; more are
    // found by walking every capture from the oldest.
    static constexpr std::int64_t fewWaiting = 1000;

    // --- Collections ----------------------------------------------------------------------------------

    // Inserts the collection (its `count` is not stored: listings compute it).
    void insertCollection(const CaptureCollection& collection);

    // Files the capture in the collection, or in none; stage and failure stay.
    void moveCapture(const std::string& id, const std::optional<std::string>& collectionID);

    // Files the capture in the collection, or in none, moves it to stage `organized` and clears the failure.
    void setCollection(const std::string& id, const std::optional<std::string>& collectionID);

    // Sets the collection's update time to now.
    void touchCollection(const std::string& collectionID);

    enum class NamedBy : bool { namer, user };

    // Renames the collection, records the member count at naming and sets its update time to now. A rename
    // by the user marks it user-named for good; one by the namer never clears that mark.
    void renameCollection(const std::string& collectionID, const std::string& name, const std::string& emoji,
                          std::int64_t namedAtCount, NamedBy namedBy);

    // Deletes every collection no capture is filed in.
    void dropEmptyCollections();

    // --- Vectors --------------------------------------------------------------------------------------

    // A stored vector holding an infinity or NaN counts as no vector in every read below.

    // The capture's vector in `space`, of whichever model made it; absent when there is none.
    [[nodiscard]] std::optional<std::vector<float>> vector(const std::string& id, VectorSpace space);

    // Every vector of `model` in `space` as one block, in no particular order: the floats of row i at
    // [starts[i], starts[i + 1]) of `floats`. Rows whose id is not text or whose vector is not a BLOB are
    // skipped; a BLOB's trailing bytes that make no whole float are ignored.
    struct VectorRows {
        std::vector<std::string> ids;
        std::vector<std::size_t> starts{0};
        std::vector<float> floats;
        [[nodiscard]] std::size_t size() const { return ids.size(); }
        [[nodiscard]] std::span<const float> row(std::size_t i) const {
            return std::span<const float>(floats).subspan(starts[i], starts[i + 1] - starts[i]);
        }
    };
    [[nodiscard]] VectorRows vectorRows(const std::string& model, VectorSpace space);
    // The vectors of `model` in both spaces from one pass over the table, indexed by the space's value;
    // each space's rows in the order `vectorRows(model, space)` gives them.
    [[nodiscard]] std::array<VectorRows, 2> vectorRows(const std::string& model);

    // --- Listings and counts --------------------------------------------------------------------------

    // At most `limit` captures that pass the filter, newest kept first.
    [[nodiscard]] std::vector<Capture> captures(const LibraryFilter& filter, std::int64_t limit);

    // Every collection with its current member count (0 included), most recently updated first. Kept
    // from the last call while nobody has written to the database since.
    [[nodiscard]] std::vector<CaptureCollection> collections();
    // The collection with this id as `collections` gives it, without counting the others; absent when none.
    [[nodiscard]] std::optional<CaptureCollection> collection(const std::string& id);

    // What shows a collection to a person, read without counting its members.
    struct CollectionName {
        std::string id;
        std::string name;
        std::string emoji;
    };
    // Every collection, most recently updated first (the order of `collections()`).
    [[nodiscard]] std::vector<CollectionName> collectionNames();
    // The collections with these ids, in no particular order; ids without a row are skipped.
    [[nodiscard]] std::vector<CollectionName> collectionNames(const std::vector<std::string>& ids);

    struct Membership {
        std::string captureID;
        std::optional<std::string> collectionID;
        Instant createdAt = 0;
        // At stage `organized`.
        bool organized = false;
    };
    // The id, collection, time and whether it is organized of each capture `captures(recent, limit)` lists,
    // in its order, read without the rest of the row.
    [[nodiscard]] std::vector<Membership> memberships(std::int64_t limit);

    // A mark of what the database holds: two equal marks taken from one store mean that nobody (this store
    // or another connection, in this process or another) wrote in between. Throws Database::Failure.
    struct Generation {
        std::int64_t dataVersion = -1;
        std::int64_t ownChanges = -1;
        bool operator==(const Generation&) const = default;
    };
    [[nodiscard]] Generation generation();

    // Captures per described kind, largest first (ties in SQLite's order); unknown kinds are skipped.
    [[nodiscard]] std::vector<std::pair<CaptureKind, std::int64_t>> kindCounts();

    // Captures per media; a media with no captures has no entry.
    [[nodiscard]] std::unordered_map<CaptureMedia, std::int64_t> mediaCounts();

    // Captures per stage; a stage with no captures has no entry.
    [[nodiscard]] std::unordered_map<CaptureStage, std::int64_t> stageCounts();

    // A capture whose last attempt failed, with the attempts counted so far and when it is due again.
    struct Failing {
        Capture capture;
        std::int64_t attempts = 0;
        Instant nextAttemptAt = 0;
    };
    // At most `limit` captures not yet organized whose last attempt failed, soonest due first.
    [[nodiscard]] std::vector<Failing> failing(std::int64_t limit);

    // At most `limit` source words of screen captures with their counts, largest first, ties by word.
    // Photos, videos and empty sources are not counted.
    [[nodiscard]] std::vector<std::pair<std::string, std::int64_t>> sourceCounts(std::int64_t limit);

    [[nodiscard]] std::int64_t count();
    // Captures kept at or after `start`.
    [[nodiscard]] std::int64_t count(Instant start);

    // --- Files no capture names -----------------------------------------------------------------------

    // A keep writes its files before its row, so a keep that was killed in between leaves files behind
    // that no row names; so does a whole-file write killed before its rename (its temporary file).
    struct Leftovers {
        std::vector<std::filesystem::path> files; // in name order
        std::uintmax_t bytes = 0;
    };
    // A younger file may belong to a keep still running in another process.
    static constexpr std::chrono::hours leftoverAge{1};

    // The regular files directly inside `captures/`, `thumbs/` and `media/` that no row names as its
    // image, thumbnail, contact sheet or original, last modified more than `leftoverAge` before the store's
    // clock says now. Nothing outside those directories is looked at (a directory that is a symbolic link is
    // skipped), and the rows are read in one query. Files that vanish or cannot be read meanwhile are left
    // out. Throws Database::Failure.
    [[nodiscard]] Leftovers leftovers();

    // Removes what `leftovers()` finds, through the store's Files, and returns what it removed (a file that
    // cannot be removed is left out). Throws Database::Failure.
    Leftovers removeLeftovers();

    // --- Full-text search -----------------------------------------------------------------------------

    struct TextMatch {
        std::string id;
        double rank; // bm25: more negative is better
    };
    // At most `limit` captures whose indexed text holds every word of `text` (each as a word prefix), best
    // first. Text without a searchable word gives an empty list without touching the database.
    [[nodiscard]] std::vector<TextMatch> textSearch(const std::string& text, std::int64_t limit);

    // The FTS5 query for a person's words: lower-cased, split at everything but letters, marks and numbers
    // of any script, stop words dropped, each word a quoted prefix term, joined by blanks (all required),
    // the first `mostQueryTerms` words only. Empty when no word is left. No input yields FTS5 syntax of its
    // own. Pure; any thread.
    [[nodiscard]] static std::string ftsQuery(std::string_view text);

    // FTS5's work grows faster than the terms of a query (16,000 matching words took 6 s, 32,000 took
    // 25 s, and every request behind them waited); a person or an assistant asks in a handful of words, so
    // past this many the rest are not searched. Repeats count: a repeated word costs as much as a new one.
    static constexpr std::size_t mostQueryTerms = 64;

    // The 26 words never searched for.
    [[nodiscard]] static const std::unordered_set<std::string_view>& stopwords();

    // A tag as stored: white space, line breaks and "#" removed from both ends, then lower-cased.
    [[nodiscard]] static std::string normalizedTag(std::string_view tag);

private:
    // The stage as the `stage` column holds it.
    static constexpr std::string_view stageText(CaptureStage stage) { return stage.rawValue(); }

    void migrate();
    // Runs `body` in one transaction that may refresh full-text rows; a failure forgets where they lie.
    void indexedTransaction(const std::function<void()>& body);
    void reindex(const std::string& id);
    void writeTags(const std::string& id, std::span<const std::string> tags);
    // The one capture read: the row fetch with its tag list, decoded, in SQLite's order.
    std::vector<Capture> capturesWhere(const std::string& condition, std::vector<Database::Value> values,
                                       std::int64_t limit, const std::string& order);
    // Runs `body`'s reads in one read transaction, so that they all see the same rows.
    void snapshot(const std::function<void()>& body);
    // At most `limit` captures that meet `condition`, newest first and the later row first among equal
    // times: the ids are found reading no more of each row than the condition and the order need, through
    // the time index or through `index` (a null index: the time index only), then those rows are read.
    std::vector<Capture> newestWhere(const std::string& condition, const std::vector<Database::Value>& values,
                                     const char* index, std::int64_t limit);

    // Recursive: an operation may call another.
    std::recursive_mutex mutex_;
    const Clock& clock_;
    const Files& files_;
    std::filesystem::path root_;
    Database db_;
    FullTextRows ftsRows_;
    // The last collection listing, and the mark of the database it was read at.
    std::optional<Generation> collectionsGeneration_;
    std::vector<CaptureCollection> collections_;
};

} // namespace keepery
