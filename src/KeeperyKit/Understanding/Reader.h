#pragma once

#include <cstdint>
#include <exception>
#include <span>
#include <string>
#include <vector>

// Reads the text in an image with Tesseract's LSTM engine, dictionary correction on. Screen captures are
// what it reads most, so the image is first cut into panels at blank gaps and each panel is read on its
// own, enlarged, in reading order: side-by-side panels then never merge into one line.
//
// Any number of threads may read at once; each call blocks its thread for the whole recognition. Each
// thread loads its own engine on its first call and keeps it until the thread ends. Tesseract's OpenMP
// threads must be off for the process (OMP_THREAD_LIMIT=1 before it starts; see ReadingEnvironment.h).
namespace keepery::Reader {

// The bytes could not be opened as an image. Its text form is the one a capture's last error shows.
class Failure : public std::exception {
public:
    enum class Kind { corruptFile };

    [[nodiscard]] static Failure corruptFile();

    [[nodiscard]] Kind kind() const { return Kind::corruptFile; }
    // "The file couldn’t be opened because it isn’t in the correct format."
    [[nodiscard]] const char* what() const noexcept override;

private:
    Failure() = default;
};

// The recognised text of the first image (page, frame) of `bytes`, in any format libvips reads: one line
// per text line in reading order, joined by single line feeds, with no line feed at the end and empty
// lines left out; the empty string for an image without text. Throws Failure when the bytes are not an
// image, std::runtime_error when the picture has more than 64 million pixels, when no engine can be loaded
// (no English language data installed) or when the engine fails.
[[nodiscard]] std::string text(std::span<const std::uint8_t> bytes);

// The language packs recognition uses: English first, then every other installed one (the Tesseract data
// files in the data directory), in name order.
[[nodiscard]] std::vector<std::string> languages();

} // namespace keepery::Reader
