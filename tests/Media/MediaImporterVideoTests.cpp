#include "Media/ContactSheet.h"
#include "Media/MediaImporter.h"

#include "support/FakeProcess.h"
#include "support/MediaFixtures.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

namespace keepery::testing {
namespace {

using Failure = MediaImporter::Failure;
using ToolFailure = MediaImporter::ToolFailure;

// How many cells of a sheet whose cells are `cellHeight` high hold a frame rather than background.
std::size_t framesOnSheet(const Image& sheet, std::int64_t cellHeight) {
    std::size_t frames = 0;
    for (std::int64_t y = 0; y < sheet.height; y += cellHeight + ContactSheet::gap) {
        for (std::int64_t x = 0; x < sheet.width; x += ContactSheet::cellWidth + ContactSheet::gap) {
            const int g = ContactSheet::background;
            frames +=
                near(sheet, static_cast<int>(x + 320), static_cast<int>(y + cellHeight / 2), {g, g, g}, 6)
                    ? 0
                    : 1;
        }
    }
    return frames;
}

// The times, in seconds, at which ffmpeg was asked for frames.
std::vector<double> requestedTimes(const FakeProcess& process) {
    std::vector<double> times;
    for (const auto& run : process.runs()) {
        for (std::size_t i = 0; i + 1 < run.size(); ++i) {
            if (run[0] == "ffmpeg" && run[i] == "-ss") {
                times.push_back(std::stod(run[i + 1]));
            }
        }
    }
    return times;
}

class MediaImporterVideo : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        directory_ = std::make_unique<TemporaryDirectory>();
        makeVideo(*directory_ / "clip.mp4",
                  VideoOptions().sized(640, 360).lasting(4).created("2024-03-01T12:34:56.000000Z"));
    }
    static void TearDownTestSuite() { directory_.reset(); }
    static std::filesystem::path clip() { return *directory_ / "clip.mp4"; }
    static std::unique_ptr<TemporaryDirectory> directory_;
};
std::unique_ptr<TemporaryDirectory> MediaImporterVideo::directory_;

TEST_F(MediaImporterVideo, ImportsSixFramesASheetAThumbnailAndTheCreationDate) {
    FakeProcess process;
    const auto imported = MediaImporter::load(clip(), 42, process);
    const Capture& capture = imported.capture;
    EXPECT_EQ(capture.media, CaptureMedia::video);
    EXPECT_EQ(capture.app, "Videos");
    EXPECT_EQ(capture.windowTitle, "clip");
    EXPECT_EQ(capture.originalFile, "media/" + capture.id + "-original.mp4");
    ASSERT_TRUE(capture.duration);
    EXPECT_NEAR(*capture.duration, 4.0, 0.1);
    EXPECT_EQ(capture.takenAt, 1709296496.0);
    EXPECT_EQ(capture.width, 640);
    EXPECT_EQ(capture.height, 360);

    EXPECT_EQ(process.count("ffmpeg"), 1) << "one command for all six frames";
    const auto times = requestedTimes(process);
    const auto expected = MediaImporter::keyTimes(*capture.duration, 6);
    ASSERT_EQ(times.size(), 6u);
    for (std::size_t i = 0; i < 6; ++i) {
        EXPECT_NEAR(times[i], expected[i], 0.001);
    }

    const Image display = decoded(imported.image);
    EXPECT_EQ(display.width, 640);
    EXPECT_TRUE(near(display, 5, 5, red) && near(display, 635, 355, blue));
    EXPECT_EQ(decoded(imported.thumbnail).width, 640) << "the thumbnail never enlarges the frame";
    ASSERT_TRUE(imported.sheet);
    const Image sheet = decoded(*imported.sheet);
    EXPECT_EQ(sheet.width, 1936);
    EXPECT_EQ(sheet.height, 728);
    EXPECT_TRUE(ContactSheet::cells(sheet.width, sheet.height, 6));
    EXPECT_TRUE(near(sheet, 1296 + 5, 368 + 5, red)) << "the sixth frame, top left of its cell";
}

TEST_F(MediaImporterVideo, WhenTheOneCommandForAllFramesFailsEachFrameIsAskedForAlone) {
    for (const auto fault : {FakeProcess::Fault::exitsNonZero, FakeProcess::Fault::timesOut}) {
        FakeProcess process;
        process.inject("ffmpeg", fault, 1, "Invalid NAL unit size");
        const auto imported = MediaImporter::video(clip(), 0, process);
        EXPECT_EQ(process.count("ffmpeg"), 7);
        ASSERT_TRUE(imported.sheet);
        const Image sheet = decoded(*imported.sheet);
        EXPECT_EQ(framesOnSheet(sheet, 360), 6u);
        EXPECT_EQ(requestedTimes(process).size(), 12u);
    }
}

TEST_F(MediaImporterVideo, MissingToolsAreNamed) {
    for (const char* tool : {"ffprobe", "ffmpeg"}) {
        FakeProcess process;
        process.inject(tool, FakeProcess::Fault::missing);
        try {
            (void)MediaImporter::video(clip(), 0, process);
            FAIL() << "imported without " << tool;
        } catch (const ToolFailure& failure) {
            EXPECT_EQ(failure.kind(), ToolFailure::Kind::missingTool);
            EXPECT_EQ(failure.tool(), tool);
            EXPECT_EQ(std::string(failure.what()),
                      std::string(tool) + " is needed to import videos but is not installed");
        }
    }
}

TEST_F(MediaImporterVideo, ADurationThatCannotBeLoadedIsTheToolsOwnError) {
    FakeProcess process;
    try {
        (void)MediaImporter::video(*directory_ / "gone.mp4", 0, process);
        FAIL() << "a missing file imported";
    } catch (const ToolFailure& failure) {
        EXPECT_EQ(failure.kind(), ToolFailure::Kind::failed);
        EXPECT_EQ(failure.tool(), "ffprobe");
        EXPECT_NE(failure.message().find("No such file or directory"), std::string::npos)
            << failure.message();
    }
    process.inject("ffprobe", FakeProcess::Fault::timesOut);
    EXPECT_THROW((void)MediaImporter::video(clip(), 0, process), ToolFailure);

    // A duration that is not a positive number is the video's fault.
    for (const char* reply : {R"({"format":{"duration":"N/A"}})", R"({"format":{"duration":"0.000000"}})",
                              R"({"format":{}})", "not json"}) {
        process.answer("ffprobe",
                       {.exitStatus = 0, .signal = 0, .standardOutput = reply, .standardError = {}});
        EXPECT_THROW((void)MediaImporter::video(clip(), 0, process), Failure) << reply;
    }
}

TEST_F(MediaImporterVideo, CreationDatesThatAreMissingOrUnparsableAreLeftOut) {
    FakeProcess process;
    const auto takenAt = [&](const std::string& tags) {
        process.answer("ffprobe", {.exitStatus = 0,
                                   .signal = 0,
                                   .standardOutput = R"({"format":{"duration":"4.0")" + tags + "}}",
                                   .standardError = {}});
        return MediaImporter::video(clip(), 0, process).capture.takenAt;
    };
    EXPECT_EQ(takenAt(""), std::nullopt);
    EXPECT_EQ(takenAt(R"(,"tags":{"creation_time":"last summer"})"), std::nullopt);
    EXPECT_EQ(takenAt(R"(,"tags":{"creation_time":"2024-03-01T12:34:56Z"})"), 1709296496.0);
}

TEST(MediaImporterVideoFiles, PortraitVideoFramesAndSizeAreUpright) {
    TemporaryDirectory directory;
    makeVideo(directory / "phone.mov", VideoOptions().lasting(2).turned(90));
    const auto imported = MediaImporter::load(directory / "phone.mov", 0);
    EXPECT_EQ(imported.capture.width, 180);
    EXPECT_EQ(imported.capture.height, 320);
    const Image display = decoded(imported.image);
    ASSERT_EQ(display.width, 180);
    // The display matrix of this tag turns the picture a quarter to the left: the red corner, top left as
    // stored, is at the bottom left on screen.
    EXPECT_TRUE(near(display, 5, 315, red));
    EXPECT_TRUE(near(display, 5, 5, blue));
    EXPECT_TRUE(near(display, 175, 315, blue));
    const Image sheet = decoded(*imported.sheet);
    EXPECT_EQ(sheet.height, 2 * 1137 + 8);
}

TEST(MediaImporterVideoFiles, LargeFramesFitWithin1280) {
    TemporaryDirectory directory;
    makeVideo(directory / "wide.mkv", VideoOptions().sized(1920, 1080).lasting(1));
    const auto imported = MediaImporter::load(directory / "wide.mkv", 0);
    EXPECT_EQ(imported.capture.width, 1280);
    EXPECT_EQ(imported.capture.height, 720);
    EXPECT_EQ(decoded(imported.thumbnail).width, 720);
}

TEST(MediaImporterVideoFiles, EmptyAndFakeVideosAreUnreadable) {
    TemporaryDirectory directory;
    writeFile(directory / "empty.mp4", std::string());
    writeFile(directory / "notes.mp4", std::string("a text file with a video's name\n"));
    for (const char* name : {"empty.mp4", "notes.mp4"}) {
        try {
            (void)MediaImporter::load(directory / name, 0);
            FAIL() << name << " imported";
        } catch (const Failure& failure) {
            EXPECT_EQ(failure, Failure::unreadable(name));
        }
    }
}

TEST(MediaImporterVideoFiles, AVideoCutShortImportsWithTheFramesItStillHas) {
    TemporaryDirectory directory;
    const auto file = directory / "cut.mp4";
    makeVideo(file, VideoOptions().lasting(10).everyFrameKey());
    std::filesystem::resize_file(file, std::filesystem::file_size(file) / 2);
    const auto imported = MediaImporter::load(file, 0);
    ASSERT_TRUE(imported.sheet);
    const Image sheet = decoded(*imported.sheet);
    const std::size_t frames = framesOnSheet(sheet, 360);
    EXPECT_TRUE(ContactSheet::cells(sheet.width, sheet.height, static_cast<std::int64_t>(frames)));
    EXPECT_GE(frames, 1u);
    EXPECT_LT(frames, 6u) << "the later frames lie in the part cut off";
    EXPECT_NEAR(*imported.capture.duration, 10.0, 0.1) << "the index at the front still knows the length";
}

} // namespace
} // namespace keepery::testing
