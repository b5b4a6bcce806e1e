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

constexpr const char* vision = "qwen3.5:4b";
constexpr const char* embedding = "embeddinggemma-2:440m";

class LibraryPipeline : public keepery::testing::StoreTest {
protected:
    LibraryPipeline() {
        library.setOnChange([this] { ++announcements; });
    }

    Library makeLibrary(const std::string& host, Library::ModelTimeouts timeouts = {}) {
        return Library(
            {.store = store, .client = OllamaClient(host), .clock = clock, .files = files},
            {.visionModel = vision, .embeddingModel = embedding, .timeouts = timeouts, .locale = "en-US"});
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
    EXPECT_EQ(store.capture("kept")->stage, CaptureStage::organized);
    EXPECT_EQ(announcements, 3);
}

TEST_F(LibraryPipeline, AFailedKeepStopsAtItsFirstFailureAndLeavesEarlierFilesBehind) {
    library.stop(); // only the files and rows are looked at here
    const Capture capture = screen("a", 10);
    files.failNext(FakeFiles::Operation::writeAtomically, store.thumbURL("a"));
    EXPECT_THROW(library.keep(capture, picture(8, 8), picture(4, 4)), std::filesystem::filesystem_error);
    EXPECT_TRUE(std::filesystem::exists(store.imageURL("a")));
    EXPECT_FALSE(store.capture("a"));

    // An imported photo whose original is gone: the images are written, no row, nothing announced.
    MediaImporter::Imported photo{screen("p", 11), picture(16, 16), picture(4, 4), std::nullopt};
    photo.capture.media = CaptureMedia::photo;
    photo.capture.imageFile = "media/p.jpg";
    photo.capture.originalFile = "media/p-original.jpg";
    EXPECT_THROW(library.keepImported(photo, directory / "nowhere.jpg"), std::filesystem::filesystem_error);
    EXPECT_TRUE(std::filesystem::exists(store.root() / "media/p.jpg"));
    EXPECT_TRUE(std::filesystem::exists(store.thumbURL("p")));
    EXPECT_FALSE(store.capture("p"));

    // A second insert of a kept id fails with the store's error.
    library.keep(screen("b", 12), picture(8, 8), picture(4, 4));
    EXPECT_THROW(library.keep(screen("b", 13), picture(8, 8), picture(4, 4)), Database::Failure);
    EXPECT_EQ(announcements, 1);
}

TEST_F(LibraryPipeline, KeepImportedWritesASheetOnlyForAVideoAndReplacesAnExistingOriginal) {
    library.stop(); // only the files and rows are looked at here
    const std::filesystem::path original = directory / "clip.mp4";
    keepery::testing::writeFile(original, std::string("new original"));

    MediaImporter::Imported video{screen("v", 1), picture(16, 16), picture(4, 4), picture(24, 16)};
    video.capture.media = CaptureMedia::video;
    video.capture.imageFile = "media/v.jpg";
    video.capture.originalFile = "media/v-original.mp4";
    keepery::testing::writeFile(store.root() / "media/v-original.mp4", std::string("an older file"));
    library.keepImported(video, original);
    EXPECT_TRUE(std::filesystem::exists(store.sheetURL("v")));
    std::ifstream copied(store.root() / "media/v-original.mp4");
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(copied), {}), "new original");
    EXPECT_TRUE(store.capture("v"));

    MediaImporter::Imported photo{screen("p", 2), picture(16, 16), picture(4, 4), std::nullopt};
    photo.capture.media = CaptureMedia::photo;
    photo.capture.imageFile = "media/p.jpg";
    library.keepImported(photo, original);
    EXPECT_FALSE(std::filesystem::exists(store.sheetURL("p")));
    EXPECT_TRUE(std::filesystem::exists(store.root() / "media/p.jpg"));
    EXPECT_EQ(announcements, 2);
}

TEST_F(LibraryPipeline, OneAdvanceCarriesANewCaptureToOrganizedWithTwoAnnouncements) {
    const Capture capture = stored("a", 10);
    library.advance(capture);
    const auto after = store.capture("a");
    EXPECT_EQ(after->stage, CaptureStage::organized);
    EXPECT_EQ(after->title, "Build log a");
    EXPECT_FALSE(after->lastError);
    EXPECT_TRUE(store.vector("a", VectorSpace::look));
    EXPECT_TRUE(store.vector("a", VectorSpace::meaning));
    EXPECT_EQ(announcements, 2);

    // Handed in again, an organized capture is left as it is.
    announcements = 0;
    const std::size_t requests = service.requests().size();
    library.advance(*after);
    EXPECT_EQ(store.capture("a"), after);
    EXPECT_EQ(announcements, 0);
    EXPECT_EQ(service.requests().size(), requests);
}

// Every way the model service can fail a step ends as the step's failure with its retry time: nothing
// half-stored, nothing waiting longer than the call's time-out.
TEST_F(LibraryPipeline, AFailedStepRecordsItsTextAndIsRetriedOnlyAfterItsDelay) {
    using Reply = FakeModelService::Reply;
    // A library that gives up on a silent service after a second.
    Library impatient = makeLibrary(service.host(), {.describing = 1s, .naming = 1s, .embedding = 1s});
    struct Case {
        const char* name;
        std::function<void()> breakService;
        std::string error;
        std::chrono::seconds delay;
        CaptureStage stage;
        Library& worker;
    };
    const auto embedReply = [&](std::string body) {
        return [this, body] { service.failWith("/api/embed", Reply::json(200, body)); };
    };
    const std::string expectedTwo = "Unexpected reply from Ollama: expected 2 embeddings";
    const std::string notJSON = "Unexpected reply from Ollama: not a JSON object";
    FakeModelService down;
    down.refuseConnections();
    const std::vector<Case> cases{
        {"a missing vision model", [&] { service.removeModel(vision); },
         "A model is missing: model \"qwen3.5:4b\" not found, try pulling it first", 300s, CaptureStage::read,
         library},
        {"a failing embedding model",
         [&] { service.failModel(embedding, Reply::error(500, "out of memory")); },
         "Ollama answered 500: out of memory", 600s, CaptureStage::described, library},
        {"a 500 with an HTML page", [&] { service.failWith("/api/generate", Reply::html(500, 1000)); },
         "Ollama answered 500: " + Reply::html(500, 1000).body.substr(0, 200), 600s, CaptureStage::read,
         library},
        {"a model answer that is not JSON", [&] { service.answerNext("I cannot help with that."); },
         "notJSON(\"I cannot help with that.\")", 600s, CaptureStage::read, library},
        {"a reply cut off inside its JSON", embedReply(R"({"embeddings": [[0.1, 0.2)"), notJSON, 600s,
         CaptureStage::described, library},
        {"NaN among the numbers", embedReply(R"({"embeddings": [[NaN, 0.5], [0.5, 0.5]]})"), notJSON, 600s,
         CaptureStage::described, library},
        {"one vector for two inputs", embedReply(R"({"embeddings": [[0.6, 0.8]]})"), expectedTwo, 600s,
         CaptureStage::described, library},
        {"no vectors", embedReply(R"({"embeddings": []})"), expectedTwo, 600s, CaptureStage::described,
         library},
        {"a description stalled past the time-out", [&] { service.stall("/api/generate", 10); },
         "Ollama is not running", 60s, CaptureStage::read, impatient},
        {"an embedding stalled past the time-out", [&] { service.stall("/api/embed", 10); },
         "Ollama is not running", 60s, CaptureStage::described, impatient},
    };
    int n = 0;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string id = "c" + std::to_string(n);
        stored(id, ++n);
        c.breakService();
        const auto started = std::chrono::steady_clock::now();
        c.worker.work();
        EXPECT_LT(std::chrono::steady_clock::now() - started, 10s) << "it waited for the stalled reply";
        auto failed = store.capture(id);
        EXPECT_EQ(failed->stage, c.stage);
        EXPECT_EQ(failed->lastError, c.error);
        EXPECT_EQ(column(id, "attempts").asInt(), 1);
        EXPECT_DOUBLE_EQ(*column(id, "next_attempt_at").asDouble(),
                         now() + static_cast<double>(c.delay.count()));
        EXPECT_FALSE(store.vector(id, VectorSpace::look)) << "a bad reply is never stored";

        // Inside the delay nothing is due; past it the step is tried again and succeeds.
        service.clearFailures();
        clock.advance(c.delay - 1s);
        const std::size_t requests = service.requests().size();
        library.work();
        EXPECT_EQ(service.requests().size(), requests);
        clock.advance(1s);
        library.work();
        EXPECT_EQ(store.capture(id)->stage, CaptureStage::organized);
        EXPECT_FALSE(store.capture(id)->lastError);
        EXPECT_EQ(column(id, "attempts").asInt(), 0);
    }

    // Nothing listens: every capture waits a minute.
    Library offline = makeLibrary(down.host());
    stored("off", 100);
    offline.work();
    EXPECT_EQ(store.capture("off")->lastError, "Ollama is not running");
    EXPECT_DOUBLE_EQ(*column("off", "next_attempt_at").asDouble(), now() + 60);
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

TEST_F(LibraryPipeline, ConcurrentWorkCallsShareOneDrainAndReturnAfterIt) {
    for (int i = 0; i < 3; ++i) {
        stored("c" + std::to_string(i), i);
    }
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

    // After stop, work returns at once and nothing is taken up.
    library.stop();
    stored("late", 10);
    library.work();
    EXPECT_EQ(store.capture("late")->stage, CaptureStage::captured);
}

TEST_F(LibraryPipeline, StopEndsADrainAfterTheCaptureInHand) {
    for (int i = 0; i < 3; ++i) {
        stored("c" + std::to_string(i), i);
    }
    service.stall("/api/generate", 0.3);
    auto working = std::async(std::launch::async, [&] { library.work(); });
    while (service.requests("/api/generate").empty()) {
        std::this_thread::sleep_for(5ms);
    }
    library.stop();
    working.get();
    EXPECT_EQ(store.capture("c0")->stage, CaptureStage::organized);
    EXPECT_EQ(store.capture("c1")->stage, CaptureStage::captured);
    EXPECT_EQ(store.capture("c2")->stage, CaptureStage::captured);
}

TEST(LibraryPipelineRetries, PlansDependOnTheKindOfFailure) {
    const auto plan = [](const auto& e) { return Library::retryPlan(std::make_exception_ptr(e)); };
    EXPECT_EQ(plan(OllamaClient::Failure::server(500, "model 'x' not found")).message,
              "A model is missing: model 'x' not found");
    EXPECT_EQ(plan(OllamaClient::Failure::server(404, "gone")).delay, 300s);
    EXPECT_EQ(plan(OllamaClient::Failure::badReply("no response text")).message,
              "Unexpected reply from Ollama: no response text");
    EXPECT_EQ(plan(Database::Failure("database is locked", "UPDATE captures")).delay, 600s);
}

} // namespace
