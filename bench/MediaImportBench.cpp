// Importing media against the plain tools doing the same decoding work, as ratios in one run:
// - a 12-megapixel JPEG (display image 2560 + thumbnail 720) against two `vipsthumbnail` runs making the
//   same two sizes from the same file;
// - a 30-second 1080p H.264 video (six frames + sheet + thumbnail) against one `ffmpeg` command that
//   extracts the same six frames at the same size.
// Every measured run happens in a child process of its own, so that each peak resident size (the
// importer's own, and the largest tool it ran) is that run's alone. Each figure is the median of interleaved
// runs. Usage: MediaImportBench [runs, default 3].
#include "Media/MediaImporter.h"
#include "Platform/Process.h"
#include "support/TemporaryDirectory.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

using namespace keepery;
using namespace std::chrono_literals;

struct Run {
    double seconds = 0;
    long selfKiB = 0; // peak resident size of the process that did the work
    long toolKiB = 0; // peak resident size of the largest child it ran
};

// Runs `work` in a forked child and measures it there. Exits the program when the work fails.
Run measured(const std::function<void()>& work) {
    int fds[2];
    if (pipe(fds) != 0) {
        std::exit(1);
    }
    const pid_t pid = fork();
    if (pid == 0) {
        close(fds[0]);
        const auto start = std::chrono::steady_clock::now();
        try {
            work();
        } catch (const std::exception& error) {
            std::fprintf(stderr, "failed: %s\n", error.what());
            _exit(1);
        }
        Run run;
        run.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        rusage self{}, children{};
        getrusage(RUSAGE_SELF, &self);
        getrusage(RUSAGE_CHILDREN, &children);
        run.selfKiB = self.ru_maxrss;
        run.toolKiB = children.ru_maxrss;
        (void)!write(fds[1], &run, sizeof run);
        _exit(0);
    }
    close(fds[1]);
    Run run;
    const bool read = ::read(fds[0], &run, sizeof run) == sizeof run;
    close(fds[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    if (!read || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        std::fprintf(stderr, "a measured run failed\n");
        std::exit(1);
    }
    return run;
}

void tool(const std::vector<std::string>& arguments) {
    const auto result = Process::system().run(arguments, 600s);
    if (!result.succeeded()) {
        throw std::runtime_error(arguments.front() + ": " + result.standardError);
    }
}

Run median(std::vector<Run> runs) {
    std::sort(runs.begin(), runs.end(), [](const Run& a, const Run& b) { return a.seconds < b.seconds; });
    return runs[runs.size() / 2];
}

void report(const char* what, const Run& ours, const Run& theirs, const char* theirName) {
    std::printf("%s (median): import %.3f s, %s %.3f s, ratio %.2f\n", what, ours.seconds, theirName,
                theirs.seconds, ours.seconds / theirs.seconds);
    std::printf("  peak memory: import %ld MiB (largest tool it ran %ld MiB); %s %ld MiB\n",
                ours.selfKiB / 1024, ours.toolKiB / 1024, theirName, theirs.toolKiB / 1024);
}

} // namespace

int main(int argc, char** argv) {
    const int runs = argc > 1 ? std::max(1, std::atoi(argv[1])) : 3;
    keepery::testing::TemporaryDirectory directory;
    const std::string photo = (directory / "photo.jpg").string();
    const std::string video = (directory / "video.mp4").string();
    std::printf("making a 4000 x 3000 JPEG and a 30 s 1080p video ...\n");
    std::fflush(stdout);
    measured([&] {
        tool({"ffmpeg", "-nostdin", "-v", "error", "-y", "-f", "lavfi", "-i",
              "testsrc2=s=4000x3000,noise=alls=24:allf=t", "-frames:v", "1", "-q:v", "3", photo});
        tool({"ffmpeg", "-nostdin", "-v", "error", "-y", "-f", "lavfi", "-i",
              "testsrc2=s=1920x1080:r=30:d=30", "-c:v", "libx264", "-preset", "ultrafast", "-pix_fmt",
              "yuv420p", video});
    });

    std::vector<Run> ours, theirs;
    for (int i = 0; i < runs; ++i) {
        ours.push_back(measured([&] { (void)MediaImporter::photo(photo, 0); }));
        theirs.push_back(measured([&] {
            tool(
                {"vipsthumbnail", photo, "--size", "2560", "-o", (directory / "d.jpg[Q=88,strip]").string()});
            tool({"vipsthumbnail", photo, "--size", "720", "-o", (directory / "t.jpg[Q=82,strip]").string()});
        }));
    }
    report("12 MP JPEG, display + thumbnail", median(ours), median(theirs), "vipsthumbnail x2");

    // The same six times and the same scaling as the importer, in one ffmpeg command.
    const auto times = MediaImporter::keyTimes(30.0, MediaImporter::sheetFrames);
    std::vector<std::string> extract{"ffmpeg", "-nostdin", "-v", "error", "-y"};
    for (const double time : times) {
        extract.insert(extract.end(), {"-ss", std::to_string(time), "-i", video});
    }
    for (std::size_t i = 0; i < times.size(); ++i) {
        extract.insert(extract.end(),
                       {"-map", std::to_string(i) + ":v:0", "-frames:v", "1", "-vf",
                        "scale=w=min(1280\\,iw):h=min(1280\\,ih):force_original_aspect_ratio=decrease",
                        (directory / ("frame" + std::to_string(i) + ".png")).string()});
    }
    ours.clear();
    theirs.clear();
    for (int i = 0; i < runs; ++i) {
        ours.push_back(measured([&] { (void)MediaImporter::video(video, 0); }));
        theirs.push_back(measured([&] { tool(extract); }));
    }
    report("30 s 1080p video, six frames + sheet + thumbnail", median(ours), median(theirs), "one ffmpeg");
    return 0;
}
