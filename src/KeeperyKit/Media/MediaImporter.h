#pragma once

#include "Media/Image.h"
#include "Model/Capture.h"
#include "Platform/Process.h"

#include <cstdint>
#include <exception>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace keepery {

// Turns a photo or video file the user hands to the library into a new Capture with the images the library
// stores for it: a display image, a thumbnail and, for a video, a contact sheet of key frames. Writes no
// files and keeps nothing between calls; the caller writes the returned data at the paths the capture
// names and copies the original. Every operation may be called from any thread; `load`, `photo` and
// `video` block their caller while pictures are decoded and while ffprobe and ffmpeg run.
struct MediaImporter {
    MediaImporter() = delete;

    static constexpr int displayPixel = 2560;  // longest side of a photo's display image
    static constexpr int sheetFrames = 6;      // key frames taken from a video
    static constexpr int thumbnailPixel = 720; // longest side of every thumbnail
    static constexpr int framePixel = 1280;    // a video frame fits within framePixel × framePixel
    static constexpr double displayQuality = 0.88;
    static constexpr double thumbnailQuality = 0.82;
    static constexpr double sheetQuality = 0.85;
    static constexpr double frameTolerance = 0.5; // seconds a frame may lie before or after its time

    // Why a file could not be imported. Carries the file's name (the last component of its path,
    // extension included) and no message of its own: a front end words it. `what()` is
    // "notMedia(<name>)" or "unreadable(<name>)".
    class Failure : public std::exception {
    public:
        enum class Kind {
            notMedia,   // the extension names neither an image nor a movie or video type
            unreadable, // of a media type, but not decodable into the images the library needs
        };
        [[nodiscard]] static Failure notMedia(std::string name) { return {Kind::notMedia, std::move(name)}; }
        [[nodiscard]] static Failure unreadable(std::string name) {
            return {Kind::unreadable, std::move(name)};
        }

        [[nodiscard]] Kind kind() const { return kind_; }
        [[nodiscard]] const std::string& name() const { return name_; }
        [[nodiscard]] const char* what() const noexcept override { return text_.c_str(); }
        bool operator==(const Failure& other) const { return kind_ == other.kind_ && name_ == other.name_; }

    private:
        Failure(Kind kind, std::string name);
        Kind kind_;
        std::string name_;
        std::string text_;
    };

    // A video tool (ffprobe, ffmpeg) that is missing, could not be started, did not finish in time, or
    // could not load a video's duration for a reason other than the video's content (the file cannot be
    // opened). Distinct from Failure: the file may be fine. `what()` names the tool and carries its message.
    class ToolFailure : public std::runtime_error {
    public:
        enum class Kind { missingTool, failed };
        ToolFailure(Kind kind, std::string tool, std::string message);

        [[nodiscard]] Kind kind() const { return kind_; }
        [[nodiscard]] const std::string& tool() const { return tool_; }
        // The tool's own words (its last line on standard error), or the reason it did not run.
        [[nodiscard]] const std::string& message() const { return message_; }

    private:
        Kind kind_;
        std::string tool_;
        std::string message_;
    };

    // What an import hands to the library.
    struct Imported {
        Capture capture;
        std::vector<std::uint8_t> image;                // JPEG of the display image
        std::vector<std::uint8_t> thumbnail;            // JPEG, longest side 720
        std::optional<std::vector<std::uint8_t>> sheet; // JPEG contact sheet; present for every video
    };

    // The date fields of a picture's metadata, as text, when present.
    struct Properties {
        std::optional<std::string> exifDateTimeOriginal; // EXIF DateTimeOriginal
        std::optional<std::string> tiffDateTime;         // TIFF (IFD0) DateTime
    };

    // `photo` or `video` by the lower-cased extension of the file's name (HEIC, WebP, TIFF, camera RAW ...
    // are photos; mp4, mov, mkv, webm ... are videos); absent for anything else, PDF and text included.
    // Looks at the name only. Pure.
    [[nodiscard]] static std::optional<CaptureMedia> kind(const std::filesystem::path& file);

    // `photo` or `video` by `kind(file)`. Throws Failure::notMedia for other files, and what those throw.
    [[nodiscard]] static Imported load(const std::filesystem::path& file, Instant now,
                                       Process& process = Process::system());

    // Imports a photo: a display image of at most `displayPixel` and a thumbnail of at most
    // `thumbnailPixel`, each reduced from the file while it is decoded, both upright; the taking date from
    // its EXIF or TIFF metadata. Throws Failure::unreadable when the file cannot be read or decoded.
    [[nodiscard]] static Imported photo(const std::filesystem::path& file, Instant now);

    // Imports a video through ffprobe and ffmpeg run by `process`: its duration, `sheetFrames` upright
    // frames at `keyTimes` (a frame that cannot be had is left out), the first frame as display image, a
    // thumbnail of it, the contact sheet of all frames obtained, and the container's creation time.
    // Throws Failure::unreadable when the video's content yields no duration or no frame, ToolFailure when
    // a tool is missing or cannot load the duration for another reason.
    [[nodiscard]] static Imported video(const std::filesystem::path& file, Instant now,
                                        Process& process = Process::system());

    // EXIF DateTimeOriginal, else TIFF DateTime, read as "yyyy:MM:dd HH:mm:ss" in the machine's time zone.
    // Absent when neither is present, or when the one chosen does not match. Pure but for the time zone.
    [[nodiscard]] static std::optional<Instant> takenDate(const Properties& properties);

    // `count` times within a video of `duration` seconds: the middle for one; otherwise from 5 % to 95 %
    // of the length, evenly spaced. Empty for a duration not above 0 or a count below 1. Pure.
    [[nodiscard]] static std::vector<double> keyTimes(double duration, int count);

    // The picture in `file` upright, its longest side at most `maxPixel` (never enlarged), reduced while
    // it is decoded. Absent when the file cannot be read or decoded. Never throws.
    [[nodiscard]] static std::optional<Image> scaled(const std::filesystem::path& file, int maxPixel);

    // The contact sheet of `frames` (see ContactSheet). Absent for no frames. Never throws.
    [[nodiscard]] static std::optional<Image> contactSheet(const std::vector<Image>& frames);
};

} // namespace keepery
