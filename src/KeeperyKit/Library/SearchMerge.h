#pragma once

#include "Library/SearchReason.h"

#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

// The ranking arithmetic of search: scoring stored vectors against a query, keeping the candidates that
// stand out, fusing ranked id lists, completing the collections a ranking almost covers, and recording
// why each capture was found. Pure and deterministic; no store, model or clock; any thread; nothing
// here fails.
namespace keepery::SearchMerge {

// A candidate must beat the median score by this much (when there are six or more).
inline constexpr float aboveMedian = 0.08f;
// A candidate must come this close to the best score.
inline constexpr float nearTop = 0.07f;
// The share of a collection's members a ranking must hold to cover it, and the least member count.
inline constexpr double completionShare = 0.75;
inline constexpr std::size_t completionMinimum = 3;

// One stored vector: views of the capture id and of its floats (for example a row of a contiguous
// array). The caller keeps both alive while the views, and the scored ids made from them, are used.
struct Candidate {
    std::string_view id;
    std::span<const float> vector;
};

// A capture id (a view of the candidate's id) with its similarity to the query.
struct ScoredID {
    std::string_view id;
    float score = 0;
    bool operator==(const ScoredID&) const = default;
};

// Collection id → its members' capture ids. Collections are visited in ascending id order.
using CollectionMembers = std::map<std::string, std::vector<std::string>>;
// A kind of evidence → the capture ids it found, best first.
using Evidence = std::map<SearchReason, std::vector<std::string>>;

// Every candidate except those whose id equals `excluding`, in candidate order, each with
// `VectorMath::dot(query, vector)`: a 32-bit sum, 0 for an empty query or a vector of another length.
// No normalisation and no cut. Allocates only the result.
[[nodiscard]] std::vector<ScoredID> scores(std::span<const float> query,
                                           std::span<const Candidate> candidates,
                                           std::optional<std::string_view> excluding = std::nullopt);

// The pairs that clearly beat the rest, best first (a stable sort: equal scores keep their input order).
// With n pairs the threshold is top − `nearTop` when n < 6, and the larger of that and
// median + `aboveMedian` when n ≥ 6, the median being the score at sorted position ⌊n/2⌋ and both cuts
// computed in 32-bit floats; a pair survives when its score is at least the threshold. With six or more
// pairs whose best is not `aboveMedian` above the median, nothing survives. A score that is not a number
// sorts last and never survives.
[[nodiscard]] std::vector<ScoredID> standouts(std::vector<ScoredID> scored);

// Reciprocal-rank fusion: each id gathers 1 / (60 + p) for every position p (from 1) it holds in every
// list, a repeat within one list included; the first `limit` ids by score, highest first, equal scores
// in ascending id order.
[[nodiscard]] std::vector<std::string> merge(std::span<const std::vector<std::string>> lists,
                                             std::size_t limit);

// Whether a collection of `members` members, `hits` of them ranked, is covered: at least
// `completionMinimum` members, at least `completionShare` of them ranked.
[[nodiscard]] bool covers(std::size_t hits, std::size_t members);

// The collections with at least `completionMinimum` members of which at least `completionShare` are
// among `ranked`, in ascending collection id order.
[[nodiscard]] std::vector<std::string> coveredCollections(std::span<const std::string> ranked,
                                                          const CollectionMembers& members);

// `ranked` unchanged, followed by the members (in the map's order) of every covered collection (in
// ascending collection id order) that are not yet in the result. Never repeats an appended id and never
// moves a ranked one.
[[nodiscard]] std::vector<std::string> completingCollections(std::span<const std::string> ranked,
                                                             const CollectionMembers& members);
// The same, with the covered collections already known (`coveredCollections(ranked, members)`).
[[nodiscard]] std::vector<std::string> completingCollections(std::span<const std::string> ranked,
                                                             const CollectionMembers& members,
                                                             std::span<const std::string> covered);

// Capture id → the reasons of every evidence list that holds it; ids of `completed` that no list holds
// get {`collection`}.
[[nodiscard]] std::unordered_map<std::string, std::set<SearchReason>>
reasons(const Evidence& evidence, std::span<const std::string> completed);

} // namespace keepery::SearchMerge
