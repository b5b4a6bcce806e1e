#include "Presentation/SkyPhase.h"

namespace keepery {

SkyPhase SkyPhase::at(int hour, int minute) {
    // In hours as a real number, so that a minute past an hour boundary lands on the right side of it.
    const double t = static_cast<double>(hour) + static_cast<double>(minute) / 60.0;
    if (t >= 5 && t < 7) {
        return dawn;
    }
    if (t >= 7 && t < 10) {
        return morning;
    }
    if (t >= 10 && t < 17) {
        return day;
    }
    if (t >= 17 && t < 19) {
        return golden;
    }
    if (t >= 19 && t < 21) {
        return dusk;
    }
    return night;
}

} // namespace keepery
