// The ranking arithmetic of one search over a library of N captures with 768-dimensional vectors held in
// one contiguous array: scoring every vector, keeping the standouts, fusing three evidence lists and
// completing the covered collections.
//
// Reproduce: make bench, or build/release/bench/SearchMergeBench --benchmark_filter=<name>

#include "Library/SearchMerge.h"
#include "Understanding/VectorMath.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <random>
#include <string>
#include <vector>

using namespace keepery;

namespace {

constexpr std::size_t dimension = 768;

// A capture id of the usual length (36 characters, beyond the short-string buffer).
std::string captureID(std::size_t i) {
    char text[40];
    std::snprintf(text, sizeof text, "00000000-0000-4000-8000-%012zu", i);
    return text;
}

struct Library {
    std::vector<std::string> ids;
    std::vector<float> rows;
    std::vector<SearchMerge::Candidate> candidates;
    std::vector<float> query;

    explicit Library(std::size_t count) : ids(count), rows(count * dimension) {
        std::mt19937 random(1);
        std::normal_distribution<float> component;
        for (std::size_t i = 0; i < count; ++i) {
            ids[i] = captureID(i);
            std::vector<float> v(dimension);
            for (auto& x : v) {
                x = component(random);
            }
            const auto u = VectorMath::unit(v);
            std::copy(u.begin(), u.end(), rows.begin() + static_cast<std::ptrdiff_t>(i * dimension));
        }
        const std::span<const float> all(rows);
        for (std::size_t i = 0; i < count; ++i) {
            candidates.push_back({ids[i], all.subspan(i * dimension, dimension)});
        }
        query.assign(rows.begin(), rows.begin() + dimension);
    }
};

void scoresAndStandouts(benchmark::State& state) {
    const Library library(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        auto kept = SearchMerge::standouts(SearchMerge::scores(library.query, library.candidates));
        benchmark::DoNotOptimize(kept.data());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(scoresAndStandouts)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond)->UseRealTime();

void fuseAndComplete(benchmark::State& state) {
    // Three evidence lists of 100 ids each, 2000 collections of 50 members covering 100000 captures.
    std::vector<std::vector<std::string>> lists(3);
    for (std::size_t l = 0; l < lists.size(); ++l) {
        for (std::size_t p = 0; p < 100; ++p) {
            lists[l].push_back(captureID(l * 37 + p * 3));
        }
    }
    SearchMerge::CollectionMembers members;
    for (std::size_t c = 0; c < 2000; ++c) {
        auto& list = members[captureID(c)];
        for (std::size_t m = 0; m < 50; ++m) {
            list.push_back(captureID(c * 50 + m));
        }
    }
    for (auto _ : state) {
        const auto ranked = SearchMerge::merge(lists, 60);
        auto completed = SearchMerge::completingCollections(ranked, members);
        benchmark::DoNotOptimize(completed.data());
    }
}
BENCHMARK(fuseAndComplete)->Unit(benchmark::kMicrosecond)->UseRealTime();

} // namespace

BENCHMARK_MAIN();
