#include "Understanding/Models.h"

#include <gtest/gtest.h>

using namespace keepery;

TEST(Models, VisionModelFollowsMemory) {
    EXPECT_EQ(Models::vision(0), "qwen3.5:2b-q4_K_M");
    EXPECT_EQ(Models::vision(15), "qwen3.5:2b-q4_K_M");
    EXPECT_EQ(Models::vision(16), "qwen3.5:4b");
    EXPECT_EQ(Models::vision(64), "qwen3.5:4b");
    EXPECT_EQ(Models::size(Models::vision(8)), "1.9 GB");
    EXPECT_EQ(Models::size(Models::vision(32)), "3.4 GB");
    EXPECT_EQ(Models::size(Models::embedding), "710 MB");
    EXPECT_EQ(Models::size("llama3:8b"), std::nullopt);
}

TEST(Models, ComparesVersionsNumberByNumber) {
    const auto minimum = Models::minimumOllama;
    EXPECT_TRUE(Models::isVersion("0.40.0", minimum));
    EXPECT_TRUE(Models::isVersion("0.40", minimum)) << "a missing position counts as 0";
    EXPECT_TRUE(Models::isVersion("0.40.0", "0.40"));
    EXPECT_FALSE(Models::isVersion("0.39.9", minimum));
    EXPECT_TRUE(Models::isVersion("1.0", minimum));
    EXPECT_TRUE(Models::isVersion("0.41.2-rc1", minimum));
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
