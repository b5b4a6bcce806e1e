// Keeping captures and carrying them through reading, description, embedding and filing, against the fake
// model service over real HTTP: files before rows, failures with their retry times, the worker's drains.
#include "Library/Library.h"

#include "Store/StoreTesting.h"
#include "support/FakeModelService.h"
#include "support/MediaFixtures.h"

#include <atomic>
#include <fstream>
#include <future>
#include <gtest/gtest.h>
#include <thread>

using namespace keepery;
using namespace std::chrono_literals;
using keepery::testing::FakeFiles;
using keepery::testing::FakeModelService;

namespace {

class LibraryPipeline : public keepery::testing::StoreTest {
protected:
    LibraryPipeline() {
        library.setOnChange([this] { ++announcements; });
    }

    Library makeLibrary(const std::string& host, Library::ModelTimeouts timeouts = {}) {
        return Library({.store = store, .client = OllamaClient(host), .clock = clock, .files = files},
                       {.visionModel = FakeModelService::visionModel,
                        .embeddingModel = FakeModelService::embeddingModel,
                        .timeouts = timeouts,
                        .locale = "en-US"});
    }

    static std::vector<std::uint8_t> picture(int width, int height) {
        return keepery::testing::pngOf(keepery::testing::quadrants(width, height));
    }

    // A screen capture whose image is on disk and whose row is stored at `captured`.
    Capture stored(const std::string& id, Instant createdAt, CaptureMedia media = CaptureMedia::screen) {
        Capture capture = screen(id, createdAt, "Terminal", "Build log " + id);
        capture.media = media;
        keepery::testing::writeFile(store.imageURL(capture), picture(64, 48));
        store.insert(capture);
        return capture;
    }

    std::size_t describeRequests() const {
        std::size_t n = 0;
        for (const auto& request : service.requests("/api/generate")) {
            n += request.body.find("Name the collection") == std::string::npos ? 1 : 0;
        }
        return n;
    }

    Instant now() const { return clock.secondsSince1970(); }

    FakeModelService service;
    Library library = makeLibrary(service.host());
    std::atomic<int> announcements = 0;
};

TEST_F(LibraryPipeline, KeepWritesTheFilesAndTheRowBeforeTheWorkerTakesTheCapture) {
    const Capture capture = screen("kept", 10);
    const std::vector<std::uint8_t> png = picture(64, 48);
    const std::vector<std::uint8_t> thumbnail = picture(32, 24);
    bool seenAtKeep = false;
    library.setOnChange([&] {
        if (announcements++ == 0) {
            const auto row = store.capture("kept");
            seenAtKeep = row && row->stage == CaptureStage::captured &&
                         std::filesystem::file_size(store.imageURL("kept")) == png.size() &&
                         std::filesystem::file_size(store.thumbURL("kept")) == thumbnail.size();
        }
    });
    library.keep(capture, png, thumbnail);
    EXPECT_TRUE(seenAtKeep) << "the announcement of keep came before the files and the row";

    // Nothing else is called: the drain keep started carries the capture through.
    const auto deadline = std::chrono::steady_clock::now() + 60s;
    while (store.capture("kept")->stage != CaptureStage::organized &&
           std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(10ms);
    }
    library.work(); // waits for a drain still announcing
    const auto organized = store.capture("kept");
    EXPECT_EQ(organized->stage, CaptureStage::organized);
    EXPECT_EQ(announcements, 3);

    // Handed in again, an organized capture is left as it is.
    const std::size_t requests = service.requests().size();
    library.advance(*organized);
    EXPECT_EQ(store.capture("kept"), organized);
    EXPECT_EQ(announcements, 3);
    EXPECT_EQ(service.requests().size(), requests);
}

TEST_F(LibraryPipeline, KeepWritesEveryFileBeforeTheRowAndStopsAtItsFirstFailure) {
    library.stop(); // only the files and rows are looked at here
    const std::filesystem::path original = directory / "clip.mp4";
    keepery::testing::writeFile(original, std::string("new original"));
    const auto imported = [&](const char* id, CaptureMedia media,
                              std::optional<std::vector<std::uint8_t>> sheet) {
        MediaImporter::Imported kept{screen(id, 1), picture(16, 16), picture(4, 4), std::move(sheet)};
        kept.capture.media = media;
        kept.capture.imageFile = std::string("media/").append(id).append(".jpg");
        kept.capture.originalFile = std::string("media/").append(id).append("-original");
        return kept;
    };
    // A sheet only for a video; an original already there is replaced.
    keepery::testing::writeFile(store.root() / "media/v-original", std::string("an older file"));
    library.keepImported(imported("v", CaptureMedia::video, picture(24, 16)), original);
    library.keepImported(imported("p", CaptureMedia::photo, std::nullopt), original);
    EXPECT_TRUE(std::filesystem::exists(store.sheetURL("v")));
    EXPECT_FALSE(std::filesystem::exists(store.sheetURL("p")));
    std::ifstream copied(store.root() / "media/v-original");
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(copied), {}), "new original");
    EXPECT_TRUE(store.capture("v") && store.capture("p"));

    // A failed keep leaves the files written before the failure, and no row.
    EXPECT_THROW(
        library.keepImported(imported("gone", CaptureMedia::photo, std::nullopt), directory / "nowhere"),
        std::filesystem::filesystem_error);
    EXPECT_TRUE(std::filesystem::exists(store.thumbURL("gone")));
    EXPECT_FALSE(store.capture("gone"));
    files.failNext(FakeFiles::Operation::writeAtomically, store.thumbURL("a"));
    EXPECT_THROW(library.keep(screen("a", 10), picture(8, 8), picture(4, 4)),
                 std::filesystem::filesystem_error);
    EXPECT_TRUE(std::filesystem::exists(store.imageURL("a")));
    EXPECT_FALSE(store.capture("a"));
    // A second insert of a kept id fails with the store's error.
    EXPECT_THROW(library.keep(screen("v", 13), picture(8, 8), picture(4, 4)), Database::Failure);
    EXPECT_EQ(announcements, 2);
}

// Every way the model service can fail a step ends as the step's failure with its retry time: nothing
// half-stored, nothing waiting longer than the call's time-out.
TEST_F(LibraryPipeline, AFailedStepRecordsItsTextAndIsRetriedOnlyAfterItsDelay) {
    int n = 0;
    const auto failsThenRecovers = [&](Library& worker, const std::string& error, std::chrono::seconds delay,
                                       CaptureStage stage) {
        const std::string id = "c" + std::to_string(++n);
        SCOPED_TRACE(id + ": " + error);
        stored(id, n);
        const auto started = std::chrono::steady_clock::now();
        worker.work();
        EXPECT_LT(std::chrono::steady_clock::now() - started, 10s) << "it waited for the stalled reply";
        EXPECT_EQ(store.capture(id)->stage, stage);
        EXPECT_EQ(store.capture(id)->lastError, error);
        EXPECT_DOUBLE_EQ(*column(id, "next_attempt_at").asDouble(),
                         now() + static_cast<double>(delay.count()));
        EXPECT_FALSE(store.vector(id, VectorSpace::look)) << "a bad reply is never stored";

        // Inside the delay nothing is due; past it the step is tried again and succeeds.
        service.clearFailures();
        clock.advance(delay - 1s);
        const std::size_t requests = service.requests().size();
        library.work();
        EXPECT_EQ(service.requests().size(), requests);
        clock.advance(1s);
        library.work();
        EXPECT_EQ(store.capture(id)->stage, CaptureStage::organized);
    };
    service.removeModel(FakeModelService::visionModel);
    failsThenRecovers(library, "A model is missing: model \"qwen3.5:4b\" not found, try pulling it first",
                      300s, CaptureStage::read);
    service.failModel(FakeModelService::embeddingModel, FakeModelService::Reply::error(500, "out of memory"));
    failsThenRecovers(library, "Ollama answered 500: out of memory", 600s, CaptureStage::described);
    FakeModelService down;
    down.refuseConnections();
    Library offline = makeLibrary(down.host());
    failsThenRecovers(offline, "Ollama is not running", 60s, CaptureStage::read);
    // A library that gives up on a silent service after a second.
    Library impatient = makeLibrary(service.host(), {.describing = 1s, .naming = 1s, .embedding = 1s});
    service.stall("/api/generate", 10);
    failsThenRecovers(impatient, "Ollama is not running", 60s, CaptureStage::read);
    service.stall("/api/embed", 10);
    failsThenRecovers(impatient, "Ollama is not running", 60s, CaptureStage::described);
}

TEST_F(LibraryPipeline, ReadingTakesAVideosSheetFirstAndFailsOnAMissingImage) {
    // The sheet is what the models see of a video; without it, its image.
    Capture video = stored("v", 1, CaptureMedia::video);
    keepery::testing::writeFile(store.sheetURL("v"), picture(300, 100));
    EXPECT_EQ(keepery::testing::decoded(library.modelImage(video)).width, 300);
    std::filesystem::remove(store.sheetURL("v"));
    EXPECT_EQ(keepery::testing::decoded(library.modelImage(video)).width, 64);
    // Larger images are brought down to 1280 px for the models.
    keepery::testing::writeFile(store.sheetURL("v"), picture(2000, 500));
    EXPECT_EQ(keepery::testing::decoded(library.modelImage(video)).width, 1280);

    // A video without an original file is read without a transcript and without a failure.
    library.advance(video);
    EXPECT_EQ(store.capture("v")->stage, CaptureStage::organized);
    EXPECT_FALSE(store.capture("v")->transcript);
    EXPECT_FALSE(store.capture("v")->lastError);

    const Capture lost = stored("lost", 2);
    std::filesystem::remove(store.imageURL(lost));
    library.advance(lost);
    const auto failed = store.capture("lost");
    EXPECT_EQ(failed->stage, CaptureStage::captured);
    EXPECT_NE(failed->lastError.value_or("").find(store.imageURL(lost).string()), std::string::npos)
        << failed->lastError.value_or("");
    EXPECT_NE(failed->lastError.value_or("").find("No such file"), std::string::npos);
    EXPECT_DOUBLE_EQ(*column("lost", "next_attempt_at").asDouble(), now() + 600);
    EXPECT_THROW((void)library.modelImage(lost), std::filesystem::filesystem_error);
}

TEST_F(LibraryPipeline, ConcurrentWorkCallsShareOneDrainAndStopEndsItAfterTheCaptureInHand) {
    const auto keepThree = [&](int first) {
        for (int i = first; i < first + 3; ++i) {
            stored("c" + std::to_string(i), i);
        }
    };
    keepThree(0);
    service.stall("/api/generate", 0.2);
    std::promise<void> go;
    std::shared_future<void> start = go.get_future().share();
    const auto caller = [&] {
        start.wait();
        library.work();
        return store.pending(now(), 10).size();
    };
    auto first = std::async(std::launch::async, caller);
    auto second = std::async(std::launch::async, caller);
    go.set_value();
    EXPECT_EQ(first.get(), 0u);
    EXPECT_EQ(second.get(), 0u);
    EXPECT_EQ(describeRequests(), 3u) << "each capture is described once";

    keepThree(3);
    auto working = std::async(std::launch::async, [&] { library.work(); });
    while (describeRequests() == 3) {
        std::this_thread::sleep_for(5ms);
    }
    library.stop();
    working.get();
    library.work(); // after stop, returns at once and takes nothing up
    EXPECT_EQ(store.capture("c3")->stage, CaptureStage::organized);
    EXPECT_EQ(store.capture("c4")->stage, CaptureStage::captured);
    EXPECT_EQ(store.capture("c5")->stage, CaptureStage::captured);
}

// A model is missing when the service says "not found" or answers 404.
TEST(LibraryPipelineRetries, AMissingModelIsToldByItsTextOrItsStatus) {
    const auto plan = [](const auto& e) { return Library::retryPlan(std::make_exception_ptr(e)); };
    EXPECT_EQ(plan(OllamaClient::Failure::server(500, "model 'x' not found")).message,
              "A model is missing: model 'x' not found");
    EXPECT_EQ(plan(OllamaClient::Failure::server(404, "gone")).delay, 300s);
}

} // namespace
