#include "Media/MediaImporter.h"

#include "Media/ContactSheet.h"
#include "Media/Thumbnailer.h"
#include "Media/VipsImages.h"
#include "Platform/Dates.h"
#include "Platform/Paths.h"
#include "Platform/Text.h"
#include "Platform/UUID.h"
#include "Platform/VipsRuntime.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string_view>

namespace keepery {
namespace {

using namespace std::chrono_literals;

// File name extensions of the types that count as images, and as movies or videos, on a desktop system's
// type registry: every one names a type that conforms to image, or to movie or video.
constexpr std::array<std::string_view, 56> photoExtensions{
    "jpg",  "jpeg",  "jpe",  "jfif", "pjpeg", "png",  "apng", "gif",  "tif", "tiff", "bmp", "dib",
    "heic", "heics", "heif", "hif",  "avif",  "webp", "ico",  "icns", "jp2", "j2k",  "jpf", "jpx",
    "psd",  "tga",   "exr",  "hdr",  "pbm",   "pgm",  "ppm",  "pnm",  "svg", "dng",  "cr2", "cr3",
    "crw",  "nef",   "nrw",  "arw",  "srf",   "sr2",  "orf",  "rw2",  "raf", "pef",  "srw", "3fr",
    "erf",  "kdc",   "mos",  "mrw",  "raw",   "rwl",  "iiq",  "x3f"};
constexpr std::array<std::string_view, 27> videoExtensions{
    "mp4",  "m4v", "mov",  "qt",  "avi",  "mkv", "webm", "mpg", "mpeg", "mpe", "m1v", "m2v", "mp2v", "3gp",
    "3gpp", "3g2", "3gp2", "mts", "m2ts", "ts",  "wmv",  "flv", "f4v",  "ogv", "vob", "dv",  "mxf"};

// How long the tools may take: probing reads only the container's header; one frame costs a seek and the
// decoding from the key frame before it, about a second for 1080p on a slow machine.
constexpr std::chrono::seconds probeTimeout = 60s;
constexpr std::chrono::seconds frameTimeout = 120s;

std::string fileName(const std::filesystem::path& file) {
    return file.filename().string();
}

std::string extensionOf(const std::filesystem::path& file) {
    const std::string extension = file.extension().string();
    return Text::lowercased(extension.empty() ? extension : extension.substr(1));
}

std::optional<std::vector<std::uint8_t>> readWhole(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        return std::nullopt;
    }
    std::vector<std::uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (in.bad()) {
        return std::nullopt;
    }
    return bytes;
}

Capture newCapture(const std::filesystem::path& file, Instant now, CaptureMedia media) {
    Capture capture;
    capture.id = UUID::randomLowercase();
    capture.createdAt = now;
    capture.app = media == CaptureMedia::photo ? "Photos" : "Videos";
    capture.windowTitle = file.stem().string();
    capture.stage = CaptureStage::captured;
    capture.media = media;
    capture.imageFile = "media/" + capture.id + ".jpg";
    capture.originalFile = "media/" + capture.id + "-original." + extensionOf(file);
    return capture;
}

// libvips writes an EXIF text field as "<value> (<value>, ASCII, <n> components, <n> bytes)".
std::optional<std::string> exifText(const vips::VImage& header, const char* field) {
    if (header.get_typeof(field) == 0) {
        return std::nullopt;
    }
    std::string text = header.get_string(field);
    if (const auto readable = text.find(" ("); readable != std::string::npos) {
        text.resize(readable);
    }
    return text;
}

MediaImporter::Properties propertiesOf(std::span<const std::uint8_t> encoded) {
    try {
        VipsRuntime::ensureStarted();
        const auto header = vips::VImage::new_from_buffer(encoded.data(), encoded.size(), "");
        return {.exifDateTimeOriginal = exifText(header, "exif-ifd2-DateTimeOriginal"),
                .tiffDateTime = exifText(header, "exif-ifd0-DateTime")};
    } catch (const std::exception&) {
        return {};
    }
}

// A HEIF picture is decoded whole whatever the size asked for, so both sizes are made from one decoding;
// other formats shrink while loading, which is cheaper done twice than one full decoding.
struct PhotoSource {
    std::span<const std::uint8_t> encoded;
    std::optional<vips::VImage> decoded;

    std::optional<Image> scaled(int maxPixel) const {
        try {
            if (decoded) {
                return VipsImages::toImage(
                    decoded->thumbnail_image(maxPixel, vips::VImage::option()
                                                           ->set("height", maxPixel)
                                                           ->set("size", VIPS_SIZE_DOWN)
                                                           ->set("no_rotate", true)));
            }
            return VipsImages::toImage(VipsImages::thumbnail(encoded, maxPixel));
        } catch (const std::exception&) {
            return std::nullopt;
        }
    }
};

// The last non-blank line a tool wrote on standard error: where ffmpeg's tools put the reason.
std::string lastLine(const std::string& text) {
    std::string_view rest = text;
    while (!rest.empty() && (rest.back() == '\n' || rest.back() == '\r' || rest.back() == ' ')) {
        rest.remove_suffix(1);
    }
    const auto start = rest.find_last_of('\n');
    return std::string(start == std::string_view::npos ? rest : rest.substr(start + 1));
}

// Runs a video tool, turning the seam's failures into the importer's: a missing tool, or one that could
// not start or finish, is a ToolFailure naming it.
Process::Result runTool(Process& process, const std::vector<std::string>& arguments,
                        std::chrono::milliseconds timeout) {
    try {
        return process.run(arguments, timeout);
    } catch (const Process::Failure& failure) {
        throw MediaImporter::ToolFailure(failure.reason() == Process::Failure::Reason::missingProgram
                                             ? MediaImporter::ToolFailure::Kind::missingTool
                                             : MediaImporter::ToolFailure::Kind::failed,
                                         arguments.front(), failure.what());
    }
}

// The tools read a path after "file:" as a plain file, whatever it starts with ("-", "http:").
std::string toolInput(const std::filesystem::path& file) {
    return "file:" + std::filesystem::absolute(file).string();
}

struct Probe {
    double duration = std::nan("");
    std::optional<std::string> creationTime;
};

Probe probe(Process& process, const std::filesystem::path& file) {
    const auto result = runTool(process,
                                {"ffprobe", "-v", "error", "-print_format", "json", "-show_entries",
                                 "format=duration:format_tags=creation_time", toolInput(file)},
                                probeTimeout);
    if (!result.succeeded()) {
        // ffprobe says the same for a file it cannot open and for one whose content it rejects; only the
        // first is not the file's fault.
        if (std::ifstream(file, std::ios::binary) && std::filesystem::is_regular_file(file)) {
            throw MediaImporter::Failure::unreadable(fileName(file));
        }
        throw MediaImporter::ToolFailure(MediaImporter::ToolFailure::Kind::failed, "ffprobe",
                                         lastLine(result.standardError));
    }
    Probe found;
    const auto json = nlohmann::json::parse(result.standardOutput, nullptr, false);
    if (!json.is_object() || !json.contains("format") || !json["format"].is_object()) {
        return found;
    }
    const auto& format = json["format"];
    if (format.contains("duration") && format["duration"].is_string()) {
        const std::string text = format["duration"].get<std::string>();
        char* end = nullptr;
        const double seconds = std::strtod(text.c_str(), &end);
        if (end != text.c_str() && *end == '\0') {
            found.duration = seconds;
        }
    }
    if (format.contains("tags") && format["tags"].is_object() && format["tags"].contains("creation_time") &&
        format["tags"]["creation_time"].is_string()) {
        found.creationTime = format["tags"]["creation_time"].get<std::string>();
    }
    return found;
}

std::string secondsText(double seconds) {
    char text[32];
    std::snprintf(text, sizeof text, "%.3f", seconds);
    return text;
}

// Every frame is fitted within framePixel × framePixel, never enlarged, upright (ffmpeg applies the
// stream's display matrix by itself), as a fast-to-write PNG. Seeking before the input decodes forward from
// the preceding key frame to the exact time, well inside the tolerance.
const std::vector<std::string>& frameOutput() {
    static const std::vector<std::string> arguments{
        "-frames:v",
        "1",
        "-vf",
        "scale=w=min(" + std::to_string(MediaImporter::framePixel) + "\\,iw):h=min(" +
            std::to_string(MediaImporter::framePixel) + "\\,ih):force_original_aspect_ratio=decrease",
        "-pix_fmt",
        "rgb24",
        "-c:v",
        "png",
        "-compression_level",
        "1"};
    return arguments;
}

std::optional<Image> decodedFrame(std::span<const std::uint8_t> png) {
    if (png.empty()) {
        return std::nullopt;
    }
    try {
        VipsRuntime::ensureStarted();
        return VipsImages::toImage(vips::VImage::new_from_buffer(png.data(), png.size(), "").copy_memory());
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

// Runs ffmpeg for frames; a missing ffmpeg is the import's failure, any other failure only the frames'.
std::optional<Process::Result> runFFmpeg(Process& process, const std::vector<std::string>& arguments,
                                         std::chrono::milliseconds timeout) {
    try {
        return runTool(process, arguments, timeout);
    } catch (const MediaImporter::ToolFailure& failure) {
        if (failure.kind() == MediaImporter::ToolFailure::Kind::missingTool) {
            throw;
        }
        return std::nullopt;
    }
}

// One frame at `seconds` through ffmpeg's standard output; absent when ffmpeg cannot give it.
std::optional<Image> frameAt(Process& process, const std::filesystem::path& file, double seconds) {
    std::vector<std::string> arguments{
        "ffmpeg", "-nostdin",      "-v",   "error", "-ss", secondsText(seconds),
        "-i",     toolInput(file), "-map", "0:v:0"};
    arguments.insert(arguments.end(), frameOutput().begin(), frameOutput().end());
    arguments.insert(arguments.end(), {"-f", "image2pipe", "-"});
    const auto result = runFFmpeg(process, arguments, frameTimeout);
    if (!result || !result->succeeded()) {
        return std::nullopt;
    }
    const auto& out = result->standardOutput;
    return decodedFrame({reinterpret_cast<const std::uint8_t*>(out.data()), out.size()});
}

// A fresh directory for one command's output files, removed with them when this goes.
class ScratchDirectory {
public:
    ScratchDirectory() : path_(Paths::temporaryDirectory() / ("kp-frames-" + UUID::randomLowercase())) {
        std::filesystem::create_directories(path_);
    }
    ~ScratchDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;
    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

// The frames at `times`, in order, the ones that cannot be had left out. One ffmpeg command asks for them
// all, which opens and probes the file once and lets ffmpeg decode the frames side by side; a frame that
// command did not write is asked for again on its own, so that one bad frame costs only itself.
std::vector<Image> framesAt(Process& process, const std::filesystem::path& file,
                            const std::vector<double>& times) {
    std::vector<std::optional<Image>> found(times.size());
    try {
        const ScratchDirectory scratch;
        std::vector<std::string> arguments{"ffmpeg", "-nostdin", "-v", "error", "-y"};
        for (const double time : times) {
            arguments.insert(arguments.end(), {"-ss", secondsText(time), "-i", toolInput(file)});
        }
        for (std::size_t i = 0; i < times.size(); ++i) {
            arguments.insert(arguments.end(), {"-map", std::to_string(i) + ":v:0"});
            arguments.insert(arguments.end(), frameOutput().begin(), frameOutput().end());
            arguments.push_back((scratch.path() / (std::to_string(i) + ".png")).string());
        }
        (void)runFFmpeg(process, arguments, frameTimeout * static_cast<long>(times.size()));
        for (std::size_t i = 0; i < times.size(); ++i) {
            if (const auto png = readWhole(scratch.path() / (std::to_string(i) + ".png"))) {
                found[i] = decodedFrame(*png);
            }
        }
    } catch (const std::filesystem::filesystem_error&) {
        // No scratch directory: every frame is asked for on its own below.
    }
    std::vector<Image> frames;
    for (std::size_t i = 0; i < times.size(); ++i) {
        if (!found[i]) {
            found[i] = frameAt(process, file, times[i]);
        }
        if (found[i]) {
            frames.push_back(std::move(*found[i]));
        }
    }
    return frames;
}

// Containers write their creation time as ISO 8601 in UTC, with or without a fraction of a second.
std::optional<Instant> creationDate(const std::optional<std::string>& text) {
    if (!text) {
        return std::nullopt;
    }
    for (const char* pattern : {"yyyy-MM-dd'T'HH:mm:ss.SSSSSSXXX", "yyyy-MM-dd'T'HH:mm:ssXXX",
                                "yyyy-MM-dd'T'HH:mm:ss.SSSXXX", "yyyy-MM-dd HH:mm:ss"}) {
        if (const auto instant = Dates::parse(*text, pattern, "UTC")) {
            return instant;
        }
    }
    return std::nullopt;
}

template <typename Value>
Value orUnreadable(std::optional<Value> value, const std::filesystem::path& file) {
    if (!value) {
        throw MediaImporter::Failure::unreadable(fileName(file));
    }
    return std::move(*value);
}

} // namespace

MediaImporter::Failure::Failure(Kind kind, std::string name)
    : kind_(kind), name_(std::move(name)),
      text_((kind == Kind::notMedia ? "notMedia(" : "unreadable(") + name_ + ")") {}

MediaImporter::ToolFailure::ToolFailure(Kind kind, std::string tool, std::string message)
    : std::runtime_error(kind == Kind::missingTool ? tool + " is needed to import videos but is not installed"
                                                   : tool + " failed: " + message),
      kind_(kind), tool_(std::move(tool)), message_(std::move(message)) {}

std::optional<CaptureMedia> MediaImporter::kind(const std::filesystem::path& file) {
    const std::string extension = extensionOf(file);
    if (extension.empty()) {
        return std::nullopt;
    }
    if (std::find(videoExtensions.begin(), videoExtensions.end(), extension) != videoExtensions.end()) {
        return CaptureMedia::video;
    }
    if (std::find(photoExtensions.begin(), photoExtensions.end(), extension) != photoExtensions.end()) {
        return CaptureMedia::photo;
    }
    return std::nullopt;
}

MediaImporter::Imported MediaImporter::load(const std::filesystem::path& file, Instant now,
                                            Process& process) {
    const auto media = kind(file);
    if (!media) {
        throw Failure::notMedia(fileName(file));
    }
    return *media == CaptureMedia::photo ? photo(file, now) : video(file, now, process);
}

MediaImporter::Imported MediaImporter::photo(const std::filesystem::path& file, Instant now) {
    const auto encoded = orUnreadable(readWhole(file), file);
    PhotoSource source{.encoded = encoded, .decoded = std::nullopt};
    if (VipsImages::isHeif(encoded)) {
        try {
            VipsRuntime::ensureStarted();
            const auto header = vips::VImage::new_from_buffer(encoded.data(), encoded.size(), "");
            if (static_cast<std::int64_t>(header.width()) * header.height() > VipsImages::mostPixels) {
                throw Failure::unreadable(fileName(file));
            }
            source.decoded = header.copy_memory();
        } catch (const std::exception&) {
            throw Failure::unreadable(fileName(file));
        }
    }
    const Image display = orUnreadable(source.scaled(displayPixel), file);
    auto image = orUnreadable(Thumbnailer::jpeg(display, displayQuality), file);
    auto thumbnail = orUnreadable(
        Thumbnailer::jpeg(orUnreadable(source.scaled(thumbnailPixel), file), thumbnailQuality), file);
    Capture capture = newCapture(file, now, CaptureMedia::photo);
    capture.width = display.width;
    capture.height = display.height;
    capture.takenAt = takenDate(propertiesOf(encoded));
    return {.capture = std::move(capture),
            .image = std::move(image),
            .thumbnail = std::move(thumbnail),
            .sheet = std::nullopt};
}

MediaImporter::Imported MediaImporter::video(const std::filesystem::path& file, Instant now,
                                             Process& process) {
    const Probe probed = probe(process, file);
    if (!std::isfinite(probed.duration) || probed.duration <= 0) {
        throw Failure::unreadable(fileName(file));
    }
    const std::vector<Image> frames = framesAt(process, file, keyTimes(probed.duration, sheetFrames));
    if (frames.empty()) {
        throw Failure::unreadable(fileName(file));
    }
    auto image = orUnreadable(Thumbnailer::jpeg(frames.front(), displayQuality), file);
    auto thumbnail = orUnreadable(Thumbnailer::jpeg(image, thumbnailPixel, thumbnailQuality), file);
    auto sheet =
        orUnreadable(Thumbnailer::jpeg(orUnreadable(contactSheet(frames), file), sheetQuality), file);
    Capture capture = newCapture(file, now, CaptureMedia::video);
    capture.width = frames.front().width;
    capture.height = frames.front().height;
    capture.duration = probed.duration;
    capture.takenAt = creationDate(probed.creationTime);
    return {.capture = std::move(capture),
            .image = std::move(image),
            .thumbnail = std::move(thumbnail),
            .sheet = std::move(sheet)};
}

std::optional<Instant> MediaImporter::takenDate(const Properties& properties) {
    const auto& raw =
        properties.exifDateTimeOriginal ? properties.exifDateTimeOriginal : properties.tiffDateTime;
    if (!raw) {
        return std::nullopt;
    }
    return Dates::parse(*raw, "yyyy:MM:dd HH:mm:ss");
}

std::vector<double> MediaImporter::keyTimes(double duration, int count) {
    if (!(duration > 0) || count < 1) {
        return {};
    }
    if (count == 1) {
        return {duration * 0.5};
    }
    std::vector<double> times;
    times.reserve(static_cast<std::size_t>(count));
    const double first = duration * 0.05;
    const double last = duration * 0.95;
    for (int i = 0; i < count; ++i) {
        times.push_back(first + (last - first) * i / (count - 1));
    }
    return times;
}

std::optional<Image> MediaImporter::scaled(const std::filesystem::path& file, int maxPixel) {
    const auto encoded = readWhole(file);
    if (!encoded || maxPixel < 1) {
        return std::nullopt;
    }
    try {
        return VipsImages::toImage(VipsImages::thumbnail(*encoded, maxPixel));
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

std::optional<Image> MediaImporter::contactSheet(const std::vector<Image>& frames) {
    return ContactSheet::draw(frames);
}

} // namespace keepery
