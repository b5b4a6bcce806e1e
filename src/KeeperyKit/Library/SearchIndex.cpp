#include "Library/SearchIndex.h"

#include "Understanding/VectorMath.h"

namespace keepery {

SearchIndex::Vectors& SearchIndex::vectors(LibraryStore& store, VectorSpace space) {
    Vectors& cached = spaces_[static_cast<std::size_t>(static_cast<VectorSpace::Case>(space))];
    const LibraryStore::Generation now = store.generation();
    if (cached.generation == now) {
        return cached;
    }
    cached.generation.reset();
    cached.rows = {};
    cached.rows = store.vectorRows(model_, space);
    cached.dimension = cached.rows.size() == 0 ? 0 : cached.rows.row(0).size();
    for (std::size_t i = 1; i < cached.rows.size() && cached.dimension != 0; ++i) {
        if (cached.rows.row(i).size() != cached.dimension) {
            cached.dimension = 0;
        }
    }
    cached.generation = now;
    return cached;
}

std::vector<SearchMerge::ScoredID> SearchIndex::scores(LibraryStore& store, VectorSpace space,
                                                       std::span<const float> query,
                                                       std::optional<std::string_view> excluding) {
    const Vectors& cached = vectors(store, space);
    const LibraryStore::VectorRows& rows = cached.rows;
    const std::size_t n = rows.size();
    scratch_.resize(n);
    if (cached.dimension != 0) {
        VectorMath::dots(query, rows.floats, cached.dimension, scratch_);
    } else {
        for (std::size_t i = 0; i < n; ++i) {
            scratch_[i] = VectorMath::dot(query, rows.row(i));
        }
    }
    std::vector<SearchMerge::ScoredID> scored;
    scored.reserve(n);
    for (std::size_t i = 0; i < n; ++i) {
        if (excluding && rows.ids[i] == *excluding) {
            continue;
        }
        scored.push_back({rows.ids[i], scratch_[i]});
    }
    return scored;
}

const SearchMerge::CollectionMembers& SearchIndex::members(LibraryStore& store, std::int64_t limit) {
    const LibraryStore::Generation now = store.generation();
    if (membersGeneration_ == now && membersLimit_ == limit) {
        return members_;
    }
    membersGeneration_.reset();
    members_.clear();
    for (LibraryStore::Membership& membership : store.memberships(limit)) {
        if (membership.collectionID) {
            members_[*membership.collectionID].push_back(std::move(membership.captureID));
        }
    }
    membersGeneration_ = now;
    membersLimit_ = limit;
    return members_;
}

void SearchIndex::clear() {
    for (Vectors& cached : spaces_) {
        cached = {};
    }
    membersGeneration_.reset();
    members_.clear();
}

} // namespace keepery
