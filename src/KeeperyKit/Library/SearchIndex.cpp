#include "Library/SearchIndex.h"

#include "Understanding/VectorMath.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <exception>
#include <map>
#include <string_view>
#include <system_error>
#include <unordered_set>

namespace keepery {
namespace {

std::size_t indexOf(VectorSpace space) {
    return static_cast<std::size_t>(static_cast<VectorSpace::Case>(space));
}

// `dot(vector, row)` for every row, bit for bit; the rows of the vector's length are scored side by side.
std::vector<float> similarities(std::span<const float> vector, std::span<const std::span<const float>> rows) {
    std::vector<float> scores(rows.size());
    std::vector<const float*> starts;
    std::vector<std::size_t> positions;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        if (!vector.empty() && rows[i].size() == vector.size()) {
            starts.push_back(rows[i].data());
            positions.push_back(i);
        } else {
            scores[i] = VectorMath::dot(vector, rows[i]);
        }
    }
    std::vector<float> scored(starts.size());
    VectorMath::dots(vector, starts, vector.size(), scored);
    for (std::size_t j = 0; j < positions.size(); ++j) {
        scores[positions[j]] = scored[j];
    }
    return scores;
}

} // namespace

// What a load read, handed from its thread to the index when the thread is joined.
struct SearchIndex::Load {
    // One connection for the vectors and one for the listing, read side by side.
    std::unique_ptr<LibraryStore> reader;
    std::unique_ptr<LibraryStore> listingReader;
    std::atomic<bool> stop = false;
    LibraryStore::Generation generation;
    std::int64_t membersLimit = 0;
    bool complete = false;
    // Made ready on the load's thread, so that the search that takes them only moves them in.
    std::array<Vectors, 2> spaces;
    ListingState listing;
};

SearchIndex::SearchIndex(std::string model) : SearchIndex(std::move(model), Scan()) {}

SearchIndex::SearchIndex(std::string model, Scan scan) : model_(std::move(model)), scan_(scan) {}

SearchIndex::~SearchIndex() {
    if (loader_.joinable()) {
        // Nobody will search: the load stops at its next row.
        load_->stop = true;
        load_->reader->interrupt();
        load_->listingReader->interrupt();
        loader_.join();
    }
}

void SearchIndex::preload(LibraryStore& store, std::int64_t membersLimit) {
    if (loader_.joinable()) {
        return;
    }
    auto load = std::make_unique<Load>();
    load->reader = std::make_unique<LibraryStore>(LibraryStore::ReadOnly{}, store.root());
    load->listingReader = std::make_unique<LibraryStore>(LibraryStore::ReadOnly{}, store.root());
    // Taken before the load reads anything: an equal mark afterwards means it read what is there now.
    load->generation = store.generation();
    load->membersLimit = membersLimit;
    Load* into = load.get();
    loader_ = std::thread([into, model = model_] {
        std::atomic<bool> listingRead = false;
        const auto readListing = [into, &listingRead] {
            try {
                into->listing = listed(into->listingReader->memberships(into->membersLimit), into->generation,
                                       into->membersLimit);
                listingRead = true;
            } catch (const std::exception&) {
                // The search reads on its own connection instead.
            }
        };
        std::thread lister;
        try {
            lister = std::thread(readListing);
        } catch (const std::system_error&) {
            readListing(); // no thread to be had: one after the other
        }
        bool vectorsRead = false;
        try {
            std::array<LibraryStore::VectorRows, 2> rows = into->reader->vectorRows(model);
            for (std::size_t s = 0; s < rows.size() && !into->stop; ++s) {
                into->spaces[s] = made(std::move(rows[s]), into->generation);
            }
            vectorsRead = true;
        } catch (const std::exception&) {
            // The search reads on its own connection instead.
        }
        if (lister.joinable()) {
            lister.join();
        }
        into->complete = vectorsRead && listingRead && !into->stop;
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
    centroids_.clear();
    spaces_ = std::move(load->spaces);
    keepListing(std::move(load->listing));
}

SearchIndex::Vectors SearchIndex::made(LibraryStore::VectorRows rows, LibraryStore::Generation generation) {
    Vectors cached;
    cached.rows = std::move(rows);
    cached.dimension = cached.rows.size() == 0 ? 0 : cached.rows.row(0).size();
    for (std::size_t i = 1; i < cached.rows.size() && cached.dimension != 0; ++i) {
        if (cached.rows.row(i).size() != cached.dimension) {
            cached.dimension = 0;
        }
    }
    cached.rowOf.reserve(cached.rows.size());
    for (std::size_t i = 0; i < cached.rows.size(); ++i) {
        cached.rowOf.emplace(cached.rows.ids[i], i);
    }
    cached.generation = generation;
    return cached;
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
    centroids_.clear();
    unsortedRowsKnown_ = false;
    std::array<LibraryStore::VectorRows, 2> rows = store.vectorRows(model_);
    for (std::size_t s = 0; s < spaces_.size(); ++s) {
        spaces_[s] = made(std::move(rows[s]), now);
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
    if (listing_.generation == now && listing_.limit == limit) {
        return members_;
    }
    forgetListing();
    keepListing(listed(store.memberships(limit), now, limit));
    return members_;
}

SearchIndex::ListingState SearchIndex::listed(std::vector<LibraryStore::Membership> read,
                                              LibraryStore::Generation generation, std::int64_t limit) {
    ListingState state;
    state.listing.byID.reserve(read.size());
    std::int64_t order = 0;
    for (LibraryStore::Membership& membership : read) {
        state.listing.byID.emplace(
            membership.captureID,
            Listed{membership.createdAt, order++, membership.collectionID, membership.organized});
        if (membership.collectionID) {
            state.members[*membership.collectionID].push_back(membership.captureID);
        } else if (membership.organized) {
            state.unsorted.push_back(membership.captureID);
        }
    }
    state.listing.cut = static_cast<std::int64_t>(read.size()) >= limit;
    state.listing.limit = limit;
    state.listing.generation = generation;
    return state;
}

void SearchIndex::keepListing(ListingState state) {
    forgetListing();
    listing_ = std::move(state.listing);
    members_ = std::move(state.members);
    unsorted_ = std::move(state.unsorted);
}

void SearchIndex::clear() {
    for (Vectors& cached : spaces_) {
        cached = {};
    }
    forgetListing();
}

void SearchIndex::forgetListing() {
    listing_ = {};
    members_.clear();
    unsorted_.clear();
    unsortedRows_.clear();
    unsortedRowsKnown_ = false;
    centroids_.clear();
}

std::vector<std::string> SearchIndex::coveredCollections(std::span<const std::string> ranked) const {
    // Only a collection that holds a ranked id can be covered; its members among the ranked ids are
    // counted from those ids' listing entries. Ordered by id, as the members are.
    std::unordered_set<std::string_view> seen;
    std::map<std::string_view, std::size_t> hits;
    for (const std::string& id : ranked) {
        if (!seen.insert(id).second) {
            continue;
        }
        const auto entry = listing_.byID.find(id);
        if (entry != listing_.byID.end() && entry->second.collectionID) {
            ++hits[*entry->second.collectionID];
        }
    }
    std::vector<std::string> covered;
    for (const auto& [collectionID, count] : hits) {
        const auto found = members_.find(std::string(collectionID));
        if (found != members_.end() && SearchMerge::covers(count, found->second.size())) {
            covered.push_back(found->first);
        }
    }
    return covered;
}

// --- Organizing -------------------------------------------------------------------------------------------

std::vector<std::span<const float>> SearchIndex::memberVectors(const std::vector<std::string>& ids,
                                                               std::string_view excluding) const {
    const Vectors& meaning = spaces_[static_cast<std::size_t>(VectorSpace::Case::meaning)];
    std::vector<std::span<const float>> found;
    found.reserve(ids.size());
    for (const std::string& id : ids) {
        if (id == excluding) {
            continue;
        }
        if (auto row = meaning.rowOf.find(id); row != meaning.rowOf.end()) {
            found.push_back(meaning.rows.row(row->second));
        }
    }
    return found;
}

const std::optional<std::vector<float>>& SearchIndex::centroid(const std::string& collectionID) {
    auto found = centroids_.find(collectionID);
    if (found == centroids_.end()) {
        const std::vector<std::span<const float>> spans = memberVectors(members_.at(collectionID), {});
        found = centroids_.emplace(collectionID, VectorMath::centroid(spans)).first;
    }
    return found->second;
}

const std::vector<std::size_t>& SearchIndex::unsortedRows() {
    if (!unsortedRowsKnown_) {
        const Vectors& meaning = kept(VectorSpace::meaning);
        unsortedRows_.clear();
        unsortedRows_.reserve(unsorted_.size());
        for (const std::string& other : unsorted_) {
            const auto row = meaning.rowOf.find(other);
            unsortedRows_.push_back(row == meaning.rowOf.end() ? noRow : row->second);
        }
        unsortedRowsKnown_ = true;
    }
    return unsortedRows_;
}

Organizer::Decision SearchIndex::decide(LibraryStore& store, const Organizer& organizer, std::string_view id,
                                        std::span<const float> vector, std::int64_t limit) {
    const Vectors& meaning = vectors(store)[indexOf(VectorSpace::meaning)];
    (void)members(store, limit);
    // The organizer joins only a collection whose centroid is at least `join` close; its centroid is the
    // one kept here, computed from the same vectors in the same order, unless the capture itself is a
    // member (then it is left out of its group).
    std::optional<std::string> ownCollection;
    if (const auto self = listing_.byID.find(std::string(id)); self != listing_.byID.end()) {
        ownCollection = self->second.collectionID;
    }
    // Every collection's centroid, scored side by side; then the same walk keeps those close enough.
    std::optional<std::vector<float>> own;
    std::vector<const std::optional<std::vector<float>>*> centers;
    centers.reserve(members_.size());
    for (const auto& [collectionID, ids] : members_) {
        if (ownCollection == collectionID) {
            own = VectorMath::centroid(memberVectors(ids, id));
            centers.push_back(&own);
        } else {
            centers.push_back(&centroid(collectionID));
        }
    }
    std::vector<std::span<const float>> centerRows;
    centerRows.reserve(centers.size());
    for (const std::optional<std::vector<float>>* center : centers) {
        centerRows.push_back(*center ? std::span<const float>(**center) : std::span<const float>());
    }
    const std::vector<float> centerScores = similarities(vector, centerRows);
    std::vector<Organizer::Group> candidates;
    std::size_t c = 0;
    for (const auto& [collectionID, ids] : members_) {
        const std::size_t at = c++;
        if (*centers[at] && centerScores[at] >= organizer.thresholds.join) {
            candidates.push_back({collectionID, memberVectors(ids, id)});
        }
    }
    // Only unsorted captures at least `form` close are kept by the organizer.
    const std::vector<std::size_t>& rows = unsortedRows();
    std::vector<std::span<const float>> theirs(rows.size());
    for (std::size_t i = 0; i < rows.size(); ++i) {
        if (rows[i] != noRow && unsorted_[i] != id) {
            theirs[i] = meaning.rows.row(rows[i]);
        }
    }
    const std::vector<float> unsortedScores = similarities(vector, theirs);
    std::vector<Organizer::Candidate> close;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        if (rows[i] != noRow && unsorted_[i] != id && unsortedScores[i] >= organizer.thresholds.form) {
            close.push_back({unsorted_[i], theirs[i]});
        }
    }
    return organizer.decide(vector, candidates, close);
}

// --- Own writes -------------------------------------------------------------------------------------------

bool SearchIndex::follows(std::optional<LibraryStore::Generation>& piece, const Write& write) {
    if (!piece) {
        return false;
    }
    if (*piece == write.before && write.before.dataVersion == write.after.dataVersion) {
        piece = write.after;
        return true;
    }
    piece.reset();
    return false;
}

bool SearchIndex::vectorsFollow(VectorSpace space, const Write& write) {
    Vectors& cached = kept(space);
    if (follows(cached.generation, write)) {
        return true;
    }
    if (!cached.generation) {
        cached = {};
        if (space == VectorSpace::meaning) {
            centroids_.clear();
            unsortedRowsKnown_ = false;
        }
    }
    return false;
}

bool SearchIndex::listingFollows(const Write& write) {
    if (follows(listing_.generation, write)) {
        return true;
    }
    forgetListing();
    return false;
}

void SearchIndex::unchanged(const Write& write) {
    vectorsFollow(VectorSpace::look, write);
    vectorsFollow(VectorSpace::meaning, write);
    listingFollows(write);
}

bool SearchIndex::before(const std::string& a, const std::string& b) const {
    const Listed& x = listing_.byID.at(a);
    const Listed& y = listing_.byID.at(b);
    if (x.createdAt != y.createdAt) {
        return x.createdAt > y.createdAt;
    }
    return x.order < y.order;
}

std::size_t SearchIndex::insertOrdered(std::vector<std::string>& ids, const std::string& id) const {
    const auto at = std::lower_bound(
        ids.begin(), ids.end(), id, [&](const std::string& a, const std::string& b) { return before(a, b); });
    const auto inserted = ids.insert(at, id);
    return static_cast<std::size_t>(inserted - ids.begin());
}

std::size_t SearchIndex::eraseOrdered(std::vector<std::string>& ids, const std::string& id) const {
    auto at = std::lower_bound(ids.begin(), ids.end(), id,
                               [&](const std::string& a, const std::string& b) { return before(a, b); });
    while (at != ids.end() && *at != id) {
        ++at;
    }
    const auto index = static_cast<std::size_t>(at - ids.begin());
    if (at != ids.end()) {
        ids.erase(at);
    }
    return index;
}

void SearchIndex::unplace(const std::string& id, const Listed& entry) {
    if (entry.collectionID) {
        centroids_.erase(*entry.collectionID);
        if (auto found = members_.find(*entry.collectionID); found != members_.end()) {
            eraseOrdered(found->second, id);
            if (found->second.empty()) {
                members_.erase(found);
            }
        }
    } else if (entry.organized) {
        const std::size_t at = eraseOrdered(unsorted_, id);
        if (unsortedRowsKnown_ && at < unsortedRows_.size()) {
            unsortedRows_.erase(unsortedRows_.begin() + static_cast<std::ptrdiff_t>(at));
        }
    }
}

void SearchIndex::place(const std::string& id, const Listed& entry) {
    if (entry.collectionID) {
        centroids_.erase(*entry.collectionID);
        insertOrdered(members_[*entry.collectionID], id);
    } else if (entry.organized) {
        const std::size_t at = insertOrdered(unsorted_, id);
        if (unsortedRowsKnown_) {
            const Vectors& meaning = kept(VectorSpace::meaning);
            const auto row = meaning.rowOf.find(id);
            unsortedRows_.insert(unsortedRows_.begin() + static_cast<std::ptrdiff_t>(at),
                                 row == meaning.rowOf.end() ? noRow : row->second);
        }
    }
}

void SearchIndex::setEntry(const std::string& id, const std::optional<std::string>& collectionID,
                           bool organized) {
    const auto found = listing_.byID.find(id);
    if (found == listing_.byID.end()) {
        return; // beyond the listing
    }
    unplace(id, found->second);
    found->second.collectionID = collectionID;
    found->second.organized = organized;
    place(id, found->second);
}

void SearchIndex::inserted(const Write& write, const Capture& capture) {
    unchanged(write); // no vectors yet
    if (!listing_.generation || listing_.byID.contains(capture.id)) {
        if (listing_.generation) {
            forgetListing();
        }
        return;
    }
    Listed entry{capture.createdAt, listing_.nextOrder--, std::nullopt,
                 capture.stage == CaptureStage::organized};
    if (listing_.cut && !listing_.byID.empty()) {
        // The listing holds the newest `limit`: the new capture pushes the oldest out, or stays out itself.
        auto oldest = listing_.byID.begin();
        for (auto it = listing_.byID.begin(); it != listing_.byID.end(); ++it) {
            if (it->second.createdAt < oldest->second.createdAt ||
                (it->second.createdAt == oldest->second.createdAt &&
                 it->second.order > oldest->second.order)) {
                oldest = it;
            }
        }
        if (entry.createdAt <= oldest->second.createdAt) {
            // Among equal times the new one would come first, but whether it then stays in depends on ties
            // SQLite breaks; read again.
            if (entry.createdAt == oldest->second.createdAt) {
                forgetListing();
            }
            return;
        }
        unplace(oldest->first, oldest->second);
        listing_.byID.erase(oldest);
    }
    listing_.byID.emplace(capture.id, entry);
    place(capture.id, entry);
    if (static_cast<std::int64_t>(listing_.byID.size()) >= listing_.limit) {
        listing_.cut = true;
    }
}

void SearchIndex::staged(const Write& write, const std::string& id, bool organized) {
    vectorsFollow(VectorSpace::look, write);
    vectorsFollow(VectorSpace::meaning, write);
    if (listingFollows(write)) {
        if (auto found = listing_.byID.find(id); found != listing_.byID.end()) {
            setEntry(id, found->second.collectionID, organized);
        }
    }
}

void SearchIndex::appendRow(Vectors& cached, const std::string& id, const std::vector<float>& vector) {
    LibraryStore::VectorRows& rows = cached.rows;
    if (!std::all_of(vector.begin(), vector.end(), [](float x) { return std::isfinite(x); })) {
        return; // read as no vector
    }
    if (rows.size() == 0) {
        cached.dimension = vector.size();
    } else if (vector.size() != cached.dimension) {
        cached.dimension = 0;
    }
    if (&cached == &kept(VectorSpace::meaning) && unsortedRowsKnown_) {
        // A new row for a capture already unsorted (vectors made again) is rare: the rows are found anew.
        const auto entry = listing_.byID.find(id);
        if (entry != listing_.byID.end() && entry->second.organized && !entry->second.collectionID) {
            unsortedRowsKnown_ = false;
        }
    }
    cached.rowOf[id] = rows.size();
    rows.ids.push_back(id);
    rows.floats.insert(rows.floats.end(), vector.begin(), vector.end());
    rows.starts.push_back(rows.floats.size());
}

void SearchIndex::eraseRow(Vectors& cached, const std::string& id) {
    const auto found = cached.rowOf.find(id);
    if (found == cached.rowOf.end()) {
        return;
    }
    const std::size_t row = found->second;
    cached.rowOf.erase(found);
    LibraryStore::VectorRows& rows = cached.rows;
    const std::size_t begin = rows.starts[row];
    const std::size_t length = rows.starts[row + 1] - begin;
    rows.floats.erase(rows.floats.begin() + static_cast<std::ptrdiff_t>(begin),
                      rows.floats.begin() + static_cast<std::ptrdiff_t>(begin + length));
    rows.ids.erase(rows.ids.begin() + static_cast<std::ptrdiff_t>(row));
    rows.starts.erase(rows.starts.begin() + static_cast<std::ptrdiff_t>(row + 1));
    for (std::size_t i = row + 1; i < rows.starts.size(); ++i) {
        rows.starts[i] -= length;
    }
    for (auto& [other, index] : cached.rowOf) {
        if (index > row) {
            --index;
        }
    }
    if (&cached == &kept(VectorSpace::meaning) && unsortedRowsKnown_) {
        for (std::size_t& index : unsortedRows_) {
            if (index == row) {
                index = noRow;
            } else if (index != noRow && index > row) {
                --index;
            }
        }
    }
}

void SearchIndex::embedded(const Write& write, const std::string& id,
                           const std::map<VectorSpace, std::vector<float>>& vectors) {
    for (const VectorSpace space : {VectorSpace::look, VectorSpace::meaning}) {
        if (!vectorsFollow(space, write)) {
            continue;
        }
        const auto given = vectors.find(space);
        if (given == vectors.end()) {
            continue;
        }
        // The row is replaced: the old one goes and the new one comes last, as in the table.
        Vectors& cached = kept(space);
        eraseRow(cached, id);
        appendRow(cached, id, given->second);
    }
    if (listingFollows(write)) {
        if (auto found = listing_.byID.find(id); found != listing_.byID.end()) {
            if (found->second.collectionID) {
                centroids_.erase(*found->second.collectionID);
            }
            setEntry(id, found->second.collectionID, false);
        }
    }
}

void SearchIndex::filed(const Write& write, const std::string& id,
                        const std::optional<std::string>& collectionID, bool organized) {
    vectorsFollow(VectorSpace::look, write);
    vectorsFollow(VectorSpace::meaning, write);
    if (listingFollows(write)) {
        if (auto found = listing_.byID.find(id); found != listing_.byID.end()) {
            setEntry(id, collectionID, organized || found->second.organized);
        }
    }
}

void SearchIndex::deleted(const Write& write, const std::string& id) {
    for (const VectorSpace space : {VectorSpace::look, VectorSpace::meaning}) {
        if (vectorsFollow(space, write)) {
            eraseRow(kept(space), id);
        }
    }
    if (listingFollows(write)) {
        const auto found = listing_.byID.find(id);
        if (found == listing_.byID.end()) {
            return;
        }
        if (listing_.cut) {
            // A capture beyond the listing moves into it; only the database knows which.
            forgetListing();
            return;
        }
        unplace(id, found->second);
        listing_.byID.erase(found);
    }
}

} // namespace keepery
