#include "Presentation/Wording.h"

#include <gtest/gtest.h>

using namespace keepery;

namespace {

using C = Wording::Capitalized;
const std::string us = "en_US";

std::string things(std::int64_t n, C capitalized, const std::string& locale = us) {
    return Wording::count(n, "thing", "things", capitalized, locale);
}

} // namespace

TEST(Wording, CountsAreWordsUpToNinetyNineAndDigitsAbove) {
    EXPECT_EQ(things(0, C::no), "zero things");
    EXPECT_EQ(things(1, C::yes), "One thing");
    EXPECT_EQ(things(21, C::no), "twenty-one things");
    EXPECT_EQ(things(99, C::yes), "Ninety-nine things");
    EXPECT_EQ(things(100, C::yes), "100 things");
    EXPECT_EQ(things(1234, C::no), "1,234 things");
    // The words stay English in any locale; only the digits follow it.
    EXPECT_EQ(things(13, C::yes, "de_DE"), "Thirteen things");
    EXPECT_EQ(things(1234, C::yes, "de_DE"), "1.234 things");
    EXPECT_EQ(Wording::count(-1, "thing", "things", C::no, us), "minus one things");
}

TEST(Wording, TodaySearchAndMilestoneSentences) {
    EXPECT_EQ(Wording::today(0, 17, us), (Wording::Today{"Nothing kept", "yet today."}));
    EXPECT_EQ(Wording::today(0, 18, us), (Wording::Today{"A quiet day,", "nothing kept."}));
    EXPECT_EQ(Wording::today(3, 9, us), (Wording::Today{"Three things,", "kept today."}));
    EXPECT_EQ(Wording::today(1, 23, us), (Wording::Today{"One thing,", "kept today."}));
    EXPECT_EQ(Wording::today(250, 9, us), (Wording::Today{"250 things,", "kept today."}));

    EXPECT_EQ(Wording::search(0, us), "Nothing yet about");
    EXPECT_EQ(Wording::search(12, us), "Twelve things about");

    EXPECT_EQ(Wording::milestone(1, us), "Your first thing kept.");
    EXPECT_EQ(Wording::milestone(10, us), "Ten things kept.");
    EXPECT_EQ(Wording::milestone(100, us), "100 things kept.");
    EXPECT_EQ(Wording::milestone(2000, us), "2,000 things kept.");
    for (std::int64_t none : {0, -100, 2, 11, 50, 99, 101, 1010}) {
        EXPECT_EQ(Wording::milestone(none, us), std::nullopt) << none;
    }
}
