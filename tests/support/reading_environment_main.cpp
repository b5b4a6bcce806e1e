// Prints the OpenMP thread limit it runs with and its arguments, after asking for single-threaded
// recognition: what a program that recognises text does first.
#include "Platform/ReadingEnvironment.h"

#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv) {
    keepery::ReadingEnvironment::ensureSingleThreaded(argv);
    const char* limit = std::getenv("OMP_THREAD_LIMIT");
    std::printf("%s", limit != nullptr ? limit : "unset");
    for (int i = 1; i < argc; ++i) {
        std::printf(" %s", argv[i]);
    }
    std::printf("\n");
    return 0;
}
