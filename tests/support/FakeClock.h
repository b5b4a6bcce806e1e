#pragma once

#include "Platform/Clock.h"

#include <atomic>

namespace keepery::testing {

// A clock that stands still until a test moves it. Any thread may read it while the test moves it.
class FakeClock final : public Clock {
public:
    // 2023-11-14 22:13:20 UTC unless told otherwise.
    explicit FakeClock(double secondsSince1970 = 1'700'000'000)
        : ticks_(std::chrono::duration_cast<std::chrono::system_clock::duration>(
                     std::chrono::duration<double>(secondsSince1970))
                     .count()) {}

    [[nodiscard]] TimePoint now() const override {
        return TimePoint(std::chrono::system_clock::duration(ticks_));
    }

    void advance(std::chrono::system_clock::duration by) { ticks_ += by.count(); }

private:
    std::atomic<std::chrono::system_clock::rep> ticks_;
};

} // namespace keepery::testing
