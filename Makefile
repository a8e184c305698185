# Everything starts here: `make run` and `make test` work on a fresh machine.
.PHONY: all deps build run test asan fuzz clean

JOBS ?= 2
FUZZ_SECONDS ?= 30

all: build

deps:
	@sh scripts/install-deps.sh

build/release/build.ninja: CMakeLists.txt CMakePresets.json | deps
	cmake --preset release

build: deps build/release/build.ninja
	cmake --build --preset release -j $(JOBS)

run: build
	@if [ -x build/release/bin/vestra-helper ]; then \
		echo "vestra-helper is waiting for a line or end of file on standard input"; \
		exec build/release/bin/vestra-helper; \
	else \
		echo "built the library; the helper (build/release/bin/vestra-helper) does not exist yet"; \
	fi

test: build
	ctest --preset release -j $(JOBS)

# AddressSanitizer + UndefinedBehaviorSanitizer, clang++.
asan: deps
	cmake --preset asan
	cmake --build --preset asan -j $(JOBS)
	ctest --preset asan -j $(JOBS)

# Each libFuzzer target for a short, bounded while (FUZZ_SECONDS each).
fuzz: deps
	cmake --preset fuzz
	cmake --build --preset fuzz -j $(JOBS)
	sh scripts/run-fuzzers.sh build/fuzz/bin $(FUZZ_SECONDS)

clean:
	rm -rf build
