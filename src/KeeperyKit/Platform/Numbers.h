#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// Number formatting over ICU. Locales are ICU locale identifiers ("en_US", "de_DE"). Every function is pure
// apart from userLocale(), which reads the environment, and may be called from any thread; formatters are
// built once per thread and locale and reused.
namespace keepery::Numbers {

// The ICU locale for the user's number formatting: the first non-empty of LC_ALL, LC_NUMERIC and LANG, as
// localeFromPosix() reads it.
[[nodiscard]] std::string userLocale();

// The ICU locale identifier for a POSIX locale name: "de_DE.UTF-8@euro" gives "de_DE". An empty name,
// "C", "POSIX" and their encoding variants ("C.UTF-8") give "en_US": the words around our numbers are
// English, and an unset locale should not lose digit grouping.
[[nodiscard]] std::string localeFromPosix(std::string_view posixName);

// `n` in words by the locale's spell-out rules ("forty-two", "minus three" in en_US); absent when ICU has no
// spell-out rules for the locale or fails.
[[nodiscard]] std::optional<std::string> spelledOut(std::int64_t n, std::string_view locale);

// `n` as an integer in the locale's default style: its digits and grouping ("1,234" in en_US, "1.234" in
// de_DE). Falls back to plain decimal digits if ICU fails.
[[nodiscard]] std::string grouped(std::int64_t n, std::string_view locale);

} // namespace keepery::Numbers
