#pragma once

#include <chrono>

namespace keepery {

// The wall clock as the engine reads it. A seam: tests hand the engine a clock they move by hand.
// Implementations may be called from any thread at once.
class Clock {
public:
    using TimePoint = std::chrono::system_clock::time_point;

    virtual ~Clock() = default;

    [[nodiscard]] virtual TimePoint now() const = 0;

    // `now()` as seconds since 1970-01-01 00:00:00 UTC, the form the database stores.
    [[nodiscard]] double secondsSince1970() const;

    // The machine's clock; lives as long as the process.
    [[nodiscard]] static const Clock& system();
};

} // namespace keepery
