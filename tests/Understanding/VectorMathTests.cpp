#include "Understanding/VectorMath.h"

#include <bit>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <random>

using namespace keepery;

namespace {

using Floats = std::vector<float>;

Floats randomFloats(std::size_t count, std::mt19937& random) {
    std::normal_distribution<float> normal(0.0f, 1.0f);
    Floats values(count);
    for (float& value : values) {
        value = normal(random);
    }
    return values;
}

} // namespace

TEST(VectorMath, DotAddsInIndexOrderInSinglePrecisionAndIsZeroForMismatchedOrEmptyVectors) {
    EXPECT_EQ(VectorMath::dot(Floats{1, 2, 3}, Floats{4, 5, 6}), 32.0f);
    EXPECT_EQ(VectorMath::dot(Floats{1, 2, 3}, Floats{1, 2, 3, 4}), 0.0f);
    EXPECT_EQ(VectorMath::dot(Floats{}, Floats{}), 0.0f);
    // 1e8 + 1 - 1e8 is 0 in floats when added left to right; any other order or a wider sum gives 1.
    EXPECT_EQ(VectorMath::dot(Floats{1e8f, 1.0f, -1e8f}, Floats{1.0f, 1.0f, 1.0f}), 0.0f);
}

TEST(VectorMath, BatchScoresEqualThePlainLoopBitForBitAndKeepItsEdgeRules) {
    std::mt19937 random(20240303);
    // Row counts around the widths of every path, dimensions with and without a remainder of 8.
    for (const std::size_t dimension : {768u, 769u, 5u, 1u, 8u, 13u}) {
        for (const std::size_t count : {0u, 1u, 3u, 4u, 7u, 8u, 15u, 16u, 17u, 33u, 100u}) {
            SCOPED_TRACE("dimension " + std::to_string(dimension) + ", " + std::to_string(count) + " rows");
            const auto query = randomFloats(dimension, random);
            // A partial row at the end is ignored.
            auto rows = randomFloats(count * dimension + dimension / 2, random);
            Floats scores(count, -1.0f);
            VectorMath::dots(query, rows, dimension, scores);
            // The same rows found anywhere: here from last to first.
            std::vector<const float*> starts;
            for (std::size_t r = count; r-- > 0;) {
                starts.push_back(rows.data() + r * dimension);
            }
            Floats scattered(count, -1.0f);
            VectorMath::dots(query, starts, dimension, scattered);
            for (std::size_t r = 0; r < count; ++r) {
                const auto plain = std::bit_cast<std::uint32_t>(
                    VectorMath::dot(query, std::span<const float>(rows.data() + r * dimension, dimension)));
                ASSERT_EQ(std::bit_cast<std::uint32_t>(scores[r]), plain) << "row " << r;
                ASSERT_EQ(std::bit_cast<std::uint32_t>(scattered[count - 1 - r]), plain)
                    << "scattered row " << r;
            }
        }
    }

    const Floats rows{1, 2, 3, 4, 5, 6};
    Floats scores(4, -1.0f);
    VectorMath::dots(Floats{1, 1, 1}, rows, 2, scores);
    EXPECT_EQ(scores, (Floats{0, 0, 0, -1})) << "a query of another length scores 0";
    Floats two(2, -1.0f);
    VectorMath::dots(Floats{}, rows, 0, two);
    EXPECT_EQ(two, (Floats{-1, -1})) << "dimension 0 makes no rows";
    Floats tooFew(1);
    EXPECT_THROW(VectorMath::dots(Floats{1, 1}, rows, 2, tooFew), std::invalid_argument);

    // Infinities and NaN travel through the batch exactly as through the plain loop.
    const float inf = std::numeric_limits<float>::infinity();
    Floats wild(16 * 8, 1.0f);
    wild[3] = inf;
    wild[8 + 2] = -inf;
    wild[16 + 1] = std::nanf("");
    Floats wildScores(16);
    VectorMath::dots(Floats(8, 1.0f), wild, 8, wildScores);
    EXPECT_EQ(std::vector(wildScores.begin(), wildScores.begin() + 2), (Floats{inf, -inf}));
    EXPECT_TRUE(std::isnan(wildScores[2]));
    EXPECT_EQ(wildScores[3], 8.0f);
}

TEST(VectorMath, UnitAndCentroidScaleTheSumToLengthOne) {
    EXPECT_EQ(VectorMath::unit(Floats{3, 4}), (Floats{0.6f, 0.8f}));
    EXPECT_EQ(VectorMath::unit(Floats{0, 0, 0}), (Floats{0, 0, 0}));
    EXPECT_TRUE(VectorMath::unit(Floats{}).empty());
    const auto withNaN = VectorMath::unit(Floats{std::nanf(""), 1});
    EXPECT_EQ(withNaN[1], 1.0f) << "a norm that is not a number leaves the vector unchanged";

    EXPECT_EQ(VectorMath::centroid(std::vector<Floats>{}), std::nullopt);
    // Vectors of another length than the first are left out.
    const auto middle = VectorMath::centroid({{1, 0}, {0, 1}, {5, 5, 5}});
    ASSERT_EQ(middle.value().size(), 2u);
    EXPECT_NEAR((*middle)[0], 0.70710678f, 1e-6);
    EXPECT_NEAR((*middle)[1], 0.70710678f, 1e-6);
    EXPECT_EQ(VectorMath::centroid({{}, {1, 2}}), Floats{});
    EXPECT_EQ(VectorMath::centroid({{1, 0}, {-1, 0}}), (Floats{0, 0})) << "opposites cancel";
}
