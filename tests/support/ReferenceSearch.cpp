#include "support/ReferenceSearch.h"

#include "Library/SearchMerge.h"
#include "Platform/Text.h"
#include "Understanding/EmbeddingText.h"

#include <algorithm>
#include <cmath>

namespace keepery::testing {
namespace {

using SearchMerge::ScoredID;

// What `read` returns, or nothing when it throws: a failed read leaves its part of the answer out.
template <typename Read>
auto orNothing(Read read) -> decltype(read()) {
    try {
        return read();
    } catch (const std::exception&) {
        return {};
    }
}

// Every pair sorted best first (NaN last, equal scores in input order), then the survivors of the cut.
std::vector<ScoredID> sortedStandouts(std::vector<ScoredID> scored) {
    if (scored.empty()) {
        return scored;
    }
    std::stable_sort(scored.begin(), scored.end(), [](const ScoredID& a, const ScoredID& b) {
        return a.score > b.score || (!std::isnan(a.score) && std::isnan(b.score));
    });
    const std::size_t n = scored.size();
    const float nearTopCut = scored.front().score - SearchMerge::nearTop;
    const float aboveMedianCut = scored[n / 2].score + SearchMerge::aboveMedian;
    const float threshold = n < 6 ? nearTopCut : std::fmax(nearTopCut, aboveMedianCut);
    std::erase_if(scored, [threshold](const ScoredID& pair) { return !(pair.score >= threshold); });
    return scored;
}

std::vector<SearchMerge::Candidate> candidates(const LibraryStore::VectorRows& stored) {
    std::vector<SearchMerge::Candidate> out;
    for (std::size_t i = 0; i < stored.size(); ++i) {
        out.push_back({stored.ids[i], stored.row(i)});
    }
    return out;
}

} // namespace

SearchFindings ReferenceSearch::findings(const std::string& query) {
    const std::string trimmed = Text::trimWhitespaceAndNewlines(query);
    if (trimmed.empty()) {
        return {};
    }
    SearchMerge::Evidence evidence;
    auto& words = evidence[SearchReason::words];
    for (const auto& match : orNothing([&] { return store_.textSearch(trimmed, 100); })) {
        words.push_back(match.id);
    }
    const OllamaClient::EmbedInput input{EmbeddingText::query(trimmed), std::nullopt};
    const auto vectors = orNothing(
        [&] { return client_.embed(embeddingModel_, std::span(&input, 1), std::chrono::seconds(60)); });
    for (const VectorSpace space : {VectorSpace::look, VectorSpace::meaning}) {
        if (vectors.empty()) {
            break;
        }
        const auto stored = orNothing([&] { return store_.vectorRows(embeddingModel_, space); });
        auto& found = evidence[SearchReason(space)];
        for (const ScoredID& pair :
             sortedStandouts(SearchMerge::scores(vectors.front(), candidates(stored)))) {
            found.emplace_back(pair.id);
        }
    }
    std::vector<std::vector<std::string>> lists;
    for (const auto& [reason, ids] : evidence) {
        lists.push_back(ids);
    }
    const std::vector<std::string> ranked = SearchMerge::merge(lists, 60);

    SearchMerge::CollectionMembers members;
    for (const Capture& capture :
         orNothing([&] { return store_.captures(LibraryFilter::recent(), 100000); })) {
        if (capture.collectionID) {
            members[*capture.collectionID].push_back(capture.id);
        }
    }
    const auto completed = SearchMerge::completingCollections(ranked, members);
    const auto reasons = SearchMerge::reasons(evidence, completed);
    SearchFindings findings;
    for (Capture& capture : orNothing([&] { return store_.captures(completed); })) {
        SearchHit hit{std::move(capture), {}};
        if (auto it = reasons.find(hit.id()); it != reasons.end()) {
            hit.reasons = it->second;
        }
        findings.hits.push_back(std::move(hit));
    }
    findings.collectionIDs = SearchMerge::coveredCollections(ranked, members);
    return findings;
}

std::vector<Capture> ReferenceSearch::related(const std::string& captureID, std::int64_t limit) {
    return orNothing([&]() -> std::vector<Capture> {
        const auto own = store_.vector(captureID, VectorSpace::meaning);
        if (!own) {
            return {};
        }
        const auto stored = store_.vectorRows(embeddingModel_, VectorSpace::meaning);
        auto scored = SearchMerge::scores(*own, candidates(stored), std::string_view(captureID));
        std::erase_if(scored, [](const ScoredID& pair) { return !(pair.score >= 0.76f); });
        std::stable_sort(scored.begin(), scored.end(),
                         [](const ScoredID& a, const ScoredID& b) { return a.score > b.score; });
        std::vector<std::string> ids;
        for (std::size_t i = 0; i < scored.size() && static_cast<std::int64_t>(i) < limit; ++i) {
            ids.emplace_back(scored[i].id);
        }
        return store_.captures(ids);
    });
}

} // namespace keepery::testing
