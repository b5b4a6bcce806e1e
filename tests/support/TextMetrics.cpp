#include "support/TextMetrics.h"

#include "Platform/Text.h"

#include <algorithm>
#include <map>
#include <sstream>
#include <utility>

namespace keepery::testing::TextMetrics {
namespace {

std::u32string normalised(const std::string& text) {
    std::u32string out;
    bool space = false;
    for (const char32_t c : Text::codePoints(text)) {
        if (Text::isWhitespaceOrNewline(c)) {
            space = !out.empty();
            continue;
        }
        if (std::exchange(space, false)) {
            out += U' ';
        }
        out += c == U'\u201C' || c == U'\u201D' ? U'"' : c == U'\u2018' || c == U'\u2019' ? U'\'' : c;
    }
    return out;
}

// Edit distance divided by the length of `expected`.
template <typename Sequence>
double errorRate(const Sequence& expected, const Sequence& recognised) {
    if (expected.empty()) {
        return recognised.empty() ? 0 : 1;
    }
    std::vector<std::size_t> previous(recognised.size() + 1);
    std::vector<std::size_t> current(recognised.size() + 1);
    for (std::size_t j = 0; j <= recognised.size(); ++j) {
        previous[j] = j;
    }
    for (std::size_t i = 1; i <= expected.size(); ++i) {
        current[0] = i;
        for (std::size_t j = 1; j <= recognised.size(); ++j) {
            const std::size_t substitution = previous[j - 1] + (expected[i - 1] == recognised[j - 1] ? 0 : 1);
            current[j] = std::min({previous[j] + 1, current[j - 1] + 1, substitution});
        }
        std::swap(previous, current);
    }
    return static_cast<double>(previous.back()) / static_cast<double>(expected.size());
}

} // namespace

double characterErrorRate(const std::string& expected, const std::string& recognised) {
    return errorRate(normalised(expected), normalised(recognised));
}

double wordErrorRate(const std::string& expected, const std::string& recognised) {
    return errorRate(words(expected), words(recognised));
}

std::vector<std::string> words(const std::string& text) {
    std::vector<std::string> result;
    std::istringstream in(Text::utf8(normalised(text)));
    for (std::string word; in >> word;) {
        const std::u32string points = Text::codePoints(word);
        const auto first = std::find_if(points.begin(), points.end(), Text::isAlphanumeric);
        const auto last = std::find_if(points.rbegin(), points.rend(), Text::isAlphanumeric).base();
        if (first < last) {
            result.push_back(Text::lowercased(Text::utf8(std::u32string(first, last))));
        }
    }
    return result;
}

double wordRecall(const std::string& expected, const std::string& recognised) {
    const std::vector<std::string> wanted = words(expected);
    std::map<std::string, int> available;
    for (const std::string& word : words(recognised)) {
        ++available[word];
    }
    const auto found = std::count_if(wanted.begin(), wanted.end(),
                                     [&](const std::string& word) { return available[word]-- > 0; });
    return wanted.empty() ? 1 : static_cast<double>(found) / static_cast<double>(wanted.size());
}

std::string joined(const std::vector<std::string>& lines) {
    return Text::joined(lines, "\n");
}

} // namespace keepery::testing::TextMetrics
