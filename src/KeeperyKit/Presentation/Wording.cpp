#include "Presentation/Wording.h"

#include "Platform/Text.h"

namespace keepery {
namespace {

// The words are English whatever the user's locale: the sentences around them are.
constexpr std::string_view wordsLocale = "en_US";
constexpr std::int64_t largestSpelledOut = 99;

} // namespace

std::string Wording::count(std::int64_t n, std::string_view singular, std::string_view plural,
                           Capitalized capitalized, const std::string& locale) {
    std::string number;
    if (n > largestSpelledOut) {
        number = Numbers::grouped(n, locale);
    } else {
        number = Numbers::spelledOut(n, wordsLocale).value_or(std::to_string(n));
        if (capitalized == Capitalized::yes) {
            number = Text::uppercasingFirstCharacter(number);
        }
    }
    number += ' ';
    number += n == 1 ? singular : plural;
    return number;
}

Wording::Today Wording::today(std::int64_t kept, int hour, const std::string& locale) {
    if (kept == 0) {
        if (hour < 18) {
            return {"Nothing kept", "yet today."};
        }
        return {"A quiet day,", "nothing kept."};
    }
    return {count(kept, "thing", "things", Capitalized::yes, locale) + ",", "kept today."};
}

std::string Wording::search(std::int64_t found, const std::string& locale) {
    if (found == 0) {
        return "Nothing yet about";
    }
    return count(found, "thing", "things", Capitalized::yes, locale) + " about";
}

std::optional<std::string> Wording::milestone(std::int64_t total, const std::string& locale) {
    if (total == 10) {
        return "Ten things kept.";
    }
    if (total == 1) {
        return "Your first thing kept.";
    }
    if (total < 1 || total % 100 != 0) {
        return std::nullopt;
    }
    return count(total, "thing", "things", Capitalized::yes, locale) + " kept.";
}

} // namespace keepery
