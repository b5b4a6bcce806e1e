#pragma once

#include "Platform/Numbers.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace keepery {

// The short sentences a front end shows about the library: today's keeping, the heading of a search
// result count and the milestone note. Counts up to 99 are English words ("Three things"), larger ones
// digits in the user's locale. Pure functions; any thread. `locale` is the ICU locale of the digits and
// their grouping, the user's by default; the words are always en_US.
struct Wording {
    Wording() = delete;

    enum class Capitalized : bool { no, yes };

    // The count and the noun: "zero things", "One thing", "twenty-one things", "1,234 things". Words for
    // 0 to 99 (and below 0), the first letter upper-cased when `capitalized`; digits above 99, never
    // capitalised. The singular noun exactly when `n` is 1.
    [[nodiscard]] static std::string count(std::int64_t n, std::string_view singular, std::string_view plural,
                                           Capitalized capitalized,
                                           const std::string& locale = Numbers::userLocale());

    struct Today {
        std::string lead;
        std::string close;
        bool operator==(const Today&) const = default;
    };

    // The line about what was kept today, for `hour` 0 to 23: ("Nothing kept", "yet today.") before 18:00,
    // ("A quiet day,", "nothing kept.") from 18:00, else ("Three things,", "kept today.").
    [[nodiscard]] static Today today(std::int64_t kept, int hour,
                                     const std::string& locale = Numbers::userLocale());

    // The heading of a search result; the front end appends the searched words. "Nothing yet about" for
    // 0, else "Twelve things about".
    [[nodiscard]] static std::string search(std::int64_t found,
                                            const std::string& locale = Numbers::userLocale());

    // The note at a milestone total: 1, 10 and every positive multiple of 100 ("Ten things kept.",
    // "2,000 things kept."); absent for every other total.
    [[nodiscard]] static std::optional<std::string>
    milestone(std::int64_t total, const std::string& locale = Numbers::userLocale());
};

} // namespace keepery
