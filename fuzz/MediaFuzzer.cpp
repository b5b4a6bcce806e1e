// Feeds the picture and video readers what a damaged or hostile file could hold. The first byte picks the
// reader, the rest is the file: 't' a thumbnail of the bytes, 'r' the text in them, 'p' a photo import and
// 'v' a video import (the bytes written to a file of that kind first). Readers may throw their documented
// failures and nothing else, and what comes back is whole: a thumbnail is a JPEG within its size, text has
// no empty line, an import has its pictures.
#include "Media/MediaImporter.h"
#include "Media/Thumbnailer.h"
#include "Understanding/Reader.h"

#include "FuzzRule.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <span>
#include <stdexcept>
#include <string>
#include <unistd.h>

using namespace keepery;

namespace {

using fuzzing::require;

bool isJPEG(const std::vector<std::uint8_t>& bytes) {
    return bytes.size() > 4 && bytes[0] == 0xFF && bytes[1] == 0xD8 && bytes[bytes.size() - 2] == 0xFF &&
           bytes[bytes.size() - 1] == 0xD9;
}

// A directory of its own for the whole run, removed at exit.
const std::filesystem::path& scratch() {
    static const std::filesystem::path directory = [] {
        char pattern[] = "/tmp/keepery-fuzz-media-XXXXXX";
        return std::filesystem::path(::mkdtemp(pattern));
    }();
    static const struct Remover {
        ~Remover() {
            std::error_code ignored;
            std::filesystem::remove_all(directory, ignored);
        }
    } remover;
    return directory;
}

std::filesystem::path written(std::span<const std::uint8_t> bytes, const char* name) {
    const std::filesystem::path file = scratch() / name;
    std::ofstream(file, std::ios::binary | std::ios::trunc)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    return file;
}

void checkImport(const MediaImporter::Imported& imported, CaptureMedia media) {
    require(imported.capture.media == media, "an import keeps its media");
    require(isJPEG(imported.image) && isJPEG(imported.thumbnail), "an import has its pictures");
    require(imported.capture.width > 0 && imported.capture.height > 0, "an import has a size");
    require(imported.sheet.has_value() == (media == CaptureMedia::video),
            "a video, and only a video, has a sheet");
}

void read(char reader, std::span<const std::uint8_t> bytes) {
    switch (reader) {
    case 't': {
        const auto thumbnail = Thumbnailer::jpeg(bytes, 64, 0.8);
        require(!thumbnail || isJPEG(*thumbnail), "a thumbnail is a whole JPEG");
        return;
    }
    case 'r': {
        try {
            const std::string text = Reader::text(bytes);
            require(!text.ends_with('\n') && text.find("\n\n") == std::string::npos &&
                        !text.starts_with('\n'),
                    "recognised text has no empty line");
        } catch (const Reader::Failure&) {
        } catch (const std::runtime_error&) {
            // The engine's own failure, or a picture too large to read.
        }
        return;
    }
    case 'p':
        try {
            checkImport(MediaImporter::photo(written(bytes, "picture.png"), 1'700'000'000),
                        CaptureMedia::photo);
        } catch (const MediaImporter::Failure& failure) {
            require(failure.kind() == MediaImporter::Failure::Kind::unreadable, "a bad photo is unreadable");
        }
        return;
    case 'v':
        try {
            checkImport(MediaImporter::video(written(bytes, "movie.mp4"), 1'700'000'000),
                        CaptureMedia::video);
        } catch (const MediaImporter::Failure& failure) {
            require(failure.kind() == MediaImporter::Failure::Kind::unreadable, "a bad video is unreadable");
        } catch (const MediaImporter::ToolFailure&) {
        }
        return;
    default:
        return;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 1) {
        return 0;
    }
    read(static_cast<char>(data[0]), std::span(data + 1, size - 1));
    return 0;
}
