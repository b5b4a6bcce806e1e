#include "Library/SearchMerge.h"

#include "Library/SearchFindings.h"
#include "Understanding/VectorMath.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <unordered_set>

using namespace keepery;
using namespace keepery::SearchMerge;
using Ids = std::vector<std::string>;

namespace {

// `prefix` followed by the decimal `number`. (Built by appending: GCC 12 at -O3 warns falsely on
// "literal" + std::to_string.)
std::string numbered(std::string_view prefix, std::size_t number) {
    std::string text(prefix);
    text.append(std::to_string(number));
    return text;
}

// Scored ids over names that live as long as the test program.
std::vector<ScoredID> scored(std::initializer_list<std::pair<const char*, float>> pairs) {
    std::vector<ScoredID> out;
    for (const auto& [id, score] : pairs) {
        out.push_back({id, score});
    }
    return out;
}

std::vector<std::string_view> idsOf(const std::vector<ScoredID>& pairs) {
    std::vector<std::string_view> out;
    for (const auto& pair : pairs) {
        out.push_back(pair.id);
    }
    return out;
}

using Views = std::vector<std::string_view>;

} // namespace

TEST(SearchMerge, ScoresEveryCandidateInOrderWithThirtyTwoBitDotProducts) {
    // Three rows of one contiguous array, viewed in place, and one vector of another length.
    const std::vector<float> rows{1, 0, 0, /**/ 0.8f, 0x1.fffff8p-3f, 0, /**/ 0, 0, 1};
    const std::vector<float> shorter{1, 0};
    const std::vector<std::string> ids{"a", "b", "c", "d"};
    const std::span<const float> all(rows);
    const std::vector<Candidate> candidates{{ids[0], all.subspan(0, 3)},
                                            {ids[1], all.subspan(3, 3)},
                                            {ids[2], all.subspan(6, 3)},
                                            {ids[3], shorter}};

    const std::vector<float> query{0.8f, 0.6f, 0};
    const auto result = scores(query, candidates);
    // b's score rounds to exactly 0.79f in floats; summed in doubles it would fall below 0.79.
    ASSERT_LT(double{0.8f} * double{0.8f} + double{0x1.fffff8p-3f} * double{0.6f}, 0.79);
    EXPECT_EQ(result, (std::vector<ScoredID>{{"a", 0.8f}, {"b", 0.79f}, {"c", 0}, {"d", 0}}));
    EXPECT_EQ(result[1].id.data(), ids[1].data()) << "ids are views, not copies";

    // An empty query scores 0 everywhere; nothing is dropped for a low score.
    EXPECT_EQ(scores({}, candidates), (std::vector<ScoredID>{{"a", 0}, {"b", 0}, {"c", 0}, {"d", 0}}));

    // Exclusion compares whole ids and drops every occurrence; an unknown id drops nothing.
    EXPECT_EQ(idsOf(scores(query, candidates, "b")), (Views{"a", "c", "d"}));
    EXPECT_EQ(idsOf(scores(query, candidates, "z")), (Views{"a", "b", "c", "d"}));
    EXPECT_EQ(idsOf(scores(query, candidates, "")), (Views{"a", "b", "c", "d"}));
    const std::vector<Candidate> repeated{{"x", shorter}, {"y", shorter}, {"x", shorter}};
    EXPECT_EQ(idsOf(scores(shorter, repeated, "x")), (Views{"y"}));
    EXPECT_TRUE(scores(query, {}).empty());
}

TEST(SearchMerge, FewerThanSixStandoutsAreThoseNearTheTop) {
    EXPECT_TRUE(standouts({}).empty());
    EXPECT_EQ(standouts(scored({{"only", 0.1f}})), scored({{"only", 0.1f}}));

    // Sorted first; threshold 0.90 − 0.07 = 0.83.
    EXPECT_EQ(standouts(scored({{"e", 0.10f}, {"b", 0.85f}, {"d", 0.50f}, {"a", 0.90f}, {"c", 0.84f}})),
              scored({{"a", 0.90f}, {"b", 0.85f}, {"c", 0.84f}}));

    // 0.20f − 0.07f rounds down to exactly 0.13f in floats; the exact (double) cut is above 0.13f, so a
    // cut computed in doubles would drop the second pair.
    ASSERT_GT(double{0.20f} - double{0.07f}, double{0.13f});
    EXPECT_EQ(standouts(scored({{"a", 0.20f}, {"b", 0.13f}, {"c", 0.05f}})),
              scored({{"a", 0.20f}, {"b", 0.13f}}));
    EXPECT_EQ(standouts(scored({{"a", 0.20f}, {"b", std::nextafter(0.13f, 0.0f)}})), scored({{"a", 0.20f}}));

    // Five pairs: the median plays no part, however close the best is to it.
    EXPECT_EQ(standouts(scored({{"a", 0.5f}, {"b", 0.5f}, {"c", 0.5f}, {"d", 0.5f}, {"e", 0.5f}})).size(),
              5u);
}

TEST(SearchMerge, SixOrMoreStandoutsMustAlsoBeatTheMedian) {
    // All equal: the best is not 0.08 above the median, so nothing survives, not even the best.
    EXPECT_TRUE(
        standouts(scored({{"a", 0.5f}, {"b", 0.5f}, {"c", 0.5f}, {"d", 0.5f}, {"e", 0.5f}, {"f", 0.5f}}))
            .empty());
    EXPECT_TRUE(
        standouts(scored({{"a", 0.57f}, {"b", 0.5f}, {"c", 0.5f}, {"d", 0.5f}, {"e", 0.5f}, {"f", 0.5f}}))
            .empty());
    // Threshold max(0.83, 0.58) = 0.83.
    EXPECT_EQ(
        standouts(scored({{"a", 0.9f}, {"b", 0.5f}, {"c", 0.5f}, {"d", 0.5f}, {"e", 0.5f}, {"f", 0.5f}})),
        scored({{"a", 0.9f}}));

    // The median is the score at sorted position ⌊n/2⌋: 0.8 for both six and seven pairs, giving the
    // cut 0.88 (position 2, or an average of the middle two, would give 0.93 or 0.905).
    const auto six = scored({{"f", 0.6f}, {"c", 0.85f}, {"a", 0.95f}, {"e", 0.7f}, {"b", 0.9f}, {"d", 0.8f}});
    EXPECT_EQ(standouts(six), scored({{"a", 0.95f}, {"b", 0.9f}}));
    auto seven = six;
    seven.push_back({"g", 0.5f});
    EXPECT_EQ(standouts(seven), scored({{"a", 0.95f}, {"b", 0.9f}}));

    // 0.5f + 0.08f rounds down to exactly 0.58f in floats, below the exact sum: 0.58 stays in.
    ASSERT_LT(double{0.58f}, double{0.5f} + double{0.08f});
    EXPECT_EQ(
        standouts(scored({{"a", 0.6f}, {"b", 0.58f}, {"c", 0.5f}, {"d", 0.5f}, {"e", 0.5f}, {"f", 0.5f}})),
        scored({{"a", 0.6f}, {"b", 0.58f}}));
}

TEST(SearchMerge, StandoutsKeepInputOrderOnTiesAndNeverKeepANaN) {
    EXPECT_EQ(idsOf(standouts(scored({{"c", 0.9f}, {"a", 0.9f}, {"z", 0.1f}, {"b", 0.9f}}))),
              (Views{"c", "a", "b"}));
    // Long enough that a sort which is merely fast would move equal pairs.
    std::vector<std::string> many;
    for (int i = 0; i < 40; ++i) {
        many.push_back(numbered("m", i));
    }
    std::vector<ScoredID> interleaved;
    Views expected;
    for (std::size_t i = 0; i < many.size(); ++i) {
        interleaved.push_back({many[i], i % 2 == 0 ? 0.1f : 0.9f});
        if (i % 2 == 1) {
            expected.push_back(many[i]);
        }
    }
    EXPECT_EQ(idsOf(standouts(interleaved)), expected);

    const float nan = std::numeric_limits<float>::quiet_NaN();
    EXPECT_EQ(idsOf(standouts(scored({{"x", nan}, {"a", 0.9f}, {"y", nan}, {"b", 0.85f}}))),
              (Views{"a", "b"}));
    EXPECT_TRUE(standouts(scored({{"x", nan}, {"y", nan}})).empty());
    // A NaN median leaves the near-top cut alone in charge.
    EXPECT_EQ(
        idsOf(standouts(scored({{"a", 0.9f}, {"b", 0.88f}, {"w", nan}, {"x", nan}, {"y", nan}, {"z", nan}}))),
        (Views{"a", "b"}));

    // On random inputs the survivors are a prefix of the stable sort, and with fewer than six pairs the
    // best always survives.
    std::mt19937 random(11);
    std::uniform_int_distribution<int> coarse(0, 20); // few distinct scores, so ties are common
    std::vector<std::string> names;
    for (int i = 0; i < 12; ++i) {
        names.push_back(numbered("id", i));
    }
    for (int round = 0; round < 500; ++round) {
        std::vector<ScoredID> input;
        for (std::size_t i = 0; i < 1 + static_cast<std::size_t>(round % 12); ++i) {
            input.push_back({names[i], static_cast<float>(coarse(random)) / 20});
        }
        auto sorted = input;
        std::stable_sort(sorted.begin(), sorted.end(),
                         [](const ScoredID& a, const ScoredID& b) { return a.score > b.score; });
        const auto kept = standouts(input);
        ASSERT_LE(kept.size(), sorted.size());
        EXPECT_TRUE(std::equal(kept.begin(), kept.end(), sorted.begin())) << "round " << round;
        if (input.size() < 6) {
            EXPECT_FALSE(kept.empty()) << "round " << round;
        }
    }
}

TEST(SearchMerge, MergeFusesByPositionAndBreaksTiesById) {
    const std::vector<Ids> overlapping{{"a", "b"}, {"b", "c"}};
    EXPECT_EQ(merge(overlapping, 60), (Ids{"b", "a", "c"}));
    EXPECT_EQ(merge(overlapping, 2), (Ids{"b", "a"}));
    EXPECT_TRUE(merge(overlapping, 0).empty());
    EXPECT_TRUE(merge({}, 60).empty());
    EXPECT_TRUE(merge(std::vector<Ids>{{}, {}}, 60).empty());

    // Equal scores whichever list is first: ascending id.
    EXPECT_EQ(merge(std::vector<Ids>{{"y", "x"}, {"x", "y"}}, 60), (Ids{"x", "y"}));
    EXPECT_EQ(merge(std::vector<Ids>{{"b"}, {"a"}}, 60), (Ids{"a", "b"}));

    // Twice at position 62 is worth exactly once at position 1 (2/122 = 1/61), so the id decides; any
    // other fusion constant would break the tie. The fillers' ids sort after every letter.
    std::vector<Ids> far(2);
    far[0].push_back("b");
    for (int i = 0; i < 60; ++i) {
        far[0].push_back(numbered("~f", i));
    }
    for (int i = 0; i < 61; ++i) {
        far[1].push_back(numbered("~g", i));
    }
    far[0].push_back("z");
    far[1].push_back("z");
    EXPECT_EQ(merge(far, 3), (Ids{"b", "z", "~g0"}));

    // A repeat within one list gathers both terms (1/62 + 1/63 beats 1/61) and is returned once.
    EXPECT_EQ(merge(std::vector<Ids>{{"a", "b", "b"}}, 60), (Ids{"b", "a"}));

    // One list of distinct ids comes back in its own order, cut to the limit.
    std::mt19937 random(5);
    for (int round = 0; round < 100; ++round) {
        Ids list;
        for (int i = 0; i < 1 + round; ++i) {
            list.push_back(std::to_string(random()));
        }
        std::sort(list.begin(), list.end());
        list.erase(std::unique(list.begin(), list.end()), list.end());
        std::shuffle(list.begin(), list.end(), random);
        const std::size_t limit = static_cast<std::size_t>(round % 70);
        const auto fused = merge(std::vector<Ids>{list}, limit);
        EXPECT_EQ(fused,
                  Ids(list.begin(), list.begin() + static_cast<std::ptrdiff_t>(std::min(limit, list.size()))))
            << "round " << round;
    }
}

TEST(SearchMerge, CoversCollectionsWithThreeQuartersOfAtLeastThreeMembers) {
    const CollectionMembers members{
        {"c4", {"a", "b", "c", "d"}}, {"c5", {"e", "f", "g", "h", "i"}},
        {"c2", {"j", "k"}},           {"c1", {"l"}},
        {"c3", {"m", "n", "o"}},      {"c0", {}},
        {"b4", {"p", "q", "r", "s"}},
    };
    // 3 of 4, 4 of 5, 3 of 3 covered; 2 of 2 and 1 of 1 never; 2 of 4 and 3 of 5 not enough.
    const Ids ranked{"x", "a", "b", "c", "e", "f", "g", "h", "j", "k", "l", "m", "n", "o", "p", "q"};
    EXPECT_EQ(coveredCollections(ranked, members), (Ids{"c3", "c4", "c5"}));
    const Ids fewer{"a", "b", "e", "f", "g", "j", "k"};
    EXPECT_TRUE(coveredCollections(fewer, members).empty());
    EXPECT_TRUE(coveredCollections({}, members).empty());
    EXPECT_TRUE(coveredCollections(ranked, {}).empty());
}

TEST(SearchMerge, CompletionAppendsMissingMembersAfterEveryRankedId) {
    const CollectionMembers members{
        {"b", {"m1", "m2", "m3", "shared", "r1"}},
        {"a", {"r1", "r2", "r3", "shared"}},
        {"z", {"r4", "u1"}},
    };
    const Ids ranked{"r3", "m1", "r1", "m3", "r2", "m2", "r4"};
    // a (3 of 4) and b (4 of 5) are covered; z (2 members) is not. a's missing member comes first (ascending
    // collection id), b does not repeat it, and u1 of z is not brought in.
    EXPECT_EQ(completingCollections(ranked, members),
              (Ids{"r3", "m1", "r1", "m3", "r2", "m2", "r4", "shared"}));
    EXPECT_EQ(completingCollections({}, members), Ids{});

    // Nothing covered: the ranking as it is.
    const Ids sparse{"u1", "m1"};
    EXPECT_EQ(completingCollections(sparse, members), sparse);

    // On random rankings and memberships: the ranking is an unchanged prefix, appended ids are new and
    // unique, and every member of a covered collection is present.
    std::mt19937 random(3);
    std::uniform_int_distribution<int> pick(0, 29);
    const auto id = [&] { return numbered("i", pick(random)); };
    for (int round = 0; round < 300; ++round) {
        CollectionMembers randomMembers;
        for (int c = 0; c < 4; ++c) {
            auto& list = randomMembers[numbered("c", c)];
            for (int m = pick(random) % 7; m > 0; --m) {
                list.push_back(id());
            }
        }
        Ids randomRanked;
        for (int r = pick(random); r > 0; --r) {
            randomRanked.push_back(id());
        }
        const auto completed = completingCollections(randomRanked, randomMembers);
        ASSERT_GE(completed.size(), randomRanked.size());
        EXPECT_TRUE(std::equal(randomRanked.begin(), randomRanked.end(), completed.begin()))
            << "round " << round;
        std::unordered_set<std::string> seen(randomRanked.begin(), randomRanked.end());
        for (auto it = completed.begin() + static_cast<std::ptrdiff_t>(randomRanked.size());
             it != completed.end(); ++it) {
            EXPECT_TRUE(seen.insert(*it).second) << *it << " repeated in round " << round;
        }
        for (const auto& covered : coveredCollections(randomRanked, randomMembers)) {
            for (const auto& member : randomMembers.at(covered)) {
                EXPECT_TRUE(seen.contains(member)) << member << " missing in round " << round;
            }
        }
    }
}

TEST(SearchMerge, ReasonsCarryEvidenceAndMarkOnlyUnfoundCompletions) {
    using Reasons = std::set<SearchReason>;
    const Evidence evidence{
        {SearchReason::words, {"a", "b"}},
        {SearchReason::look, {"b", "c"}},
        {SearchReason::meaning, {}},
    };
    const auto found = reasons(evidence, Ids{"b", "a", "c", "d", "e"});
    const std::unordered_map<std::string, Reasons> expected{
        {"a", {SearchReason::words}},      {"b", {SearchReason::words, SearchReason::look}},
        {"c", {SearchReason::look}},       {"d", {SearchReason::collection}},
        {"e", {SearchReason::collection}},
    };
    EXPECT_EQ(found, expected);

    // Evidence outside the completed list is still recorded.
    EXPECT_EQ(reasons(evidence, Ids{}).at("c"), Reasons{SearchReason::look});

    // Without evidence every completed id was brought by its collection.
    const auto bare = reasons({}, Ids{"x", "y"});
    EXPECT_EQ(bare, (std::unordered_map<std::string, Reasons>{{"x", {SearchReason::collection}},
                                                              {"y", {SearchReason::collection}}}));
}

TEST(SearchMerge, ReasonsReadTheirRawValuesAndVectorSpaces) {
    EXPECT_EQ(SearchReason::fromRawValue("collection"), SearchReason::collection);
    EXPECT_FALSE(SearchReason::fromRawValue("Words"));
    EXPECT_EQ(SearchReason(VectorSpace(VectorSpace::look)), SearchReason::look);
    EXPECT_EQ(SearchReason(VectorSpace(VectorSpace::meaning)), SearchReason::meaning);

    // Evidence lists are fused in the order of the cases: words, look, meaning.
    const Evidence evidence{
        {SearchReason::meaning, {"m"}}, {SearchReason::words, {"w"}}, {SearchReason::look, {"l"}}};
    EXPECT_EQ(evidence.begin()->first, SearchReason::words);
    EXPECT_EQ(evidence.rbegin()->first, SearchReason::meaning);
}
