// keep-library: keeps a real photo, a real video with speech and two rendered screenshots of one page
// through the Library, with the model service at OLLAMA_HOST, and processes them to the end, for the
// end-to-end test of the pipeline. Usage: keep-library ROOT WORKDIR
// Prints one JSON object: {"photo": id, "video": id, "screens": [id, id], "pending": n, "errors": [...]}.
#include "Library/Library.h"
#include "Media/MediaImporter.h"
#include "Media/Thumbnailer.h"
#include "Platform/ModelService.h"
#include "Platform/ReadingEnvironment.h"
#include "Understanding/Models.h"
#include "support/MediaFixtures.h"
#include "support/Screenshots.h"
#include "support/SpeechVideo.h"

#include <iostream>
#include <nlohmann/json.hpp>

using namespace keepery;

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: keep-library ROOT WORKDIR\n";
        return 2;
    }
    ReadingEnvironment::ensureSingleThreaded(argv);
    const std::filesystem::path root = argv[1];
    const std::filesystem::path work = argv[2];
    try {
        LibraryStore store(root);
        Library library({.store = store, .client = OllamaClient(ModelService::host())},
                        {.visionModel = "qwen3.5:4b", .embeddingModel = std::string(Models::embedding)});
        const Instant now = Clock::system().secondsSince1970();
        nlohmann::json kept;

        const std::filesystem::path photoFile = work / "harbour-lighthouse.jpg";
        testing::writeFile(photoFile,
                           testing::jpegWith(testing::quadrants(640, 480),
                                             testing::PhotoOptions().taken("2024:03:03 17:14:00")));
        MediaImporter::Imported photo = MediaImporter::load(photoFile, now - 30);
        library.keepImported(photo, photoFile);
        kept["photo"] = photo.capture.id;

        const std::filesystem::path videoFile = testing::makeVideo(
            work, "garden-tour.mp4", testing::Soundtrack::speech, "Hello. Welcome to the garden.");
        MediaImporter::Imported video = MediaImporter::load(videoFile, now - 20);
        library.keepImported(video, videoFile);
        kept["video"] = video.capture.id;

        const testing::RenderedScreenshot page =
            testing::renderScreenshot(testing::ScreenLayout::browser, testing::documentationWords(0));
        const std::vector<std::uint8_t> thumbnail = Thumbnailer::jpeg(page.png, 720, 0.82).value();
        for (int i = 0; i < 2; ++i) {
            Capture screen;
            screen.id = "screen-" + std::to_string(i);
            screen.createdAt = now - 10 + i;
            screen.app = "Firefox";
            screen.windowTitle = "Tide tables for the harbour";
            screen.width = 2560;
            screen.height = 1440;
            library.keep(screen, page.png, thumbnail);
            kept["screens"].push_back(screen.id);
        }

        library.work();
        kept["pending"] = store.pending(Clock::system().secondsSince1970() + 3600, 100).size();
        kept["errors"] = nlohmann::json::array();
        for (const Capture& capture : store.captures(LibraryFilter::recent(), 100)) {
            if (capture.lastError) {
                kept["errors"].push_back(capture.id + ": " + *capture.lastError);
            }
        }
        std::cout << kept.dump() << "\n";
        return 0;
    } catch (const std::exception& failure) {
        std::cerr << "keep-library: " << failure.what() << "\n";
        return 1;
    }
}
