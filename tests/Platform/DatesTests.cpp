#include "Platform/Dates.h"

#include <gtest/gtest.h>

namespace keepery {
namespace {

using Style = Dates::Style;

TEST(Dates, WritesTheStylesOfTheLocaleInTheTimeZoneTheUsersByDefault) {
    const double instant = 1709504040; // 2024-03-03 22:14 UTC
    EXPECT_EQ(Dates::format(instant, Style::longStyle, Style::shortStyle, "en_US", "America/New_York"),
              "March 3, 2024 at 5:14\u202FPM");
    EXPECT_EQ(Dates::format(instant, Style::medium, Style::shortStyle, "en_US", "America/New_York"),
              "Mar 3, 2024, 5:14\u202FPM");
    EXPECT_EQ(Dates::format(instant, Style::longStyle, Style::shortStyle, "de_DE", "Europe/Berlin"),
              "3. M\u00E4rz 2024 um 23:14");
    EXPECT_EQ(Dates::format(instant, Style::longStyle, Style::none, "en_US", "Asia/Tokyo"), "March 4, 2024");
    EXPECT_EQ(Dates::longDateShortTime(instant), Dates::format(instant, Style::longStyle, Style::shortStyle));
    EXPECT_EQ(Dates::mediumDateShortTime(instant), Dates::format(instant, Style::medium, Style::shortStyle));
}

TEST(Dates, ParsesOnlyWholeTextsThatMatchThePatternStrictly) {
    const char* exif = "yyyy:MM:dd HH:mm:ss";
    EXPECT_EQ(Dates::parse("2024:03:03 17:14:00", exif, "America/New_York"), 1709504040.0);
    EXPECT_EQ(Dates::parse("2024-03-03T22:14:00.000000Z", "yyyy-MM-dd'T'HH:mm:ss.SSSSSSXXX"), 1709504040.0)
        << "a zone in the text wins";
    for (const char* text : {"2024:03:03 22:14:00 and more", "2024:03:03 22:14", "2024:02:30 22:14:00", ""}) {
        EXPECT_EQ(Dates::parse(text, exif, "UTC"), std::nullopt) << text;
    }
}

} // namespace
} // namespace keepery
