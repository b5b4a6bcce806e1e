#include "support/TextMetrics.h"

#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <map>

namespace keepery::testing::TextMetrics {
namespace {

std::u32string normalised(const std::string& text) {
    const icu::UnicodeString unicode = icu::UnicodeString::fromUTF8(text);
    std::u32string out;
    bool space = false;
    for (int32_t i = 0; i < unicode.length(); i = unicode.moveIndex32(i, 1)) {
        UChar32 c = unicode.char32At(i);
        if (u_isUWhiteSpace(c)) {
            space = !out.empty();
            continue;
        }
        if (c == U'\u201C' || c == U'\u201D') {
            c = U'"';
        } else if (c == U'\u2018' || c == U'\u2019') {
            c = U'\'';
        }
        if (space) {
            out += U' ';
            space = false;
        }
        out += static_cast<char32_t>(c);
    }
    return out;
}

template <typename Sequence>
std::size_t editDistance(const Sequence& a, const Sequence& b) {
    std::vector<std::size_t> previous(b.size() + 1);
    std::vector<std::size_t> current(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j) {
        previous[j] = j;
    }
    for (std::size_t i = 1; i <= a.size(); ++i) {
        current[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t substitution = previous[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
            current[j] = std::min({previous[j] + 1, current[j - 1] + 1, substitution});
        }
        std::swap(previous, current);
    }
    return previous[b.size()];
}

} // namespace

double characterErrorRate(const std::string& expected, const std::string& recognised) {
    const std::u32string a = normalised(expected);
    const std::u32string b = normalised(recognised);
    if (a.empty()) {
        return b.empty() ? 0 : 1;
    }
    return static_cast<double>(editDistance(a, b)) / static_cast<double>(a.size());
}

std::vector<std::string> words(const std::string& text) {
    const std::u32string all = normalised(text);
    std::vector<std::string> result;
    std::size_t start = 0;
    while (start < all.size()) {
        std::size_t end = all.find(U' ', start);
        if (end == std::u32string::npos) {
            end = all.size();
        }
        std::u32string word = all.substr(start, end - start);
        const auto letterOrDigit = [](char32_t c) { return u_isalnum(static_cast<UChar32>(c)) != 0; };
        const auto first = std::find_if(word.begin(), word.end(), letterOrDigit);
        const auto last = std::find_if(word.rbegin(), word.rend(), letterOrDigit).base();
        if (first < last) {
            icu::UnicodeString unicode = icu::UnicodeString::fromUTF32(
                reinterpret_cast<const UChar32*>(&*first), static_cast<int32_t>(last - first));
            std::string utf8;
            unicode.toLower().toUTF8String(utf8);
            result.push_back(utf8);
        }
        start = end + 1;
    }
    return result;
}

double wordErrorRate(const std::string& expected, const std::string& recognised) {
    const std::vector<std::string> a = words(expected);
    const std::vector<std::string> b = words(recognised);
    if (a.empty()) {
        return b.empty() ? 0 : 1;
    }
    return static_cast<double>(editDistance(a, b)) / static_cast<double>(a.size());
}

double wordRecall(const std::string& expected, const std::string& recognised) {
    const std::vector<std::string> a = words(expected);
    if (a.empty()) {
        return 1;
    }
    std::map<std::string, int> available;
    for (const std::string& word : words(recognised)) {
        ++available[word];
    }
    std::size_t found = 0;
    for (const std::string& word : a) {
        if (available[word] > 0) {
            --available[word];
            ++found;
        }
    }
    return static_cast<double>(found) / static_cast<double>(a.size());
}

std::string joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) {
        text += (text.empty() ? "" : "\n") + line;
    }
    return text;
}

} // namespace keepery::testing::TextMetrics
