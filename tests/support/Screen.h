#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace keepery::testing {

// An RGB colour, each channel 0 to 255.
struct Colour {
    int red = 0;
    int green = 0;
    int blue = 0;
};

// How a line of screen text is drawn: a font family, its size in pixels and its colours.
struct TextStyle {
    std::string font = "DejaVu Sans";
    int pixels = 13;
    Colour ink{30, 30, 30};
    Colour ground{255, 255, 255};
};

// An RGB picture of a screen drawn with libvips: filled rectangles and anti-aliased lines of text.
// Move-only; one thread at a time.
class Screen {
public:
    Screen(int width, int height, Colour ground);
    ~Screen();
    Screen(Screen&&) noexcept;
    Screen& operator=(Screen&&) noexcept;

    void fill(int x, int y, int width, int height, Colour colour);
    // Draws `line` with its top-left corner at (x, y), clipped to the screen.
    void draw(const std::string& line, int x, int y, const TextStyle& style);
    // The width in pixels `line` takes in `style`.
    [[nodiscard]] static int measure(const std::string& line, const TextStyle& style);

    // The screen encoded by its file suffix: ".png", ".jpg", ".gif", ".tif".
    [[nodiscard]] std::vector<std::uint8_t> encode(const std::string& suffix) const;
    // Screens of one size as the pages of one ".tif" or ".gif" file.
    [[nodiscard]] static std::vector<std::uint8_t> encodePages(const std::vector<const Screen*>& pages,
                                                               const std::string& suffix);

private:
    struct Pixels;
    std::unique_ptr<Pixels> pixels_;
};

} // namespace keepery::testing
