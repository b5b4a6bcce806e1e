#pragma once

#include "Library/SearchMerge.h"
#include "Model/Vocabularies.h"
#include "Organizing/Organizer.h"
#include "Store/LibraryStore.h"

#include <array>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <unordered_map>
#include <vector>

namespace keepery {

// What every search reads of the whole library: each stored vector of one embedding model in both spaces,
// and which capture is filed in which collection. Reading that from the database on every query costs
// hundreds of milliseconds at a hundred thousand captures, so it is kept here between searches and read
// again only when the database has changed since (through this store or through any other connection).
// The organizing step decides from the same vectors and listing. A write this process makes through the
// store is applied to what is kept (see `Write`) instead of reading everything again. The answers are
// those of reading afresh, in the same order. Not thread-safe: the Library's lock guards it.
class SearchIndex {
public:
    // How a scan of the vectors is shared out: at most `threads` parts (0: one per processor core), none
    // of fewer than `leastRowsPerThread` rows. Every row's score is the same however it is shared.
    struct Scan {
        std::size_t threads = 0;
        std::size_t leastRowsPerThread = 4096;
    };

    explicit SearchIndex(std::string model);
    SearchIndex(std::string model, Scan scan);
    // Waits for a load under way.
    ~SearchIndex();
    SearchIndex(const SearchIndex&) = delete;
    SearchIndex& operator=(const SearchIndex&) = delete;

    // Starts reading what the first search reads (both spaces' vectors, and the members among the newest
    // `membersLimit` captures) on a thread and a read-only connection of its own, and returns at once. The
    // next call that needs them waits for what is left of the load, and uses it only when nothing was
    // written to the database since this call; otherwise it reads afresh. Throws Database::Failure.
    void preload(LibraryStore& store, std::int64_t membersLimit);

    // Every stored vector of the model in `space`, except those of `excluding`, in the store's order, each
    // with its dot product with `query` (as SearchMerge::scores gives it). The ids are views into this
    // index, valid until the next call. Throws Database::Failure.
    [[nodiscard]] std::vector<SearchMerge::ScoredID>
    scores(LibraryStore& store, VectorSpace space, std::span<const float> query,
           std::optional<std::string_view> excluding = std::nullopt);

    // The scores of both spaces at once, indexed by the space's value, each as `scores` gives it: one pass
    // over the vectors, shared between threads.
    [[nodiscard]] std::array<std::vector<SearchMerge::ScoredID>, 2> scores(LibraryStore& store,
                                                                           std::span<const float> query);

    // The members of every collection among the newest `limit` captures, newest first. Throws
    // Database::Failure.
    [[nodiscard]] const SearchMerge::CollectionMembers& members(LibraryStore& store, std::int64_t limit);

    // `SearchMerge::coveredCollections(ranked, members(store, limit))` for the members last read, found
    // from the ranked ids' own collections instead of by visiting every member of every collection.
    [[nodiscard]] std::vector<std::string> coveredCollections(std::span<const std::string> ranked) const;

    // The organizer's decision for capture `id` of meaning vector `vector`, among the newest `limit`
    // captures: the groups are the collections with the meaning vectors of their members (newest first),
    // the unsorted list the organized captures in no collection with theirs (newest first); `id` itself
    // is in neither, and captures without a meaning vector of the model take no part. The same decision as
    // `organizer.decide` on those lists read afresh, made without looking at every vector: a collection
    // whose kept centroid is below the join threshold, and an unsorted capture below the form threshold,
    // cannot change it. Throws Database::Failure.
    [[nodiscard]] Organizer::Decision decide(LibraryStore& store, const Organizer& organizer,
                                             std::string_view id, std::span<const float> vector,
                                             std::int64_t limit);

    // One write this process made through the store while holding the store's lock: the store's
    // generation just before and just after it. When nobody else wrote in between, what was read at
    // `before` is brought up to `after` by the change; otherwise it is forgotten and read again.
    struct Write {
        LibraryStore::Generation before;
        LibraryStore::Generation after;
    };

    // A write that changes neither vectors, nor the listing's ids, collections, times or stages.
    void unchanged(const Write& write);
    // A new capture row (not organized, in no collection).
    void inserted(const Write& write, const Capture& capture);
    // The capture's stage changed; `organized` says whether it is now organized.
    void staged(const Write& write, const std::string& id, bool organized);
    // The capture's vectors of this model were replaced, and it moved to stage `embedded`.
    void embedded(const Write& write, const std::string& id,
                  const std::map<VectorSpace, std::vector<float>>& vectors);
    // The capture was filed in `collectionID` (none: unsorted); with `organized`, it also moved to stage
    // `organized`, otherwise its stage stayed.
    void filed(const Write& write, const std::string& id, const std::optional<std::string>& collectionID,
               bool organized);
    // The capture and its vectors are gone.
    void deleted(const Write& write, const std::string& id);

    // Forgets everything read, so the next call reads afresh.
    void clear();

private:
    struct Vectors {
        std::optional<LibraryStore::Generation> generation;
        LibraryStore::VectorRows rows;
        // The length of every row, or 0 when the rows differ in length (then each is scored on its own).
        std::size_t dimension = 0;
        // The row of each id.
        std::unordered_map<std::string, std::size_t> rowOf;
    };

    // A capture of the listing: where it stands in it (newer first, then smaller `order`), its collection
    // and whether it is organized.
    struct Listed {
        Instant createdAt = 0;
        std::int64_t order = 0;
        std::optional<std::string> collectionID;
        bool organized = false;
    };

    struct Listing {
        std::optional<LibraryStore::Generation> generation;
        std::int64_t limit = 0;
        // The listing may have left captures out (it read as many as its limit).
        bool cut = false;
        std::unordered_map<std::string, Listed> byID;
        // The order of the next capture kept here: below every other, so it comes first among equal times.
        std::int64_t nextOrder = -1;
    };
    // A listing with what is read from it: the members of every collection and the unsorted captures.
    struct ListingState {
        Listing listing;
        SearchMerge::CollectionMembers members;
        std::vector<std::string> unsorted;
    };
    struct Load;

    // Both spaces, read afresh (in one pass) when either is out of date.
    std::array<Vectors, 2>& vectors(LibraryStore& store);
    // Rows made ready for scoring and finding by id; any thread.
    static Vectors made(LibraryStore::VectorRows rows, LibraryStore::Generation generation);
    // A listing of `limit` made ready; any thread.
    static ListingState listed(std::vector<LibraryStore::Membership> memberships,
                               LibraryStore::Generation generation, std::int64_t limit);
    void keepListing(ListingState state);
    // Waits for a load under way and keeps what it read if it is still current.
    void finishLoad(LibraryStore& store);
    // Scores every row of spaces[s] into scratch_[s], on as many threads as the rows warrant.
    void score(std::span<const float> query, std::span<const Vectors* const> spaces);
    static std::vector<SearchMerge::ScoredID> paired(const Vectors& cached, const std::vector<float>& scores,
                                                     std::optional<std::string_view> excluding);
    Vectors& kept(VectorSpace space) {
        return spaces_[static_cast<std::size_t>(static_cast<VectorSpace::Case>(space))];
    }
    // Whether `piece`, read at `write.before`, may take the write's change; moves it to `write.after` when
    // it may and forgets it (returning false) when it was read at another time or another connection
    // wrote. A piece not read at all stays so.
    static bool follows(std::optional<LibraryStore::Generation>& piece, const Write& write);
    bool vectorsFollow(VectorSpace space, const Write& write);
    bool listingFollows(const Write& write);
    void forgetListing();

    // Listing order.
    [[nodiscard]] bool before(const std::string& a, const std::string& b) const;
    // Both return where the id went or was (ids.size() when it was not there).
    std::size_t insertOrdered(std::vector<std::string>& ids, const std::string& id) const;
    std::size_t eraseOrdered(std::vector<std::string>& ids, const std::string& id) const;
    // Takes the capture out of its collection's members and the unsorted list, then puts it back where
    // its entry now says.
    void unplace(const std::string& id, const Listed& entry);
    void place(const std::string& id, const Listed& entry);
    void setEntry(const std::string& id, const std::optional<std::string>& collectionID, bool organized);
    const std::vector<std::size_t>& unsortedRows();
    void appendRow(Vectors& cached, const std::string& id, const std::vector<float>& vector);
    void eraseRow(Vectors& cached, const std::string& id);

    // The centroid of the collection's members that have a meaning vector, kept until one of them changes.
    const std::optional<std::vector<float>>& centroid(const std::string& collectionID);
    [[nodiscard]] std::vector<std::span<const float>> memberVectors(const std::vector<std::string>& ids,
                                                                    std::string_view excluding) const;

    std::string model_;
    Scan scan_;
    std::array<Vectors, 2> spaces_;
    Listing listing_;
    SearchMerge::CollectionMembers members_;
    // The organized captures in no collection, newest first.
    std::vector<std::string> unsorted_;
    // The meaning row of each of unsorted_ (noRow: none), kept in step with it and with the rows once made.
    static constexpr std::size_t noRow = static_cast<std::size_t>(-1);
    std::vector<std::size_t> unsortedRows_;
    bool unsortedRowsKnown_ = false;
    std::unordered_map<std::string, std::optional<std::vector<float>>> centroids_;
    std::array<std::vector<float>, 2> scratch_;
    std::unique_ptr<Load> load_;
    std::thread loader_;
};

} // namespace keepery
