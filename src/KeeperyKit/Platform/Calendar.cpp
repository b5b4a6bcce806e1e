#include "Platform/Calendar.h"

#include "Platform/ICUStrings.h"

#include <cmath>
#include <stdexcept>
#include <unicode/calendar.h>
#include <unicode/locid.h>
#include <unicode/timezone.h>

namespace keepery {

// The prototype is never changed after construction; each computation works on its own clone, because an
// ICU calendar keeps its current time as mutable state.
struct Calendar::State {
    std::unique_ptr<icu::Calendar> prototype;
    std::string timeZone;
    Weekday firstWeekday = Weekday::sunday;
};

namespace {

std::string zoneID(const icu::Calendar& calendar) {
    icu::UnicodeString id;
    calendar.getTimeZone().getID(id);
    return ICUStrings::toUTF8(id);
}

void prepare(icu::Calendar& calendar) {
    calendar.setLenient(true);
    // Where the clocks jump over midnight, the day begins at the first moment that exists.
    calendar.setSkippedWallTimeOption(UCAL_WALLTIME_NEXT_VALID);
    calendar.setRepeatedWallTimeOption(UCAL_WALLTIME_FIRST);
}

// A working copy set to `instant`, or null when ICU cannot place it.
std::unique_ptr<icu::Calendar> at(const icu::Calendar& prototype, double instant) {
    if (!std::isfinite(instant)) {
        return nullptr;
    }
    std::unique_ptr<icu::Calendar> calendar(prototype.clone());
    if (!calendar) {
        return nullptr;
    }
    UErrorCode status = U_ZERO_ERROR;
    calendar->setTime(instant * 1000.0, status);
    return U_SUCCESS(status) ? std::move(calendar) : nullptr;
}

std::optional<double> midnight(icu::Calendar& calendar) {
    calendar.set(UCAL_HOUR_OF_DAY, 0);
    calendar.set(UCAL_MINUTE, 0);
    calendar.set(UCAL_SECOND, 0);
    calendar.set(UCAL_MILLISECOND, 0);
    UErrorCode status = U_ZERO_ERROR;
    const UDate time = calendar.getTime(status);
    if (U_FAILURE(status)) {
        return std::nullopt;
    }
    return time / 1000.0;
}

} // namespace

Calendar Calendar::current() {
    UErrorCode status = U_ZERO_ERROR;
    auto state = std::make_shared<State>();
    state->prototype.reset(icu::Calendar::createInstance(status));
    if (U_FAILURE(status) || !state->prototype) {
        // The default locale or zone is unusable; a Gregorian calendar in UTC still answers.
        status = U_ZERO_ERROR;
        state->prototype.reset(
            icu::Calendar::createInstance(icu::TimeZone::getGMT()->clone(), icu::Locale::getRoot(), status));
    }
    prepare(*state->prototype);
    state->timeZone = zoneID(*state->prototype);
    state->firstWeekday = static_cast<Weekday>(state->prototype->getFirstDayOfWeek());
    return Calendar(std::move(state));
}

Calendar::Calendar(std::string_view timeZone, Weekday firstWeekday, std::string_view locale) {
    std::unique_ptr<icu::TimeZone> zone(icu::TimeZone::createTimeZone(ICUStrings::fromUTF8(timeZone)));
    if (!zone || *zone == icu::TimeZone::getUnknown()) {
        throw std::invalid_argument("unknown time zone: " + std::string(timeZone));
    }
    UErrorCode status = U_ZERO_ERROR;
    auto state = std::make_shared<State>();
    state->prototype.reset(
        icu::Calendar::createInstance(zone.release(), icu::Locale(std::string(locale).c_str()), status));
    if (U_FAILURE(status) || !state->prototype) {
        throw std::invalid_argument("cannot make a calendar for " + std::string(locale));
    }
    prepare(*state->prototype);
    state->prototype->setFirstDayOfWeek(static_cast<UCalendarDaysOfWeek>(firstWeekday));
    state->timeZone = zoneID(*state->prototype);
    state->firstWeekday = firstWeekday;
    state_ = std::move(state);
}

const std::string& Calendar::timeZone() const {
    return state_->timeZone;
}

Calendar::Weekday Calendar::firstWeekday() const {
    return state_->firstWeekday;
}

std::optional<double> Calendar::startOfDay(double instant) const {
    auto calendar = at(*state_->prototype, instant);
    if (!calendar) {
        return std::nullopt;
    }
    return midnight(*calendar);
}

std::optional<double> Calendar::startOfWeek(double instant) const {
    auto calendar = at(*state_->prototype, instant);
    if (!calendar) {
        return std::nullopt;
    }
    UErrorCode status = U_ZERO_ERROR;
    const int weekday = calendar->get(UCAL_DAY_OF_WEEK, status);
    if (U_FAILURE(status)) {
        return std::nullopt;
    }
    const int daysBack = (weekday - static_cast<int>(state_->firstWeekday) + 7) % 7;
    // Stepping back by calendar days, not by 24-hour periods, keeps the count right across a clock change.
    calendar->add(UCAL_DATE, -daysBack, status);
    if (U_FAILURE(status)) {
        return std::nullopt;
    }
    return midnight(*calendar);
}

std::optional<double> Calendar::startOfMonth(double instant) const {
    auto calendar = at(*state_->prototype, instant);
    if (!calendar) {
        return std::nullopt;
    }
    calendar->set(UCAL_DATE, 1);
    return midnight(*calendar);
}

} // namespace keepery
