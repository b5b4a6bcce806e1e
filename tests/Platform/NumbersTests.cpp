#include "Platform/Numbers.h"

#include "support/EnvironmentOverride.h"

#include <gtest/gtest.h>

namespace keepery {
namespace {

using testing::EnvironmentOverride;

TEST(Numbers, SpellsOutInWordsAndGroupsDigitsByLocale) {
    EXPECT_EQ(Numbers::spelledOut(0, "en_US"), "zero");
    EXPECT_EQ(Numbers::spelledOut(-3, "en_US"), "minus three");
    // A second locale on the same thread replaces the cached formatter rather than reusing it.
    EXPECT_EQ(Numbers::spelledOut(21, "de_DE"), "ein\u00ADund\u00ADzwanzig");
    EXPECT_EQ(Numbers::spelledOut(21, "en_US"), "twenty-one");

    EXPECT_EQ(Numbers::grouped(1234567, "de_DE"), "1.234.567");
    EXPECT_EQ(Numbers::grouped(1234, "fr_FR"), "1\u202F234");
    EXPECT_EQ(Numbers::grouped(1234, "ar_EG"), "\u0661\u066C\u0662\u0663\u0664");
    EXPECT_EQ(Numbers::grouped(-100, "en_US"), "-100");
}

TEST(Numbers, UserLocaleComesFromTheEnvironmentLikeLcNumeric) {
    EXPECT_EQ(Numbers::localeFromPosix("de_DE.UTF-8@euro"), "de_DE");
    EXPECT_EQ(Numbers::localeFromPosix("fr_CA"), "fr_CA");
    EXPECT_EQ(Numbers::localeFromPosix("C.UTF-8"), "en_US");
    EXPECT_EQ(Numbers::localeFromPosix("POSIX"), "en_US");
    EXPECT_EQ(Numbers::localeFromPosix(""), "en_US");
    {
        EnvironmentOverride env{{"LC_ALL", ""}, {"LC_NUMERIC", "de_AT.UTF-8"}, {"LANG", "en_GB.UTF-8"}};
        EXPECT_EQ(Numbers::userLocale(), "de_AT");
    }
    {
        EnvironmentOverride env{{"LC_ALL", "sv_SE.UTF-8"}, {"LC_NUMERIC", "de_AT.UTF-8"}};
        EXPECT_EQ(Numbers::userLocale(), "sv_SE");
    }
    EnvironmentOverride env{{"LC_ALL", nullptr}, {"LC_NUMERIC", nullptr}, {"LANG", nullptr}};
    EXPECT_EQ(Numbers::userLocale(), "en_US");
}

} // namespace
} // namespace keepery
