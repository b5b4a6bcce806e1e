#include "Media/Transcriber.h"

#include "Platform/Files.h"
#include "Platform/Paths.h"
#include "Platform/Process.h"
#include "Platform/Text.h"
#include "Platform/UUID.h"

#include <pocketsphinx.h>
#include <sphinxbase/err.h>

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <memory>
#include <mutex>
#include <sstream>
#include <utility>
#include <vector>

namespace keepery::Transcriber {
namespace {

namespace fs = std::filesystem;

constexpr int sampleRate = 16000;
// Samples handed to the recogniser at a time: a quarter of a second, short enough for its voice-activity
// detection to end an utterance close to the silence that ends it.
constexpr std::size_t chunkSamples = 4000;

struct ModelFiles {
    fs::path acoustic;
    fs::path language;
    fs::path dictionary;
};

// "en_US.UTF-8" → "en-us".
std::string languageTag(const std::string& locale) {
    std::string tag = locale.substr(0, locale.find_first_of(".@"));
    for (char& c : tag) {
        c = c == '_' ? '-' : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return tag;
}

std::optional<ModelFiles> installedModels(const fs::path& root, const std::string& locale) {
    const std::string tag = languageTag(locale);
    if (tag.empty()) {
        return std::nullopt;
    }
    const fs::path directory = root / tag;
    std::error_code error;
    ModelFiles files{directory / tag, directory / (tag + ".lm.bin"), {}};
    if (!fs::is_regular_file(files.acoustic / "mdef", error) || !fs::is_regular_file(files.language, error)) {
        return std::nullopt;
    }
    const fs::path usual = directory / ("cmudict-" + tag + ".dict");
    if (fs::is_regular_file(usual, error)) {
        files.dictionary = usual;
        return files;
    }
    for (const auto& entry : fs::directory_iterator(directory, error)) {
        if (entry.path().extension() == ".dict") {
            files.dictionary = entry.path();
            return files;
        }
    }
    return std::nullopt;
}

// The recogniser's configuration and decoder, freed together.
class Recogniser {
public:
    explicit Recogniser(const ModelFiles& models) {
        // The library logs to standard error by default, and from its first call on.
        static std::once_flag quiet;
        std::call_once(quiet, [] { err_set_logfp(nullptr); });
        config_ = cmd_ln_init(nullptr, ps_args(), TRUE, "-hmm", models.acoustic.c_str(), "-lm",
                              models.language.c_str(), "-dict", models.dictionary.c_str(), "-logfn",
                              "/dev/null", "-samprate", "16000", nullptr);
        if (config_ != nullptr) {
            decoder_ = ps_init(config_);
        }
    }
    ~Recogniser() {
        if (decoder_ != nullptr) {
            ps_free(decoder_);
        }
        if (config_ != nullptr) {
            cmd_ln_free_r(config_);
        }
    }
    Recogniser(const Recogniser&) = delete;
    Recogniser& operator=(const Recogniser&) = delete;

    [[nodiscard]] ps_decoder_t* decoder() const { return decoder_; }

private:
    cmd_ln_t* config_ = nullptr;
    ps_decoder_t* decoder_ = nullptr;
};

// The data chunk of a 16 kHz mono 16-bit PCM WAV file: the stream positioned at its start, and its size
// in bytes. Absent for any other file.
std::optional<std::uint32_t> seekSamples(std::istream& in) {
    const auto read32 = [&]() -> std::optional<std::uint32_t> {
        std::array<unsigned char, 4> b{};
        if (!in.read(reinterpret_cast<char*>(b.data()), 4)) {
            return std::nullopt;
        }
        return static_cast<std::uint32_t>(b[0] | (b[1] << 8) | (b[2] << 16) | (b[3] << 24));
    };
    std::array<char, 12> riff{};
    if (!in.read(riff.data(), riff.size()) || std::memcmp(riff.data(), "RIFF", 4) != 0 ||
        std::memcmp(riff.data() + 8, "WAVE", 4) != 0) {
        return std::nullopt;
    }
    bool formatFits = false;
    while (true) {
        std::array<char, 4> id{};
        if (!in.read(id.data(), 4)) {
            return std::nullopt;
        }
        const auto size = read32();
        if (!size) {
            return std::nullopt;
        }
        if (std::memcmp(id.data(), "data", 4) == 0) {
            return formatFits ? size : std::nullopt;
        }
        std::vector<unsigned char> body(*size + (*size & 1));
        if (!in.read(reinterpret_cast<char*>(body.data()), static_cast<std::streamsize>(body.size()))) {
            return std::nullopt;
        }
        if (std::memcmp(id.data(), "fmt ", 4) == 0 && body.size() >= 16) {
            const auto u16 = [&](std::size_t at) { return body[at] | (body[at + 1] << 8); };
            const auto u32 = [&](std::size_t at) {
                return static_cast<std::uint32_t>(u16(at) | (u16(at + 2) << 16));
            };
            formatFits = u16(0) == 1 && u16(2) == 1 && u32(4) == sampleRate && u16(14) == 16;
        }
    }
}

// "the quick i think" → "The quick I think."
std::string sentence(std::string_view words) {
    std::istringstream in{std::string(words)};
    std::string result;
    for (std::string word; in >> word;) {
        if (word == "i" || word.starts_with("i'")) {
            word[0] = 'I';
        }
        result += (result.empty() ? "" : " ") + word;
    }
    return result.empty() ? result : Text::uppercasingFirstCharacter(result) + ".";
}

// The sentences recognised in the WAV file, joined by spaces; absent when the file cannot be read or the
// recogniser fails.
std::optional<std::string> recognise(const fs::path& audio, const ModelFiles& models) {
    static_assert(std::endian::native == std::endian::little, "WAV samples are read in place");
    std::ifstream in(audio, std::ios::binary);
    const auto dataSize = seekSamples(in);
    if (!dataSize) {
        return std::nullopt;
    }
    Recogniser recogniser(models);
    ps_decoder_t* decoder = recogniser.decoder();
    if (decoder == nullptr || ps_start_utt(decoder) < 0) {
        return std::nullopt;
    }
    std::string transcript;
    const auto endUtterance = [&]() {
        if (ps_end_utt(decoder) < 0) {
            return false;
        }
        const char* hypothesis = ps_get_hyp(decoder, nullptr);
        if (hypothesis != nullptr) {
            const std::string text = sentence(hypothesis);
            if (!text.empty()) {
                transcript += (transcript.empty() ? "" : " ") + text;
            }
        }
        return true;
    };
    std::vector<std::int16_t> samples(chunkSamples);
    std::uint32_t left = *dataSize;
    bool inSpeech = false;
    while (left >= sizeof(std::int16_t)) {
        const std::size_t want = std::min<std::size_t>(chunkSamples, left / sizeof(std::int16_t));
        in.read(reinterpret_cast<char*>(samples.data()),
                static_cast<std::streamsize>(want * sizeof(std::int16_t)));
        const auto got = static_cast<std::size_t>(in.gcount()) / sizeof(std::int16_t);
        if (got == 0) {
            break;
        }
        left -= static_cast<std::uint32_t>(got * sizeof(std::int16_t));
        if (ps_process_raw(decoder, samples.data(), got, FALSE, FALSE) < 0) {
            return std::nullopt;
        }
        // Each stretch of speech between silences is decoded as its own utterance: the language model
        // then scores sentences, not a whole video run together, which keeps long recordings accurate.
        const bool speaking = ps_get_in_speech(decoder) != 0;
        if (inSpeech && !speaking) {
            if (!endUtterance() || ps_start_utt(decoder) < 0) {
                return std::nullopt;
            }
        }
        inSpeech = speaking;
    }
    if (!endUtterance()) {
        return std::nullopt;
    }
    return transcript;
}

// Removes the file when it goes.
class TemporaryFile {
public:
    explicit TemporaryFile(fs::path path) : path_(std::move(path)) {}
    ~TemporaryFile() { Files::local().removeQuietly(path_); }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    [[nodiscard]] const fs::path& path() const { return path_; }
    // Hands the file over: it is no longer removed.
    [[nodiscard]] fs::path release() { return std::exchange(path_, fs::path()); }

private:
    fs::path path_;
};

} // namespace

bool isAuthorized(const Setup& setup) {
    try {
        return installedModels(setup.models, "en-US").has_value();
    } catch (...) {
        return false;
    }
}

bool requestAuthorization(const Setup& setup) {
    return isAuthorized(setup);
}

std::optional<fs::path> audioTrack(const fs::path& video, const Setup& setup) {
    try {
        const fs::path directory = setup.temporaryDirectory.value_or(Paths::temporaryDirectory());
        TemporaryFile output(directory / ("kp-audio-" + UUID::randomUppercase() + ".wav"));
        Process& process = setup.process != nullptr ? *setup.process : Process::system();
        // "-map 0:a:0" fails for a video without sound; the rest makes the one format the recogniser
        // reads, with no metadata chunks.
        const Process::Result result = process.run({"ffmpeg",
                                                    "-nostdin",
                                                    "-hide_banner",
                                                    "-loglevel",
                                                    "error",
                                                    "-i",
                                                    video.string(),
                                                    "-map",
                                                    "0:a:0",
                                                    "-vn",
                                                    "-ac",
                                                    "1",
                                                    "-ar",
                                                    std::to_string(sampleRate),
                                                    "-c:a",
                                                    "pcm_s16le",
                                                    "-map_metadata",
                                                    "-1",
                                                    "-fflags",
                                                    "+bitexact",
                                                    "-f",
                                                    "wav",
                                                    "-y",
                                                    output.path().string()},
                                                   std::chrono::seconds(audioExtractionSeconds));
        std::error_code error;
        if (!result.succeeded() || !fs::is_regular_file(output.path(), error)) {
            return std::nullopt;
        }
        return output.release();
    } catch (...) {
        return std::nullopt;
    }
}

std::optional<std::string> transcribe(const fs::path& video, const std::string& locale, const Setup& setup) {
    try {
        std::optional<ModelFiles> models = installedModels(setup.models, locale);
        if (!models) {
            models = installedModels(setup.models, "en-US");
        }
        if (!models) {
            return std::nullopt;
        }
        const std::optional<fs::path> audio = audioTrack(video, setup);
        if (!audio) {
            return std::nullopt;
        }
        const TemporaryFile removed(*audio);
        const std::optional<std::string> text = recognise(removed.path(), *models);
        if (!text) {
            return std::nullopt;
        }
        std::string trimmed = Text::trimWhitespaceAndNewlines(*text);
        if (trimmed.empty()) {
            return std::nullopt;
        }
        return trimmed;
    } catch (...) {
        return std::nullopt;
    }
}

} // namespace keepery::Transcriber
