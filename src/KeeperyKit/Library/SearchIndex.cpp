#include "Library/SearchIndex.h"

#include "Understanding/VectorMath.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <system_error>

namespace keepery {
namespace {

std::size_t indexOf(VectorSpace space) {
    return static_cast<std::size_t>(static_cast<VectorSpace::Case>(space));
}

} // namespace

// What a load read, handed from its thread to the index when the thread is joined.
struct SearchIndex::Load {
    std::unique_ptr<LibraryStore> reader;
    std::atomic<bool> stop = false;
    LibraryStore::Generation generation;
    std::int64_t membersLimit = 0;
    bool complete = false;
    std::array<LibraryStore::VectorRows, 2> rows;
    std::vector<LibraryStore::Membership> memberships;
};

SearchIndex::SearchIndex(std::string model) : SearchIndex(std::move(model), Scan()) {}

SearchIndex::SearchIndex(std::string model, Scan scan) : model_(std::move(model)), scan_(scan) {}

SearchIndex::~SearchIndex() {
    if (loader_.joinable()) {
        // Nobody will search: the load stops at its next row.
        load_->stop = true;
        load_->reader->interrupt();
        loader_.join();
    }
}

void SearchIndex::preload(LibraryStore& store, std::int64_t membersLimit) {
    if (loader_.joinable()) {
        return;
    }
    auto load = std::make_unique<Load>();
    load->reader = std::make_unique<LibraryStore>(LibraryStore::ReadOnly{}, store.root());
    // Taken before the load reads anything: an equal mark afterwards means it read what is there now.
    load->generation = store.generation();
    load->membersLimit = membersLimit;
    Load* into = load.get();
    loader_ = std::thread([into, model = model_] {
        try {
            into->rows = into->reader->vectorRows(model);
            if (!into->stop) {
                into->memberships = into->reader->memberships(into->membersLimit);
                into->complete = !into->stop;
            }
        } catch (const std::exception&) {
            // The search reads on its own connection instead.
        }
    });
    load_ = std::move(load);
}

void SearchIndex::finishLoad(LibraryStore& store) {
    if (!loader_.joinable()) {
        return;
    }
    loader_.join();
    const std::unique_ptr<Load> load = std::move(load_);
    if (!load->complete || store.generation() != load->generation) {
        return;
    }
    for (std::size_t s = 0; s < spaces_.size(); ++s) {
        keep(spaces_[s], std::move(load->rows[s]), load->generation);
    }
    keepMembers(std::move(load->memberships), load->generation, load->membersLimit);
}

void SearchIndex::keep(Vectors& cached, LibraryStore::VectorRows rows, LibraryStore::Generation generation) {
    cached.rows = std::move(rows);
    cached.dimension = cached.rows.size() == 0 ? 0 : cached.rows.row(0).size();
    for (std::size_t i = 1; i < cached.rows.size() && cached.dimension != 0; ++i) {
        if (cached.rows.row(i).size() != cached.dimension) {
            cached.dimension = 0;
        }
    }
    cached.generation = generation;
}

std::array<SearchIndex::Vectors, 2>& SearchIndex::vectors(LibraryStore& store) {
    finishLoad(store);
    const LibraryStore::Generation now = store.generation();
    if (std::all_of(spaces_.begin(), spaces_.end(), [&](const Vectors& v) { return v.generation == now; })) {
        return spaces_;
    }
    for (Vectors& cached : spaces_) {
        cached = {};
    }
    std::array<LibraryStore::VectorRows, 2> rows = store.vectorRows(model_);
    for (std::size_t s = 0; s < spaces_.size(); ++s) {
        keep(spaces_[s], std::move(rows[s]), now);
    }
    return spaces_;
}

void SearchIndex::score(std::span<const float> query, std::span<const Vectors* const> spaces) {
    std::size_t total = 0;
    for (std::size_t s = 0; s < spaces.size(); ++s) {
        scratch_[s].resize(spaces[s]->rows.size());
        total += spaces[s]->rows.size();
    }
    const std::size_t cores =
        scan_.threads != 0 ? scan_.threads : std::max<std::size_t>(1, std::thread::hardware_concurrency());
    const std::size_t parts =
        std::clamp<std::size_t>(total / std::max<std::size_t>(1, scan_.leastRowsPerThread), 1, cores);
    // Part p scores the same share of every space; each row's sum is made by one thread in index order.
    const auto scorePart = [&](std::size_t part) {
        for (std::size_t s = 0; s < spaces.size(); ++s) {
            const Vectors& cached = *spaces[s];
            const std::size_t n = cached.rows.size();
            const std::size_t begin = n * part / parts;
            const std::size_t end = n * (part + 1) / parts;
            float* out = scratch_[s].data();
            if (cached.dimension != 0) {
                const std::size_t d = cached.dimension;
                VectorMath::dots(query, std::span(cached.rows.floats).subspan(begin * d, (end - begin) * d),
                                 d, std::span(out + begin, end - begin));
            } else {
                for (std::size_t i = begin; i < end; ++i) {
                    out[i] = VectorMath::dot(query, cached.rows.row(i));
                }
            }
        }
    };
    std::vector<std::jthread> helpers;
    std::size_t first = 1;
    for (; first < parts; ++first) {
        try {
            helpers.emplace_back(scorePart, first);
        } catch (const std::system_error&) {
            break; // no thread to be had: the rest is scored here
        }
    }
    scorePart(0);
    for (std::size_t part = first; part < parts; ++part) {
        scorePart(part);
    }
}

std::vector<SearchMerge::ScoredID> SearchIndex::paired(const Vectors& cached,
                                                       const std::vector<float>& scores,
                                                       std::optional<std::string_view> excluding) {
    const LibraryStore::VectorRows& rows = cached.rows;
    std::vector<SearchMerge::ScoredID> scored;
    scored.reserve(rows.size());
    for (std::size_t i = 0; i < rows.size(); ++i) {
        if (excluding && rows.ids[i] == *excluding) {
            continue;
        }
        scored.push_back({rows.ids[i], scores[i]});
    }
    return scored;
}

std::vector<SearchMerge::ScoredID> SearchIndex::scores(LibraryStore& store, VectorSpace space,
                                                       std::span<const float> query,
                                                       std::optional<std::string_view> excluding) {
    const Vectors* const one[] = {&vectors(store)[indexOf(space)]};
    score(query, one);
    return paired(*one[0], scratch_[0], excluding);
}

std::array<std::vector<SearchMerge::ScoredID>, 2> SearchIndex::scores(LibraryStore& store,
                                                                      std::span<const float> query) {
    const std::array<Vectors, 2>& both = vectors(store);
    const Vectors* const spaces[] = {&both[0], &both[1]};
    score(query, spaces);
    return {paired(both[0], scratch_[0], std::nullopt), paired(both[1], scratch_[1], std::nullopt)};
}

const SearchMerge::CollectionMembers& SearchIndex::members(LibraryStore& store, std::int64_t limit) {
    finishLoad(store);
    const LibraryStore::Generation now = store.generation();
    if (membersGeneration_ == now && membersLimit_ == limit) {
        return members_;
    }
    membersGeneration_.reset();
    members_.clear();
    keepMembers(store.memberships(limit), now, limit);
    return members_;
}

void SearchIndex::keepMembers(std::vector<LibraryStore::Membership> memberships,
                              LibraryStore::Generation generation, std::int64_t limit) {
    members_.clear();
    for (LibraryStore::Membership& membership : memberships) {
        if (membership.collectionID) {
            members_[*membership.collectionID].push_back(std::move(membership.captureID));
        }
    }
    membersGeneration_ = generation;
    membersLimit_ = limit;
}

void SearchIndex::clear() {
    for (Vectors& cached : spaces_) {
        cached = {};
    }
    membersGeneration_.reset();
    members_.clear();
}

} // namespace keepery
