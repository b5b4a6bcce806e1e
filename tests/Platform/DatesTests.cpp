#include "Platform/Dates.h"

#include <gtest/gtest.h>

using namespace keepery;

TEST(Dates, WritesTheStylesOfTheLocaleInTheTimeZone) {
    const double instant = 1709504040; // 2024-03-03 22:14 UTC
    EXPECT_EQ(Dates::format(instant, Dates::Style::longStyle, Dates::Style::shortStyle, "en_US",
                            "America/New_York"),
              "March 3, 2024 at 5:14\u202FPM");
    EXPECT_EQ(
        Dates::format(instant, Dates::Style::medium, Dates::Style::shortStyle, "en_US", "America/New_York"),
        "Mar 3, 2024, 5:14\u202FPM");
    EXPECT_EQ(
        Dates::format(instant, Dates::Style::longStyle, Dates::Style::shortStyle, "de_DE", "Europe/Berlin"),
        "3. M\u00E4rz 2024 um 23:14");
    EXPECT_EQ(Dates::format(instant, Dates::Style::longStyle, Dates::Style::none, "en_US", "Asia/Tokyo"),
              "March 4, 2024");
}

TEST(Dates, UsesTheUsersSettingsWhenNoneAreGiven) {
    const double instant = 1709504040;
    EXPECT_EQ(Dates::longDateShortTime(instant),
              Dates::format(instant, Dates::Style::longStyle, Dates::Style::shortStyle));
    EXPECT_EQ(Dates::mediumDateShortTime(instant),
              Dates::format(instant, Dates::Style::medium, Dates::Style::shortStyle));
    EXPECT_FALSE(Dates::longDateShortTime(instant).empty());
}

TEST(Dates, ParsesOnlyWholeTextsThatMatchThePatternStrictly) {
    const char* exif = "yyyy:MM:dd HH:mm:ss";
    EXPECT_EQ(Dates::parse("2024:03:03 22:14:00", exif, "UTC"), 1709504040.0);
    EXPECT_EQ(Dates::parse("2024:03:03 17:14:00", exif, "America/New_York"), 1709504040.0);
    EXPECT_EQ(Dates::parse("2024-03-03T22:14:00.000000Z", "yyyy-MM-dd'T'HH:mm:ss.SSSSSSXXX"), 1709504040.0)
        << "a zone in the text wins";
    EXPECT_EQ(Dates::parse("2024:03:03 22:14:00 and more", exif, "UTC"), std::nullopt);
    EXPECT_EQ(Dates::parse("2024:03:03 22:14", exif, "UTC"), std::nullopt);
    EXPECT_EQ(Dates::parse("2024:02:30 22:14:00", exif, "UTC"), std::nullopt) << "no lenient rollover";
    EXPECT_EQ(Dates::parse("", exif, "UTC"), std::nullopt);
}
