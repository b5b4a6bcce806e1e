#include "Understanding/Models.h"

#include <algorithm>
#include <charconv>
#include <vector>

namespace keepery::Models {
namespace {

std::vector<std::string_view> pieces(std::string_view text, char separator) {
    std::vector<std::string_view> out;
    std::size_t start = 0;
    while (start <= text.size()) {
        const std::size_t end = std::min(text.find(separator, start), text.size());
        if (end > start) {
            out.push_back(text.substr(start, end - start));
        }
        start = end + 1;
    }
    return out;
}

// An optional sign and decimal digits, within 64 bits; anything else is 0.
std::int64_t number(std::string_view piece) {
    if (piece.starts_with('+') && piece.size() > 1 && piece[1] != '-' && piece[1] != '+') {
        piece.remove_prefix(1);
    }
    std::int64_t value = 0;
    const auto* end = piece.data() + piece.size();
    const auto [rest, error] = std::from_chars(piece.data(), end, value);
    return error == std::errc() && rest == end ? value : 0;
}

std::vector<std::int64_t> numbers(std::string_view version) {
    std::vector<std::int64_t> out;
    const auto parts = pieces(version, '-');
    if (parts.empty()) {
        return out;
    }
    for (std::string_view piece : pieces(parts.front(), '.')) {
        out.push_back(number(piece));
    }
    return out;
}

} // namespace

std::string vision(std::int64_t ramGB) {
    return ramGB >= 16 ? "qwen3.5:4b" : "qwen3.5:2b-q4_K_M";
}

bool isVersion(std::string_view version, std::string_view minimum) {
    const auto have = numbers(version);
    const auto want = numbers(minimum);
    for (std::size_t i = 0; i < std::max(have.size(), want.size()); ++i) {
        const std::int64_t a = i < have.size() ? have[i] : 0;
        const std::int64_t b = i < want.size() ? want[i] : 0;
        if (a != b) {
            return a > b;
        }
    }
    return true;
}

} // namespace keepery::Models
