#include "Understanding/Models.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace keepery;

TEST(Models, VisionModelFollowsMemoryAndEveryDefaultModelHasASize) {
    EXPECT_EQ(Models::vision(15), "qwen3.5:2b-q4_K_M");
    EXPECT_EQ(Models::vision(16), "qwen3.5:4b");
    const auto sizeOf = [](std::string_view model) -> std::string_view {
        const auto found = std::find_if(Models::sizes.begin(), Models::sizes.end(),
                                        [&](const auto& entry) { return entry.first == model; });
        return found != Models::sizes.end() ? found->second : "(none)";
    };
    EXPECT_EQ(sizeOf(Models::vision(8)), "1.9 GB");
    EXPECT_EQ(sizeOf(Models::vision(32)), "3.4 GB");
    EXPECT_EQ(sizeOf(Models::embedding), "710 MB");
}

TEST(Models, ComparesVersionsNumberByNumber) {
    const auto minimum = Models::minimumOllama;
    EXPECT_TRUE(Models::isVersion("0.40", minimum)) << "a missing position counts as 0";
    EXPECT_TRUE(Models::isVersion("0.40.0", "0.40"));
    EXPECT_FALSE(Models::isVersion("0.39.9", minimum));
    EXPECT_TRUE(Models::isVersion("1.0", minimum));
    EXPECT_TRUE(Models::isVersion("0.40.0-rc2", minimum)) << "what follows '-' is ignored";
    EXPECT_FALSE(Models::isVersion("0.4.9", minimum)) << "numbers, not text: 4 is less than 40";
    EXPECT_FALSE(Models::isVersion("", minimum));
    EXPECT_TRUE(Models::isVersion("", ""));
    EXPECT_TRUE(Models::isVersion("abc", "0.0.0")) << "pieces that are not numbers count as 0";
    EXPECT_FALSE(Models::isVersion("abc", "0.0.1"));
    EXPECT_TRUE(Models::isVersion("-0.40.0", minimum)) << "empty pieces are skipped";
    EXPECT_TRUE(Models::isVersion("0..40", minimum));
    EXPECT_TRUE(Models::isVersion("0.+40", minimum)) << "a number may carry a plus sign";
    EXPECT_FALSE(Models::isVersion("0.40x", minimum));
    EXPECT_FALSE(Models::isVersion("0.99999999999999999999999", minimum))
        << "a number too large for 64 bits is 0";
}
