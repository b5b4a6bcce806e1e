#include "Platform/SystemInfo.h"

#include <unistd.h>

#ifndef KEEPERY_VERSION
#define KEEPERY_VERSION "0.1.0"
#endif

namespace keepery::SystemInfo {

std::uint64_t physicalMemory() {
    const long pages = sysconf(_SC_PHYS_PAGES);
    const long pageSize = sysconf(_SC_PAGE_SIZE);
    if (pages <= 0 || pageSize <= 0) {
        return 0;
    }
    return static_cast<std::uint64_t>(pages) * static_cast<std::uint64_t>(pageSize);
}

std::string version() {
    return KEEPERY_VERSION;
}

} // namespace keepery::SystemInfo
