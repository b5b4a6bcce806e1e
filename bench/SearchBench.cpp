// Search at scale: builds libraries of 10,000 and 100,000 sample captures (two 768-d vectors each), then
// times Library::search with the model service answering at once (the fake one, in process): the first
// search of a fresh Library (cold), warm searches (median and 95th percentile), related captures, the
// memory the process holds, and the same searches done the straightforward way (everything read from the
// database on every query). Every answer is checked to be identical to the straightforward one.
//
//   make bench                                    (all benchmarks)
//   build/release/bench/SearchBench [captures…]   (this one; default 10000 100000)
#include "BenchHarness.h"
#include "Library/Library.h"
#include "Understanding/EmbeddingText.h"
#include "support/FakeModelService.h"
#include "support/ReferenceSearch.h"
#include "support/SampleLibrary.h"
#include "support/TemporaryDirectory.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

using namespace keepery;

namespace {

using bench::Samples;

// A field of /proc/self/status in MB ("VmRSS", "VmHWM").
double statusMB(const std::string& field) {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.starts_with(field + ":")) {
            return std::strtod(line.c_str() + field.size() + 1, nullptr) / 1024.0;
        }
    }
    return 0;
}

void run(std::size_t captures) {
    keepery::testing::TemporaryDirectory directory;
    keepery::testing::SampleLibraryOptions options;
    options.captures = captures;
    options.seed = 42;
    const keepery::testing::SampleLibrary sample(options);
    LibraryStore store(directory / "Library");
    const double buildMs = bench::milliseconds([&] { sample.write(store); });
    std::printf("\n%zu captures, %zu collections, two %zu-d vectors each (built in %.0f s)\n", captures,
                sample.collections().size(), options.dimensions, buildMs / 1000);

    keepery::testing::FakeModelService service;
    std::vector<std::string> queries;
    for (std::size_t t = 0; t < 6; ++t) {
        const std::size_t topic = (t * 5) % sample.topicCount();
        queries.push_back(sample.topicQuery(topic));
        const auto v = sample.topicVector(topic, t % 2 == 0 ? VectorSpace::look : VectorSpace::meaning);
        service.setEmbedding(EmbeddingText::query(queries.back()), std::vector<double>(v.begin(), v.end()));
    }
    const auto makeLibrary = [&] {
        return std::make_unique<Library>(
            Library::Services{.store = store, .client = OllamaClient(service.host())},
            Library::Options{.visionModel = "unused", .embeddingModel = options.embeddingModel});
    };
    keepery::testing::ReferenceSearch reference(store, OllamaClient(service.host()), options.embeddingModel);

    const double rssBefore = statusMB("VmRSS");
    Samples cold;
    for (int i = 0; i < 3; ++i) {
        auto fresh = makeLibrary();
        cold.add(bench::milliseconds([&] { (void)fresh->search(queries[static_cast<std::size_t>(i)]); }));
    }
    auto library = makeLibrary();
    (void)library->search(queries[0]);

    bool identical = true;
    std::size_t hits = 0;
    for (const std::string& query : queries) {
        const SearchFindings ours = library->findings(query);
        hits += ours.hits.size();
        if (!(ours == reference.findings(query))) {
            std::printf("  MISMATCH for \"%s\": the Library and the straightforward search disagree\n",
                        query.c_str());
            identical = false;
        }
    }
    if (!identical) {
        std::exit(1);
    }

    Samples warm;
    for (int i = 0; i < 60; ++i) {
        warm.add(bench::milliseconds(
            [&] { (void)library->search(queries[static_cast<std::size_t>(i) % queries.size()]); }));
    }
    const double rssAfter = statusMB("VmRSS");
    Samples related;
    for (int i = 0; i < 30; ++i) {
        const std::string id = sample.captureID((static_cast<std::size_t>(i) * 7919) % captures);
        related.add(bench::milliseconds([&] { (void)library->related(id, 10); }));
    }
    Samples straightforward;
    const int referenceRuns = captures > 20000 ? 10 : 30;
    for (int i = 0; i < referenceRuns; ++i) {
        straightforward.add(bench::milliseconds(
            [&] { (void)reference.findings(queries[static_cast<std::size_t>(i) % queries.size()]); }));
    }

    const double warmMedian = warm.quantile(0.5);
    const double referenceMedian = straightforward.quantile(0.5);
    std::printf("  answers identical to the straightforward search (%zu hits over %zu queries)\n", hits,
                queries.size());
    std::printf("  cold search (fresh Library)    %8.1f ms median of %zu\n", cold.quantile(0.5), cold.size());
    std::printf("  warm search                    %8.2f ms median, %.2f ms p95 (%zu searches)\n", warmMedian,
                warm.quantile(0.95), warm.size());
    std::printf("  related(id, 10), warm          %8.2f ms median\n", related.quantile(0.5));
    std::printf(
        "  straightforward search         %8.1f ms median, %.1f ms p95 (%zu searches): %.0f× slower\n",
        referenceMedian, straightforward.quantile(0.95), straightforward.size(),
        referenceMedian / warmMedian);
    // Where a cold search's time goes: the reads the Library keeps between searches.
    const double lookMs =
        bench::milliseconds([&] { (void)store.vectorRows(options.embeddingModel, VectorSpace::look); });
    const double meaningMs =
        bench::milliseconds([&] { (void)store.vectorRows(options.embeddingModel, VectorSpace::meaning); });
    const double membersMs =
        bench::milliseconds([&] { (void)store.memberships(Library::membershipListing); });
    std::printf("  cold reads: look vectors %.0f ms, meaning vectors %.0f ms, memberships %.0f ms\n", lookMs,
                meaningMs, membersMs);
    std::printf("  memory: %.0f MB resident (%.0f MB more than before the Library), peak %.0f MB\n", rssAfter,
                rssAfter - rssBefore, statusMB("VmHWM"));
}

} // namespace

int main(int argc, char** argv) {
    for (const std::size_t size :
         bench::sizesFromArguments(argc, argv, {10000, 100000}, "SearchBench", "SearchBench")) {
        run(size);
    }
    return 0;
}
