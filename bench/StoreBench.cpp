// Library store at scale: builds libraries of 10,000 and 100,000 sample captures through the store's own
// writes, then times the reads a front end and a search make. Prints medians.
//
//   make bench                                   (all benchmarks)
//   build/release/bench/StoreBench [captures…]   (this one; default 10000 100000)
#include "Store/LibraryStore.h"
#include "support/SampleLibrary.h"
#include "support/TemporaryDirectory.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

using namespace keepery;
using SteadyClock = std::chrono::steady_clock;

namespace {

double seconds(SteadyClock::duration d) {
    return std::chrono::duration<double>(d).count();
}

double median(std::vector<double> values) {
    if (values.empty()) {
        return 0;
    }
    std::sort(values.begin(), values.end());
    const std::size_t mid = values.size() / 2;
    return values.size() % 2 == 1 ? values[mid] : (values[mid - 1] + values[mid]) / 2;
}

// Median wall time of `body` in milliseconds, after one warm-up run.
double medianMilliseconds(int runs, const std::function<std::size_t()>& body,
                          std::size_t* results = nullptr) {
    std::size_t found = body();
    std::vector<double> times;
    for (int i = 0; i < runs; ++i) {
        const auto start = SteadyClock::now();
        found = body();
        times.push_back(seconds(SteadyClock::now() - start) * 1000.0);
    }
    if (results != nullptr) {
        *results = found;
    }
    return median(times);
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
    std::vector<double> insertRates;
    std::vector<double> processedRates;
    SteadyClock::duration generating{};
    const auto buildStart = SteadyClock::now();
    for (std::size_t first = 0; first < captures; first += batch) {
        SteadyClock::duration inserting{};
        SteadyClock::duration processing{};
        const std::size_t end = std::min(captures, first + batch);
        for (std::size_t i = first; i < end; ++i) {
            auto t0 = SteadyClock::now();
            const keepery::testing::SampleCapture c = sample.capture(i);
            auto t1 = SteadyClock::now();
            store.insert(c.kept);
            auto t2 = SteadyClock::now();
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
            auto t3 = SteadyClock::now();
            generating += t1 - t0;
            inserting += t2 - t1;
            processing += t3 - t1;
        }
        insertRates.push_back(static_cast<double>(end - first) / seconds(inserting));
        processedRates.push_back(static_cast<double>(end - first) / seconds(processing));
    }
    const double buildSeconds = seconds(SteadyClock::now() - buildStart);
    const auto bytes = std::filesystem::file_size(directory / "Library" / "library.sqlite") +
                       std::filesystem::file_size(directory / "Library" / "library.sqlite-wal");
    std::printf("  built in %.1f s (%.1f s generating samples), database %.0f MB\n", buildSeconds,
                seconds(generating), static_cast<double>(bytes) / 1e6);
    std::printf("  insert                         %10.0f captures/s (median of %zu batches)\n",
                median(insertRates), insertRates.size());
    std::printf("  insert + read, described,      %10.0f captures/s\n", median(processedRates));
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
    auto start = SteadyClock::now();
    reopened.setNote(id, "first write after opening");
    const double first = seconds(SteadyClock::now() - start) * 1000.0;
    start = SteadyClock::now();
    reopened.setNote(id, "second write");
    std::printf("  setNote after opening: first   %7.2f ms, then %.2f ms\n", first,
                seconds(SteadyClock::now() - start) * 1000.0);
}

} // namespace

int main(int argc, char** argv) {
    std::vector<std::size_t> sizes;
    for (int i = 1; i < argc; ++i) {
        sizes.push_back(static_cast<std::size_t>(std::strtoull(argv[i], nullptr, 10)));
    }
    if (sizes.empty()) {
        sizes = {10000, 100000};
    }
    std::printf("StoreBench: medians; rerun with build/release/bench/StoreBench");
    for (std::size_t size : sizes) {
        std::printf(" %zu", size);
    }
    std::printf("\n");
    for (std::size_t size : sizes) {
        run(size);
    }
    return 0;
}
