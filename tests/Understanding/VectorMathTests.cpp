#include "Understanding/VectorMath.h"

#include <bit>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <random>

using namespace keepery;

namespace {

std::vector<float> randomFloats(std::size_t count, std::mt19937& random) {
    std::normal_distribution<float> normal(0.0f, 1.0f);
    std::vector<float> values(count);
    for (float& value : values) {
        value = normal(random);
    }
    return values;
}

} // namespace

TEST(VectorMath, DotIsZeroForMismatchedOrEmptyVectors) {
    EXPECT_EQ(VectorMath::dot(std::vector<float>{1, 2, 3}, std::vector<float>{1, 2, 3, 4}), 0.0f);
    EXPECT_EQ(VectorMath::dot(std::vector<float>{}, std::vector<float>{}), 0.0f);
    EXPECT_EQ(VectorMath::dot(std::vector<float>{1, 2, 3}, std::vector<float>{4, 5, 6}), 32.0f);
}

TEST(VectorMath, DotAddsInIndexOrderInSinglePrecision) {
    // 1e8 + 1 - 1e8 is 0 in floats when added left to right; any other order or a wider sum gives 1.
    const std::vector<float> a{1e8f, 1.0f, -1e8f};
    const std::vector<float> ones{1.0f, 1.0f, 1.0f};
    EXPECT_EQ(VectorMath::dot(a, ones), 0.0f);
}

TEST(VectorMath, BatchScoresEqualThePlainLoopBitForBit) {
    std::mt19937 random(20240303);
    // Row counts around the widths of every path, dimensions with and without a remainder of 8.
    for (const std::size_t dimension : {768u, 769u, 5u, 1u, 8u, 13u}) {
        for (const std::size_t count : {0u, 1u, 3u, 4u, 7u, 8u, 15u, 16u, 17u, 33u, 100u}) {
            const auto query = randomFloats(dimension, random);
            // A partial row at the end is ignored.
            auto rows = randomFloats(count * dimension + dimension / 2, random);
            std::vector<float> scores(count, -1.0f);
            VectorMath::dots(query, rows, dimension, scores);
            // The same rows found anywhere: here from last to first.
            std::vector<const float*> starts;
            for (std::size_t r = count; r-- > 0;) {
                starts.push_back(rows.data() + r * dimension);
            }
            std::vector<float> scattered(count, -1.0f);
            VectorMath::dots(query, starts, dimension, scattered);
            for (std::size_t r = 0; r < count; ++r) {
                const std::span<const float> row(rows.data() + r * dimension, dimension);
                const auto plain = std::bit_cast<std::uint32_t>(VectorMath::dot(query, row));
                ASSERT_EQ(std::bit_cast<std::uint32_t>(scores[r]), plain)
                    << "dimension " << dimension << ", row " << r << " of " << count;
                ASSERT_EQ(std::bit_cast<std::uint32_t>(scattered[count - 1 - r]), plain)
                    << "scattered, dimension " << dimension << ", row " << r << " of " << count;
            }
        }
    }
}

TEST(VectorMath, BatchKeepsTheEdgeRules) {
    const std::vector<float> rows{1, 2, 3, 4, 5, 6};
    std::vector<float> scores(4, -1.0f);
    VectorMath::dots(std::vector<float>{1, 1, 1}, rows, 2, scores);
    EXPECT_EQ(scores, (std::vector<float>{0, 0, 0, -1})) << "a query of another length scores 0";

    std::vector<float> two(2, -1.0f);
    VectorMath::dots(std::vector<float>{}, rows, 0, two);
    EXPECT_EQ(two, (std::vector<float>{-1, -1})) << "dimension 0 makes no rows";

    std::vector<float> tooFew(1);
    EXPECT_THROW(VectorMath::dots(std::vector<float>{1, 1}, rows, 2, tooFew), std::invalid_argument);

    // Infinities and NaN travel through the batch exactly as through the plain loop.
    const float inf = std::numeric_limits<float>::infinity();
    std::vector<float> wild(16 * 8, 1.0f);
    wild[3] = inf;
    wild[8 + 2] = -inf;
    wild[16 + 1] = std::nanf("");
    std::vector<float> query(8, 1.0f);
    std::vector<float> wildScores(16);
    VectorMath::dots(query, wild, 8, wildScores);
    EXPECT_EQ(wildScores[0], inf);
    EXPECT_EQ(wildScores[1], -inf);
    EXPECT_TRUE(std::isnan(wildScores[2]));
    EXPECT_EQ(wildScores[3], 8.0f);
}

TEST(VectorMath, UnitScalesToLengthOneOrLeavesAlone) {
    EXPECT_EQ(VectorMath::unit(std::vector<float>{3, 4}), (std::vector<float>{0.6f, 0.8f}));
    EXPECT_EQ(VectorMath::unit(std::vector<float>{0, 0, 0}), (std::vector<float>{0, 0, 0}));
    EXPECT_TRUE(VectorMath::unit(std::vector<float>{}).empty());
    const auto withNaN = VectorMath::unit(std::vector<float>{std::nanf(""), 1});
    EXPECT_TRUE(std::isnan(withNaN[0]));
    EXPECT_EQ(withNaN[1], 1.0f) << "a norm that is not a number leaves the vector unchanged";
}

TEST(VectorMath, CentroidIsTheDirectionOfTheSum) {
    EXPECT_EQ(VectorMath::centroid(std::vector<std::vector<float>>{}), std::nullopt);
    const auto middle = VectorMath::centroid({{1, 0}, {0, 1}, {5, 5, 5}});
    ASSERT_TRUE(middle);
    ASSERT_EQ(middle->size(), 2u);
    EXPECT_NEAR((*middle)[0], 0.70710678f, 1e-6);
    EXPECT_NEAR((*middle)[1], 0.70710678f, 1e-6);

    // The sum is not divided by the count: a heavier vector pulls harder.
    const auto pulled = VectorMath::centroid({{1, 0}, {1, 0}, {0, 1}});
    EXPECT_GT((*pulled)[0], (*pulled)[1]);

    const auto emptyFirst = VectorMath::centroid({{}, {1, 2}});
    ASSERT_TRUE(emptyFirst);
    EXPECT_TRUE(emptyFirst->empty());

    EXPECT_EQ(VectorMath::centroid({{1, 0}, {-1, 0}}), (std::vector<float>{0, 0})) << "opposites cancel";
}
