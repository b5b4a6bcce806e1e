// Scoring one query against every stored 768-float vector, as a search does, measured against the speed of
// simply reading the same array from memory. Reproduce with `make bench`, or
// build/release/bench/VectorMathBench [rows] after `cmake --build build/release --target VectorMathBench`.
#include "BenchHarness.h"
#include "Understanding/VectorMath.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#if defined(__x86_64__)
#include <immintrin.h>
#endif
#include <random>
#include <vector>

using namespace keepery;

namespace {

constexpr std::size_t dimension = 768;
constexpr int repetitions = 11;

// The median wall time of `repetitions` runs of `work`, in seconds.
double medianSeconds(const std::function<void()>& work) {
    return bench::repeat(repetitions, work).median() / 1000.0;
}

// Keeps a result alive so the compiler cannot drop the work that made it.
volatile std::uint64_t sink;

#if defined(__x86_64__)
// Every byte read once with the widest loads, four independent chains: the fastest a scan can be.
__attribute__((target("avx2"))) std::uint64_t readAll(const float* data, std::size_t count) {
    __m256i a = _mm256_setzero_si256(), b = a, c = a, d = a;
    std::size_t i = 0;
    for (; i + 32 <= count; i += 32) {
        a = _mm256_or_si256(a, _mm256_castps_si256(_mm256_loadu_ps(data + i)));
        b = _mm256_or_si256(b, _mm256_castps_si256(_mm256_loadu_ps(data + i + 8)));
        c = _mm256_or_si256(c, _mm256_castps_si256(_mm256_loadu_ps(data + i + 16)));
        d = _mm256_or_si256(d, _mm256_castps_si256(_mm256_loadu_ps(data + i + 24)));
    }
    const __m256i all = _mm256_or_si256(_mm256_or_si256(a, b), _mm256_or_si256(c, d));
    return static_cast<std::uint64_t>(_mm256_extract_epi64(all, 0) | _mm256_extract_epi64(all, 3));
}
#else
std::uint64_t readAll(const float* data, std::size_t count) {
    const auto* words = reinterpret_cast<const std::uint64_t*>(data);
    std::uint64_t a = 0;
    for (std::size_t i = 0; i < count / 2; ++i) {
        a |= words[i];
    }
    return a;
}
#endif

} // namespace

int main(int argc, char** argv) {
    const std::size_t rows = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 100000;
    const double bytes = static_cast<double>(rows * dimension * sizeof(float));

    std::mt19937 random(7);
    std::normal_distribution<float> normal;
    std::vector<float> matrix(rows * dimension);
    for (float& x : matrix) {
        x = normal(random);
    }
    std::vector<float> query(dimension);
    for (float& x : query) {
        x = normal(random);
    }
    std::vector<float> scores(rows);

    // The bound: the faster of a plain wide scan and memcpy reading every byte of the array once.
    const double scanSeconds = medianSeconds([&] { sink = readAll(matrix.data(), matrix.size()); });
    std::vector<float> copy(matrix.size());
    const double copySeconds = medianSeconds([&] {
        std::memcpy(copy.data(), matrix.data(), matrix.size() * sizeof(float));
        sink = static_cast<std::uint64_t>(copy[rows / 2]);
    });
    copy = {};
    const double readSeconds = std::min(scanSeconds, copySeconds);

    const double plainSeconds = medianSeconds([&] {
        for (std::size_t r = 0; r < rows; ++r) {
            scores[r] =
                VectorMath::dot(query, std::span<const float>(matrix.data() + r * dimension, dimension));
        }
        sink = static_cast<std::uint64_t>(scores[rows / 3] * 1000);
    });
    const double batchSeconds = medianSeconds([&] {
        VectorMath::dots(query, matrix, dimension, scores);
        sink = static_cast<std::uint64_t>(scores[rows / 3] * 1000);
    });

    const auto gigabytes = [&](double seconds) { return bytes / seconds / 1e9; };
    std::printf("%zu vectors of %zu floats (%.0f MB), median of %d runs\n", rows, dimension, bytes / 1e6,
                repetitions);
    std::printf("%-28s %10.2f ms %8.2f GB/s\n", "read scan", scanSeconds * 1e3, gigabytes(scanSeconds));
    std::printf("%-28s %10.2f ms %8.2f GB/s (bytes read)\n", "memcpy", copySeconds * 1e3,
                gigabytes(copySeconds));
    std::printf("%-28s %10.2f ms %8.2f GB/s %12.0f vectors/s %5.0f%% of read bound\n",
                "VectorMath::dot per row", plainSeconds * 1e3, gigabytes(plainSeconds), rows / plainSeconds,
                100 * readSeconds / plainSeconds);
    std::printf("%-28s %10.2f ms %8.2f GB/s %12.0f vectors/s %5.0f%% of read bound\n",
                "VectorMath::dots batch", batchSeconds * 1e3, gigabytes(batchSeconds), rows / batchSeconds,
                100 * readSeconds / batchSeconds);
    return 0;
}
