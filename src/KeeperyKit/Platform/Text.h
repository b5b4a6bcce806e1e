#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

// Unicode text rules shared by the whole engine, over ICU. Every text is UTF-8; every count and cut is in
// user-perceived characters (extended grapheme clusters), never bytes. All functions are pure and may be
// called from any thread. Invalid UTF-8 is read with U+FFFD in place of each bad sequence.
namespace keepery::Text {

// The number of grapheme clusters in `text`.
[[nodiscard]] std::size_t characterCount(std::string_view text);

// The first `count` grapheme clusters of `text` (all of it when it has no more).
[[nodiscard]] std::string prefix(std::string_view text, std::size_t count);

// The parts in order with `separator` between each two ("a, b, c"); empty for no parts. `Parts` is any
// range of texts that append to a std::string.
template <typename Parts>
[[nodiscard]] std::string joined(const Parts& parts, std::string_view separator) {
    std::string out;
    bool first = true;
    for (const auto& part : parts) {
        if (!first) {
            out += separator;
        }
        first = false;
        out += part;
    }
    return out;
}

// `text` whole when it has at most `limit` grapheme clusters; otherwise its first `limit` clusters
// followed by "…" (U+2026).
[[nodiscard]] std::string cut(std::string_view text, std::size_t limit);

// True for the white space of "spaces and tabs": Unicode space separators (Zs) and U+0009.
[[nodiscard]] bool isWhitespace(char32_t c);

// True for "white space and line breaks": every separator (Zs, Zl, Zp), U+0009 to U+000D and U+0085.
[[nodiscard]] bool isWhitespaceOrNewline(char32_t c);

// `text` without the spaces and tabs at both ends (code points tested with isWhitespace).
[[nodiscard]] std::string trimWhitespace(std::string_view text);

// `text` without white space and line breaks at both ends (code points tested with isWhitespaceOrNewline).
[[nodiscard]] std::string trimWhitespaceAndNewlines(std::string_view text);

// Unicode's full, locale-independent lower-case mapping ("İ" becomes "i̇", "ß" stays "ß").
[[nodiscard]] std::string lowercased(std::string_view text);

// True when the two texts are equal ignoring case under the user's locale (full case folding, with the
// Turkic dotted and dotless i when the user's language is Turkish or Azerbaijani).
[[nodiscard]] bool equalsIgnoringCase(std::string_view a, std::string_view b);

// The code points of `text`, decoded from UTF-8.
[[nodiscard]] std::u32string codePoints(std::string_view text);

// UTF-8 for the given code points.
[[nodiscard]] std::string utf8(std::u32string_view codePoints);

// The grapheme clusters of `text`, in order, each as UTF-8.
[[nodiscard]] std::vector<std::string> characters(std::string_view text);

// `text` without the characters of `alsoTrim` nor white space and line breaks at both ends.
[[nodiscard]] std::string trimWhitespaceAndNewlines(std::string_view text, std::u32string_view alsoTrim);

// True for Unicode letters, marks and numbers (general categories L*, M* and N*).
[[nodiscard]] bool isAlphanumeric(char32_t c);

// The code points of `text` for which isAlphanumeric holds, in order, as UTF-8.
[[nodiscard]] std::string alphanumerics(std::string_view text);

// Unicode's full, locale-independent upper-case mapping ("ß" becomes "SS").
[[nodiscard]] std::string uppercased(std::string_view text);

// `text` with its first grapheme cluster upper-cased (full mapping) and the rest unchanged.
[[nodiscard]] std::string uppercasingFirstCharacter(std::string_view text);

// True for code points with the Emoji_Presentation property (shown as emoji without a variation selector).
[[nodiscard]] bool isEmojiPresentation(char32_t c);

// True for the regional indicator symbols U+1F1E6 to U+1F1FF, two of which make a flag.
[[nodiscard]] bool isRegionalIndicator(char32_t c);

} // namespace keepery::Text
