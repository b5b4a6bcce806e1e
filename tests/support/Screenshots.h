#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace keepery::testing {

// The kinds of window the rendered screenshots imitate.
enum class ScreenLayout { terminal, browser, editor, mail, settings };

// A rendered screenshot and the text lines drawn on it, in reading order (panel by panel, top to bottom
// and left to right).
struct RenderedScreenshot {
    std::string name;
    std::vector<std::uint8_t> png;
    std::vector<std::string> lines;
};

// The words of a piece of documentation installed on every machine the project builds on (release notes
// of git, else the common licences), chosen by `index`; consecutive indexes give different documents.
// Throws std::runtime_error when none is installed.
[[nodiscard]] std::vector<std::string> documentationWords(std::size_t index);

// A 2560×1440 screenshot in `layout`: panels side by side, light or dark as such windows are, 11 to 16 px
// text, filled from `words` in order.
[[nodiscard]] RenderedScreenshot renderScreenshot(ScreenLayout layout, const std::vector<std::string>& words);

// Layouts in turn, texts from documentationWords(index): the screenshot set of the recognition benchmark.
[[nodiscard]] RenderedScreenshot documentationScreenshot(std::size_t index);

} // namespace keepery::testing
