#include "Platform/Text.h"

#include "Platform/ICUStrings.h"

#include <algorithm>
#include <memory>
#include <unicode/brkiter.h>
#include <unicode/locid.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/utf8.h>

namespace keepery::Text {
namespace {

using ICUStrings::fromUTF8;
using ICUStrings::toUTF8;

// A character break iterator is costly to open; each thread keeps one and resets its text.
icu::BreakIterator& characterBreaks() {
    thread_local std::unique_ptr<icu::BreakIterator> iterator = [] {
        UErrorCode status = U_ZERO_ERROR;
        std::unique_ptr<icu::BreakIterator> it(
            icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
        return it;
    }();
    return *iterator;
}

// Offset in code units of `text` after its first `count` grapheme clusters, or -1 when it has no more.
int32_t clusterBoundary(const icu::UnicodeString& text, std::size_t count, std::size_t* clusters) {
    icu::BreakIterator& breaks = characterBreaks();
    breaks.setText(text);
    std::size_t n = 0;
    int32_t end = breaks.first();
    while (n < count) {
        int32_t next = breaks.next();
        if (next == icu::BreakIterator::DONE) {
            if (clusters != nullptr) {
                *clusters = n;
            }
            return -1;
        }
        end = next;
        ++n;
    }
    if (clusters != nullptr) {
        *clusters = n;
    }
    return breaks.next() == icu::BreakIterator::DONE ? -1 : end;
}

template <typename Predicate>
std::string trimmed(std::string_view text, Predicate keepOut) {
    const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
    const auto length = static_cast<int32_t>(text.size());
    int32_t start = 0;
    while (start < length) {
        int32_t next = start;
        UChar32 c;
        U8_NEXT(bytes, next, length, c);
        if (c < 0 || !keepOut(static_cast<char32_t>(c))) {
            break;
        }
        start = next;
    }
    int32_t end = length;
    while (end > start) {
        int32_t previous = end;
        UChar32 c;
        U8_PREV(bytes, start, previous, c);
        if (c < 0 || !keepOut(static_cast<char32_t>(c))) {
            break;
        }
        end = previous;
    }
    return std::string(text.substr(static_cast<std::size_t>(start), static_cast<std::size_t>(end - start)));
}

} // namespace

std::size_t characterCount(std::string_view text) {
    if (text.empty()) {
        return 0;
    }
    icu::UnicodeString u = fromUTF8(text);
    icu::BreakIterator& breaks = characterBreaks();
    breaks.setText(u);
    std::size_t n = 0;
    breaks.first();
    while (breaks.next() != icu::BreakIterator::DONE) {
        ++n;
    }
    return n;
}

std::string prefix(std::string_view text, std::size_t count) {
    icu::UnicodeString u = fromUTF8(text);
    int32_t end = clusterBoundary(u, count, nullptr);
    if (end < 0) {
        return toUTF8(u);
    }
    return toUTF8(u, 0, end);
}

std::string cut(std::string_view text, std::size_t limit) {
    icu::UnicodeString u = fromUTF8(text);
    int32_t end = clusterBoundary(u, limit, nullptr);
    if (end < 0) {
        return toUTF8(u);
    }
    return toUTF8(u, 0, end) + "\u2026";
}

bool isWhitespace(char32_t c) {
    return c == U'\t' || u_charType(static_cast<UChar32>(c)) == U_SPACE_SEPARATOR;
}

bool isWhitespaceOrNewline(char32_t c) {
    if ((c >= 0x09 && c <= 0x0D) || c == 0x85) {
        return true;
    }
    switch (u_charType(static_cast<UChar32>(c))) {
    case U_SPACE_SEPARATOR:
    case U_LINE_SEPARATOR:
    case U_PARAGRAPH_SEPARATOR:
        return true;
    default:
        return false;
    }
}

std::string trimWhitespace(std::string_view text) {
    return trimmed(text, isWhitespace);
}

std::string trimWhitespaceAndNewlines(std::string_view text) {
    return trimmed(text, isWhitespaceOrNewline);
}

std::string lowercased(std::string_view text) {
    icu::UnicodeString u = fromUTF8(text);
    u.toLower(icu::Locale::getRoot());
    return toUTF8(u);
}

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    const char* language = icu::Locale::getDefault().getLanguage();
    const bool turkic = std::string_view(language) == "tr" || std::string_view(language) == "az";
    // Default case folding maps ASCII to ASCII letter for letter, so two ASCII texts (a collection name
    // and what an assistant typed, most often) are compared without converting either.
    const auto ascii = [](std::string_view text) {
        return std::all_of(text.begin(), text.end(),
                           [](char c) { return static_cast<unsigned char>(c) < 0x80; });
    };
    if (!turkic && ascii(a) && ascii(b)) {
        const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
        return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(),
                                                  [&](char x, char y) { return lower(x) == lower(y); });
    }
    return fromUTF8(a).caseCompare(fromUTF8(b),
                                   turkic ? U_FOLD_CASE_EXCLUDE_SPECIAL_I : U_FOLD_CASE_DEFAULT) == 0;
}

std::u32string codePoints(std::string_view text) {
    const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
    const auto length = static_cast<int32_t>(text.size());
    std::u32string out;
    out.reserve(text.size());
    for (int32_t i = 0; i < length;) {
        UChar32 c;
        U8_NEXT(bytes, i, length, c);
        out.push_back(c < 0 ? U'\uFFFD' : static_cast<char32_t>(c));
    }
    return out;
}

std::string utf8(std::u32string_view points) {
    std::string out;
    out.reserve(points.size());
    for (char32_t c : points) {
        uint8_t buffer[4];
        int32_t length = 0;
        UBool error = false;
        U8_APPEND(buffer, length, 4, static_cast<UChar32>(c), error);
        if (error) {
            out += "\uFFFD";
        } else {
            out.append(reinterpret_cast<const char*>(buffer), static_cast<std::size_t>(length));
        }
    }
    return out;
}

std::vector<std::string> characters(std::string_view text) {
    std::vector<std::string> out;
    if (text.empty()) {
        return out;
    }
    const icu::UnicodeString u = fromUTF8(text);
    icu::BreakIterator& breaks = characterBreaks();
    breaks.setText(u);
    int32_t start = breaks.first();
    for (int32_t end = breaks.next(); end != icu::BreakIterator::DONE; start = end, end = breaks.next()) {
        out.push_back(toUTF8(u, start, end));
    }
    return out;
}

std::string trimWhitespaceAndNewlines(std::string_view text, std::u32string_view alsoTrim) {
    return trimmed(text, [alsoTrim](char32_t c) {
        return isWhitespaceOrNewline(c) || alsoTrim.find(c) != std::u32string_view::npos;
    });
}

bool isAlphanumeric(char32_t c) {
    return (U_GET_GC_MASK(static_cast<UChar32>(c)) & (U_GC_L_MASK | U_GC_M_MASK | U_GC_N_MASK)) != 0;
}

std::string alphanumerics(std::string_view text) {
    std::u32string points = codePoints(text);
    std::erase_if(points, [](char32_t c) { return !isAlphanumeric(c); });
    return utf8(points);
}

std::string uppercased(std::string_view text) {
    icu::UnicodeString u = fromUTF8(text);
    u.toUpper(icu::Locale::getRoot());
    return toUTF8(u);
}

std::string uppercasingFirstCharacter(std::string_view text) {
    icu::UnicodeString u = fromUTF8(text);
    const int32_t end = clusterBoundary(u, 1, nullptr);
    if (end < 0) {
        return uppercased(text);
    }
    icu::UnicodeString first(u, 0, end);
    first.toUpper(icu::Locale::getRoot());
    return toUTF8(first) + toUTF8(u, end, u.length());
}

bool isEmojiPresentation(char32_t c) {
    return u_hasBinaryProperty(static_cast<UChar32>(c), UCHAR_EMOJI_PRESENTATION);
}

bool isRegionalIndicator(char32_t c) {
    return c >= 0x1F1E6 && c <= 0x1F1FF;
}

} // namespace keepery::Text
