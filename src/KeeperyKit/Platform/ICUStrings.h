#pragma once

// The one conversion between the engine's UTF-8 texts and ICU's UTF-16 strings. For Platform sources only:
// it brings ICU's headers, which stay out of every public engine header.

#include <cstdint>
#include <string>
#include <string_view>
#include <unicode/unistr.h>

namespace keepery::ICUStrings {

// `text` as UTF-16; each invalid UTF-8 sequence becomes U+FFFD.
[[nodiscard]] inline icu::UnicodeString fromUTF8(std::string_view text) {
    return icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
}

// `text` as UTF-8.
[[nodiscard]] inline std::string toUTF8(const icu::UnicodeString& text) {
    std::string out;
    text.toUTF8String(out);
    return out;
}

// The code units [start, end) of `text` as UTF-8.
[[nodiscard]] inline std::string toUTF8(const icu::UnicodeString& text, int32_t start, int32_t end) {
    return toUTF8(icu::UnicodeString(text, start, end - start));
}

} // namespace keepery::ICUStrings
