#include "Platform/Text.h"

#include <gtest/gtest.h>

using namespace keepery;

TEST(TextRules, SplitsIntoUserPerceivedCharacters) {
    const std::string family = "\U0001F468\u200D\U0001F469\u200D\U0001F467";
    const std::string keycap = "1\uFE0F\u20E3";
    EXPECT_EQ(Text::characters("a" + family + keycap + "e\u0301"),
              (std::vector<std::string>{"a", family, keycap, "e\u0301"}));
    EXPECT_TRUE(Text::characters("").empty());
}

TEST(TextRules, TrimsExtraCharactersWithWhiteSpace) {
    EXPECT_EQ(Text::trimWhitespaceAndNewlines(" #C# \n", U"#"), "C");
    EXPECT_EQ(Text::trimWhitespaceAndNewlines("\"\u00A0quoted \"text\"\"", U"\""), "quoted \"text");
    EXPECT_EQ(Text::trimWhitespaceAndNewlines("(example.com).,;)", U".,;)"), "(example.com");
    EXPECT_EQ(Text::trimWhitespaceAndNewlines("##", U"#"), "");
}

TEST(TextRules, KeepsLettersMarksAndNumbers) {
    EXPECT_EQ(Text::alphanumerics("Caf\u00E9 \u2014 no. 5, \u00BD!"), "Caf\u00E9no5\u00BD");
    EXPECT_EQ(Text::alphanumerics("e\u0301\u0663\u4E2D"), "e\u0301\u0663\u4E2D")
        << "marks, Arabic digits, CJK";
    EXPECT_EQ(Text::alphanumerics("\U0001F600 _-/"), "");
    EXPECT_TRUE(Text::isAlphanumeric(U'\u0301'));
    EXPECT_FALSE(Text::isAlphanumeric(U'_'));
}

TEST(TextRules, UpperCasesTheFirstCharacter) {
    EXPECT_EQ(Text::uppercasingFirstCharacter("espresso shot"), "Espresso shot");
    EXPECT_EQ(Text::uppercasingFirstCharacter("\u00DFtra\u00DFe"), "SStra\u00DFe") << "full mapping";
    EXPECT_EQ(Text::uppercasingFirstCharacter("e\u0301t\u00E9"), "E\u0301t\u00E9")
        << "the whole first character";
    EXPECT_EQ(Text::uppercasingFirstCharacter("\u00E9"), "\u00C9");
    EXPECT_EQ(Text::uppercasingFirstCharacter(""), "");
    EXPECT_EQ(Text::uppercased("stra\u00DFe"), "STRASSE");
}

TEST(TextRules, TellsEmojiAndRegionalIndicators) {
    EXPECT_TRUE(Text::isEmojiPresentation(U'\u2615'));     // hot beverage
    EXPECT_TRUE(Text::isEmojiPresentation(U'\U0001F4C1')); // file folder
    EXPECT_FALSE(Text::isEmojiPresentation(U'\u2764'));    // heart: text unless U+FE0F follows
    EXPECT_FALSE(Text::isEmojiPresentation(U'#'));
    EXPECT_FALSE(Text::isEmojiPresentation(U'1'));
    EXPECT_TRUE(Text::isRegionalIndicator(U'\U0001F1EE'));
    EXPECT_TRUE(Text::isRegionalIndicator(U'\U0001F1FF'));
    EXPECT_FALSE(Text::isRegionalIndicator(U'\U0001F200'));
}
