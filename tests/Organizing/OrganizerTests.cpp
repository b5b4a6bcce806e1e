#include "Organizing/Organizer.h"

#include "Understanding/VectorMath.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <ostream>
#include <stdexcept>

namespace keepery {

// Readable failures: "join(b, 0.9)" rather than bytes.
void PrintTo(const Organizer::Decision& decision, std::ostream* out) {
    if (const auto* join = decision.asJoin()) {
        *out << "join(" << join->collectionID << ", " << join->similarity << ")";
    } else if (const auto* form = decision.asForm()) {
        *out << "form([";
        for (const auto& id : form->with) {
            *out << id << " ";
        }
        *out << "], " << form->similarity << ")";
    } else {
        *out << "stayUnsorted";
    }
}

} // namespace keepery

using namespace keepery;
using Decision = Organizer::Decision;

namespace {

// `prefix` followed by the decimal `number`. (Built by appending: GCC 12 at -O3 warns falsely on
// "literal" + std::to_string.)
std::string numbered(std::string_view prefix, std::size_t number) {
    std::string text(prefix);
    text.append(std::to_string(number));
    return text;
}

// The query used by most cases: its dot product with at(s) is exactly s (s·1 + t·0 + 0·0).
const std::vector<float> query{1, 0, 0};

// A unit vector whose similarity to `query` is exactly `similarity`.
std::vector<float> at(float similarity) {
    return {similarity, std::sqrt(1 - similarity * similarity), 0};
}

std::vector<std::span<const float>> views(const std::vector<std::vector<float>>& vectors) {
    return {vectors.begin(), vectors.end()};
}

} // namespace

TEST(Organizer, JoinThresholdsIncludeEqualityInThirtyTwoBitArithmetic) {
    // Two members mirrored about the x axis: their centroid is exactly (1, 0, 0).
    const std::vector<std::vector<float>> members{{0.8f, 0.6f, 0}, {0.8f, -0.6f, 0}};
    ASSERT_EQ(VectorMath::centroid(members), (std::vector<float>{1, 0, 0}));
    const std::vector<Organizer::Group> groups{{"c", views(members)}};
    const Organizer organizer;

    // Centroid similarity exactly 0.8f, best member exactly 0.79f when summed in floats; in doubles the
    // member similarity is below 0.79, so arithmetic widened to double would refuse this join.
    const float y = 0x1.fffff8p-3f;
    const std::vector<float> capture{0.8f, y, std::sqrt(1 - 0.64f - y * y)};
    ASSERT_EQ(VectorMath::dot(capture, members[0]), 0.79f);
    ASSERT_LT(double{0.8f} * double{0.8f} + double{y} * double{0.6f}, 0.79);
    EXPECT_EQ(organizer.decide(capture, groups, {}), Decision::join("c", 0.8f));

    // One float below on either side is not enough.
    const float low = 0x1.fffffp-3f;
    const std::vector<float> weakMember{0.8f, low, 0};
    ASSERT_EQ(VectorMath::dot(weakMember, members[0]), std::nextafter(0.79f, 0.0f));
    EXPECT_EQ(organizer.decide(weakMember, groups, {}), Decision::stayUnsorted());

    const std::vector<float> weakCentroid{std::nextafter(0.8f, 0.0f), 0.26f, 0};
    ASSERT_GE(VectorMath::dot(weakCentroid, members[0]), 0.79f);
    EXPECT_EQ(organizer.decide(weakCentroid, groups, {}), Decision::stayUnsorted());

    // The same float boundary holds for forming with an unsorted capture.
    const std::vector<Organizer::Candidate> unsorted{{"u", members[0]}};
    EXPECT_EQ(organizer.decide(capture, {}, unsorted), Decision::form({"u"}, 0.79f));
    EXPECT_EQ(organizer.decide(weakMember, {}, unsorted), Decision::stayUnsorted());
}

TEST(Organizer, ACloseCentroidWithoutACloseMemberFallsThroughToForming) {
    // Members spread wide around the capture: centroid similarity 0.85, no member above 0.78.
    const float spread = 0.78f / 0.85f;
    const std::vector<std::vector<float>> members{{spread, std::sqrt(1 - spread * spread), 0},
                                                  {spread, -std::sqrt(1 - spread * spread), 0}};
    const std::vector<float> capture{0.85f, 0, std::sqrt(1 - 0.85f * 0.85f)};
    ASSERT_EQ(VectorMath::dot(capture, *VectorMath::centroid(members)), 0.85f);
    ASSERT_LT(VectorMath::dot(capture, members[0]), 0.79f);

    const std::vector<Organizer::Group> groups{{"wide", views(members)}};
    const Organizer organizer;
    EXPECT_EQ(organizer.decide(capture, groups, {}), Decision::stayUnsorted());
    const auto twin = capture;
    const std::vector<Organizer::Candidate> unsorted{{"twin", twin}};
    EXPECT_EQ(organizer.decide(capture, groups, unsorted),
              Decision::form({"twin"}, VectorMath::dot(capture, twin)));
}

TEST(Organizer, JoinsTheClosestCandidateAndTheFirstOfEqualOnes) {
    const std::vector<std::vector<float>> near{at(0.9f)}, nearer{at(0.95f)}, empty{{}, {}};
    const Organizer organizer;
    const auto centroidSimilarity = [](const std::vector<std::vector<float>>& members) {
        return VectorMath::dot(query, *VectorMath::centroid(members));
    };

    // The highest centroid similarity wins wherever it stands; the similarity is the centroid's.
    const std::vector<Organizer::Group> ordered{{"near", views(near)}, {"nearer", views(nearer)}};
    EXPECT_EQ(organizer.decide(query, ordered, {}), Decision::join("nearer", centroidSimilarity(nearer)));

    // Equal similarities: the first in the given order.
    const std::vector<Organizer::Group> twins{{"first", views(near)}, {"second", views(near)}};
    EXPECT_EQ(organizer.decide(query, twins, {}), Decision::join("first", centroidSimilarity(near)));

    // A group without members is skipped; one of empty vectors has similarity 0 and is never joined, even
    // in front of a group that is joined.
    const std::vector<Organizer::Group> hollow{{"none", {}}, {"blank", views(empty)}, {"near", views(near)}};
    EXPECT_EQ(organizer.decide(query, hollow, {}), Decision::join("near", centroidSimilarity(near)));
    const std::vector<Organizer::Group> onlyHollow{{"none", {}}, {"blank", views(empty)}};
    EXPECT_EQ(organizer.decide(query, onlyHollow, {}), Decision::stayUnsorted());

    // A join wins over any number of close unsorted captures.
    const auto close = at(0.99f);
    const std::vector<Organizer::Candidate> unsorted{{"u", close}};
    EXPECT_EQ(organizer.decide(query, ordered, unsorted),
              Decision::join("nearer", centroidSimilarity(nearer)));
}

TEST(Organizer, FormsWithTheClosestUnsortedCapturesMostSimilarFirst) {
    const Organizer organizer;
    EXPECT_EQ(organizer.decide(query, {}, {}), Decision::stayUnsorted());

    const auto a = at(0.80f), b = at(0.93f), c = at(0.79f), d = at(0.78f);
    const std::vector<Organizer::Candidate> mixed{{"a", a}, {"b", b}, {"c", c}, {"d", d}};
    EXPECT_EQ(organizer.decide(query, {}, mixed), Decision::form({"b", "a", "c"}, 0.93f));

    // Twenty equal companions: the first twelve in the given order (a stable sort).
    const auto same = at(0.95f);
    std::vector<std::string> ids;
    std::vector<Organizer::Candidate> crowd;
    for (int i = 0; i < 20; ++i) {
        ids.push_back(numbered("u", i));
    }
    for (const auto& id : ids) {
        crowd.push_back({id, same});
    }
    EXPECT_EQ(organizer.decide(query, {}, crowd),
              Decision::form(std::vector<std::string>(ids.begin(), ids.begin() + 12), 0.95f));

    // Ties between different similarities keep the given order too, after the sort.
    const auto high = at(0.9f), low = at(0.85f);
    const std::vector<Organizer::Candidate> interleaved{{"l1", low}, {"h1", high}, {"l2", low}, {"h2", high}};
    EXPECT_EQ(organizer.decide(query, {}, interleaved), Decision::form({"h1", "h2", "l1", "l2"}, 0.9f));

    // A vector of another length counts 0; an entry that is the capture itself is not recognised.
    const std::vector<float> shorter{1, 0};
    const std::vector<Organizer::Candidate> odd{{"short", shorter}, {"self", query}};
    EXPECT_EQ(organizer.decide(query, {}, odd), Decision::form({"self"}, 1.0f));

    // A cap of zero never forms; a cap of one keeps only the closest.
    EXPECT_EQ(Organizer({.maxFormMembers = 0}).decide(query, {}, mixed), Decision::stayUnsorted());
    EXPECT_EQ(Organizer({.maxFormMembers = 1}).decide(query, {}, mixed), Decision::form({"b"}, 0.93f));
}

TEST(Organizer, RenamesAnAutomaticNameOnceTheCollectionHasDoubled) {
    const auto collection = [](std::int64_t count, std::int64_t namedAtCount, bool userNamed = false) {
        CaptureCollection c;
        c.id = "c";
        c.count = count;
        c.namedAtCount = namedAtCount;
        c.userNamed = userNamed;
        return c;
    };
    EXPECT_FALSE(Organizer::shouldRename(collection(1, 0)));
    EXPECT_TRUE(Organizer::shouldRename(collection(2, 0)));
    EXPECT_TRUE(Organizer::shouldRename(collection(2, 1)));
    EXPECT_FALSE(Organizer::shouldRename(collection(5, 3)));
    EXPECT_TRUE(Organizer::shouldRename(collection(6, 3)));
    EXPECT_FALSE(Organizer::shouldRename(collection(0, 0)));
    EXPECT_FALSE(Organizer::shouldRename(collection(100, 0, true)));
    EXPECT_FALSE(Organizer::shouldRename(collection(2, 0, true)));
    // A count read back from a damaged database does not overflow the doubling.
    const auto huge = std::numeric_limits<std::int64_t>::max();
    EXPECT_FALSE(Organizer::shouldRename(collection(huge, huge)));
    EXPECT_TRUE(Organizer::shouldRename(collection(huge, huge / 2)));
}

TEST(Organizer, RejectsANegativeCap) {
    EXPECT_THROW(Organizer({.maxFormMembers = -1}), std::invalid_argument);
}
