# The README's two commands are `make run` and `make test`; each does its own set-up first.
.PHONY: setup build run test bench format clean

JOBS ?= $(shell nproc)

setup:
	@bash scripts/setup

build: setup
	@cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
	@cmake --build build/release -j $(JOBS) --target keepery-mcp

# Build output goes to standard error: standard output belongs to the protocol.
run:
	@$(MAKE) --no-print-directory build >&2
	@exec build/release/keepery-mcp

test: setup
	@cmake -S . -B build/test -G Ninja -DCMAKE_BUILD_TYPE=Debug -DKEEPERY_SANITIZE=ON >/dev/null
	@cmake --build build/test -j $(JOBS)
	@cd build/test && ctest --output-on-failure -j $(JOBS)

bench: setup
	@cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
	@cmake --build build/release -j $(JOBS)
	@bash bench/run build/release

format:
	@find src tests bench \( -name '*.cpp' -o -name '*.h' \) -not -path '*/node_modules/*' -print0 | xargs -0 clang-format -i

clean:
	@rm -rf build
