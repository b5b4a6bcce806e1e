#include "Library/SearchMerge.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using namespace keepery;
using namespace keepery::SearchMerge;
using Ids = std::vector<std::string>;
using Views = std::vector<std::string_view>;
using Reasons = std::set<SearchReason>;

namespace {

// `prefix` and `number` (appended: GCC 12 at -O3 warns falsely on "literal" + std::to_string).
std::string numbered(std::string_view prefix, std::size_t number) {
    std::string text(prefix);
    text.append(std::to_string(number));
    return text;
}

Views idsOf(const std::vector<ScoredID>& pairs) {
    Views out;
    for (const auto& pair : pairs) {
        out.push_back(pair.id);
    }
    return out;
}

} // namespace

// Survivors reach the larger of top − 0.07 and (with six or more pairs) median + 0.08, both cut in
// floats; they come best first, equal scores in input order, and a NaN never survives.
TEST(SearchMerge, StandoutsAreNearTheTopAndWellAboveTheMedian) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    // 0.20f − 0.07f and 0.5f + 0.08f round to exactly 0.13f and 0.58f in floats, while the exact cuts lie
    // above and below those: cuts computed in doubles would decide the rows that hold them otherwise.
    ASSERT_GT(double{0.20f} - double{0.07f}, double{0.13f});
    ASSERT_LT(double{0.58f}, double{0.5f} + double{0.08f});
    struct Case {
        std::vector<ScoredID> scored;
        Views kept;
    };
    const std::vector<Case> cases{
        {{}, {}},
        {{{"only", 0.1f}}, {"only"}},
        {{{"e", 0.1f}, {"b", 0.85f}, {"d", 0.5f}, {"a", 0.9f}, {"c", 0.84f}}, {"a", "b", "c"}},
        {{{"a", 0.2f}, {"b", 0.13f}, {"c", 0.05f}}, {"a", "b"}},
        {{{"a", 0.2f}, {"b", std::nextafter(0.13f, 0.0f)}}, {"a"}},
        // Five equal pairs all stay; with six the best must also be 0.08 above the median.
        {{{"a", 0.5f}, {"b", 0.5f}, {"c", 0.5f}, {"d", 0.5f}, {"e", 0.5f}}, {"a", "b", "c", "d", "e"}},
        {{{"a", 0.57f}, {"b", 0.5f}, {"c", 0.5f}, {"d", 0.5f}, {"e", 0.5f}, {"f", 0.5f}}, {}},
        {{{"a", 0.6f}, {"b", 0.58f}, {"c", 0.5f}, {"d", 0.5f}, {"e", 0.5f}, {"f", 0.5f}}, {"a", "b"}},
        {{{"a", 0.9f}, {"b", 0.5f}, {"c", 0.5f}, {"d", 0.5f}, {"e", 0.5f}, {"f", 0.5f}}, {"a"}},
        // The median is the score at sorted position ⌊n/2⌋, 0.8 for six and for seven pairs: the cut is
        // 0.88 (position 2, or the middle two's average, would give 0.93 or 0.905).
        {{{"f", 0.6f}, {"c", 0.85f}, {"a", 0.95f}, {"e", 0.7f}, {"b", 0.9f}, {"d", 0.8f}}, {"a", "b"}},
        {{{"f", 0.6f}, {"c", 0.85f}, {"a", 0.95f}, {"e", 0.7f}, {"b", 0.9f}, {"d", 0.8f}, {"g", 0.5f}},
         {"a", "b"}},
        {{{"c", 0.9f}, {"a", 0.9f}, {"z", 0.1f}, {"b", 0.9f}}, {"c", "a", "b"}},
        {{{"x", nan}, {"a", 0.9f}, {"y", nan}, {"b", 0.85f}}, {"a", "b"}},
        {{{"x", nan}, {"y", nan}}, {}},
        // A NaN median leaves the near-top cut alone in charge.
        {{{"a", 0.9f}, {"b", 0.88f}, {"w", nan}, {"x", nan}, {"y", nan}, {"z", nan}}, {"a", "b"}},
    };
    for (std::size_t i = 0; i < cases.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(idsOf(standouts(cases[i].scored)), cases[i].kept);
    }

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
}

TEST(SearchMerge, MergeFusesByPositionAndBreaksTiesById) {
    // Twice at position 62 is worth exactly once at position 1 (2/122 = 1/61), so the id decides; any
    // other fusion constant would break the tie. The fillers' ids sort after every letter.
    std::vector<Ids> far{{"b"}, {}};
    for (int i = 0; i < 61; ++i) {
        if (i < 60) {
            far[0].push_back(numbered("~f", i));
        }
        far[1].push_back(numbered("~g", i));
    }
    far[0].push_back("z");
    far[1].push_back("z");
    const auto fused = [](const std::vector<Ids>& lists, std::size_t limit) { return merge(lists, limit); };
    EXPECT_EQ(fused({{"a", "b"}, {"b", "c"}}, 60), (Ids{"b", "a", "c"}));
    EXPECT_EQ(fused({{"a", "b"}, {"b", "c"}}, 2), (Ids{"b", "a"}));
    EXPECT_EQ(fused({{"a", "b"}, {"b", "c"}}, 0), Ids{});
    EXPECT_EQ(fused({}, 60), Ids{});
    EXPECT_EQ(fused({{}, {}}, 60), Ids{});
    // Equal scores whichever list is first: ascending id.
    EXPECT_EQ(fused({{"y", "x"}, {"x", "y"}}, 60), (Ids{"x", "y"}));
    EXPECT_EQ(fused({{"b"}, {"a"}}, 60), (Ids{"a", "b"}));
    // A repeat within one list gathers both terms (1/62 + 1/63 beats 1/61) and is returned once.
    EXPECT_EQ(fused({{"a", "b", "b"}}, 60), (Ids{"b", "a"}));
    EXPECT_EQ(fused(far, 3), (Ids{"b", "z", "~g0"}));
}

TEST(SearchMerge, CoversAndCompletesCollectionsWithThreeQuartersOfAtLeastThreeMembers) {
    const CollectionMembers members{
        {"c4", {"a", "b", "c", "d"}}, {"c5", {"e", "f", "g", "h", "i"}},
        {"c2", {"j", "k"}},           {"c1", {"l"}},
        {"c3", {"m", "n", "o"}},      {"c0", {}},
        {"b4", {"p", "q", "r", "s"}},
    };
    // 3 of 4, 4 of 5, 3 of 3 covered; 2 of 2 and 1 of 1 never; 2 of 4 and 3 of 5 not enough.
    const Ids ranked{"x", "a", "b", "c", "e", "f", "g", "h", "j", "k", "l", "m", "n", "o", "p", "q"};
    EXPECT_EQ(coveredCollections(ranked, members), (Ids{"c3", "c4", "c5"}));
    EXPECT_TRUE(coveredCollections(Ids{"a", "b", "e", "f", "g", "j", "k"}, members).empty());

    const CollectionMembers sharing{
        {"b", {"m1", "m2", "m3", "shared", "r1"}},
        {"a", {"r1", "r2", "r3", "shared"}},
        {"z", {"r4", "u1"}},
    };
    // a (3 of 4) and b (4 of 5) are covered; z (2 members) is not. a's missing member comes first
    // (ascending collection id), b does not repeat it, and u1 of z is not brought in.
    const Ids mixed{"r3", "m1", "r1", "m3", "r2", "m2", "r4"};
    EXPECT_EQ(completingCollections(mixed, sharing),
              (Ids{"r3", "m1", "r1", "m3", "r2", "m2", "r4", "shared"}));
    EXPECT_EQ(completingCollections(Ids{"u1", "m1"}, sharing), (Ids{"u1", "m1"}));
}

TEST(SearchMerge, ReasonsCarryEvidenceAndMarkOnlyUnfoundCompletions) {
    const Evidence evidence{
        {SearchReason::words, {"a", "b"}},
        {SearchReason::look, {"b", "c"}},
        {SearchReason::meaning, {}},
    };
    // Evidence outside the completed list is still recorded.
    EXPECT_EQ(reasons(evidence, Ids{"b", "a", "d", "e"}),
              (std::unordered_map<std::string, Reasons>{{"a", {SearchReason::words}},
                                                        {"b", {SearchReason::words, SearchReason::look}},
                                                        {"c", {SearchReason::look}},
                                                        {"d", {SearchReason::collection}},
                                                        {"e", {SearchReason::collection}}}));
}
