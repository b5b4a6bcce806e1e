#include "support/Screenshots.h"

#include "support/Screen.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace keepery::testing {
namespace {

// Lines no wider than `width` greedily filled with the words from `words[next]` on, at most `maxLines`;
// advances `next` past the words used. A guess from the width of an average character saves measuring
// every prefix.
std::vector<std::string> wrap(const std::vector<std::string>& words, std::size_t& next,
                              const TextStyle& style, int width, std::size_t maxLines) {
    const std::string sample = "The quick brown fox jumps over the lazy dog, 1234567890.";
    const double perCharacter =
        static_cast<double>(Screen::measure(sample, style)) / static_cast<double>(sample.size());
    const auto fits = static_cast<std::size_t>(std::max(1.0, width / perCharacter));
    std::vector<std::string> lines;
    while (next < words.size() && lines.size() < maxLines) {
        std::vector<std::string> taken;
        std::size_t length = 0;
        for (std::size_t i = next;
             i < words.size() && (taken.empty() || length + 1 + words[i].size() <= fits); ++i) {
            length += (taken.empty() ? 0 : 1) + words[i].size();
            taken.push_back(words[i]);
        }
        const auto joined = [&] {
            std::string line;
            for (const std::string& word : taken) {
                line += (line.empty() ? "" : " ") + word;
            }
            return line;
        };
        while (taken.size() > 1 && Screen::measure(joined(), style) > width) {
            taken.pop_back();
        }
        next += taken.size();
        lines.push_back(joined());
    }
    return lines;
}

} // namespace

RenderedScreenshot renderScreenshot(ScreenLayout layout, const std::vector<std::string>& words) {
    static const nlohmann::json layouts = [] {
        std::ifstream in(KEEPERY_SCREENSHOT_LAYOUTS);
        if (!in) {
            throw std::runtime_error("cannot read " KEEPERY_SCREENSHOT_LAYOUTS);
        }
        return nlohmann::json::parse(in);
    }();
    constexpr const char* names[] = {"terminal", "browser", "editor", "mail", "settings"};
    RenderedScreenshot shot{.name = names[static_cast<int>(layout)], .png = {}, .lines = {}};
    Screen screen(2560, 1440, {255, 255, 255});
    std::size_t next = 0;
    for (const nlohmann::json& step : layouts.at(shot.name)) {
        const auto number = [&](std::size_t i) { return step.at(i).get<int>(); };
        if (step.at(0) == "fill") {
            screen.fill(number(1), number(2), number(3), number(4), {number(5), number(6), number(7)});
            continue;
        }
        const TextStyle style{step.at(5).get<std::string>(),
                              number(6),
                              {number(7), number(8), number(9)},
                              {number(10), number(11), number(12)}};
        next = next < words.size() ? next : 0;
        int y = number(2);
        for (const std::string& line : wrap(words, next, style, number(3), number(4))) {
            screen.draw(line, number(1), y, style);
            shot.lines.push_back(line);
            y += style.pixels * 3 / 2 + 2;
        }
    }
    shot.png = screen.encode(".png");
    return shot;
}

RenderedScreenshot documentationScreenshot(std::size_t index) {
    namespace fs = std::filesystem;
    std::vector<fs::path> found;
    for (const char* folder : {"/usr/share/doc/git/RelNotes", "/usr/share/common-licenses"}) {
        std::error_code error;
        for (const auto& entry : fs::directory_iterator(folder, error)) {
            if (entry.is_regular_file() && entry.file_size() > 3000) {
                found.push_back(entry.path());
            }
        }
        if (!found.empty()) {
            break;
        }
    }
    if (found.empty()) {
        throw std::runtime_error("no documentation is installed to take text from");
    }
    std::sort(found.begin(), found.end());
    // Spread over the whole list: neighbouring release notes share much of their wording.
    std::ifstream in(found[(index * 37) % found.size()]);
    std::vector<std::string> words;
    for (std::string token; in >> token;) {
        if (token.find_first_not_of("=-*_#~") != std::string::npos) { // not a rule of = or -
            words.push_back(token);
        }
    }
    RenderedScreenshot shot = renderScreenshot(static_cast<ScreenLayout>(index % 5), words);
    shot.name += "-" + std::to_string(index);
    return shot;
}

} // namespace keepery::testing
