#include "Media/MediaImporter.h"
#include "Platform/Text.h"

#include "support/MediaFixtures.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <ctime>
#include <limits>

// libx265, which libheif encodes HEIF test pictures with, keeps one allocation until the process ends.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libx265\n";
}

namespace keepery::testing {
namespace {

using Failure = MediaImporter::Failure;

Instant localInstant(int year, int month, int day, int hour, int minute, int second) {
    std::tm parts{};
    parts.tm_year = year - 1900;
    parts.tm_mon = month - 1;
    parts.tm_mday = day;
    parts.tm_hour = hour;
    parts.tm_min = minute;
    parts.tm_sec = second;
    parts.tm_isdst = -1;
    return static_cast<Instant>(std::mktime(&parts));
}

Failure failureOf(const std::filesystem::path& file) {
    try {
        (void)MediaImporter::load(file, 0);
    } catch (const Failure& failure) {
        return failure;
    }
    ADD_FAILURE() << file << " imported";
    return Failure::notMedia("");
}

TEST(MediaImporter, KindFollowsTheLowerCasedExtension) {
    for (const char* photo : {"a.jpg", "B.JPG", "c.jpeg", "d.HEIC", "e.heif", "f.png", "g.webp", "h.tif",
                              "i.tiff", "j.gif", "k.bmp", "l.dng", "m.CR2", "n.nef", "o.avif"}) {
        EXPECT_EQ(MediaImporter::kind(photo), CaptureMedia::photo) << photo;
    }
    for (const char* video :
         {"a.mp4", "b.MOV", "c.m4v", "d.avi", "e.mkv", "f.webm", "g.mpg", "h.3gp", "i.mts"}) {
        EXPECT_EQ(MediaImporter::kind(video), CaptureMedia::video) << video;
    }
    for (const char* other :
         {"a.pdf", "b.txt", "c.mp3", "d.m4a", "e.docx", "noextension", ".jpg", "f.jpg.zip"}) {
        EXPECT_EQ(MediaImporter::kind(other), std::nullopt) << other;
    }
}

TEST(MediaImporter, KeyTimesSpreadFromFiveToNinetyFivePercent) {
    EXPECT_EQ(MediaImporter::keyTimes(10, 1), std::vector<double>{5});
    for (const auto& [duration, count] : std::vector<std::pair<double, int>>{
             {0, 6}, {-3, 6}, {10, 0}, {std::numeric_limits<double>::quiet_NaN(), 6}}) {
        EXPECT_EQ(MediaImporter::keyTimes(duration, count), std::vector<double>{})
            << duration << " " << count;
    }
    const auto six = MediaImporter::keyTimes(100, 6);
    ASSERT_EQ(six.size(), 6u);
    const double expected[] = {5, 23, 41, 59, 77, 95};
    for (std::size_t i = 0; i < 6; ++i) {
        EXPECT_NEAR(six[i], expected[i], 1e-9);
    }
    EXPECT_EQ(MediaImporter::keyTimes(2, 2), (std::vector<double>{0.1, 1.9}));
}

TEST(MediaImporter, TakenDateReadsExifThenTiffInLocalTime) {
    using P = MediaImporter::Properties;
    const Instant june = localInstant(2021, 6, 15, 8, 30, 0);
    EXPECT_EQ(MediaImporter::takenDate(P{"2021:06:15 08:30:00", "1999:01:01 00:00:00"}), june);
    EXPECT_EQ(MediaImporter::takenDate(P{std::nullopt, "2021:06:15 08:30:00"}), june);
    EXPECT_EQ(MediaImporter::takenDate(P{}), std::nullopt);
    // The EXIF date is the one read, even when it does not parse and the TIFF one would.
    EXPECT_EQ(MediaImporter::takenDate(P{"2021-06-15 08:30:00", "2021:06:15 08:30:00"}), std::nullopt);
    EXPECT_EQ(MediaImporter::takenDate(P{"2021:06:15 08:30", std::nullopt}), std::nullopt);
    EXPECT_EQ(MediaImporter::takenDate(P{"2021:06:15 08:30:00 extra", std::nullopt}), std::nullopt);
    EXPECT_EQ(MediaImporter::takenDate(P{"2021:13:45 08:30:00", std::nullopt}), std::nullopt);
    EXPECT_EQ(MediaImporter::takenDate(P{"", std::nullopt}), std::nullopt);
}

TEST(MediaImporter, ImportsAPhotoWithDisplayImageThumbnailAndCaptureFields) {
    TemporaryDirectory directory;
    const auto file = directory / "Beach Day.JPG";
    writeFile(file, jpegWith(quadrants(3000, 2000), PhotoOptions().taken("2021:06:15 08:30:00")));

    const auto imported = MediaImporter::load(file, 1'700'000'000);
    const Capture& capture = imported.capture;
    EXPECT_EQ(capture.id.size(), 36u);
    EXPECT_EQ(capture.id, Text::lowercased(capture.id));
    EXPECT_EQ(capture.createdAt, 1'700'000'000);
    EXPECT_EQ(capture.app, "Photos");
    EXPECT_EQ(capture.windowTitle, "Beach Day");
    EXPECT_EQ(capture.media, CaptureMedia::photo);
    EXPECT_EQ(capture.stage, CaptureStage::captured);
    EXPECT_EQ(capture.imageFile, "media/" + capture.id + ".jpg");
    EXPECT_EQ(capture.originalFile, "media/" + capture.id + "-original.jpg");
    EXPECT_EQ(capture.takenAt, localInstant(2021, 6, 15, 8, 30, 0));
    EXPECT_EQ(capture.duration, std::nullopt);
    EXPECT_FALSE(imported.sheet);

    const Image display = decoded(imported.image);
    EXPECT_EQ(display.width, 2560);
    EXPECT_NEAR(display.height, 1707, 1);
    EXPECT_EQ(capture.width, display.width);
    EXPECT_EQ(capture.height, display.height);
    const Image thumbnail = decoded(imported.thumbnail);
    EXPECT_EQ(thumbnail.width, 720);
    EXPECT_EQ(thumbnail.height, 480);
    EXPECT_TRUE(near(thumbnail, 5, 5, red) && near(thumbnail, 715, 475, white));

    EXPECT_NE(MediaImporter::load(file, 0).capture.id, capture.id) << "every import is a new capture";
}

TEST(MediaImporter, PhotoDatesComeFromExifOrTiffOrNowhere) {
    TemporaryDirectory directory;
    const auto takenAt = [&](const PhotoOptions& options) {
        const auto file = directory / "photo.jpg";
        writeFile(file, jpegWith(quadrants(64, 48), options));
        return MediaImporter::photo(file, 0).capture.takenAt;
    };
    EXPECT_EQ(takenAt(PhotoOptions().dated("2019:12:31 23:59:58")), localInstant(2019, 12, 31, 23, 59, 58));
    EXPECT_EQ(takenAt(PhotoOptions().taken("2020:02:29 12:00:00").dated("2019:12:31 23:59:58")),
              localInstant(2020, 2, 29, 12, 0, 0));
    EXPECT_EQ(takenAt(PhotoOptions()), std::nullopt);
    EXPECT_EQ(takenAt(PhotoOptions().taken("yesterday")), std::nullopt);
}

TEST(MediaImporter, PortraitPhotoWithOrientationTagComesOutUpright) {
    TemporaryDirectory directory;
    const auto file = directory / "portrait.jpeg";
    writeFile(file, jpegWith(quadrants(4000, 3000), PhotoOptions().turned(6)));
    const auto imported = MediaImporter::photo(file, 0);
    EXPECT_EQ(imported.capture.width, 1920);
    EXPECT_EQ(imported.capture.height, 2560);
    for (const auto& jpeg : {imported.image, imported.thumbnail}) {
        const Image upright = decoded(jpeg);
        ASSERT_LT(upright.width, upright.height);
        EXPECT_TRUE(near(upright, upright.width - 5, 5, red));
        EXPECT_TRUE(near(upright, 5, 5, blue));
        EXPECT_TRUE(near(upright, upright.width - 5, upright.height - 5, green));
    }
    EXPECT_EQ(decoded(imported.thumbnail).height, 720);
}

TEST(MediaImporter, SmallPhotosKeepTheirSize) {
    TemporaryDirectory directory;
    const auto file = directory / "icon.png";
    writeFile(file, pngOf(quadrants(300, 200)));
    const auto imported = MediaImporter::photo(file, 0);
    EXPECT_EQ(imported.capture.width, 300);
    EXPECT_EQ(imported.capture.height, 200);
    EXPECT_EQ(decoded(imported.thumbnail).width, 300);
    EXPECT_EQ(imported.capture.originalFile, "media/" + imported.capture.id + "-original.png");
}

TEST(MediaImporter, HeicPhotoInUpperCaseImports) {
    const auto heif = heifOf(quadrants(800, 600));
    if (!heif) {
        GTEST_SKIP() << "libheif on this machine cannot encode HEIF";
    }
    TemporaryDirectory directory;
    const auto file = directory / "IMG_0001.HEIC";
    writeFile(file, *heif);
    const auto imported = MediaImporter::load(file, 0);
    EXPECT_EQ(imported.capture.media, CaptureMedia::photo);
    EXPECT_EQ(imported.capture.originalFile, "media/" + imported.capture.id + "-original.heic");
    EXPECT_EQ(imported.capture.width, 800);
    EXPECT_EQ(imported.capture.height, 600);
    const Image thumbnail = decoded(imported.thumbnail);
    EXPECT_EQ(thumbnail.width, 720);
    EXPECT_TRUE(near(thumbnail, 5, 5, red) && near(thumbnail, 715, 535, white));
}

TEST(MediaImporter, FilesThatAreNotMediaOrCannotBeDecodedFailWithTheirName) {
    TemporaryDirectory directory;
    writeFile(directory / "notes.txt", std::string("plain text"));
    EXPECT_EQ(failureOf(directory / "notes.txt"), Failure::notMedia("notes.txt"));
    EXPECT_STREQ(Failure::notMedia("notes.txt").what(), "notMedia(notes.txt)");

    writeFile(directory / "fake.jpg", std::string("this is text wearing a picture's name"));
    EXPECT_EQ(failureOf(directory / "fake.jpg"), Failure::unreadable("fake.jpg"));
    const auto whole = jpegWith(quadrants(640, 480));
    writeFile(directory / "cut.jpg", std::vector<std::uint8_t>(whole.begin(), whole.begin() + 3000));
    EXPECT_EQ(failureOf(directory / "cut.jpg"), Failure::unreadable("cut.jpg"));
    EXPECT_EQ(failureOf(directory / "missing.png"), Failure::unreadable("missing.png"));
    EXPECT_EQ(MediaImporter::scaled(directory / "cut.jpg", 720), std::nullopt);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory.path()), {}), 3)
        << "nothing written";
}

} // namespace
} // namespace keepery::testing
