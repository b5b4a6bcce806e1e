#include "support/Screenshots.h"

#include "support/Screen.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace keepery::testing {
namespace {

namespace fs = std::filesystem;

std::vector<fs::path> documents() {
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
    std::sort(found.begin(), found.end());
    return found;
}

bool onlyRule(const std::string& token) {
    return token.find_first_not_of("=-*_#~") == std::string::npos;
}

} // namespace

std::vector<std::string> documentationWords(std::size_t index) {
    const std::vector<fs::path> found = documents();
    if (found.empty()) {
        throw std::runtime_error("no documentation is installed to take text from");
    }
    // Spread over the whole list: neighbouring release notes share much of their wording.
    std::ifstream in(found[(index * 37) % found.size()]);
    std::vector<std::string> words;
    std::string token;
    while (in >> token) {
        if (!onlyRule(token)) {
            words.push_back(token);
        }
    }
    return words;
}

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
        if (next >= words.size()) {
            next = 0;
        }
        int y = number(2);
        for (const std::string& line : Screen::wrap(words, next, style, number(3), number(4))) {
            screen.draw(line, number(1), y, style);
            shot.lines.push_back(line);
            y += style.pixels * 3 / 2 + 2;
        }
    }
    shot.png = screen.encode(".png");
    return shot;
}

RenderedScreenshot documentationScreenshot(std::size_t index) {
    constexpr ScreenLayout layouts[] = {ScreenLayout::terminal, ScreenLayout::browser, ScreenLayout::editor,
                                        ScreenLayout::mail, ScreenLayout::settings};
    RenderedScreenshot shot = renderScreenshot(layouts[index % 5], documentationWords(index));
    shot.name += "-" + std::to_string(index);
    return shot;
}

} // namespace keepery::testing
