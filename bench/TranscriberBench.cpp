// Speech transcription through a video: two passages of about a minute of plain English spoken by flite's
// "rms" voice, put in an MP4 with ffmpeg, transcribed by Transcriber::transcribe; word error rate against the
// spoken text, and the real-time factor (seconds of transcription, extraction included, per second of speech;
// wall clock and CPU).
//
//   make bench                                       (all benchmarks)
//   build/release/bench/TranscriberBench             (this one)
#include "Media/Transcriber.h"
#include "support/ChildProcess.h"
#include "support/SpeechVideo.h"
#include "support/TemporaryDirectory.h"
#include "support/TextMetrics.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <sys/resource.h>

using namespace keepery;

namespace {

struct Passage {
    const char* name;
    const char* text;
};

// Two kinds of ordinary prose: a description, and a story told in the past tense.
const Passage passages[] = {
    {"harbour",
     "Every morning the harbor wakes up before the town does. The fishing boats come back with the tide, "
     "and the men carry their boxes up the stone steps to the market hall. By seven o'clock the cafes open "
     "their shutters and the smell of fresh bread drifts along the water. Children walk to school in small "
     "groups, talking about football and homework and the weekend. Later in the day the tourists arrive on "
     "the morning train. They buy postcards, take photographs of the lighthouse and sit in the sun with a "
     "cup of coffee. In the afternoon the wind usually turns, and the sailing club takes its boats out "
     "past the old pier. When the sun goes down, the lights of the houses on the hill come on one by one, "
     "and the town grows quiet again. Most people say it is the best place they have ever lived, and "
     "very few of them ever think of moving away."},
    {"garden",
     "My grandmother kept a small garden behind her house for more than forty years. Every spring she "
     "planted beans, potatoes and tomatoes in long straight rows, and every autumn she gave most of them "
     "away to the neighbors. She got up early, put on her old green coat and worked until the sun was high. "
     "When it rained she sat by the kitchen window with a book and a pot of tea. She never wrote anything "
     "down, but she remembered which plants had done well and which had failed. People from the village "
     "often stopped at the gate to ask for advice, and she was always happy to talk. Last year my brother "
     "and I cleared the ground again and planted the first seeds. It was hard work, but in the summer we "
     "had more vegetables than we could eat, and we knew she would have been proud of us."},
};

double cpuSeconds() {
    rusage self{};
    rusage children{};
    getrusage(RUSAGE_SELF, &self);
    getrusage(RUSAGE_CHILDREN, &children);
    const auto seconds = [](const timeval& v) {
        return static_cast<double>(v.tv_sec) + static_cast<double>(v.tv_usec) / 1e6;
    };
    return seconds(self.ru_utime) + seconds(self.ru_stime) + seconds(children.ru_utime) +
           seconds(children.ru_stime);
}

} // namespace

int main() {
    std::printf("TranscriberBench: rerun with build/release/bench/TranscriberBench\n");
    keepery::testing::TemporaryDirectory directory;
    for (const Passage& passage : passages) {
        const auto video = keepery::testing::makeVideo(directory.path(), std::string(passage.name) + ".mp4",
                                                       keepery::testing::Soundtrack::speech, passage.text);
        const auto probe = keepery::testing::runChild(
            "/usr/bin/ffprobe",
            {"-v", "error", "-show_entries", "format=duration", "-of", "csv=p=0", video.string()}, {}, "");
        const double seconds = std::strtod(probe.out.c_str(), nullptr);

        const double cpuBefore = cpuSeconds();
        const auto start = std::chrono::steady_clock::now();
        const auto transcript = Transcriber::transcribe(video, "en-US");
        const double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        const double cpu = cpuSeconds() - cpuBefore;
        if (!transcript) {
            std::printf("  %s: no transcript\n", passage.name);
            return 1;
        }
        std::printf("\n%s: %.1f s of flite speech (%zu words) in an MP4\n", passage.name, seconds,
                    keepery::testing::TextMetrics::words(passage.text).size());
        std::printf("  word error rate %.3f, word recall %.3f\n",
                    keepery::testing::TextMetrics::wordErrorRate(passage.text, *transcript),
                    keepery::testing::TextMetrics::wordRecall(passage.text, *transcript));
        std::printf("  real-time factor %.2f wall clock, %.2f CPU (%.1f s, %.1f s CPU)\n", wall / seconds,
                    cpu / seconds, wall, cpu);
        std::printf("  transcript: %s\n", transcript->c_str());
    }
    return 0;
}
