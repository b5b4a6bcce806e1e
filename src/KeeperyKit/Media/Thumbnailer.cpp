#include "Media/Thumbnailer.h"

#include "Media/VipsImages.h"

#include <algorithm>
#include <cmath>

namespace keepery::Thumbnailer {
namespace {

int jpegQuality(double quality) {
    return static_cast<int>(std::lround(std::clamp(quality, 0.0, 1.0) * 100.0));
}

std::optional<std::vector<std::uint8_t>> encodeJPEG(const vips::VImage& image, double quality) {
    return VipsImages::take(VipsImages::opaqueRGB(image).jpegsave_buffer(
        vips::VImage::option()->set("Q", std::max(1, jpegQuality(quality)))->set("strip", true)));
}

bool plausible(const Image& image) {
    return image.width > 0 && image.height > 0 && (image.bands == 3 || image.bands == 4) &&
           image.pixels.size() == static_cast<std::size_t>(image.width) *
                                      static_cast<std::size_t>(image.height) *
                                      static_cast<std::size_t>(image.bands);
}

} // namespace

std::optional<std::vector<std::uint8_t>> jpeg(const Image& image, double quality) {
    if (!plausible(image)) {
        return std::nullopt;
    }
    try {
        return encodeJPEG(VipsImages::view(image), quality);
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

std::optional<std::vector<std::uint8_t>> png(const Image& image) {
    if (!plausible(image)) {
        return std::nullopt;
    }
    try {
        return VipsImages::take(
            VipsImages::view(image).pngsave_buffer(vips::VImage::option()->set("strip", true)));
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

std::optional<std::vector<std::uint8_t>> jpeg(std::span<const std::uint8_t> encoded, int maxPixel,
                                              double quality) {
    if (encoded.empty() || maxPixel < 1) {
        return std::nullopt;
    }
    try {
        return encodeJPEG(VipsImages::thumbnail(encoded, maxPixel), quality);
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

} // namespace keepery::Thumbnailer
