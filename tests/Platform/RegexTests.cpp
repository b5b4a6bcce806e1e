#include "Platform/Regex.h"

#include <gtest/gtest.h>

namespace keepery {
namespace {

TEST(Regex, MatchesLeftmostWithInlineFlagsAndUnicodeWhiteSpace) {
    const Regex preamble("^(?i)(a )?(screenshot)\\s+");
    const auto match = preamble.firstMatch("A SCREENSHOT\u00A0\n of");
    ASSERT_TRUE(match);
    EXPECT_EQ(match->before, "");
    EXPECT_EQ(match->matched, "A SCREENSHOT\u00A0\n ");
    EXPECT_EQ(match->after, "of");
    EXPECT_FALSE(preamble.firstMatch("x A screenshot of"));
    // The earliest start wins, not the longest match.
    EXPECT_EQ(Regex("ab|abcd").firstMatch("xxabcd")->matched, "ab");
    // Positions are characters, so the parts around a match keep multi-byte text whole.
    const auto around = Regex("b").firstMatch("\u00E9\U0001F600b\u00FC");
    EXPECT_EQ(around->before, "\u00E9\U0001F600");
    EXPECT_EQ(around->after, "\u00FC");
    EXPECT_THROW(Regex("(unclosed"), Regex::InvalidPattern);
}

TEST(Regex, ReplacesEveryMatchLiterallyAndEscapedTextMatchesOnlyItself) {
    EXPECT_EQ(Regex("\\s+").replacingAll(" a \t\n b\u2003c ", " "), " a b c ");
    EXPECT_EQ(Regex("x").replacingAll("axbx", "$1\\"), "a$1\\b$1\\");
    EXPECT_EQ(Regex("z").replacingAll("abc", "-"), "abc");
    for (const std::string literal :
         {"a.b", "c++", "(x|y)", "[a-z]*", "\\E\\Q", "$^?{2}", "caf\u00E9", "#1 - / ~"}) {
        EXPECT_TRUE(Regex("^" + Regex::escaped(literal) + "$").firstMatch(literal)) << literal;
    }
    EXPECT_FALSE(Regex(Regex::escaped("a.b")).firstMatch("axb"));
}

} // namespace
} // namespace keepery
