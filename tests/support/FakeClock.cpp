#include "support/FakeClock.h"

namespace keepery::testing {

FakeClock::FakeClock(double secondsSince1970)
    : ticks_(std::chrono::duration_cast<std::chrono::system_clock::duration>(
                 std::chrono::duration<double>(secondsSince1970))
                 .count()) {}

Clock::TimePoint FakeClock::now() const {
    return TimePoint(std::chrono::system_clock::duration(ticks_.load()));
}

void FakeClock::advance(std::chrono::system_clock::duration by) {
    ticks_ += by.count();
}

} // namespace keepery::testing
