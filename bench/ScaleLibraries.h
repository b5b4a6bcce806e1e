#pragma once

// The generated libraries that the scale benchmarks share: N captures with realistic texts and tags, one
// collection per 50 captures, two 768-d vectors each. Each size is generated once and kept under the build
// directory (scale-libraries/N); delete that directory to make them again.

#include "BenchHarness.h"
#include "Store/LibraryStore.h"
#include "Understanding/Models.h"
#include "support/SampleLibrary.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

namespace keepery::bench {

inline keepery::testing::SampleLibraryOptions scaleLibraryOptions(std::size_t captures) {
    keepery::testing::SampleLibraryOptions options;
    options.captures = captures;
    options.collections = std::max<std::size_t>(1, captures / 50);
    options.seed = 2026;
    options.embeddingModel = std::string(Models::embedding);
    return options;
}

// The data directory whose Keepery/ holds the library of `sample`, generated on first use. Programs that
// write to it work on a copy (copiedLibrary).
inline std::filesystem::path cachedLibrary(const keepery::testing::SampleLibrary& sample) {
    namespace fs = std::filesystem;
    const fs::path data = fs::path(KEEPERY_SCALE_CACHE) / std::to_string(sample.size());
    const fs::path done = data / "complete";
    if (fs::exists(done)) {
        std::printf("library: %s (cached)\n", data.c_str());
        return data;
    }
    fs::remove_all(data);
    const Stopwatch watch;
    {
        LibraryStore store(data / "Keepery");
        sample.writeCollections(store);
        constexpr std::size_t step = 10000;
        for (std::size_t first = 0; first < sample.size(); first += step) {
            sample.writeCaptures(store, first, step);
            std::fprintf(stderr, "\r  generating: %zu of %zu", std::min(sample.size(), first + step),
                         sample.size());
        }
        std::fprintf(stderr, "\n");
    }
    std::ofstream(done) << "complete\n";
    std::printf("library: %s (generated in %.0f s)\n", data.c_str(), watch.seconds());
    return data;
}

// A copy of the cached library of `sample` at `to`, for a program that writes to it.
inline void copiedLibrary(const keepery::testing::SampleLibrary& sample, const std::filesystem::path& to) {
    std::filesystem::copy(cachedLibrary(sample) / "Keepery", to, std::filesystem::copy_options::recursive);
}

} // namespace keepery::bench
