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
    const std::filesystem::path work = argv[2];
    try {
        LibraryStore store(argv[1]);
        Library library({.store = store, .client = OllamaClient(ModelService::host())},
                        {.visionModel = "qwen3.5:4b", .embeddingModel = std::string(Models::embedding)});
        const Instant now = Clock::system().secondsSince1970();
        nlohmann::json kept;

        const auto keepFile = [&](const std::filesystem::path& file, Instant at) {
            MediaImporter::Imported imported = MediaImporter::load(file, at);
            library.keepImported(imported, file);
            return imported.capture.id;
        };
        const std::filesystem::path photo = work / "harbour-lighthouse.jpg";
        testing::writeFile(photo, testing::jpegWith(testing::quadrants(640, 480),
                                                    testing::PhotoOptions().taken("2024:03:03 17:14:00")));
        kept["photo"] = keepFile(photo, now - 30);
        kept["video"] = keepFile(testing::makeVideo(work, "garden-tour.mp4", testing::Soundtrack::speech,
                                                    "Hello. Welcome to the garden."),
                                 now - 20);

        const testing::RenderedScreenshot page = testing::documentationScreenshot(1); // a browser window
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
