# The README's two commands are `make run` and `make test`; each does its own set-up first.
.PHONY: setup build run test tsan install bench fuzz fuzz-build format clean

JOBS ?= $(shell nproc)

setup:
	@bash scripts/setup

build: setup
	@cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
	@cmake --build build/release -j $(JOBS) --target keepery-mcp

# Installs keepery, keepery-mcp and the user service keepery-watch.service under PREFIX.
PREFIX ?= /usr/local

install: setup
	@cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
	@cmake --build build/release -j $(JOBS) --target keepery keepery-mcp
	@cmake --install build/release --prefix $(PREFIX)

# Build output goes to standard error: standard output belongs to the protocol.
run:
	@$(MAKE) --no-print-directory build >&2
	@exec build/release/keepery-mcp

test: setup
	@cmake -S . -B build/test -G Ninja -DCMAKE_BUILD_TYPE=Debug -DKEEPERY_SANITIZE=ON >/dev/null
	@cmake --build build/test -j $(JOBS)
	@cd build/test && ctest --output-on-failure -j $(JOBS)
	@$(MAKE) --no-print-directory fuzz-build
	@bash fuzz/run build/fuzz $(FUZZ_CHECK_SECONDS)

# The concurrency tests (see tests/CMakeLists.txt) under ThreadSanitizer, in a tree of their own; not part
# of `make test`, since it is a whole second build.
tsan: setup
	@cmake -S . -B build/tsan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DKEEPERY_TSAN=ON >/dev/null
	@cmake --build build/tsan -j $(JOBS) --target keepery-tests
	@cd build/tsan && ctest --output-on-failure -L concurrency -j $(JOBS)

# The fuzz targets, built with clang and libFuzzer under AddressSanitizer and UndefinedBehaviorSanitizer
# in a tree of their own. `make test` runs them briefly; `make fuzz` runs them long.
FUZZ_CHECK_SECONDS ?= 20
FUZZ_SECONDS ?= 600

fuzz-build: setup
	@cmake -S . -B build/fuzz -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_COMPILER=clang++ \
		-DKEEPERY_FUZZ=ON -DBUILD_TESTING=OFF >/dev/null
	@cmake --build build/fuzz -j $(JOBS) --target fuzz-mcp-line fuzz-model-replies fuzz-media

fuzz: fuzz-build
	@bash fuzz/run build/fuzz $(FUZZ_SECONDS)

bench: setup
	@cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
	@cmake --build build/release -j $(JOBS)
	@bash bench/run build/release

format:
	@find src tests bench \( -name '*.cpp' -o -name '*.h' \) -not -path '*/node_modules/*' -print0 | xargs -0 clang-format -i

clean:
	@rm -rf build
