#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace keepery {
class Process;
}

// Turns what is said in a video into text, on this machine only, with PocketSphinx: the sound is taken
// out with ffmpeg into a temporary 16 kHz mono WAV file, cut into utterances at the speaker's pauses
// (stretches of at least 120 ms much softer than the recording's speech; utterances of 2.5 s to 30 s), each
// decoded on its own, and each utterance becomes a sentence (first letter upper-case, a full stop at the
// end). Nothing is kept between calls; every operation may run on any thread at once,
// and blocks its caller until done. No operation throws: every failure is an absent result.
namespace keepery::Transcriber {

// Where the recognisers and the tools are found. The defaults are the installed ones.
struct Setup {
    // Holds one directory per locale, named by its lower-case language tag ("en-us"), each holding the
    // acoustic model in a directory of the same name, the language model "<tag>.lm.bin" and a
    // pronunciation dictionary ("*.dict").
    std::filesystem::path models = "/usr/share/pocketsphinx/model";
    // Runs ffmpeg; null means Process::system().
    Process* process = nullptr;
    // Where the audio file is made; absent means Paths::temporaryDirectory().
    std::optional<std::filesystem::path> temporaryDirectory{};
};

// The longest time the sound of one video may take to be extracted.
inline constexpr int audioExtractionSeconds = 600;

// True when a recogniser for "en-US" (the one every locale falls back to) is installed: its acoustic
// model, dictionary and language model are all there.
[[nodiscard]] bool isAuthorized(const Setup& setup = {});

// Nothing to ask on this system: the same answer as isAuthorized.
[[nodiscard]] bool requestAuthorization(const Setup& setup = {});

// The transcript of `video` by the recogniser for `locale` ("en-US", "en_US", "en_US.UTF-8"), else the
// one for "en-US": the utterances as sentences joined by single spaces, trimmed. Absent when no
// recogniser is installed, the video has no sound or cannot be read, recognition fails, or nothing was
// recognised. The audio file made on the way is removed on every path.
[[nodiscard]] std::optional<std::string> transcribe(const std::filesystem::path& video,
                                                    const std::string& locale, const Setup& setup = {});

// A new WAV file (16 kHz, mono, 16-bit samples) holding the first sound track of `video`, named
// "kp-audio-" + a new upper-case UUID + ".wav" in the temporary directory, readable by its owner only. The
// caller owns the file and removes it. Absent when the video cannot be read or has no sound track; nothing is
// left behind then.
[[nodiscard]] std::optional<std::filesystem::path> audioTrack(const std::filesystem::path& video,
                                                              const Setup& setup = {});

} // namespace keepery::Transcriber
