#include "Platform/UUID.h"

#include <gtest/gtest.h>

#include <set>
#include <string_view>

namespace {

// 8-4-4-4-12 lower-case hexadecimal digits, version 4, RFC 4122 variant.
bool isVersionFour(std::string_view id) {
    if (id.size() != 36) {
        return false;
    }
    for (std::size_t i = 0; i < id.size(); ++i) {
        const bool dash = i == 8 || i == 13 || i == 18 || i == 23;
        const char c = id[i];
        if (dash != (c == '-') || (!dash && !((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f')))) {
            return false;
        }
    }
    return id[14] == '4' && std::string_view("89ab").find(id[19]) != std::string_view::npos;
}

TEST(UUID, RandomIdentifiersAreLowerCaseVersionFourAndDistinct) {
    std::set<std::string> seen;
    for (int i = 0; i < 1000; ++i) {
        const auto id = keepery::UUID::randomLowercase();
        ASSERT_TRUE(isVersionFour(id)) << id;
        seen.insert(id);
    }
    EXPECT_EQ(seen.size(), 1000u);
}

} // namespace
