#include "support/Screenshots.h"

#include "support/Screen.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
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

// Draws one panel: its ground, then lines from `words` each `lineHeight` apart from (x, y) on, at most
// `maxLines` and no wider than `width`; records the lines in `lines`.
struct Painter {
    Screen& screen;
    const std::vector<std::string>& words;
    std::size_t next = 0;
    std::vector<std::string> lines{};

    void text(int x, int y, int width, std::size_t maxLines, const TextStyle& style) {
        const int lineHeight = style.pixels * 3 / 2 + 2;
        if (next >= words.size()) {
            next = 0;
        }
        for (const std::string& line : Screen::wrap(words, next, style, width, maxLines)) {
            screen.draw(line, x, y, style);
            lines.push_back(line);
            y += lineHeight;
        }
    }
    void panel(int x, int y, int width, int height, Colour ground) {
        screen.fill(x, y, width, height, ground);
    }
};

TextStyle style(const char* font, int pixels, Colour ink, Colour ground) {
    return TextStyle{font, pixels, ink, ground};
}

constexpr const char* sans = "DejaVu Sans";
constexpr const char* mono = "DejaVu Sans Mono";

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
    constexpr int width = 2560;
    constexpr int height = 1440;
    const Colour white{255, 255, 255};
    RenderedScreenshot shot;
    Screen screen(width, height, white);
    Painter paint{screen, words};
    switch (layout) {
    case ScreenLayout::terminal: {
        shot.name = "terminal";
        const Colour ground{29, 31, 33};
        paint.panel(0, 0, width, 36, {45, 45, 45});
        paint.text(1100, 11, 600, 1, style(sans, 12, {200, 200, 200}, {45, 45, 45}));
        paint.panel(0, 36, width, height - 36, ground);
        paint.panel(1279, 36, 2, height - 36, {80, 80, 80});
        paint.text(16, 52, 760, 22, style(mono, 13, {197, 200, 198}, ground));
        paint.text(1300, 52, 760, 22, style(mono, 13, {181, 189, 104}, ground));
        break;
    }
    case ScreenLayout::browser: {
        shot.name = "browser";
        const Colour tabs{222, 225, 230};
        const Colour side{246, 248, 250};
        paint.panel(0, 0, width, 40, tabs);
        for (int tab = 0; tab < 3; ++tab) {
            const Colour ground = tab == 0 ? white : tabs;
            paint.panel(8 + tab * 260, 6, 250, 34, ground);
            paint.text(20 + tab * 260, 16, 200, 1, style(sans, 12, {60, 64, 67}, ground));
        }
        paint.text(120, 52, 900, 1, style(sans, 14, {32, 33, 36}, white));
        paint.panel(0, 84, width, 1, {218, 220, 224});
        paint.panel(0, 85, 320, height - 85, side);
        paint.text(24, 110, 260, 24, style(sans, 14, {9, 105, 218}, side));
        paint.text(380, 110, 920, 20, style(sans, 16, {31, 35, 40}, white));
        paint.text(1860, 110, 260, 12, style(sans, 12, {87, 96, 106}, white));
        break;
    }
    case ScreenLayout::editor: {
        shot.name = "editor";
        const Colour tree{37, 37, 38};
        const Colour code{30, 30, 30};
        const Colour status{0, 122, 204};
        paint.panel(0, 0, width, 30, {50, 50, 51});
        paint.text(1150, 8, 500, 1, style(sans, 12, {204, 204, 204}, {50, 50, 51}));
        paint.panel(0, 30, 300, height - 58, tree);
        paint.text(20, 44, 200, 30, style(sans, 13, {204, 204, 204}, tree));
        paint.panel(300, 30, width - 300, height - 58, code);
        paint.text(340, 44, 1000, 26, style(mono, 14, {212, 212, 212}, code));
        paint.panel(0, height - 28, width, 28, status);
        paint.text(12, height - 21, 500, 1, style(sans, 12, white, status));
        paint.text(2000, height - 21, 500, 1, style(sans, 12, white, status));
        break;
    }
    case ScreenLayout::mail: {
        shot.name = "mail";
        const Colour folders{240, 240, 240};
        paint.panel(0, 0, 260, height, folders);
        paint.text(20, 24, 200, 12, style(sans, 13, {40, 40, 40}, folders));
        paint.panel(260, 0, 1, height, {221, 221, 221});
        paint.text(284, 24, 560, 16, style(sans, 13, {40, 40, 40}, white));
        paint.panel(900, 0, 1, height, {221, 221, 221});
        paint.text(940, 24, 1100, 2, style(sans, 16, {20, 20, 20}, white));
        paint.text(940, 90, 1100, 18, style(sans, 14, {51, 51, 51}, white));
        break;
    }
    case ScreenLayout::settings: {
        shot.name = "settings";
        const Colour side{236, 236, 236};
        paint.panel(0, 0, 400, height, side);
        paint.text(24, 40, 300, 20, style(sans, 13, {30, 30, 30}, side));
        paint.text(460, 40, 900, 1, style(sans, 16, {0, 0, 0}, white));
        paint.text(460, 90, 900, 18, style(sans, 13, {30, 30, 30}, white));
        paint.text(460, 500, 900, 6, style(sans, 11, {110, 110, 110}, white));
        break;
    }
    }
    shot.png = screen.encode(".png");
    shot.lines = std::move(paint.lines);
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
