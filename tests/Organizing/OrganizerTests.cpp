#include "Organizing/Organizer.h"

#include "Understanding/VectorMath.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <stdexcept>

using namespace keepery;
using Decision = Organizer::Decision;
using Members = std::vector<std::vector<float>>;

namespace {

// The query used by most cases: its dot product with at(s) is exactly s (s·1 + t·0 + 0·0).
const std::vector<float> query{1, 0, 0};

// A unit vector whose similarity to `query` is exactly `similarity`.
std::vector<float> at(float similarity) {
    return {similarity, std::sqrt(1 - similarity * similarity), 0};
}

std::vector<std::span<const float>> views(const Members& vectors) {
    return {vectors.begin(), vectors.end()};
}

} // namespace

TEST(Organizer, JoinThresholdsIncludeEqualityInThirtyTwoBitArithmetic) {
    // Two members mirrored about the x axis: their centroid is exactly (1, 0, 0).
    const Members members{{0.8f, 0.6f, 0}, {0.8f, -0.6f, 0}};
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
    const std::vector<float> weakMember{0.8f, 0x1.fffffp-3f, 0};
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

TEST(Organizer, JoinsTheClosestCentroidThatAlsoHasACloseMember) {
    const Members near{at(0.9f)}, nearer{at(0.95f)}, empty{{}, {}};
    const auto join = [](const char* id, const Members& members) {
        return Decision::join(id, VectorMath::dot(query, *VectorMath::centroid(members)));
    };
    const Organizer organizer;
    using Groups = std::vector<Organizer::Group>;
    EXPECT_EQ(organizer.decide(query, Groups{{"near", views(near)}, {"nearer", views(nearer)}}, {}),
              join("nearer", nearer));
    EXPECT_EQ(organizer.decide(query, Groups{{"first", views(near)}, {"second", views(near)}}, {}),
              join("first", near));
    // Empty vectors have similarity 0 and are never joined, even in front of a group that is.
    EXPECT_EQ(
        organizer.decide(query, Groups{{"none", {}}, {"blank", views(empty)}, {"near", views(near)}}, {}),
        join("near", near));
    EXPECT_EQ(organizer.decide(query, Groups{{"none", {}}, {"blank", views(empty)}}, {}),
              Decision::stayUnsorted());
    const std::vector<Organizer::Candidate> close{{"u", at(0.99f)}};
    EXPECT_EQ(organizer.decide(query, Groups{{"near", views(near)}}, close), join("near", near))
        << "a join wins over close unsorted captures";

    // Members spread wide around the capture: centroid similarity 0.85, no member above 0.78. It forms
    // with its twin instead.
    const float spread = 0.78f / 0.85f;
    const Members wide{{spread, std::sqrt(1 - spread * spread), 0},
                       {spread, -std::sqrt(1 - spread * spread), 0}};
    const std::vector<float> capture{0.85f, 0, std::sqrt(1 - 0.85f * 0.85f)};
    ASSERT_EQ(VectorMath::dot(capture, *VectorMath::centroid(wide)), 0.85f);
    ASSERT_LT(VectorMath::dot(capture, wide[0]), 0.79f);
    EXPECT_EQ(organizer.decide(capture, Groups{{"wide", views(wide)}}, {}), Decision::stayUnsorted());
    const std::vector<Organizer::Candidate> twin{{"twin", capture}};
    EXPECT_EQ(organizer.decide(capture, Groups{{"wide", views(wide)}}, twin),
              Decision::form({"twin"}, VectorMath::dot(capture, capture)));
}

TEST(Organizer, FormsWithAtMostTheCapsClosestUnsortedCapturesMostSimilarFirst) {
    const Organizer organizer;
    EXPECT_EQ(organizer.decide(query, {}, {}), Decision::stayUnsorted());
    const auto a = at(0.80f), b = at(0.93f), c = at(0.79f), d = at(0.78f);
    const std::vector<Organizer::Candidate> mixed{{"a", a}, {"b", b}, {"c", c}, {"d", d}};
    EXPECT_EQ(organizer.decide(query, {}, mixed), Decision::form({"b", "a", "c"}, 0.93f));
    EXPECT_EQ(Organizer({.maxFormMembers = 0}).decide(query, {}, mixed), Decision::stayUnsorted());
    EXPECT_EQ(Organizer({.maxFormMembers = 1}).decide(query, {}, mixed), Decision::form({"b"}, 0.93f));
    EXPECT_THROW(Organizer({.maxFormMembers = -1}), std::invalid_argument);

    // Twenty equal companions: the first twelve in the given order (a stable sort).
    const auto same = at(0.95f);
    std::vector<std::string> ids;
    std::vector<Organizer::Candidate> crowd;
    for (int i = 0; i < 20; ++i) {
        ids.push_back(std::string("u").append(std::to_string(i)));
    }
    for (const auto& id : ids) {
        crowd.push_back({id, same});
    }
    EXPECT_EQ(organizer.decide(query, {}, crowd),
              Decision::form(std::vector<std::string>(ids.begin(), ids.begin() + 12), 0.95f));
}

TEST(Organizer, RenamesAnAutomaticNameOnceTheCollectionHasDoubled) {
    const auto renames = [](std::int64_t count, std::int64_t namedAtCount, bool userNamed = false) {
        return Organizer::shouldRename(CaptureCollection{"c", "", "", 0, 0, count, namedAtCount, userNamed});
    };
    EXPECT_FALSE(renames(1, 0));
    EXPECT_TRUE(renames(2, 0));
    EXPECT_FALSE(renames(5, 3));
    EXPECT_TRUE(renames(6, 3));
    EXPECT_FALSE(renames(2, 0, true));
    // A count read back from a damaged database does not overflow the doubling.
    const auto huge = std::numeric_limits<std::int64_t>::max();
    EXPECT_FALSE(renames(huge, huge));
    EXPECT_TRUE(renames(huge, huge / 2));
}
