#include "Library/Library.h"

#include "Library/LibraryInternals.h"
#include "Library/SearchMerge.h"
#include "Platform/Text.h"
#include "Understanding/EmbeddingText.h"

#include <algorithm>
#include <exception>

namespace keepery {
namespace {

// Runs one store operation whose failure the caller drops: the operation is one statement or one
// transaction, so a failure leaves its rows as they were.
template <typename Work>
void quietly(Work&& work) {
    try {
        work();
    } catch (const std::exception&) {
    }
}

} // namespace

Library::Library(Services services, Options options)
    : store_(services.store), client_(std::move(services.client)), mainQueue_(services.mainQueue),
      embeddingModel_(std::move(options.embeddingModel)), clock_(services.clock), files_(services.files),
      locale_(std::move(options.locale)), timeouts_(options.timeouts),
      visionModel_(std::move(options.visionModel)), organizer_(options.organizer),
      index_(embeddingModel_, options.scan) {}

void Library::setOnChange(std::function<void()> callback) {
    std::lock_guard lock(lock_);
    onChange_ = std::move(callback);
}

void Library::setVisionModel(std::string model) {
    std::lock_guard lock(lock_);
    visionModel_ = std::move(model);
}

std::string Library::visionModel() {
    std::lock_guard lock(lock_);
    return visionModel_;
}

Organizer Library::organizer() {
    std::lock_guard lock(lock_);
    return organizer_;
}

void Library::setOrganizer(Organizer organizer) {
    std::lock_guard lock(lock_);
    organizer_ = organizer;
}

void Library::announce(std::unique_lock<std::mutex>& lock) {
    std::function<void()> callback = onChange_;
    lock.unlock();
    if (!callback) {
        return;
    }
    if (mainQueue_ != nullptr) {
        mainQueue_->runAndWait(callback);
    } else {
        callback();
    }
}

// --- Edits ------------------------------------------------------------------------------------------------

void Library::setNote(const std::string& captureID, const std::optional<std::string>& note) {
    std::unique_lock lock(lock_);
    quietly([&] {
        write([&] { store_.setNote(captureID, note); }, [&](const auto& w) { index_.unchanged(w); });
    });
    announce(lock);
}

void Library::setFavorite(const std::string& captureID, bool favorite) {
    std::unique_lock lock(lock_);
    quietly([&] {
        write([&] { store_.setFavorite(captureID, favorite); }, [&](const auto& w) { index_.unchanged(w); });
    });
    announce(lock);
}

void Library::setTags(const std::string& captureID, const std::vector<std::string>& tags) {
    std::unique_lock lock(lock_);
    quietly([&] {
        write([&] { store_.setTags(captureID, tags); }, [&](const auto& w) { index_.unchanged(w); });
    });
    announce(lock);
}

void Library::move(const std::string& captureID, const std::optional<std::string>& collectionID) {
    std::unique_lock lock(lock_);
    quietly([&] {
        write([&] { store_.moveCapture(captureID, collectionID); },
              [&](const auto& w) { index_.filed(w, captureID, collectionID, false); });
    });
    quietly(
        [&] { write([&] { store_.dropEmptyCollections(); }, [&](const auto& w) { index_.unchanged(w); }); });
    announce(lock);
}

void Library::renameCollection(const std::string& collectionID, const std::string& name,
                               const std::string& emoji) {
    std::unique_lock lock(lock_);
    std::int64_t members = 0;
    quietly([&] {
        const std::vector<CaptureCollection> all = store_.collections();
        const auto found = std::find_if(all.begin(), all.end(),
                                        [&](const CaptureCollection& c) { return c.id == collectionID; });
        if (found != all.end()) {
            members = found->count;
        }
    });
    quietly([&] {
        write(
            [&] { store_.renameCollection(collectionID, name, emoji, members, LibraryStore::NamedBy::user); },
            [&](const auto& w) { index_.unchanged(w); });
    });
    announce(lock);
}

void Library::deleteCapture(const std::string& captureID) {
    std::unique_lock lock(lock_);
    quietly([&] {
        write([&] { store_.deleteCapture(captureID); }, [&](const auto& w) { index_.deleted(w, captureID); });
    });
    quietly(
        [&] { write([&] { store_.dropEmptyCollections(); }, [&](const auto& w) { index_.unchanged(w); }); });
    announce(lock);
}

// --- Search -----------------------------------------------------------------------------------------------

void Library::preload() {
    std::lock_guard lock(lock_);
    quietly([&] { index_.preload(store_, membershipListing); });
}

SearchFindings Library::findings(const std::string& query, std::size_t most) {
    const std::string trimmed = Text::trimWhitespaceAndNewlines(query);
    if (trimmed.empty()) {
        return {};
    }
    SearchMerge::Evidence evidence;

    std::unique_lock lock(lock_);
    std::vector<std::string>& words = evidence[SearchReason::words];
    quietly([&] {
        for (LibraryStore::TextMatch& match : store_.textSearch(trimmed, wordCandidates)) {
            words.push_back(std::move(match.id));
        }
    });
    lock.unlock();

    // The one request of a search; while it is out, other calls may use the library.
    std::optional<std::vector<float>> queryVector;
    quietly([&] {
        // A text of no more bytes than the bound has no more characters either, and goes as it is.
        const OllamaClient::EmbedInput input{
            EmbeddingText::query(trimmed.size() <= mostEmbeddedQueryCharacters
                                     ? trimmed
                                     : Text::prefix(trimmed, mostEmbeddedQueryCharacters)),
            std::nullopt};
        std::vector<std::vector<float>> vectors =
            client_.embed(embeddingModel_, std::span(&input, 1), timeouts_.embedding);
        if (!vectors.empty()) {
            queryVector = std::move(vectors.front());
        }
    });

    lock.lock();
    if (queryVector) {
        // Both spaces are scored in one pass over the vectors.
        std::array<std::vector<SearchMerge::ScoredID>, 2> scored;
        quietly([&] { scored = index_.scores(store_, *queryVector); });
        for (const VectorSpace space : {VectorSpace::look, VectorSpace::meaning}) {
            std::vector<std::string>& found = evidence[SearchReason(space)];
            for (const SearchMerge::ScoredID& pair : SearchMerge::standouts(
                     scored[static_cast<std::size_t>(static_cast<VectorSpace::Case>(space))])) {
                found.emplace_back(pair.id);
            }
        }
    }

    // Words, look, meaning: the evidence map keeps the reasons in that order.
    std::vector<std::vector<std::string>> lists;
    lists.reserve(evidence.size());
    for (const auto& [reason, ids] : evidence) {
        lists.push_back(ids);
    }
    const std::vector<std::string> ranked = SearchMerge::merge(lists, fusedHits);

    static const SearchMerge::CollectionMembers noMembers;
    const SearchMerge::CollectionMembers* members = &noMembers;
    std::vector<std::string> covered;
    quietly([&] {
        members = &index_.members(store_, membershipListing);
        covered = index_.coveredCollections(ranked);
    });

    const std::vector<std::string> completed = SearchMerge::completingCollections(ranked, *members, covered);
    auto reasons = SearchMerge::reasons(evidence, completed);

    SearchFindings findings;
    quietly([&] {
        // Only as many rows as are shown are read: the next ids are read only where one had no row.
        for (std::size_t next = 0; findings.hits.size() < most && next < completed.size();) {
            const std::size_t count = std::min(completed.size() - next, most - findings.hits.size());
            const std::vector<std::string> part(completed.begin() + static_cast<std::ptrdiff_t>(next),
                                                completed.begin() +
                                                    static_cast<std::ptrdiff_t>(next + count));
            next += count;
            for (Capture& capture : store_.captures(part)) {
                SearchHit hit{std::move(capture), {}};
                if (auto found = reasons.find(hit.id()); found != reasons.end()) {
                    hit.reasons = found->second;
                }
                findings.hits.push_back(std::move(hit));
            }
        }
    });
    findings.collectionIDs = std::move(covered);
    return findings;
}

std::vector<Capture> Library::search(const std::string& query, std::size_t most) {
    std::vector<Capture> captures;
    for (SearchHit& hit : findings(query, most).hits) {
        captures.push_back(std::move(hit.capture));
    }
    return captures;
}

std::vector<Capture> Library::related(const std::string& captureID, std::int64_t limit) {
    std::lock_guard lock(lock_);
    std::vector<Capture> captures;
    quietly([&] {
        const std::optional<std::vector<float>> own = store_.vector(captureID, VectorSpace::meaning);
        if (!own) {
            return;
        }
        std::vector<SearchMerge::ScoredID> scored =
            index_.scores(store_, VectorSpace::meaning, *own, std::string_view(captureID));
        std::erase_if(scored,
                      [](const SearchMerge::ScoredID& pair) { return !(pair.score >= relatedFloor); });
        std::stable_sort(
            scored.begin(), scored.end(),
            [](const SearchMerge::ScoredID& a, const SearchMerge::ScoredID& b) { return a.score > b.score; });
        const std::size_t kept = static_cast<std::size_t>(
            std::clamp<std::int64_t>(limit, 0, static_cast<std::int64_t>(scored.size())));
        std::vector<std::string> ids;
        ids.reserve(kept);
        for (std::size_t i = 0; i < kept; ++i) {
            ids.emplace_back(scored[i].id);
        }
        captures = store_.captures(ids);
    });
    return captures;
}

} // namespace keepery
