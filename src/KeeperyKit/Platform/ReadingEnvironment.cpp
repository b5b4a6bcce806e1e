#include "Platform/ReadingEnvironment.h"

#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace keepery::ReadingEnvironment {

namespace {
constexpr const char* variable = "OMP_THREAD_LIMIT";
}

bool isSingleThreaded() {
    const char* value = std::getenv(variable);
    return value != nullptr && std::strcmp(value, "1") == 0;
}

void ensureSingleThreaded(char** argv) noexcept {
    if (isSingleThreaded() || argv == nullptr || argv[0] == nullptr) {
        return;
    }
    if (::setenv(variable, "1", 1) != 0) {
        return;
    }
    ::execv("/proc/self/exe", argv);
    // Still here: the program could not be started again and goes on as it is.
}

} // namespace keepery::ReadingEnvironment
