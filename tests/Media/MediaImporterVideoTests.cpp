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
    const int g = ContactSheet::background;
    for (std::int64_t y = 0; y < sheet.height; y += cellHeight + ContactSheet::gap) {
        for (std::int64_t x = 0; x < sheet.width; x += ContactSheet::cellWidth + ContactSheet::gap) {
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
    ASSERT_TRUE(capture.duration);
    EXPECT_NEAR(*capture.duration, 4.0, 0.1);
    EXPECT_EQ(std::tie(capture.createdAt, capture.app, capture.windowTitle, capture.width, capture.height,
                       capture.media, capture.takenAt),
              std::make_tuple(42.0, "Videos", "clip", 640, 360, CaptureMedia::video, 1709296496.0));
    EXPECT_EQ(capture.originalFile, "media/" + capture.id + "-original.mp4");

    EXPECT_EQ(process.count("ffmpeg"), 1) << "one command for all six frames";
    const auto times = requestedTimes(process);
    const auto expected = MediaImporter::keyTimes(*capture.duration, 6);
    ASSERT_EQ(times.size(), 6u);
    for (std::size_t i = 0; i < 6; ++i) {
        EXPECT_NEAR(times[i], expected[i], 0.001);
    }

    const Image display = decoded(imported.image);
    EXPECT_TRUE(near(display, 5, 5, red) && near(display, 635, 355, blue));
    EXPECT_EQ(decoded(imported.thumbnail).width, 640) << "the thumbnail never enlarges the frame";
    ASSERT_TRUE(imported.sheet);
    const Image sheet = decoded(*imported.sheet);
    EXPECT_EQ(std::pair(sheet.width, sheet.height), std::pair(1936, 728));
    EXPECT_TRUE(near(sheet, 1296 + 5, 368 + 5, red)) << "the sixth frame, top left of its cell";
}

TEST_F(MediaImporterVideo, WhenTheOneCommandForAllFramesFailsEachFrameIsAskedForAlone) {
    for (const auto fault : {FakeProcess::Fault::exitsNonZero, FakeProcess::Fault::timesOut}) {
        FakeProcess process;
        process.inject("ffmpeg", fault, 1, "Invalid NAL unit size");
        const auto imported = MediaImporter::video(clip(), 0, process);
        EXPECT_EQ(process.count("ffmpeg"), 7);
        EXPECT_EQ(requestedTimes(process).size(), 12u);
        EXPECT_EQ(framesOnSheet(decoded(imported.sheet.value()), 360), 6u);
    }
}

TEST_F(MediaImporterVideo, ToolsThatAreMissingOrFailAreNamed) {
    for (const char* tool : {"ffprobe", "ffmpeg"}) {
        FakeProcess process;
        process.inject(tool, FakeProcess::Fault::missing);
        try {
            (void)MediaImporter::video(clip(), 0, process);
            ADD_FAILURE() << "imported without " << tool;
        } catch (const ToolFailure& failure) {
            EXPECT_EQ(failure.kind(), ToolFailure::Kind::missingTool);
            EXPECT_EQ(failure.tool(), tool);
            EXPECT_EQ(std::string(failure.what()),
                      std::string(tool) + " is needed to import videos but is not installed");
        }
    }
    FakeProcess process;
    try {
        (void)MediaImporter::video(*directory_ / "gone.mp4", 0, process);
        ADD_FAILURE() << "a missing file imported";
    } catch (const ToolFailure& failure) {
        EXPECT_EQ(failure.kind(), ToolFailure::Kind::failed);
        EXPECT_EQ(failure.tool(), "ffprobe");
        EXPECT_NE(failure.message().find("No such file or directory"), std::string::npos)
            << failure.message();
    }
    process.inject("ffprobe", FakeProcess::Fault::timesOut);
    EXPECT_THROW((void)MediaImporter::video(clip(), 0, process), ToolFailure);
}

TEST_F(MediaImporterVideo, WhatTheProbeReportsDecidesTheDurationAndCreationDate) {
    FakeProcess process;
    const auto importProbed = [&](const std::string& format) {
        process.answer("ffprobe", {.exitStatus = 0,
                                   .signal = 0,
                                   .standardOutput = R"({"format":)" + format + "}",
                                   .standardError = {}});
        return MediaImporter::video(clip(), 0, process);
    };
    // A duration that is not a positive number is the video's fault.
    for (const char* format : {R"({"duration":"N/A"})", R"({"duration":"0.000000"})", "{}", "not json"}) {
        EXPECT_THROW((void)importProbed(format), Failure) << format;
    }
    // Creation dates that are missing or unparsable are left out.
    EXPECT_EQ(importProbed(R"({"duration":"4.0"})").capture.takenAt, std::nullopt);
    EXPECT_EQ(importProbed(R"({"duration":"4.0","tags":{"creation_time":"last summer"}})").capture.takenAt,
              std::nullopt);
    EXPECT_EQ(
        importProbed(R"({"duration":"4.0","tags":{"creation_time":"2024-03-01T12:34:56Z"}})").capture.takenAt,
        1709296496.0);
}

TEST(MediaImporterVideoFiles, FramesAreUprightAndFitWithin1280) {
    TemporaryDirectory directory;
    makeVideo(directory / "phone.mov", VideoOptions().lasting(2).turned(90));
    const auto portrait = MediaImporter::load(directory / "phone.mov", 0);
    EXPECT_EQ(portrait.capture.width, 180);
    EXPECT_EQ(portrait.capture.height, 320);
    // The display matrix of this tag turns the picture a quarter to the left: the red corner, top left as
    // stored, is at the bottom left on screen.
    const Image display = decoded(portrait.image);
    ASSERT_EQ(display.width, 180);
    EXPECT_TRUE(near(display, 5, 315, red) && near(display, 5, 5, blue) && near(display, 175, 315, blue));
    EXPECT_EQ(decoded(*portrait.sheet).height, 2 * 1137 + 8);

    makeVideo(directory / "wide.mkv", VideoOptions().sized(1920, 1080).lasting(1));
    const auto wide = MediaImporter::load(directory / "wide.mkv", 0);
    EXPECT_EQ(wide.capture.width, 1280);
    EXPECT_EQ(wide.capture.height, 720);
    EXPECT_EQ(decoded(wide.thumbnail).width, 720);
}

TEST(MediaImporterVideoFiles, EmptyFakeAndCutVideos) {
    TemporaryDirectory directory;
    writeFile(directory / "empty.mp4", std::string());
    writeFile(directory / "notes.mp4", std::string("a text file with a video's name\n"));
    for (const char* name : {"empty.mp4", "notes.mp4"}) {
        try {
            (void)MediaImporter::load(directory / name, 0);
            ADD_FAILURE() << name << " imported";
        } catch (const Failure& failure) {
            EXPECT_EQ(failure, Failure::unreadable(name));
        }
    }

    // A video cut short imports with the frames it still has.
    const auto file = directory / "cut.mp4";
    makeVideo(file, VideoOptions().lasting(10).everyFrameKey());
    std::filesystem::resize_file(file, std::filesystem::file_size(file) / 2);
    const auto imported = MediaImporter::load(file, 0);
    const Image sheet = decoded(imported.sheet.value());
    const std::size_t frames = framesOnSheet(sheet, 360);
    EXPECT_TRUE(ContactSheet::cells(sheet.width, sheet.height, static_cast<std::int64_t>(frames)));
    EXPECT_GE(frames, 1u);
    EXPECT_LT(frames, 6u) << "the later frames lie in the part cut off";
    EXPECT_NEAR(*imported.capture.duration, 10.0, 0.1) << "the index at the front still knows the length";
}

} // namespace
} // namespace keepery::testing
