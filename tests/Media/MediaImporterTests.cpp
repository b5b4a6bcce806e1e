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

// "yyyy:MM:dd HH:mm:ss" in this machine's time zone.
Instant localInstant(const char* text) {
    std::tm parts{};
    strptime(text, "%Y:%m:%d %H:%M:%S", &parts);
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
    for (const char* photo : {"B.JPG", "d.HEIC", "g.webp", "m.CR2", "o.avif"}) {
        EXPECT_EQ(MediaImporter::kind(photo), CaptureMedia::photo) << photo;
    }
    for (const char* video : {"a.mp4", "b.MOV", "i.mts"}) {
        EXPECT_EQ(MediaImporter::kind(video), CaptureMedia::video) << video;
    }
    for (const char* other : {"c.mp3", "e.docx", "noextension", ".jpg", "f.jpg.zip"}) {
        EXPECT_EQ(MediaImporter::kind(other), std::nullopt) << other;
    }
}

TEST(MediaImporter, KeyTimesSpreadFromFiveToNinetyFivePercent) {
    EXPECT_EQ(MediaImporter::keyTimes(10, 1), std::vector<double>{5});
    EXPECT_EQ(MediaImporter::keyTimes(100, 6), (std::vector<double>{5, 23, 41, 59, 77, 95}));
    EXPECT_EQ(MediaImporter::keyTimes(2, 2), (std::vector<double>{0.1, 1.9}));
    for (const auto& [duration, count] : std::vector<std::pair<double, int>>{
             {0, 6}, {-3, 6}, {10, 0}, {std::numeric_limits<double>::quiet_NaN(), 6}}) {
        EXPECT_EQ(MediaImporter::keyTimes(duration, count), std::vector<double>{})
            << duration << " " << count;
    }
}

TEST(MediaImporter, TakenDateReadsExifThenTiffInLocalTime) {
    using P = MediaImporter::Properties;
    const Instant june = localInstant("2021:06:15 08:30:00");
    EXPECT_EQ(MediaImporter::takenDate(P{"2021:06:15 08:30:00", "1999:01:01 00:00:00"}), june);
    EXPECT_EQ(MediaImporter::takenDate(P{std::nullopt, "2021:06:15 08:30:00"}), june);
    // The EXIF date is the one read, even when it does not parse and the TIFF one would.
    for (const char* exif : {"2021-06-15 08:30:00", "2021:06:15 08:30", "2021:06:15 08:30:00 extra",
                             "2021:13:45 08:30:00", ""}) {
        EXPECT_EQ(MediaImporter::takenDate(P{exif, "2021:06:15 08:30:00"}), std::nullopt) << exif;
    }
    EXPECT_EQ(MediaImporter::takenDate(P{}), std::nullopt);

    // Read from the picture's own EXIF and TIFF fields.
    TemporaryDirectory directory;
    const auto takenAt = [&](const PhotoOptions& options) {
        writeFile(directory / "photo.jpg", jpegWith(quadrants(64, 48), options));
        return MediaImporter::photo(directory / "photo.jpg", 0).capture.takenAt;
    };
    EXPECT_EQ(takenAt(PhotoOptions().dated("2019:12:31 23:59:58")), localInstant("2019:12:31 23:59:58"));
    EXPECT_EQ(takenAt(PhotoOptions().taken("2020:02:29 12:00:00").dated("2019:12:31 23:59:58")),
              localInstant("2020:02:29 12:00:00"));
    EXPECT_EQ(takenAt(PhotoOptions()), std::nullopt);
}

TEST(MediaImporter, ImportsAPhotoWithDisplayImageThumbnailAndCaptureFields) {
    TemporaryDirectory directory;
    const auto file = directory / "Beach Day.JPG";
    writeFile(file, jpegWith(quadrants(3000, 2000), PhotoOptions().taken("2021:06:15 08:30:00")));
    const auto imported = MediaImporter::load(file, 1'700'000'000);
    const Capture& capture = imported.capture;
    EXPECT_EQ(capture.id.size(), 36u);
    EXPECT_EQ(capture.id, Text::lowercased(capture.id));
    EXPECT_NEAR(capture.height, 1707, 1);
    EXPECT_EQ(std::tie(capture.createdAt, capture.app, capture.windowTitle, capture.width, capture.media,
                       capture.stage, capture.duration),
              std::make_tuple(1'700'000'000.0, "Photos", "Beach Day", 2560, CaptureMedia::photo,
                              CaptureStage::captured, std::nullopt));
    EXPECT_EQ(capture.takenAt, localInstant("2021:06:15 08:30:00"));
    EXPECT_EQ(capture.imageFile, "media/" + capture.id + ".jpg");
    EXPECT_EQ(capture.originalFile, "media/" + capture.id + "-original.jpg");
    EXPECT_FALSE(imported.sheet);

    const Image display = decoded(imported.image);
    EXPECT_EQ(display.width, capture.width);
    EXPECT_EQ(display.height, capture.height);
    const Image thumbnail = decoded(imported.thumbnail);
    EXPECT_EQ(std::pair(thumbnail.width, thumbnail.height), std::pair(720, 480));
    EXPECT_TRUE(near(thumbnail, 5, 5, red) && near(thumbnail, 715, 475, white));
    EXPECT_NE(MediaImporter::load(file, 0).capture.id, capture.id) << "every import is a new capture";
}

TEST(MediaImporter, PhotosAreTurnedUprightAndNeverEnlarged) {
    TemporaryDirectory directory;
    writeFile(directory / "portrait.jpeg", jpegWith(quadrants(4000, 3000), PhotoOptions().turned(6)));
    const auto portrait = MediaImporter::photo(directory / "portrait.jpeg", 0);
    EXPECT_EQ(portrait.capture.width, 1920);
    EXPECT_EQ(portrait.capture.height, 2560);
    const Image turned = decoded(portrait.thumbnail);
    EXPECT_EQ(turned.height, 720);
    EXPECT_TRUE(near(turned, turned.width - 5, 5, red)) << "turned as the tag says";

    writeFile(directory / "icon.png", pngOf(quadrants(300, 200)));
    const auto small = MediaImporter::photo(directory / "icon.png", 0);
    EXPECT_EQ(small.capture.width, 300);
    EXPECT_EQ(small.capture.height, 200);
    EXPECT_EQ(decoded(small.thumbnail).width, 300);
    EXPECT_EQ(small.capture.originalFile, "media/" + small.capture.id + "-original.png");

    const auto heif = heifOf(quadrants(800, 600));
    if (!heif) {
        GTEST_SKIP() << "libheif on this machine cannot encode HEIF";
    }
    writeFile(directory / "IMG_0001.HEIC", *heif);
    const auto imported = MediaImporter::load(directory / "IMG_0001.HEIC", 0);
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
    const auto whole = jpegWith(quadrants(640, 480));
    writeFile(directory / "cut.jpg", std::vector<std::uint8_t>(whole.begin(), whole.begin() + 3000));
    EXPECT_EQ(failureOf(directory / "cut.jpg"), Failure::unreadable("cut.jpg"));
    EXPECT_EQ(failureOf(directory / "missing.png"), Failure::unreadable("missing.png"));
    EXPECT_EQ(MediaImporter::scaled(directory / "cut.jpg", 720), std::nullopt);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory.path()), {}), 2)
        << "nothing written";
}

} // namespace
} // namespace keepery::testing
