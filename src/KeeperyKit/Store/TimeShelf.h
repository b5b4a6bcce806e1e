#pragma once

#include "Model/Capture.h"
#include "Model/Vocabulary.h"
#include "Platform/Calendar.h"

#include <cstdint>

namespace keepery {

namespace detail {
enum class TimeShelfCase : std::uint8_t { today, thisWeek, thisMonth };
} // namespace detail

// The time spans a front end shows as shelves. A shelf's captures are those of the filter
// `LibraryFilter::since(shelf.start(now, calendar))`.
struct TimeShelf : detail::Vocabulary<TimeShelf, detail::TimeShelfCase, 3> {
    using Vocabulary::Vocabulary;
    using enum detail::TimeShelfCase;

    static constexpr std::array<std::string_view, 3> rawValues{"today", "thisWeek", "thisMonth"};

    // "Today", "This Week" or "This Month".
    [[nodiscard]] constexpr std::string_view title() const {
        constexpr std::array<std::string_view, 3> titles{"Today", "This Week", "This Month"};
        return titles[static_cast<std::size_t>(value)];
    }

    // The moment the shelf begins, in `calendar` (its time zone and first weekday decide): the start of the
    // day, of the week or of the month containing `now`. When the calendar cannot place the week or month,
    // the start of the day; when it cannot place the day either, `now` itself. Pure; any thread.
    [[nodiscard]] Instant start(Instant now, const Calendar& calendar) const;
};

} // namespace keepery

template <>
struct std::hash<keepery::TimeShelf> : keepery::detail::VocabularyHash<keepery::TimeShelf> {};
