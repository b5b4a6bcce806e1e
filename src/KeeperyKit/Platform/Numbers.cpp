#include "Platform/Numbers.h"

#include "Platform/ICUStrings.h"

#include <cstdlib>
#include <memory>
#include <unicode/locid.h>
#include <unicode/numberformatter.h>
#include <unicode/rbnf.h>
#include <unicode/unistr.h>

namespace keepery::Numbers {
namespace {

icu::Locale icuLocale(std::string_view id) {
    return icu::Locale(std::string(id).c_str());
}

// Building a rule-based formatter parses the locale's whole rule set (tens of microseconds), so each thread
// keeps the last one it built. Callers switch locales rarely, if ever.
const icu::RuleBasedNumberFormat* spellOutFormatter(std::string_view locale) {
    struct Cached {
        std::string locale;
        std::unique_ptr<icu::RuleBasedNumberFormat> formatter;
    };
    thread_local Cached cached;
    if (!cached.formatter || cached.locale != locale) {
        UErrorCode status = U_ZERO_ERROR;
        auto formatter =
            std::make_unique<icu::RuleBasedNumberFormat>(icu::URBNF_SPELLOUT, icuLocale(locale), status);
        cached.locale = std::string(locale);
        cached.formatter = U_SUCCESS(status) ? std::move(formatter) : nullptr;
    }
    return cached.formatter.get();
}

const icu::number::LocalizedNumberFormatter& integerFormatter(std::string_view locale) {
    struct Cached {
        std::string locale;
        std::optional<icu::number::LocalizedNumberFormatter> formatter;
    };
    thread_local Cached cached;
    if (!cached.formatter || cached.locale != locale) {
        cached.locale = std::string(locale);
        cached.formatter = icu::number::NumberFormatter::withLocale(icuLocale(locale));
    }
    return *cached.formatter;
}

} // namespace

std::string localeFromPosix(std::string_view posixName) {
    std::string_view name = posixName.substr(0, posixName.find_first_of(".@"));
    if (name.empty() || name == "C" || name == "POSIX") {
        return "en_US";
    }
    return std::string(name);
}

std::string userLocale() {
    for (const char* variable : {"LC_ALL", "LC_NUMERIC", "LANG"}) {
        const char* value = std::getenv(variable);
        if (value != nullptr && *value != '\0') {
            return localeFromPosix(value);
        }
    }
    return localeFromPosix("");
}

std::optional<std::string> spelledOut(std::int64_t n, std::string_view locale) {
    const icu::RuleBasedNumberFormat* formatter = spellOutFormatter(locale);
    if (formatter == nullptr) {
        return std::nullopt;
    }
    icu::UnicodeString text;
    UErrorCode status = U_ZERO_ERROR;
    icu::FieldPosition position;
    formatter->format(static_cast<int64_t>(n), text, position, status);
    if (U_FAILURE(status) || text.isEmpty()) {
        return std::nullopt;
    }
    return ICUStrings::toUTF8(text);
}

std::string grouped(std::int64_t n, std::string_view locale) {
    UErrorCode status = U_ZERO_ERROR;
    icu::UnicodeString text = integerFormatter(locale).formatInt(n, status).toString(status);
    if (U_FAILURE(status)) {
        return std::to_string(n);
    }
    return ICUStrings::toUTF8(text);
}

} // namespace keepery::Numbers
