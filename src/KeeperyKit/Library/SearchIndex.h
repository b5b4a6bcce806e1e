#pragma once

#include "Library/SearchMerge.h"
#include "Model/Vocabularies.h"
#include "Store/LibraryStore.h"

#include <array>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace keepery {

// What every search reads of the whole library: each stored vector of one embedding model in both spaces,
// and which capture is filed in which collection. Reading that from the database on every query costs
// hundreds of milliseconds at a hundred thousand captures, so it is kept here between searches and read
// again only when the database has changed since (through this store or through any other connection).
// The answers are those of reading afresh, in the same order. Not thread-safe: the Library's lock guards it.
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

    // Forgets everything read, so the next call reads afresh.
    void clear();

private:
    struct Vectors {
        std::optional<LibraryStore::Generation> generation;
        LibraryStore::VectorRows rows;
        // The length of every row, or 0 when the rows differ in length (then each is scored on its own).
        std::size_t dimension = 0;
    };
    struct Load;

    // Both spaces, read afresh (in one pass) when either is out of date.
    std::array<Vectors, 2>& vectors(LibraryStore& store);
    void keep(Vectors& cached, LibraryStore::VectorRows rows, LibraryStore::Generation generation);
    void keepMembers(std::vector<LibraryStore::Membership> memberships, LibraryStore::Generation generation,
                     std::int64_t limit);
    // Waits for a load under way and keeps what it read if it is still current.
    void finishLoad(LibraryStore& store);
    // Scores every row of spaces[s] into scratch_[s], on as many threads as the rows warrant.
    void score(std::span<const float> query, std::span<const Vectors* const> spaces);
    static std::vector<SearchMerge::ScoredID> paired(const Vectors& cached, const std::vector<float>& scores,
                                                     std::optional<std::string_view> excluding);

    std::string model_;
    Scan scan_;
    std::array<Vectors, 2> spaces_;
    std::optional<LibraryStore::Generation> membersGeneration_;
    std::int64_t membersLimit_ = 0;
    SearchMerge::CollectionMembers members_;
    std::array<std::vector<float>, 2> scratch_;
    std::unique_ptr<Load> load_;
    std::thread loader_;
};

} // namespace keepery
