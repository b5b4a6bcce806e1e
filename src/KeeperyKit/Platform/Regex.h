#pragma once

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace keepery {

// A regular expression on ICU's engine: leftmost-first backtracking matching, inline flags such as "(?i)"
// anywhere in the pattern, "\s" over Unicode white space including line breaks, and positions in
// code points rather than bytes. Texts are UTF-8; invalid sequences are read as U+FFFD. A compiled
// expression is immutable and may be shared by any number of threads.
class Regex {
public:
    // A pattern ICU rejects; `what()` names ICU's error.
    class InvalidPattern : public std::invalid_argument {
    public:
        using std::invalid_argument::invalid_argument;
    };

    // The parts of a text around one match, as UTF-8.
    struct Match {
        std::string before;
        std::string matched;
        std::string after;
    };

    // Compiles `pattern`. Throws InvalidPattern.
    explicit Regex(std::string_view pattern);
    ~Regex();
    Regex(const Regex&) = delete;
    Regex& operator=(const Regex&) = delete;
    Regex(Regex&&) noexcept;
    Regex& operator=(Regex&&) noexcept;

    // The first match in `text` (the leftmost, and of those the one the pattern prefers); absent when
    // there is none.
    [[nodiscard]] std::optional<Match> firstMatch(std::string_view text) const;

    // `text` with every non-overlapping match, left to right, replaced by `replacement` taken literally
    // (no group references).
    [[nodiscard]] std::string replacingAll(std::string_view text, std::string_view replacement) const;

    // `literal` with every character that has a meaning in a pattern escaped, so that a pattern made of
    // it matches exactly that text.
    [[nodiscard]] static std::string escaped(std::string_view literal);

private:
    struct Compiled;
    std::unique_ptr<Compiled> compiled_;
};

} // namespace keepery
