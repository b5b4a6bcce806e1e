#pragma once

#include "Media/Image.h"
#include "support/Screen.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

// Pictures and videos made in code for the media tests: pictures through libvips, videos through ffmpeg's
// test sources.
namespace keepery::testing {

// The colours of `quadrants`: top left red, top right green, bottom left blue, bottom right white.
inline constexpr Colour red{255, 0, 0};
inline constexpr Colour green{0, 255, 0};
inline constexpr Colour blue{0, 0, 255};
inline constexpr Colour white{255, 255, 255};

[[nodiscard]] Image quadrants(int width, int height);

// Whether the pixel at (x, y) of `image` is within `tolerance` of `colour` in every channel.
[[nodiscard]] bool near(const Image& image, int x, int y, Colour colour, int tolerance = 40);

struct PhotoOptions {
    int orientation = 0;                         // EXIF orientation tag; 0 writes none
    std::optional<std::string> dateTimeOriginal; // EXIF DateTimeOriginal text
    std::optional<std::string> dateTime;         // TIFF (IFD0) DateTime text

    PhotoOptions& turned(int tag) { return orientation = tag, *this; }
    PhotoOptions& taken(std::string text) { return dateTimeOriginal = std::move(text), *this; }
    PhotoOptions& dated(std::string text) { return dateTime = std::move(text), *this; }
};

// `image` as a JPEG with the metadata in `options`, as PNG, or as HEIF (absent when libheif cannot encode).
[[nodiscard]] std::vector<std::uint8_t> jpegWith(const Image& image, const PhotoOptions& options = {});
[[nodiscard]] std::vector<std::uint8_t> pngOf(const Image& image);
[[nodiscard]] std::optional<std::vector<std::uint8_t>> heifOf(const Image& image);

// Decodes encoded picture bytes; fails the test (and returns an empty image) when they are not a picture.
[[nodiscard]] Image decoded(const std::vector<std::uint8_t>& encoded);

void writeFile(const std::filesystem::path& path, const std::vector<std::uint8_t>& bytes);
void writeFile(const std::filesystem::path& path, const std::string& text);

struct VideoOptions {
    int width = 320;
    int height = 180;
    double seconds = 3;
    int rotation = 0;                        // degrees clockwise a player turns the picture
    std::optional<std::string> creationTime; // the container's creation_time tag
    bool keyFrameEveryFrame = false;

    VideoOptions& sized(int w, int h) { return width = w, height = h, *this; }
    VideoOptions& lasting(double s) { return seconds = s, *this; }
    VideoOptions& turned(int degrees) { return rotation = degrees, *this; }
    VideoOptions& created(std::string text) { return creationTime = std::move(text), *this; }
    VideoOptions& everyFrameKey() { return keyFrameEveryFrame = true, *this; }
};

// Writes an H.264 video at `path` (container by extension), blue with a red top-left quadrant as stored, its
// index at the front so that a cut-off file still opens. Fails the test when ffmpeg cannot make it.
void makeVideo(const std::filesystem::path& path, const VideoOptions& options = {});

} // namespace keepery::testing
