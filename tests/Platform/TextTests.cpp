#include "Platform/Text.h"

#include <gtest/gtest.h>

using namespace keepery;

TEST(Text, CountsAndCutsUserPerceivedCharacters) {
    const std::string family = "\U0001F468\u200D\U0001F469\u200D\U0001F467"; // one cluster, five code points
    const std::string flag = "\U0001F1EB\U0001F1F7";
    const std::string accent = "e\u0301"; // e + combining acute: one character
    EXPECT_EQ(Text::characterCount(""), 0u);
    EXPECT_EQ(Text::characterCount(family + flag + accent + "a"), 4u);
    EXPECT_EQ(Text::characterCount("\r\n"), 1u);

    EXPECT_EQ(Text::prefix(family + flag + "abc", 2), family + flag);
    EXPECT_EQ(Text::prefix("abc", 3), "abc");
    EXPECT_EQ(Text::prefix("abc", 10), "abc");
    EXPECT_EQ(Text::prefix(accent + accent, 1), accent);

    // A text at its limit is kept whole; one character more is cut and marked.
    EXPECT_EQ(Text::cut("abcd", 4), "abcd");
    EXPECT_EQ(Text::cut("abcde", 4), "abcd\u2026");
    EXPECT_EQ(Text::cut(family + family, 1), family + "\u2026");
    EXPECT_EQ(Text::cut("", 0), "");
}

TEST(Text, TrimsTheDocumentedCharacterSets) {
    // Spaces and tabs: space separators of every script and U+0009, never line breaks.
    EXPECT_EQ(Text::trimWhitespace(" \t\u00A0\u3000x y\u2003 "), "x y");
    EXPECT_EQ(Text::trimWhitespace("\nx\n"), "\nx\n");
    EXPECT_EQ(Text::trimWhitespace(" \t "), "");
    // With line breaks: also LF, CR, VT, FF, NEL and the line and paragraph separators.
    EXPECT_EQ(Text::trimWhitespaceAndNewlines("\r\n\v\f\u0085\u2028\u2029 x\n"), "x");
    // Zero-width space is a format character, not white space.
    EXPECT_EQ(Text::trimWhitespaceAndNewlines("\u200Bx"), "\u200Bx");
}

TEST(Text, LowerCasesWithoutLocaleAndComparesIgnoringCase) {
    EXPECT_EQ(Text::lowercased("RECIPE"), "recipe");
    EXPECT_EQ(Text::lowercased("\u00C9T\u00C9"), "\u00E9t\u00E9");
    EXPECT_EQ(Text::lowercased("\u0130"), "i\u0307"); // capital I with dot: full mapping, not Turkish
    EXPECT_TRUE(Text::equalsIgnoringCase("WEEKNIGHT COOKING", "Weeknight Cooking"));
    EXPECT_TRUE(Text::equalsIgnoringCase("Stra\u00DFe", "STRASSE"));
    EXPECT_TRUE(Text::equalsIgnoringCase("\u212Aelvin", "KELVIN"))
        << "a letter beyond ASCII may fold into it";
    EXPECT_FALSE(Text::equalsIgnoringCase("Cooking", "Cookin"));
}

TEST(Text, DecodesBrokenUtf8WithReplacementCharacters) {
    EXPECT_EQ(Text::codePoints("a\xFF"
                               "b"),
              (std::u32string{U'a', U'\uFFFD', U'b'}));
    EXPECT_EQ(Text::utf8(U"\U0001F600x"), "\U0001F600x");
    EXPECT_EQ(Text::trimWhitespace("\xC3"), "\xC3");
}
