#include "Capture/BothSidesGesture.h"

namespace keepery {

bool BothSidesGesture::flagsChanged(std::uint64_t flags) {
    const std::uint64_t leftDown = left & flags;
    const std::uint64_t rightDown = right & flags;
    if (leftDown == 0) {
        holding = rightDown != 0;
        if (rightDown == 0) {
            spoiled = false;
            fired = false;
            return false;
        }
    } else {
        holding = true;
    }
    // Releasing the other key later does not clear this: the hold stays spoiled until both sides are up.
    if ((others & flags) != 0) {
        spoiled = true;
    }
    if (leftDown == 0 || rightDown == 0 || spoiled || fired) {
        return false;
    }
    fired = true;
    return true;
}

void BothSidesGesture::keyDown() {
    if (holding) {
        spoiled = true;
    }
}

} // namespace keepery
