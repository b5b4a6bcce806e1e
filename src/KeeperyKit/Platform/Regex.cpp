#include "Platform/Regex.h"

#include "Platform/ICUStrings.h"

#include <unicode/regex.h>
#include <unicode/unistr.h>
#include <unicode/utypes.h>

namespace keepery {
namespace {

using ICUStrings::fromUTF8;
using ICUStrings::toUTF8;

} // namespace

struct Regex::Compiled {
    std::unique_ptr<icu::RegexPattern> pattern;
};

Regex::Regex(std::string_view pattern) : compiled_(std::make_unique<Compiled>()) {
    UParseError where{};
    UErrorCode status = U_ZERO_ERROR;
    compiled_->pattern.reset(icu::RegexPattern::compile(fromUTF8(pattern), 0, where, status));
    if (U_FAILURE(status) || !compiled_->pattern) {
        throw InvalidPattern(std::string("invalid regular expression (") + u_errorName(status) +
                             "): " + std::string(pattern));
    }
}

Regex::~Regex() = default;
Regex::Regex(Regex&&) noexcept = default;
Regex& Regex::operator=(Regex&&) noexcept = default;

std::optional<Regex::Match> Regex::firstMatch(std::string_view text) const {
    const icu::UnicodeString subject = fromUTF8(text);
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::RegexMatcher> matcher(compiled_->pattern->matcher(subject, status));
    if (U_FAILURE(status) || !matcher->find(status) || U_FAILURE(status)) {
        return std::nullopt;
    }
    const int32_t start = matcher->start(status);
    const int32_t end = matcher->end(status);
    if (U_FAILURE(status)) {
        return std::nullopt;
    }
    return Match{toUTF8(subject, 0, start), toUTF8(subject, start, end),
                 toUTF8(subject, end, subject.length())};
}

std::string Regex::replacingAll(std::string_view text, std::string_view replacement) const {
    const icu::UnicodeString subject = fromUTF8(text);
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::RegexMatcher> matcher(compiled_->pattern->matcher(subject, status));
    if (U_FAILURE(status)) {
        return std::string(text);
    }
    // ICU reads "$" and "\" in a replacement as group references and escapes; quote them.
    icu::UnicodeString literal;
    const icu::UnicodeString raw = fromUTF8(replacement);
    for (int32_t i = 0; i < raw.length(); ++i) {
        const char16_t c = raw.charAt(i);
        if (c == u'$' || c == u'\\') {
            literal.append(u'\\');
        }
        literal.append(c);
    }
    const icu::UnicodeString result = matcher->replaceAll(literal, status);
    if (U_FAILURE(status)) {
        return std::string(text);
    }
    return toUTF8(result);
}

std::string Regex::escaped(std::string_view literal) {
    std::string out;
    out.reserve(literal.size() * 2);
    for (char c : literal) {
        const auto byte = static_cast<unsigned char>(c);
        // Only ASCII punctuation and symbols carry meaning; letters, digits and every non-ASCII byte
        // (the parts of multi-byte characters) stand for themselves.
        const bool meaningful = byte < 0x80 && !((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                                                 (c >= '0' && c <= '9') || c == '_' || byte < 0x21);
        if (meaningful) {
            out.push_back('\\');
        }
        out.push_back(c);
    }
    return out;
}

} // namespace keepery
