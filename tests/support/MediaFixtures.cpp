#include "support/MediaFixtures.h"

#include "Media/VipsImages.h"
#include "Platform/Process.h"
#include "Platform/VipsRuntime.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

namespace keepery::testing {

using VipsImages::take; // the engine's own conversions, so that test pictures are made the way it reads them
using VipsImages::view;

Image quadrants(int width, int height) {
    Image image{.width = width, .height = height, .bands = 3, .pixels = {}};
    image.pixels.reserve(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 3);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const Colour colour =
                y < height / 2 ? (x < width / 2 ? red : green) : (x < width / 2 ? blue : white);
            image.pixels.insert(image.pixels.end(), {static_cast<std::uint8_t>(colour.red),
                                                     static_cast<std::uint8_t>(colour.green),
                                                     static_cast<std::uint8_t>(colour.blue)});
        }
    }
    return image;
}

bool near(const Image& image, int x, int y, Colour colour, int tolerance) {
    if (x < 0 || y < 0 || x >= image.width || y >= image.height || image.bands < 3) {
        return false;
    }
    const auto* pixel = image.at(x, y);
    return std::abs(pixel[0] - colour.red) <= tolerance && std::abs(pixel[1] - colour.green) <= tolerance &&
           std::abs(pixel[2] - colour.blue) <= tolerance;
}

std::vector<std::uint8_t> jpegWith(const Image& image, const PhotoOptions& options) {
    auto picture = view(image).copy();
    if (options.orientation != 0) {
        picture.set("orientation", options.orientation);
    }
    if (options.dateTimeOriginal) {
        picture.set("exif-ifd2-DateTimeOriginal", options.dateTimeOriginal->c_str());
    }
    if (options.dateTime) {
        picture.set("exif-ifd0-DateTime", options.dateTime->c_str());
    }
    return take(picture.jpegsave_buffer(vips::VImage::option()->set("Q", 95)));
}

std::vector<std::uint8_t> pngOf(const Image& image) {
    return take(view(image).pngsave_buffer());
}

std::optional<std::vector<std::uint8_t>> heifOf(const Image& image) {
    try {
        return take(view(image).heifsave_buffer(vips::VImage::option()->set("Q", 90)));
    } catch (const vips::VError&) {
        return std::nullopt;
    }
}

Image decoded(const std::vector<std::uint8_t>& encoded) {
    VipsRuntime::ensureStarted();
    try {
        auto picture = vips::VImage::new_from_buffer(encoded.data(), encoded.size(), "");
        Image image{
            .width = picture.width(), .height = picture.height(), .bands = picture.bands(), .pixels = {}};
        std::size_t size = 0;
        void* memory = picture.cast(VIPS_FORMAT_UCHAR).write_to_memory(&size);
        image.pixels.assign(static_cast<std::uint8_t*>(memory), static_cast<std::uint8_t*>(memory) + size);
        g_free(memory);
        return image;
    } catch (const vips::VError& error) {
        ADD_FAILURE() << "not a picture: " << error.what();
        return {};
    }
}

void writeFile(const std::filesystem::path& path, const std::vector<std::uint8_t>& bytes) {
    writeFile(path, std::string(bytes.begin(), bytes.end()));
}

void writeFile(const std::filesystem::path& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

void makeVideo(const std::filesystem::path& path, const VideoOptions& options) {
    const auto ffmpeg = [](std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {"ffmpeg", "-nostdin", "-v", "error", "-y"});
        const auto result = Process::system().run(arguments, std::chrono::seconds(120));
        return result.succeeded() ? ::testing::AssertionSuccess()
                                  : ::testing::AssertionFailure() << result.standardError;
    };
    const std::string picture = "color=c=blue:s=" + std::to_string(options.width) + "x" +
                                std::to_string(options.height) +
                                ":r=25:d=" + std::to_string(options.seconds) +
                                ",drawbox=x=0:y=0:w=" + std::to_string(options.width / 2) +
                                ":h=" + std::to_string(options.height / 2) + ":c=red:t=fill";
    std::vector<std::string> arguments{"-f",       "lavfi",   "-i",        picture,
                                       "-c:v",     "libx264", "-preset",   "ultrafast",
                                       "-pix_fmt", "yuv420p", "-movflags", "+faststart"};
    if (options.keyFrameEveryFrame) {
        arguments.insert(arguments.end(), {"-g", "1"});
    }
    if (options.creationTime) {
        arguments.insert(arguments.end(), {"-metadata", "creation_time=" + *options.creationTime});
    }
    // ffmpeg 5.1 writes the rotate tag as a display matrix only when it copies the stream, not while it
    // encodes; so the rotated video is a copy of an encoded one.
    const std::string encoded =
        options.rotation == 0 ? path.string() : path.string() + ".unrotated" + path.extension().string();
    arguments.push_back(encoded);
    ASSERT_TRUE(ffmpeg(arguments));
    if (options.rotation != 0) {
        ASSERT_TRUE(ffmpeg({"-i", encoded, "-c", "copy", "-metadata:s:v:0",
                            "rotate=" + std::to_string(options.rotation), path.string()}));
        std::filesystem::remove(encoded);
    }
}

} // namespace keepery::testing
