#include "support/SpeechVideo.h"

#include "support/ChildProcess.h"

#include <stdexcept>

namespace keepery::testing {
namespace {

void run(const std::string& program, const std::vector<std::string>& arguments) {
    const ChildResult result = runChild(program, arguments, {{"PATH", "/usr/bin:/bin"}}, "");
    if (result.exitStatus != 0) {
        throw std::runtime_error(program + " failed: " + result.err);
    }
}

} // namespace

std::filesystem::path makeVideo(const std::filesystem::path& directory, const std::string& name,
                                Soundtrack soundtrack, const std::string& text) {
    const std::filesystem::path video = directory / name;
    std::vector<std::string> arguments = {
        "-nostdin", "-hide_banner", "-loglevel", "error", "-f", "lavfi", "-i", "testsrc=size=160x120:rate=5"};
    if (soundtrack == Soundtrack::speech) {
        const std::filesystem::path speech = directory / (name + ".speech.wav");
        run("/usr/bin/flite", {"-voice", "rms", "-t", text, "-o", speech.string()});
        arguments.insert(arguments.end(), {"-i", speech.string()});
    } else if (soundtrack == Soundtrack::silence) {
        arguments.insert(arguments.end(), {"-f", "lavfi", "-i", "anullsrc=r=44100:cl=stereo"});
    }
    if (soundtrack != Soundtrack::speech) {
        arguments.insert(arguments.end(), {"-t", "2"});
    }
    arguments.insert(arguments.end(),
                     {"-c:v", "mpeg4", "-c:a", "aac", "-b:a", "96k", "-shortest", "-y", video.string()});
    run("/usr/bin/ffmpeg", arguments);
    return video;
}

} // namespace keepery::testing
