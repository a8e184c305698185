# Everything starts here: `make run` and `make test` work on a fresh machine. Written for both
# GNU make and BSD make (FreeBSD's make): plain rules and variables only, no order-only
# prerequisites, conditionals or pattern rules. The work runs in Ninja, so make itself runs
# one target at a time.
.PHONY: all deps build run test bench bench-build asan tsan libcxx platform-check fuzz stress format-check docs unicode-tables windows-zones package package-check clean
.NOTPARALLEL:

JOBS ?= 2
FUZZ_SECONDS ?= 30

all: build

deps:
	@sh scripts/install-deps.sh

# Configured again when the presets or the top-level list change (CMake notices the rest itself).
build/release/build.ninja: CMakeLists.txt CMakePresets.json
	@sh scripts/install-deps.sh
	cmake --preset release

build: deps build/release/build.ninja
	cmake --build --preset release -j $(JOBS)

# Starts the helper the way its parent does: with a pipe on its standard input.
run: build
	@build/release/bin/vestra-helper --test && echo "  (vestra-helper --test)"
	@echo "vestra-helper is waiting on a pipe: type a line or press Ctrl-D, and it lingers"
	@echo "2350.112768 s before exiting 0. Ctrl-C stops it sooner."
	@cat | build/release/bin/vestra-helper

test: build
	ctest --preset release -j $(JOBS)

# Every benchmark beside its peers (installed here only), then one table and one chart of the
# ratios in build/bench/report (results.md, ratios.svg); BENCH_REPETITIONS interleaved runs each.
BENCH_REPETITIONS ?= 5
bench: bench-build
	python3 scripts/bench-report.py build/bench/bin build/bench/report --repetitions $(BENCH_REPETITIONS)

# The benchmarks built, not run (CI: they keep compiling against the library as it changes).
bench-build:
	@sh scripts/install-deps.sh bench
	cmake --preset bench
	cmake --build --preset bench -j $(JOBS)

# AddressSanitizer + UndefinedBehaviorSanitizer, clang++.
asan: deps
	cmake --preset asan
	cmake --build --preset asan -j $(JOBS)
	ctest --preset asan -j $(JOBS)

# ThreadSanitizer over the concurrent code's tests (death tests left out: they fork).
tsan: deps
	cmake --preset tsan
	cmake --build --preset tsan -j $(JOBS)
	ctest --preset tsan -j $(JOBS)

# FreeBSD's toolchain on Linux: clang 16 with libc++ 16 (FreeBSD 14.0's base compiler and library),
# GoogleTest built from its sources with it, every test that does not need a packaged C++ library.
libcxx: deps
	cmake --preset libcxx
	cmake --build --preset libcxx -j $(JOBS)
	ctest --preset libcxx -j $(JOBS)

# No file outside the platform unit uses a call, header or field that differs between FreeBSD and
# Linux (scripts/check-platform.py lists them).
platform-check: deps
	python3 scripts/check-platform.py

# The log appenders' stress run at full size: three threads of a million lines each, rotating
# and moved away from outside; every line must land once and whole.
stress: build
	VESTRA_STRESS_LINES=1000000 build/release/bin/LoggerConfigTest --gtest_filter='*Stress*'

# Each libFuzzer target for a short, bounded while (FUZZ_SECONDS each).
fuzz: deps
	cmake --preset fuzz
	cmake --build --preset fuzz -j $(JOBS)
	sh scripts/run-fuzzers.sh build/fuzz/bin $(FUZZ_SECONDS)

# The Debian development package, in build/package: a Release build (no debug information;
# assertions stay on in every build type).
package: deps
	cmake --preset package
	cmake --build --preset package -j $(JOBS)
	cd build/package && cpack -G DEB

# Installs that package with dpkg and builds a program against it (find_package and pkg-config):
# run it in a fresh root with ../shared/tools/fresh-machine-test package-check.
package-check: package
	sh scripts/package-check.sh build/package

# Every tracked source as clang-format would write it (.clang-format); nothing is changed. The
# layout is clang-format 14's (Debian's, which CI runs); a newer one may lay out some lines otherwise.
format-check: deps
	cf=$$(command -v clang-format-14 || command -v clang-format14 || command -v clang-format) && \
	git ls-files -z '*.cpp' '*.h' | xargs -0 $$cf --dry-run -Werror
	@echo "format-check: every tracked source is formatted"

# The API reference from the public headers, in build/docs/html; any Doxygen warning (an
# undocumented public declaration included) fails it.
docs: deps
	sh scripts/make-docs.sh build/docs

# Regenerates the Unicode tables from the character database and fails if they differ from
# what is committed (the changed files stay in the tree for a look).
UCD ?= tools/data/ucd/8.0.0
unicode-tables: deps
	python3 tools/gen-unicode-tables.py $(UCD)
	git diff --exit-code --stat -- src/basicutil/text/UnicodeCodepointTables.cpp src/libzero/codepoint-width-tables.cpp
	@echo "unicode tables: identical to the committed ones"

# Regenerates the Windows zone-name table from the CLDR data beside the project and fails if it
# differs from what is committed.
CLDR_WINDOWS_ZONES ?= tools/data/cldr/windowsZones.xml
windows-zones: deps
	python3 tools/gen-windows-zones.py $(CLDR_WINDOWS_ZONES)
	git diff --exit-code --stat -- src/basicutil/time/TimeZoneWindowsTables.cpp
	@echo "windows zones: identical to the committed table"

clean:
	rm -rf build
