#include "Platform/Clock.h"

namespace keepery {
namespace {

class SystemClock final : public Clock {
public:
    TimePoint now() const override { return std::chrono::system_clock::now(); }
};

} // namespace

double Clock::secondsSince1970() const {
    return std::chrono::duration<double>(now().time_since_epoch()).count();
}

const Clock& Clock::system() {
    static const SystemClock clock;
    return clock;
}

} // namespace keepery
