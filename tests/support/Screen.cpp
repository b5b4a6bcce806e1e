#include "support/Screen.h"

#include "Media/VipsImages.h"
#include "Platform/VipsRuntime.h"

#include <vips/vips8>

#include <algorithm>
#include <stdexcept>

namespace keepery::testing {

struct Screen::Pixels {
    vips::VImage image;
};

namespace {

std::vector<double> vector(const Colour& colour) {
    return {static_cast<double>(colour.red), static_cast<double>(colour.green),
            static_cast<double>(colour.blue)};
}

// The text's coverage mask, one band, 0 to 255. Pango sizes fonts in points: at 72 dots per inch a point
// is a pixel.
vips::VImage mask(const std::string& line, const TextStyle& style) {
    VipsRuntime::ensureStarted();
    std::string markup;
    for (char c : line) {
        markup += c == '&' ? "&amp;" : c == '<' ? "&lt;" : c == '>' ? "&gt;" : std::string(1, c);
    }
    const std::string font = style.font + " " + std::to_string(style.pixels);
    return vips::VImage::text(markup.c_str(),
                              vips::VImage::option()->set("font", font.c_str())->set("dpi", 72));
}

} // namespace

Screen::Screen(int width, int height, Colour ground) : pixels_(std::make_unique<Pixels>()) {
    VipsRuntime::ensureStarted();
    pixels_->image = vips::VImage::black(width, height, vips::VImage::option()->set("bands", 3))
                         .new_from_image(vector(ground))
                         .copy_memory();
}

Screen::~Screen() = default;
Screen::Screen(Screen&&) noexcept = default;
Screen& Screen::operator=(Screen&&) noexcept = default;

void Screen::fill(int x, int y, int width, int height, Colour colour) {
    pixels_->image.draw_rect(vector(colour), x, y, width, height, vips::VImage::option()->set("fill", true));
}

void Screen::draw(const std::string& line, int x, int y, const TextStyle& style) {
    if (line.empty()) {
        return;
    }
    vips::VImage coverage = mask(line, style);
    const int width = std::min(coverage.width(), pixels_->image.width() - x);
    const int height = std::min(coverage.height(), pixels_->image.height() - y);
    if (width <= 0 || height <= 0) {
        return;
    }
    const vips::VImage drawn =
        coverage.crop(0, 0, width, height)
            .ifthenelse(vector(style.ink), vector(style.ground), vips::VImage::option()->set("blend", true));
    pixels_->image.draw_image(drawn.cast(VIPS_FORMAT_UCHAR), x, y);
}

int Screen::measure(const std::string& line, const TextStyle& style) {
    return line.empty() ? 0 : mask(line, style).width();
}

std::vector<std::uint8_t> Screen::encode(const std::string& suffix) const {
    if (suffix == ".png") {
        return VipsImages::take(pixels_->image.pngsave_buffer());
    }
    if (suffix == ".jpg") {
        return VipsImages::take(pixels_->image.jpegsave_buffer(vips::VImage::option()->set("Q", 90)));
    }
    return encodePages({this}, suffix);
}

std::vector<std::uint8_t> Screen::encodePages(const std::vector<const Screen*>& pages,
                                              const std::string& suffix) {
    std::vector<vips::VImage> images;
    for (const Screen* page : pages) {
        images.push_back(page->pixels_->image);
    }
    vips::VImage joined = vips::VImage::arrayjoin(images, vips::VImage::option()->set("across", 1)).copy();
    joined.set("page-height", images.at(0).height());
    if (suffix == ".gif") {
        joined.set("delay", std::vector<int>(pages.size(), 100));
        return VipsImages::take(joined.gifsave_buffer());
    }
    if (suffix != ".tif") {
        throw std::invalid_argument("unknown suffix " + suffix);
    }
    return VipsImages::take(joined.tiffsave_buffer());
}

} // namespace keepery::testing
