// The processing pipeline at scale: on a copy of a generated library of sample captures (ScaleLibraries.h),
// keeps new screen captures through the Library with the model service answering at once (the fake one,
// in process) and drains them. Prints, per library size:
//   - captures processed per second, and the time per capture outside text recognition and model calls
//     (those two are timed on their own with the same inputs and taken off);
//   - the organizing step per capture (organize() again on the captures just filed), against deciding
//     the straightforward way (every meaning vector and the listing read from the database);
//   - the first search after a capture was filed, against a warm search.
//
//   build/release/bench/PipelineBench [captures…]   (default 1000 10000 100000)
#include "BenchHarness.h"
#include "Library/Library.h"
#include "ScaleLibraries.h"
#include "Understanding/EmbeddingText.h"
#include "Understanding/Reader.h"
#include "support/FakeModelService.h"
#include "support/MediaFixtures.h"
#include "support/SampleLibrary.h"
#include "support/TemporaryDirectory.h"

#include <cstdio>
#include <string>
#include <vector>

using namespace keepery;

namespace {

constexpr std::size_t kept = 40;

// The organizer's decision the straightforward way: every meaning vector and the listing read afresh.
Organizer::Decision decidedAfresh(LibraryStore& store, const std::string& model, const std::string& id) {
    const std::vector<float> own = *store.vector(id, VectorSpace::meaning);
    const LibraryStore::VectorRows rows = store.vectorRows(model, VectorSpace::meaning);
    std::unordered_map<std::string, std::span<const float>> vectors;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        vectors.emplace(rows.ids[i], rows.row(i));
    }
    std::vector<Organizer::Group> groups;
    std::unordered_map<std::string, std::size_t> groupOf;
    std::vector<Organizer::Candidate> unsorted;
    const std::vector<Capture> listing = store.captures(LibraryFilter::recent(), Library::membershipListing);
    for (const Capture& capture : listing) {
        const auto vector = vectors.find(capture.id);
        if (capture.id == id || vector == vectors.end()) {
            continue;
        }
        if (capture.collectionID) {
            auto [at, added] = groupOf.emplace(*capture.collectionID, groups.size());
            if (added) {
                groups.push_back({*capture.collectionID, {}});
            }
            groups[at->second].members.push_back(vector->second);
        } else if (capture.stage == CaptureStage::organized) {
            unsorted.push_back({vector->first, vector->second});
        }
    }
    return Organizer().decide(own, groups, unsorted);
}

void run(std::size_t size) {
    keepery::testing::TemporaryDirectory directory;
    const keepery::testing::SampleLibraryOptions options = bench::scaleLibraryOptions(size);
    const keepery::testing::SampleLibrary sample(options);
    std::printf("\n%zu captures, %zu collections\n", size, sample.collections().size());
    bench::copiedLibrary(sample, directory / "Library");
    LibraryStore store(directory / "Library");

    keepery::testing::FakeModelService service;
    Library worker({.store = store, .client = OllamaClient(service.host())},
                   {.visionModel = "qwen3.5:4b", .embeddingModel = options.embeddingModel});
    const std::string query = sample.topicQuery(0);
    (void)worker.search(query); // the index is read once, as a running front end has it

    // Each capture a different small picture, so that every one is read, described and embedded anew.
    std::vector<std::vector<std::uint8_t>> pictures;
    for (std::size_t i = 0; i < kept; ++i) {
        pictures.push_back(
            keepery::testing::pngOf(keepery::testing::quadrants(160 + static_cast<int>(i), 100)));
    }
    std::vector<std::string> ids;
    const double drainMs = bench::milliseconds([&] {
        for (std::size_t i = 0; i < kept; ++i) {
            Capture capture;
            capture.id = "bench-" + std::to_string(i);
            capture.createdAt = options.firstKeptAt + static_cast<double>(size + i) * options.secondsBetween;
            capture.app = "Terminal";
            capture.windowTitle = "Build " + std::to_string(i);
            worker.keep(capture, pictures[i], pictures[i]);
            ids.push_back(capture.id);
        }
        worker.work();
    });

    // Recognition and the model calls with the same inputs, timed apart.
    double readMs = 0;
    double modelMs = 0;
    const OllamaClient client(service.host());
    for (std::size_t i = 0; i < kept; ++i) {
        readMs += bench::milliseconds([&] { (void)Reader::text(pictures[i]); });
        const Capture capture = *store.capture(ids[i]);
        const std::vector<std::uint8_t> image = worker.modelImage(capture);
        modelMs += bench::milliseconds([&] {
            OllamaClient::GenerateRequest request{
                .model = "qwen3.5:4b", .prompt = "Window: Build\n", .timeout = std::chrono::seconds(180)};
            request.images.push_back(image);
            (void)client.generate(request);
            const std::array<OllamaClient::EmbedInput, 2> inputs{
                OllamaClient::EmbedInput{EmbeddingText::document(capture),
                                         std::span<const std::uint8_t>(image)},
                OllamaClient::EmbedInput{EmbeddingText::meaning(capture), std::nullopt}};
            (void)client.embed(options.embeddingModel, inputs, std::chrono::seconds(60));
        });
    }
    const double perCapture = drainMs / kept;
    std::printf("  pipeline: %zu captures in %.0f ms: %.1f captures/s, %.1f ms each, of which recognition "
                "%.1f ms, model calls %.1f ms, the rest %.1f ms\n",
                kept, drainMs, kept * 1000.0 / drainMs, perCapture, readMs / kept, modelMs / kept,
                perCapture - readMs / kept - modelMs / kept);

    const bench::Samples organizing =
        bench::repeat(static_cast<int>(kept),
                      [&, next = std::size_t(0)]() mutable { worker.organize(ids[next++ % kept]); });
    const bench::Samples afresh =
        bench::repeat(3, [&] { (void)decidedAfresh(store, options.embeddingModel, ids.front()); });
    std::printf("  organize step: median %.2f ms, p95 %.2f ms per capture; deciding afresh %.0f ms\n",
                organizing.median(), organizing.quantile(0.95), afresh.median());

    const bench::Samples warm = bench::repeat(
        9, [&] { (void)worker.search(query); }, 1);
    Capture one;
    one.id = "bench-last";
    one.createdAt = options.firstKeptAt + static_cast<double>(size + kept + 1) * options.secondsBetween;
    one.app = "Terminal";
    one.windowTitle = "Build last";
    worker.keep(one, pictures[0], pictures[0]);
    worker.work();
    const double first = bench::milliseconds([&] { (void)worker.search(query); });
    std::printf("  search: warm median %.1f ms; first after a capture was filed %.1f ms (%.2f×)\n",
                warm.median(), first, first / warm.median());
}

} // namespace

int main(int argc, char** argv) {
    for (const std::size_t size : bench::sizesFromArguments(
             argc, argv, {1000, 10000, 100000}, "PipelineBench", "PipelineBench: the processing pipeline")) {
        run(size);
    }
    return 0;
}
