#include "Media/Transcriber.h"

#include "Platform/Files.h"
#include "Platform/Paths.h"
#include "Platform/Process.h"
#include "Platform/Text.h"
#include "Platform/UUID.h"

#include <pocketsphinx.h>
#include <sphinxbase/err.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
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
// The sound is measured in frames of 10 ms.
constexpr std::size_t frameSamples = sampleRate / 100;
// A frame is quiet when it is this much softer than the loud speech of the recording (the level only one
// frame in twenty exceeds), so the measure follows the recording's own volume.
constexpr double quietDecibels = 30;
// A pause between utterances: at least this many quiet frames in a row. A speaker's pause between
// sentences; the closure of a consonant inside a word is shorter.
constexpr std::size_t pauseFrames = 12;
// Utterances are at least this long (shorter ones run on into the next), and at most this long (a longer
// stretch without a pause is cut at its quietest frame).
constexpr std::size_t shortestUtteranceFrames = 250;
constexpr std::size_t longestUtteranceFrames = 3000;

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

// The loudness of each whole frame of the samples that follow in `in` (`size` bytes), in decibels.
std::vector<float> frameLoudness(std::istream& in, std::uint32_t size) {
    std::vector<float> decibels;
    decibels.reserve(size / sizeof(std::int16_t) / frameSamples);
    std::vector<std::int16_t> frame(frameSamples);
    const auto bytes = static_cast<std::streamsize>(frameSamples * sizeof(std::int16_t));
    for (std::uint32_t left = size; left >= bytes && in.read(reinterpret_cast<char*>(frame.data()), bytes);
         left -= static_cast<std::uint32_t>(bytes)) {
        double energy = 0;
        for (const std::int16_t sample : frame) {
            energy += static_cast<double>(sample) * sample;
        }
        decibels.push_back(static_cast<float>(10 * std::log10(energy / frameSamples + 1)));
    }
    return decibels;
}

// Where each utterance ends, in frames: in the middle of the pauses that follow stretches of speech, the
// last one at the end of the sound.
std::vector<std::size_t> utteranceEnds(const std::vector<float>& decibels) {
    std::vector<std::size_t> ends;
    if (decibels.empty()) {
        return ends;
    }
    std::vector<float> sorted = decibels;
    const auto loud = sorted.begin() + static_cast<std::ptrdiff_t>(sorted.size() * 19 / 20);
    std::nth_element(sorted.begin(), loud, sorted.end());
    const float quiet = *loud - static_cast<float>(quietDecibels);
    std::size_t start = 0;
    std::size_t run = 0;
    for (std::size_t i = 0; i < decibels.size(); ++i) {
        if (i - start >= longestUtteranceFrames) {
            const auto from = decibels.begin() + static_cast<std::ptrdiff_t>(start + shortestUtteranceFrames);
            start = static_cast<std::size_t>(
                std::min_element(from, decibels.begin() + static_cast<std::ptrdiff_t>(i)) - decibels.begin());
            ends.push_back(start);
            run = 0;
        }
        if (decibels[i] < quiet) {
            ++run;
            continue;
        }
        const std::size_t middle = i - run / 2;
        if (run >= pauseFrames && middle >= start + shortestUtteranceFrames) {
            ends.push_back(middle);
            start = middle;
        }
        run = 0;
    }
    if (ends.empty() || ends.back() < decibels.size()) {
        ends.push_back(decibels.size());
    }
    return ends;
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
    const std::streampos samplesStart = in.tellg();
    const std::vector<std::size_t> ends = utteranceEnds(frameLoudness(in, *dataSize));
    in.clear();
    in.seekg(samplesStart);
    Recogniser recogniser(models);
    ps_decoder_t* decoder = recogniser.decoder();
    if (decoder == nullptr || !in) {
        return std::nullopt;
    }
    // Each stretch of speech between pauses is decoded whole as its own utterance: the language model
    // then scores sentences, not a whole video run together, and the sound is normalised over the
    // utterance, which keeps long recordings accurate.
    std::string transcript;
    std::vector<std::int16_t> samples;
    std::size_t start = 0;
    for (const std::size_t end : ends) {
        samples.resize((end - start) * frameSamples);
        start = end;
        if (!in.read(reinterpret_cast<char*>(samples.data()),
                     static_cast<std::streamsize>(samples.size() * sizeof(std::int16_t)))) {
            return std::nullopt;
        }
        if (ps_start_utt(decoder) < 0 ||
            ps_process_raw(decoder, samples.data(), samples.size(), FALSE, TRUE) < 0 ||
            ps_end_utt(decoder) < 0) {
            return std::nullopt;
        }
        const char* hypothesis = ps_get_hyp(decoder, nullptr);
        const std::string text = hypothesis != nullptr ? sentence(hypothesis) : std::string();
        if (!text.empty()) {
            transcript += (transcript.empty() ? "" : " ") + text;
        }
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
        // Made empty and private first: ffmpeg writes into it and keeps its permissions.
        Files::local().writeAtomically(output.path(), {});
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
