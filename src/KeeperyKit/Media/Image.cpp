#include "Media/Image.h"

namespace keepery {

Image Image::filled(int width, int height, std::uint8_t red, std::uint8_t green, std::uint8_t blue) {
    Image image{.width = width, .height = height, .bands = 3, .pixels = {}};
    image.pixels.reserve(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 3);
    for (long i = 0; i < static_cast<long>(width) * height; ++i) {
        image.pixels.insert(image.pixels.end(), {red, green, blue});
    }
    return image;
}

} // namespace keepery
