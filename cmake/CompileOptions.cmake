# The one place for compiler flags. Every target of the project calls keepery_compile_options().
option(KEEPERY_SANITIZE "Build with AddressSanitizer and UndefinedBehaviorSanitizer" OFF)
option(KEEPERY_TSAN "Build with ThreadSanitizer (its own build tree: it cannot be combined with KEEPERY_SANITIZE)" OFF)
option(KEEPERY_FUZZ "Build the libFuzzer targets (clang): every target instrumented for coverage and sanitized"
       OFF)

if(KEEPERY_TSAN AND (KEEPERY_SANITIZE OR KEEPERY_FUZZ))
    message(FATAL_ERROR "KEEPERY_TSAN cannot be combined with AddressSanitizer (KEEPERY_SANITIZE, KEEPERY_FUZZ)")
endif()

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

if(NOT CMAKE_BUILD_TYPE)
    set(CMAKE_BUILD_TYPE Release)
endif()

function(keepery_compile_options target)
    # Float sums must round the same way everywhere: no fused multiply-add, no reassociation.
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wshadow -Werror -ffp-contract=off)
    # GCC 12 at -O3 reports a false overlap, a false overflow and a false out-of-bounds copy inside
    # libstdc++'s string copying and concatenation ("x" + s), GCC bugs 105651 and 106199, fixed in GCC 13.
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
        target_compile_options(${target} PRIVATE -Wno-restrict -Wno-stringop-overflow
                                                 $<$<CONFIG:Release>:-Wno-array-bounds>)
    endif()
    if(KEEPERY_FUZZ)
        target_compile_options(${target} PRIVATE -fsanitize=fuzzer-no-link,address,undefined
                                                 -fno-sanitize-recover=all -fno-omit-frame-pointer -O1 -g)
        target_link_options(${target} PRIVATE -fsanitize=address,undefined)
    elseif(KEEPERY_TSAN)
        target_compile_options(${target} PRIVATE -fsanitize=thread -fno-omit-frame-pointer -O1 -g)
        target_link_options(${target} PRIVATE -fsanitize=thread)
    elseif(KEEPERY_SANITIZE)
        # The engine, which every test runs, is optimised; the tests' own code and the programs' thin
        # wiring are not, which halves the time it takes to compile them.
        if(target MATCHES "^Keepery(Kit|MCP)$")
            set(level -O1)
        else()
            set(level -O0)
        endif()
        target_compile_options(${target} PRIVATE -fsanitize=address,undefined -fno-sanitize-recover=all
                                                 -fno-omit-frame-pointer ${level} -g)
        target_link_options(${target} PRIVATE -fsanitize=address,undefined)
    endif()
endfunction()
