#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace keepery::testing {

// The kinds of window the rendered screenshots imitate.
enum class ScreenLayout { terminal, browser, editor, mail, settings };

// A rendered screenshot and the text lines drawn on it, in reading order (panel by panel, top to bottom).
struct RenderedScreenshot {
    std::string name;
    std::vector<std::uint8_t> png;
    std::vector<std::string> lines;
};

// A 2560×1440 screenshot in `layout`, its panels filled with `words` in order at 11 to 16 px.
[[nodiscard]] RenderedScreenshot renderScreenshot(ScreenLayout layout, const std::vector<std::string>& words);

// Layouts in turn, with the words of installed documentation (git's release notes, else the common
// licences) chosen by `index`: the screenshot set of the recognition benchmark. Throws std::runtime_error
// when none is installed.
[[nodiscard]] RenderedScreenshot documentationScreenshot(std::size_t index);

} // namespace keepery::testing
