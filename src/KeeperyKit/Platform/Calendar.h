#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace keepery {

// A calendar for date arithmetic, over ICU: a calendar system (Gregorian unless the locale names another),
// a time zone and the weekday its weeks begin on. Instants are seconds since 1970-01-01 00:00:00 UTC.
// A value: copies are cheap and share nothing mutable, so any thread may use any copy.
class Calendar {
public:
    enum class Weekday : std::uint8_t { sunday = 1, monday, tuesday, wednesday, thursday, friday, saturday };

    // The user's current calendar: the default locale's calendar system and first weekday, in the system's
    // time zone.
    [[nodiscard]] static Calendar current();

    // A calendar in `timeZone` (an IANA identifier such as "Europe/Paris") whose weeks begin on
    // `firstWeekday`, with the calendar system of `locale` (an ICU locale identifier such as
    // "th_TH@calendar=buddhist"; the default "en_US_POSIX" gives the Gregorian calendar). Throws
    // std::invalid_argument for an unknown time zone, or when ICU cannot make the calendar.
    Calendar(std::string_view timeZone, Weekday firstWeekday, std::string_view locale = "en_US_POSIX");

    // The time zone's identifier, as ICU names it.
    [[nodiscard]] const std::string& timeZone() const;
    [[nodiscard]] Weekday firstWeekday() const;

    // The first moment of the day containing `instant` (midnight, or the first moment after it when the
    // clocks skipped midnight). Absent when ICU cannot place the instant (not finite, out of range).
    [[nodiscard]] std::optional<double> startOfDay(double instant) const;
    // The first moment of the week containing `instant`: the start of the day of the latest first weekday
    // at or before it. Weeks run across the end of a year.
    [[nodiscard]] std::optional<double> startOfWeek(double instant) const;
    // The first moment of the calendar month containing `instant`.
    [[nodiscard]] std::optional<double> startOfMonth(double instant) const;

private:
    struct State;
    explicit Calendar(std::shared_ptr<const State> state) : state_(std::move(state)) {}

    std::shared_ptr<const State> state_;
};

} // namespace keepery
