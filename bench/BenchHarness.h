#pragma once

// The timing every benchmark program shares: wall time on the steady clock, samples of one quantity and
// their quantiles. Single-threaded use.

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <vector>

namespace keepery::bench {

// Wall time since construction or the last restart.
class Stopwatch {
public:
    void restart() { start_ = Clock::now(); }
    [[nodiscard]] double seconds() const {
        return std::chrono::duration<double>(Clock::now() - start_).count();
    }
    [[nodiscard]] double milliseconds() const { return seconds() * 1000.0; }

private:
    using Clock = std::chrono::steady_clock;
    Clock::time_point start_ = Clock::now();
};

// The wall time of one run of `body`, in milliseconds.
inline double milliseconds(const std::function<void()>& body) {
    const Stopwatch watch;
    body();
    return watch.milliseconds();
}

// Measurements of one quantity, in the order taken.
class Samples {
public:
    void add(double value) { values_.push_back(value); }
    [[nodiscard]] std::size_t size() const { return values_.size(); }

    // The value at quantile `q` (0 to 1) by nearest rank; 0 when there are no samples.
    [[nodiscard]] double quantile(double q) const {
        if (values_.empty()) {
            return 0;
        }
        std::vector<double> sorted = values_;
        std::sort(sorted.begin(), sorted.end());
        const auto rank = static_cast<std::size_t>(q * static_cast<double>(sorted.size() - 1) + 0.5);
        return sorted[std::min(rank, sorted.size() - 1)];
    }
    [[nodiscard]] double median() const { return quantile(0.5); }
    [[nodiscard]] double minimum() const { return quantile(0); }

private:
    std::vector<double> values_;
};

// The wall times of `runs` runs of `body` in milliseconds, after `warmUps` runs that are not timed.
inline Samples repeat(int runs, const std::function<void()>& body, int warmUps = 0) {
    for (int i = 0; i < warmUps; ++i) {
        body();
    }
    Samples times;
    for (int i = 0; i < runs; ++i) {
        times.add(milliseconds(body));
    }
    return times;
}

// The library sizes named on the command line, else `defaults`; prints the line that reruns `program` with
// them, after `heading` ("StoreBench: medians").
inline std::vector<std::size_t> sizesFromArguments(int argc, char** argv, std::vector<std::size_t> defaults,
                                                   const char* program, const char* heading) {
    std::vector<std::size_t> sizes;
    for (int i = 1; i < argc; ++i) {
        sizes.push_back(static_cast<std::size_t>(std::strtoull(argv[i], nullptr, 10)));
    }
    if (sizes.empty()) {
        sizes = std::move(defaults);
    }
    std::printf("%s; rerun with build/release/bench/%s", heading, program);
    for (const std::size_t size : sizes) {
        std::printf(" %zu", size);
    }
    std::printf("\n");
    return sizes;
}

} // namespace keepery::bench
