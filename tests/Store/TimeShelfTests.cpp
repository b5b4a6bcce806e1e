#include "Store/TimeShelf.h"

#include "Platform/Calendar.h"

#include <gtest/gtest.h>

namespace keepery::testing {
namespace {

using Weekday = Calendar::Weekday;

Instant start(TimeShelf shelf, Instant now, const Calendar& calendar) {
    return shelf.start(now, calendar);
}

TEST(TimeShelf, WeeksBeginOnTheCalendarsFirstWeekdayInItsTimeZone) {
    std::vector<std::string_view> titles;
    for (TimeShelf shelf : TimeShelf::allCases()) {
        titles.push_back(shelf.title());
    }
    EXPECT_EQ(titles, (std::vector<std::string_view>{"Today", "This Week", "This Month"}));

    const Calendar mondays("Europe/Berlin", Weekday::monday);
    const Calendar sundays("Europe/Berlin", Weekday::sunday);
    // Berlin's clocks went forward at 02:00 on Sunday 31 March 2024, so that Sunday lasted 23 hours.
    const Instant wednesday = 1712138400; // Wednesday 3 April, 12:00 CEST
    EXPECT_EQ(start(TimeShelf::thisWeek, wednesday, mondays), 1711922400) << "Mon 1 Apr 00:00 CEST";
    EXPECT_EQ(start(TimeShelf::thisWeek, wednesday, sundays), 1711839600) << "Sun 31 Mar 00:00 CET";
    EXPECT_EQ(start(TimeShelf::today, wednesday, mondays), 1712138400 - 12 * 3600);
    EXPECT_EQ(start(TimeShelf::thisMonth, 1710493200, mondays), 1709247600) << "1 Mar 00:00 CET";

    // The week of Monday 25 March ends one hour short of seven days.
    const Instant monday = 1711321200;     // 00:00 CET
    const Instant nextMonday = 1711922400; // 00:00 CEST
    EXPECT_EQ(start(TimeShelf::thisWeek, monday, mondays), monday);
    EXPECT_EQ(start(TimeShelf::thisWeek, monday - 1, mondays), monday - 7 * 86400);
    EXPECT_EQ(start(TimeShelf::thisWeek, nextMonday - 1, mondays), monday);
    EXPECT_EQ(start(TimeShelf::today, nextMonday - 1, mondays), 1711839600);

    // A week runs across the end of the year: Wednesday 1 January 2025 belongs to Monday 30 December.
    EXPECT_EQ(start(TimeShelf::thisWeek, 1735732800, Calendar("UTC", Weekday::monday)), 1735516800);
}

TEST(TimeShelf, DaysBeginInTheCalendarsOwnTimeZone) {
    const Instant instant = 1717210800; // 1 June 2024, 03:00 UTC
    EXPECT_EQ(start(TimeShelf::today, instant, Calendar("Asia/Tokyo", Weekday::sunday)), 1717167600);
    EXPECT_EQ(start(TimeShelf::today, instant, Calendar("America/Los_Angeles", Weekday::sunday)), 1717138800)
        << "still 31 May in Los Angeles";
    // Santiago skipped midnight on 3 September 2023: that day began at 01:00.
    EXPECT_EQ(start(TimeShelf::today, 1693753200, Calendar("America/Santiago", Weekday::monday)), 1693713600);
    // The Hebrew calendar's month began on 1 Tishrei 5785, 3 October 2024.
    const Calendar hebrew("UTC", Weekday::sunday, "he_IL@calendar=hebrew");
    EXPECT_EQ(start(TimeShelf::thisMonth, 1728561600, hebrew), 1727913600);
}

TEST(TimeShelf, CalendarsRejectUnknownZonesAndUnplaceableInstants) {
    EXPECT_THROW(Calendar("Mars/Olympus_Mons", Weekday::monday), std::invalid_argument);
    const Calendar utc("UTC", Weekday::monday);
    EXPECT_EQ(utc.startOfDay(std::numeric_limits<double>::quiet_NaN()), std::nullopt);
    EXPECT_EQ(start(TimeShelf::thisWeek, std::numeric_limits<double>::infinity(), utc),
              std::numeric_limits<double>::infinity())
        << "an instant no calendar can place is its own start";
    EXPECT_LE(*Calendar::current().startOfDay(1e9), 1e9);
}

} // namespace
} // namespace keepery::testing
