#include "Platform/Dates.h"

#include "Platform/ICUStrings.h"

#include <memory>
#include <unicode/datefmt.h>
#include <unicode/locid.h>
#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>

namespace keepery::Dates {
namespace {

icu::DateFormat::EStyle icuStyle(Style style) {
    switch (style) {
    case Style::none:
        return icu::DateFormat::kNone;
    case Style::shortStyle:
        return icu::DateFormat::kShort;
    case Style::medium:
        return icu::DateFormat::kMedium;
    case Style::longStyle:
        return icu::DateFormat::kLong;
    case Style::full:
        return icu::DateFormat::kFull;
    }
    return icu::DateFormat::kNone;
}

} // namespace

std::string format(double instant, Style date, Style time, std::string_view locale,
                   std::string_view timeZone) {
    const icu::Locale where =
        locale.empty() ? icu::Locale::getDefault() : icu::Locale(std::string(locale).c_str());
    std::unique_ptr<icu::DateFormat> formatter(
        icu::DateFormat::createDateTimeInstance(icuStyle(date), icuStyle(time), where));
    if (!formatter) {
        return {};
    }
    if (!timeZone.empty()) {
        formatter->adoptTimeZone(icu::TimeZone::createTimeZone(ICUStrings::fromUTF8(timeZone)));
    }
    icu::UnicodeString out;
    formatter->format(static_cast<UDate>(instant * 1000.0), out);
    return ICUStrings::toUTF8(out);
}

std::optional<double> parse(std::string_view text, std::string_view pattern, std::string_view timeZone) {
    const auto unicode = [](std::string_view utf8) {
        return icu::UnicodeString::fromUTF8(icu::StringPiece(utf8.data(), static_cast<int32_t>(utf8.size())));
    };
    UErrorCode status = U_ZERO_ERROR;
    icu::SimpleDateFormat formatter(unicode(pattern), icu::Locale("en_US_POSIX"), status);
    if (U_FAILURE(status)) {
        return std::nullopt;
    }
    formatter.setLenient(false);
    if (!timeZone.empty()) {
        formatter.adoptTimeZone(icu::TimeZone::createTimeZone(unicode(timeZone)));
    }
    const icu::UnicodeString input = unicode(text);
    icu::ParsePosition position(0);
    const UDate date = formatter.parse(input, position);
    if (position.getErrorIndex() >= 0 || position.getIndex() != input.length()) {
        return std::nullopt;
    }
    return date / 1000.0;
}

std::string longDateShortTime(double instant) {
    return format(instant, Style::longStyle, Style::shortStyle);
}

std::string mediumDateShortTime(double instant) {
    return format(instant, Style::medium, Style::shortStyle);
}

} // namespace keepery::Dates
