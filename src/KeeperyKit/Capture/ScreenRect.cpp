#include "Capture/ScreenRect.h"

#include <algorithm>

namespace keepery {

double ScreenRect::overlapArea(const ScreenRect& other) const {
    const double overlapWidth = std::min(x + width, other.x + other.width) - std::max(x, other.x);
    const double overlapHeight = std::min(y + height, other.y + other.height) - std::max(y, other.y);
    // Written so that NaN, like an empty intersection, gives 0.
    if (!(overlapWidth > 0) || !(overlapHeight > 0)) {
        return 0;
    }
    return overlapWidth * overlapHeight;
}

} // namespace keepery
