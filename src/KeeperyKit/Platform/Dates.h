#pragma once

#include <optional>
#include <string>
#include <string_view>

// Dates and times written for people, over ICU. An instant is seconds since 1970-01-01 00:00:00 UTC.
// Pure apart from reading the user's locale and time zone; any thread.
namespace keepery::Dates {

// ICU's date and time styles.
enum class Style { none, shortStyle, medium, longStyle, full };

// `instant` written with the given date and time styles in `locale` (an ICU or POSIX locale name such as
// "en_US"; empty for the user's) and `timeZone` (an Olson name such as "Europe/Paris"; empty for the
// user's). An unknown time zone is read as GMT, an unknown locale falls back as ICU does.
[[nodiscard]] std::string format(double instant, Style date, Style time, std::string_view locale = {},
                                 std::string_view timeZone = {});

// The long date and short time in the user's locale and time zone: in United States English
// "March 3, 2024 at 5:14 PM" (ICU puts a narrow no-break space before "PM").
[[nodiscard]] std::string longDateShortTime(double instant);

// The medium date and short time in the user's locale and time zone: in United States English
// "Mar 3, 2024, 5:14 PM".
[[nodiscard]] std::string mediumDateShortTime(double instant);

// The instant that `text` names when the whole of it matches `pattern` (an ICU date pattern such as
// "yyyy:MM:dd HH:mm:ss"), read strictly in the "en_US_POSIX" locale and in `timeZone` (an Olson name; empty
// for the user's). A pattern with a zone field takes the zone from the text. Absent when the text does not
// match, has anything left over, or names an impossible date.
[[nodiscard]] std::optional<double> parse(std::string_view text, std::string_view pattern,
                                          std::string_view timeZone = {});

} // namespace keepery::Dates
