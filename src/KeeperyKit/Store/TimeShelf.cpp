#include "Store/TimeShelf.h"

namespace keepery {

Instant TimeShelf::start(Instant now, const Calendar& calendar) const {
    std::optional<double> start;
    switch (value) {
    case today:
        break;
    case thisWeek:
        start = calendar.startOfWeek(now);
        break;
    case thisMonth:
        start = calendar.startOfMonth(now);
        break;
    }
    if (!start) {
        start = calendar.startOfDay(now);
    }
    return start.value_or(now);
}

} // namespace keepery
