// Library store at scale: builds libraries of 10,000 and 100,000 sample captures through the store's own
// writes, then times the reads a front end and a search make. Prints medians.
//
//   make bench                                   (all benchmarks)
//   build/release/bench/StoreBench [captures…]   (this one; default 10000 100000)
#include "BenchHarness.h"
#include "Store/LibraryStore.h"
#include "support/SampleLibrary.h"
#include "support/TemporaryDirectory.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

using namespace keepery;

namespace {

// Median wall time of `body` in milliseconds, after one warm-up run; `results` gets the last run's count.
double medianMilliseconds(int runs, const std::function<std::size_t()>& body,
                          std::size_t* results = nullptr) {
    std::size_t found = 0;
    const double median = bench::repeat(
                              runs, [&] { found = body(); }, 1)
                              .median();
    if (results != nullptr) {
        *results = found;
    }
    return median;
}

void run(std::size_t captures) {
    keepery::testing::TemporaryDirectory directory;
    keepery::testing::SampleLibraryOptions options;
    options.captures = captures;
    options.seed = 42;
    const keepery::testing::SampleLibrary sample(options);
    LibraryStore store(directory / "Library");
    sample.writeCollections(store);

    std::printf("\n%zu captures, %zu collections, two %zu-d vectors each\n", captures,
                sample.collections().size(), options.dimensions);
    // Writes, timed per call and reported as the median rate over batches of 1000 captures.
    constexpr std::size_t batch = 1000;
    bench::Samples insertRates;
    bench::Samples processedRates;
    double generating = 0;
    const bench::Stopwatch building;
    for (std::size_t first = 0; first < captures; first += batch) {
        double inserting = 0;
        double processing = 0;
        const std::size_t end = std::min(captures, first + batch);
        for (std::size_t i = first; i < end; ++i) {
            bench::Stopwatch step;
            const keepery::testing::SampleCapture c = sample.capture(i);
            generating += step.seconds();
            step.restart();
            store.insert(c.kept);
            inserting += step.seconds();
            store.setRead(c.kept.id, c.ocrText, c.transcript);
            store.setDescribed(c.kept.id, c.description);
            store.setEmbedding(c.kept.id, options.embeddingModel,
                               {{VectorSpace::look, c.look}, {VectorSpace::meaning, c.meaning}});
            store.setCollection(c.kept.id, c.collectionID);
            if (c.favorite) {
                store.setFavorite(c.kept.id, true);
            }
            if (c.note) {
                store.setNote(c.kept.id, c.note);
            }
            processing += step.seconds();
        }
        insertRates.add(static_cast<double>(end - first) / inserting);
        processedRates.add(static_cast<double>(end - first) / processing);
    }
    const double buildSeconds = building.seconds();
    const auto bytes = std::filesystem::file_size(directory / "Library" / "library.sqlite") +
                       std::filesystem::file_size(directory / "Library" / "library.sqlite-wal");
    std::printf("  built in %.1f s (%.1f s generating samples), database %.0f MB\n", buildSeconds, generating,
                static_cast<double>(bytes) / 1e6);
    std::printf("  insert                         %10.0f captures/s (median of %zu batches)\n",
                insertRates.median(), insertRates.size());
    std::printf("  insert + read, described,      %10.0f captures/s\n", processedRates.median());
    std::printf("    embedded, organized\n");

    const std::vector<std::string> queries{sample.topicQuery(0),
                                           sample.topicQuery(7),
                                           "invoice",
                                           "react hooks state",
                                           "what was that sourdough recipe",
                                           "online",
                                           "bikepacking gravel climb"};
    for (const std::string& query : queries) {
        std::size_t hits = 0;
        const double ms = medianMilliseconds(
            30, [&] { return store.textSearch(query, 100).size(); }, &hits);
        const std::size_t matching = store.textSearch(query, 1'000'000'000).size();
        std::printf("  textSearch %-32s %7.2f ms (%zu of %zu matches, limit 100)\n",
                    ("\"" + query + "\"").c_str(), ms, hits, matching);
    }
    std::size_t listed = 0;
    double ms = medianMilliseconds(
        50, [&] { return store.captures(LibraryFilter::recent(), 50).size(); }, &listed);
    std::printf("  captures(.recent, limit: 50)   %7.2f ms (%zu captures)\n", ms, listed);
    std::printf("  captures(.collection, 50)      %7.2f ms\n", medianMilliseconds(50, [&] {
                    return store.captures(LibraryFilter::collection(sample.collections()[0].id), 50).size();
                }));
    ms = medianMilliseconds(
        50, [&] { return store.collections().size(); }, &listed);
    std::printf("  collections()                  %7.2f ms (%zu collections)\n", ms, listed);
    std::vector<std::string> ids;
    for (const auto& match : store.textSearch(sample.topicQuery(3), 100)) {
        ids.push_back(match.id);
    }
    std::printf("  captures(ids:) of %3zu ids       %7.2f ms\n", ids.size(),
                medianMilliseconds(30, [&] { return store.captures(ids).size(); }));
    std::printf("  count()                        %7.2f ms\n",
                medianMilliseconds(30, [&] { return static_cast<std::size_t>(store.count()); }));
    ms = medianMilliseconds(
        5, [&] { return store.vectorRows(options.embeddingModel, VectorSpace::look).size(); }, &listed);
    std::printf("  vectorRows(model, look)        %7.2f ms (%zu vectors)\n", ms, listed);

    // A store opened on an existing library reads where the full-text rows lie at its first such write.
    LibraryStore reopened(directory / "Library");
    const std::string id = sample.captureID(captures / 2);
    const double first = bench::milliseconds([&] { reopened.setNote(id, "first write after opening"); });
    std::printf("  setNote after opening: first   %7.2f ms, then %.2f ms\n", first,
                bench::milliseconds([&] { reopened.setNote(id, "second write"); }));
}

} // namespace

int main(int argc, char** argv) {
    for (const std::size_t size :
         bench::sizesFromArguments(argc, argv, {10000, 100000}, "StoreBench", "StoreBench: medians")) {
        run(size);
    }
    return 0;
}
