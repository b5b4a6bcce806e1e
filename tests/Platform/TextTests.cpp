#include "Platform/Text.h"

#include <gtest/gtest.h>

namespace keepery {
namespace {

TEST(Text, CountsAndCutsUserPerceivedCharacters) {
    const std::string family = "\U0001F468\u200D\U0001F469\u200D\U0001F467"; // one cluster, five code points
    const std::string flag = "\U0001F1EB\U0001F1F7";
    const std::string accent = "e\u0301"; // e + combining acute: one character
    EXPECT_EQ(Text::characterCount(family + flag + accent + "a"), 4u);
    EXPECT_EQ(Text::characterCount("\r\n"), 1u);

    EXPECT_EQ(Text::prefix(family + flag + "abc", 2), family + flag);
    EXPECT_EQ(Text::prefix("abc", 10), "abc");
    EXPECT_EQ(Text::prefix(accent + accent, 1), accent);

    // A text at its limit is kept whole; one character more is cut and marked.
    EXPECT_EQ(Text::cut("abcd", 4), "abcd");
    EXPECT_EQ(Text::cut("abcde", 4), "abcd\u2026");
    EXPECT_EQ(Text::cut(family + family, 1), family + "\u2026");
}

TEST(Text, TrimsWhiteSpaceAndLineBreaksOfEveryScript) {
    // Spaces and tabs: space separators of every script and U+0009, never line breaks.
    EXPECT_EQ(Text::trimWhitespace(" \t\u00A0\u3000x y\u2003 "), "x y");
    EXPECT_EQ(Text::trimWhitespace("\nx\n"), "\nx\n");
    // With line breaks: also LF, CR, VT, FF, NEL and the line and paragraph separators.
    EXPECT_EQ(Text::trimWhitespaceAndNewlines("\r\n\v\f\u0085\u2028\u2029 x\n"), "x");
    // Zero-width space is a format character, not white space.
    EXPECT_EQ(Text::trimWhitespaceAndNewlines("\u200Bx"), "\u200Bx");
    EXPECT_EQ(Text::trimWhitespace("\xC3"), "\xC3") << "broken UTF-8 is left alone";
}

TEST(Text, LowerCasesWithoutLocaleAndComparesIgnoringCase) {
    EXPECT_EQ(Text::lowercased("\u00C9T\u00C9"), "\u00E9t\u00E9");
    EXPECT_EQ(Text::lowercased("\u0130"), "i\u0307"); // capital I with dot: full mapping, not Turkish
    EXPECT_TRUE(Text::equalsIgnoringCase("Stra\u00DFe", "STRASSE"));
    EXPECT_TRUE(Text::equalsIgnoringCase("\u212Aelvin", "KELVIN"))
        << "a letter beyond ASCII may fold into it";
    EXPECT_FALSE(Text::equalsIgnoringCase("Cooking", "Cookin"));
    EXPECT_EQ(Text::codePoints("a\xFF"
                               "b"),
              (std::u32string{U'a', U'\uFFFD', U'b'}));
}

TEST(TextRules, SplitsIntoUserPerceivedCharactersAndTrimsExtraCharacters) {
    const std::string family = "\U0001F468\u200D\U0001F469\u200D\U0001F467";
    const std::string keycap = "1\uFE0F\u20E3";
    EXPECT_EQ(Text::characters("a" + family + keycap + "e\u0301"),
              (std::vector<std::string>{"a", family, keycap, "e\u0301"}));
    EXPECT_TRUE(Text::characters("").empty());

    EXPECT_EQ(Text::trimWhitespaceAndNewlines(" #C# \n", U"#"), "C");
    EXPECT_EQ(Text::trimWhitespaceAndNewlines("\"\u00A0quoted \"text\"\"", U"\""), "quoted \"text");
    EXPECT_EQ(Text::trimWhitespaceAndNewlines("##", U"#"), "");
}

TEST(TextRules, KeepsLettersMarksAndNumbers) {
    EXPECT_EQ(Text::alphanumerics("Caf\u00E9 \u2014 no. 5, \u00BD!"), "Caf\u00E9no5\u00BD");
    EXPECT_EQ(Text::alphanumerics("e\u0301\u0663\u4E2D"), "e\u0301\u0663\u4E2D")
        << "marks, Arabic digits, CJK";
    EXPECT_EQ(Text::alphanumerics("\U0001F600 _-/"), "");
}

TEST(TextRules, UpperCasesTheWholeFirstCharacterWithTheFullMapping) {
    EXPECT_EQ(Text::uppercasingFirstCharacter("espresso shot"), "Espresso shot");
    EXPECT_EQ(Text::uppercasingFirstCharacter("\u00DFtra\u00DFe"), "SStra\u00DFe");
    EXPECT_EQ(Text::uppercasingFirstCharacter("e\u0301t\u00E9"), "E\u0301t\u00E9");
    EXPECT_EQ(Text::uppercasingFirstCharacter(""), "");
    EXPECT_EQ(Text::uppercased("stra\u00DFe"), "STRASSE");
}

TEST(TextRules, TellsEmojiAndRegionalIndicators) {
    EXPECT_TRUE(Text::isEmojiPresentation(U'\u2615'));  // hot beverage
    EXPECT_FALSE(Text::isEmojiPresentation(U'\u2764')); // heart: text unless U+FE0F follows
    EXPECT_FALSE(Text::isEmojiPresentation(U'1'));
    EXPECT_TRUE(Text::isRegionalIndicator(U'\U0001F1EE'));
    EXPECT_TRUE(Text::isRegionalIndicator(U'\U0001F1FF'));
    EXPECT_FALSE(Text::isRegionalIndicator(U'\U0001F200'));
}

} // namespace
} // namespace keepery
