// `keepery capture` against a real X server (Xvfb), a window manager that keeps the EWMH client list and
// active window (openbox), and real client windows.
#include "keepery/KeeperyHome.h"
#include "support/MediaFixtures.h"

#include <gmock/gmock.h>
#include <set>

using namespace keepery;
using namespace keepery::testing;
using ::testing::HasSubstr;
namespace fs = std::filesystem;

namespace {

class KeeperyCapture : public KeeperyHome {
protected:
    std::string display;
    std::vector<std::unique_ptr<RunningChild>> programs;

    void SetUp() override {
        for (const char* program :
             {"/usr/bin/Xvfb", "/usr/bin/openbox", "/usr/bin/xlogo", "/usr/bin/xmessage"}) {
            if (!fs::exists(program)) {
                GTEST_SKIP() << program << " is not installed (scripts/setup installs it)";
            }
        }
        // A display number no other server holds: its lock file is ours once Xvfb starts.
        int number = 90 + static_cast<int>(::getpid() % 400);
        while (fs::exists("/tmp/.X" + std::to_string(number) + "-lock")) {
            ++number;
        }
        display = ":" + std::to_string(number);
        start("/usr/bin/Xvfb", {display, "-screen", "0", "1024x768x24", "-nolisten", "tcp"});
        ASSERT_TRUE(eventually([&] { return fs::exists("/tmp/.X11-unix/X" + display.substr(1)); }, 20));
        start("/usr/bin/openbox", {});
        start("/usr/bin/xlogo", {"-geometry", "300x250+20+20"});
        ASSERT_TRUE(eventually([&] { return windows().find("XLogo") != std::string::npos; }, 20))
            << windows();
    }

    // Asked to end, the X server removes its lock file; a program that has not ended a second later is
    // killed, so that one that ignores the request cannot hang the run.
    void TearDown() override {
        for (auto it = programs.rbegin(); it != programs.rend(); ++it) {
            (*it)->signal(SIGTERM);
        }
        std::this_thread::sleep_for(std::chrono::seconds(1));
        programs.clear();
    }

    void start(const std::string& program, const std::vector<std::string>& arguments) {
        programs.push_back(std::make_unique<RunningChild>(
            program, arguments, environment({{"DISPLAY", display}}), home / fs::path(program).filename()));
    }

    std::string windows() const { return keepery({"capture", "--list"}, {{"DISPLAY", display}}).out; }

    ChildResult capture(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {"capture", "--no-process"});
        return keepery(arguments, {{"DISPLAY", display}});
    }
};

TEST_F(KeeperyCapture, KeepsTheChosenWindowWithItsTitleAndPixels) {
    // A message too small to be chosen is active; the rules then take the titled window of another program.
    start("/usr/bin/xmessage", {"-geometry", "+500+400", "Hello"});
    ASSERT_TRUE(eventually([&] { return windows().find("Xmessage") != std::string::npos; }, 20));
    const auto kept = capture({});
    ASSERT_EQ(kept.exitStatus, 0) << kept.err;
    LibraryStore store(library());
    const auto all = store.captures(LibraryFilter::recent(), 10);
    ASSERT_EQ(all.size(), 1U);
    const Capture& capture = all.front();
    EXPECT_EQ(std::tie(capture.media, capture.app, capture.windowTitle, capture.width, capture.height),
              std::make_tuple(CaptureMedia::screen, "XLogo", "xlogo", 300, 250));
    std::ifstream file(store.imageURL(capture), std::ios::binary);
    const Image image = decoded({std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()});
    ASSERT_EQ(image.width, 300);
    // The logo is drawn in black on white: both are in the picture.
    std::set<bool> dark;
    for (std::size_t i = 0; i + 2 < image.pixels.size(); i += static_cast<std::size_t>(image.bands)) {
        const int sum = image.pixels[i] + image.pixels[i + 1] + image.pixels[i + 2];
        if (sum < 60 || sum > 700) {
            dark.insert(sum < 60);
        }
    }
    EXPECT_EQ(dark.size(), 2U);

    // The active window, asked for by name, is taken whatever its size.
    const auto active = this->capture({"--active"});
    ASSERT_EQ(active.exitStatus, 0) << active.err;
    EXPECT_EQ(store.captures(LibraryFilter::source("Xmessage"), 1).size(), 1U);
}

TEST_F(KeeperyCapture, SaysWhyNothingCanBeCaptured) {
    const auto unknown = capture({"--window", "0x7"});
    EXPECT_EQ(unknown.exitStatus, 1);
    EXPECT_THAT(unknown.err, HasSubstr("no window on screen has the id 7"));
    const auto garbage = capture({"--window", "zz"});
    EXPECT_EQ(garbage.exitStatus, 1);
    EXPECT_THAT(garbage.err, HasSubstr("--window zz: not a window id"));
    EXPECT_EQ(capture({"--active", "--pointer"}).exitStatus, 2);

    const auto wayland = keepery({"capture"}, {{"DISPLAY", display}, {"WAYLAND_DISPLAY", "wayland-0"}});
    EXPECT_EQ(wayland.exitStatus, 1);
    EXPECT_THAT(wayland.err, HasSubstr("keepery: cannot capture: this is a Wayland session"));
    const auto headless = keepery({"capture"});
    EXPECT_EQ(headless.exitStatus, 1);
    EXPECT_EQ(headless.err,
              "keepery: cannot capture: there is no X display to capture (DISPLAY is not set).\n");
    EXPECT_FALSE(fs::exists(library() / "library.sqlite") && LibraryStore(library()).count() > 0);
}

} // namespace
