#include "Platform/UUID.h"

#include "Platform/Regex.h"

#include <gtest/gtest.h>

#include <set>

namespace keepery {
namespace {

TEST(UUID, RandomIdentifiersAreLowerCaseVersionFourAndDistinct) {
    // 8-4-4-4-12 lower-case hexadecimal digits, version 4, RFC 4122 variant.
    const Regex versionFour("^[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}\\z");
    std::set<std::string> seen;
    for (int i = 0; i < 1000; ++i) {
        const auto id = UUID::randomLowercase();
        ASSERT_TRUE(versionFour.firstMatch(id)) << id;
        seen.insert(id);
    }
    EXPECT_EQ(seen.size(), 1000u);
}

} // namespace
} // namespace keepery
