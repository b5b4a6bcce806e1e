#pragma once

#include <cstdio>
#include <cstdlib>

namespace keepery::fuzzing {

// Stops the run when a rule the code under test promises is broken, so that libFuzzer keeps the input.
inline void require(bool holds, const char* rule) {
    if (!holds) {
        std::fprintf(stderr, "broken: %s\n", rule);
        std::abort();
    }
}

} // namespace keepery::fuzzing
