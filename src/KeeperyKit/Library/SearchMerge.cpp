#include "Library/SearchMerge.h"

#include "Understanding/VectorMath.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <unordered_set>

namespace keepery::SearchMerge {

std::vector<ScoredID> scores(std::span<const float> query, std::span<const Candidate> candidates,
                             std::optional<std::string_view> excluding) {
    std::vector<ScoredID> scored;
    scored.reserve(candidates.size());
    for (const Candidate& candidate : candidates) {
        if (excluding && candidate.id == *excluding) {
            continue;
        }
        scored.push_back({candidate.id, VectorMath::dot(query, candidate.vector)});
    }
    return scored;
}

std::vector<ScoredID> standouts(std::vector<ScoredID> scored) {
    if (scored.empty()) {
        return scored;
    }
    // Highest first with NaN below every number: a plain `>` is no strict weak ordering once a NaN
    // appears, and a sort given such an order may read out of bounds.
    const auto higher = [](float a, float b) { return a > b || (!std::isnan(a) && std::isnan(b)); };
    // The top and the median of the sorted order, found without sorting every pair: only the survivors
    // are sorted, and they keep the same order as in a full stable sort.
    const std::size_t n = scored.size();
    std::vector<float> values(n);
    std::transform(scored.begin(), scored.end(), values.begin(),
                   [](const ScoredID& pair) { return pair.score; });
    const float top = *std::min_element(values.begin(), values.end(), higher);
    std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(n / 2), values.end(),
                     higher);
    const float median = values[n / 2];
    const float nearTopCut = top - nearTop;
    const float aboveMedianCut = median + aboveMedian;
    // fmax ignores a NaN median, so the near-top cut alone decides then.
    const float threshold = n < 6 ? nearTopCut : std::fmax(nearTopCut, aboveMedianCut);
    std::erase_if(scored, [threshold](const ScoredID& pair) { return !(pair.score >= threshold); });
    std::stable_sort(scored.begin(), scored.end(),
                     [&](const ScoredID& a, const ScoredID& b) { return higher(a.score, b.score); });
    return scored;
}

std::vector<std::string> merge(std::span<const std::vector<std::string>> lists, std::size_t limit) {
    if (limit == 0) {
        return {};
    }
    struct Fused {
        std::string_view id;
        double score;
    };
    std::vector<Fused> fused;
    std::unordered_map<std::string_view, std::size_t> index;
    for (const auto& list : lists) {
        for (std::size_t position = 1; position <= list.size(); ++position) {
            const std::string& id = list[position - 1];
            const double term = 1.0 / (60.0 + static_cast<double>(position));
            const auto [slot, inserted] = index.try_emplace(id, fused.size());
            if (inserted) {
                fused.push_back({id, term});
            } else {
                fused[slot->second].score += term;
            }
        }
    }
    const auto higher = [](const Fused& a, const Fused& b) {
        return a.score != b.score ? a.score > b.score : a.id < b.id;
    };
    const std::size_t count = std::min(limit, fused.size());
    std::partial_sort(fused.begin(), fused.begin() + static_cast<std::ptrdiff_t>(count), fused.end(), higher);

    std::vector<std::string> ranked;
    ranked.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        ranked.emplace_back(fused[i].id);
    }
    return ranked;
}

bool covers(std::size_t hits, std::size_t members) {
    return members >= completionMinimum &&
           static_cast<double>(hits) / static_cast<double>(members) >= completionShare;
}

std::vector<std::string> coveredCollections(std::span<const std::string> ranked,
                                            const CollectionMembers& members) {
    const std::unordered_set<std::string_view> found(ranked.begin(), ranked.end());
    // Every member of every collection is looked up among a few dozen ranked ids. Ids that differ in
    // their first bytes (as generated ids do) are told apart by those bytes alone, before any id is
    // hashed whole; only a member whose first bytes are among the ranked ids' is looked up in full.
    const auto head = [](std::string_view id) {
        std::uint64_t bytes = 0;
        std::memcpy(&bytes, id.data(), std::min(id.size(), sizeof bytes));
        return bytes;
    };
    std::vector<std::uint64_t> heads;
    heads.reserve(ranked.size());
    for (const std::string& id : ranked) {
        heads.push_back(head(id));
    }
    std::sort(heads.begin(), heads.end());
    const auto isFound = [&](const std::string& id) {
        return std::binary_search(heads.begin(), heads.end(), head(id)) && found.contains(id);
    };
    std::vector<std::string> covered;
    for (const auto& [collectionID, memberIDs] : members) {
        if (memberIDs.size() < completionMinimum) {
            continue;
        }
        const auto hits = std::count_if(memberIDs.begin(), memberIDs.end(), isFound);
        if (covers(static_cast<std::size_t>(hits), memberIDs.size())) {
            covered.push_back(collectionID);
        }
    }
    return covered;
}

std::vector<std::string> completingCollections(std::span<const std::string> ranked,
                                               const CollectionMembers& members) {
    return completingCollections(ranked, members, coveredCollections(ranked, members));
}

std::vector<std::string> completingCollections(std::span<const std::string> ranked,
                                               const CollectionMembers& members,
                                               std::span<const std::string> covered) {
    std::vector<std::string> completed(ranked.begin(), ranked.end());
    // Views into `ranked` and `members`, which outlive this call; `completed` may reallocate, so it is
    // never viewed.
    std::unordered_set<std::string_view> present(ranked.begin(), ranked.end());
    for (const std::string& collectionID : covered) {
        for (const std::string& id : members.at(collectionID)) {
            if (present.insert(id).second) {
                completed.push_back(id);
            }
        }
    }
    return completed;
}

std::unordered_map<std::string, std::set<SearchReason>> reasons(const Evidence& evidence,
                                                                std::span<const std::string> completed) {
    std::unordered_map<std::string, std::set<SearchReason>> found;
    for (const auto& [reason, ids] : evidence) {
        for (const std::string& id : ids) {
            found[id].insert(reason);
        }
    }
    for (const std::string& id : completed) {
        found.try_emplace(id, std::set<SearchReason>{SearchReason::collection});
    }
    return found;
}

} // namespace keepery::SearchMerge
