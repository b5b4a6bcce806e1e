#pragma once

#include <cstdint>
#include <vector>

namespace keepery {

// A decoded picture as the media modules pass it around: 8-bit sRGB pixels, rows top to bottom without
// padding, each pixel red, green, blue and, when `bands` is 4, an alpha that is not premultiplied. A value.
struct Image {
    int width = 0;
    int height = 0;
    int bands = 3;                    // 3 (RGB) or 4 (RGBA)
    std::vector<std::uint8_t> pixels; // width × height × bands bytes

    bool operator==(const Image&) const = default;

    // A `width` × `height` image of one opaque colour.
    [[nodiscard]] static Image filled(int width, int height, std::uint8_t red, std::uint8_t green,
                                      std::uint8_t blue);

    // The bytes of the pixel at (x, y), `bands` of them. (x, y) must lie inside the image.
    [[nodiscard]] const std::uint8_t* at(int x, int y) const {
        return pixels.data() +
               (static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x)) *
                   static_cast<std::size_t>(bands);
    }
};

} // namespace keepery
