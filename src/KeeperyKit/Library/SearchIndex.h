#pragma once

#include "Library/SearchMerge.h"
#include "Model/Vocabularies.h"
#include "Store/LibraryStore.h"

#include <array>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace keepery {

// What every search reads of the whole library: each stored vector of one embedding model in both spaces,
// and which capture is filed in which collection. Reading that from the database on every query costs
// hundreds of milliseconds at a hundred thousand captures, so it is kept here between searches and read
// again only when the database has changed since (through this store or through any other connection).
// The answers are those of reading afresh, in the same order. Not thread-safe: the Library's lock guards it.
class SearchIndex {
public:
    explicit SearchIndex(std::string model) : model_(std::move(model)) {}

    // Every stored vector of the model in `space`, except those of `excluding`, in the store's order, each
    // with its dot product with `query` (as SearchMerge::scores gives it). The ids are views into this
    // index, valid until the next call. Throws Database::Failure.
    [[nodiscard]] std::vector<SearchMerge::ScoredID>
    scores(LibraryStore& store, VectorSpace space, std::span<const float> query,
           std::optional<std::string_view> excluding = std::nullopt);

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

    Vectors& vectors(LibraryStore& store, VectorSpace space);

    std::string model_;
    std::array<Vectors, 2> spaces_;
    std::optional<LibraryStore::Generation> membersGeneration_;
    std::int64_t membersLimit_ = 0;
    SearchMerge::CollectionMembers members_;
    std::vector<float> scratch_;
};

} // namespace keepery
