#pragma once

#include <filesystem>
#include <string>

namespace keepery::testing {

// What a test video holds besides its moving test picture.
enum class Soundtrack {
    speech,  // `text` spoken by flite's "rms" voice, a natural-sounding one the recogniser understands
    silence, // two seconds of digital silence
    none,    // no sound track at all
};

// Makes `directory`/`name` (an MP4 file: MPEG-4 video, AAC sound) with ffmpeg. Throws std::runtime_error
// when flite or ffmpeg fails.
std::filesystem::path makeVideo(const std::filesystem::path& directory, const std::string& name,
                                Soundtrack soundtrack, const std::string& text = {});

} // namespace keepery::testing
