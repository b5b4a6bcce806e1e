#include "keepery/KeeperyHome.h"
#include "support/MediaFixtures.h"

#include <gmock/gmock.h>

using namespace keepery;
using namespace keepery::testing;
using ::testing::HasSubstr;
namespace fs = std::filesystem;

namespace {

class KeeperyWatch : public KeeperyHome {
protected:
    fs::path media = home / "Camera";
    fs::path screens = home / "Screenshots";

    void SetUp() override {
        fs::create_directories(media);
        fs::create_directories(screens);
    }

    std::int64_t kept(CaptureMedia which) const { return LibraryStore(library()).mediaCounts()[which]; }

    // Writes `bytes` in two parts with a pause between them, as a slow copy does.
    static void copySlowly(const fs::path& to, const std::vector<std::uint8_t>& bytes) {
        std::ofstream out(to, std::ios::binary);
        const auto half = static_cast<std::streamsize>(bytes.size() / 2);
        out.write(reinterpret_cast<const char*>(bytes.data()), half);
        out.flush();
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        out.write(reinterpret_cast<const char*>(bytes.data()) + half,
                  static_cast<std::streamsize>(bytes.size()) - half);
    }
};

// What the watcher keeps is processed by the real pipeline without another command.
TEST_F(KeeperyWatch, KeepsAndProcessesCompleteFilesAsTheyArriveAndStopsCleanly) {
    RunningChild watch(KEEPERY_PATH, {"watch", media.string(), "--screens", screens.string()}, environment(),
                       home / "watch.log");
    ASSERT_TRUE(eventually([&] {
        return watch.output().find("Watching " + screens.string()) != std::string::npos;
    })) << watch.output();

    copySlowly(media / "beach.jpg", jpegWith(quadrants(640, 480)));
    copySlowly(screens / "Screenshot from 2026-11-23.png", pngOf(quadrants(500, 400)));
    writeFile(media / "notes.txt", std::string("text"));
    writeFile(media / ".partial.jpg", std::string("half"));
    EXPECT_TRUE(
        eventually([&] { return LibraryStore(library()).stageCounts()[CaptureStage::organized] == 2; }, 60))
        << watch.output();
    EXPECT_EQ(kept(CaptureMedia::photo), 1);
    const auto screen = LibraryStore(library()).captures(LibraryFilter::media(CaptureMedia::screen), 2);
    ASSERT_EQ(screen.size(), 1U);
    EXPECT_EQ(screen[0].windowTitle, "Screenshot from 2026-11-23");
    EXPECT_EQ(screen[0].width, 500);

    watch.signal(SIGTERM);
    EXPECT_EQ(watch.finish(), 0);
    const std::string log = watch.output();
    EXPECT_THAT(log, HasSubstr("Imported " + (media / "beach.jpg").string()));
    EXPECT_THAT(log, HasSubstr("Skipped " + (media / "notes.txt").string() + ": not a photo or video"));
    EXPECT_THAT(log, ::testing::Not(HasSubstr("partial")));
    EXPECT_THAT(log, HasSubstr("Stopped watching."));
    EXPECT_EQ(LibraryStore(library()).count(), 2);
}

TEST_F(KeeperyWatch, RefusesAFolderThatIsNotThere) {
    const auto refused = keepery({"watch", (home / "nowhere").string()});
    EXPECT_EQ(refused.exitStatus, 1);
    EXPECT_EQ(refused.err, "keepery: " + (home / "nowhere").string() + ": no such folder\n");
}

// What the user service runs: without folders, the pictures folder and the screenshot folder inside it.
TEST_F(KeeperyWatch, WithoutFoldersWatchesThePicturesFolderAndItsScreenshots) {
    RunningChild watch(KEEPERY_PATH, {"watch"}, environment(), home / "watch.log");
    const fs::path pictures = home / "Pictures";
    ASSERT_TRUE(eventually([&] {
        return watch.output().find("Watching " + (pictures / "Screenshots").string() + " for screenshots") !=
               std::string::npos;
    })) << watch.output();
    EXPECT_THAT(watch.output(), HasSubstr("Watching " + pictures.string() + " for photos and videos\n"));
    writeFile(home / "shot.png", pngOf(quadrants(300, 200)));
    fs::rename(home / "shot.png", pictures / "Screenshots" / "shot.png");
    EXPECT_TRUE(eventually([&] { return kept(CaptureMedia::screen) == 1; })) << watch.output();
    watch.signal(SIGINT);
    EXPECT_EQ(watch.finish(), 0);
}

} // namespace
