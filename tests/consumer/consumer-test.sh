#!/bin/sh
# consumer-test.sh BUILD_DIR SOURCE_DIR CXX [FLAGS]: installs the built project into a temporary prefix, then
# builds the consumer program against it twice, through find_package (setting no language
# standard: the package asks for its own) and through pkg-config, and a third time against the
# build tree itself through its own pkg-config files; runs each. FLAGS are what the libraries
# were built with that their users must share (a sanitizer's runtime, in the sanitizer builds).
set -eu
build=$1
here=$2
cxx=$3
flags=${4:-}
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
expected="vestra $(sed -n 's/^project(vestra_basicutil VERSION \([0-9.]*\).*/\1/p' "$here/../../CMakeLists.txt"): 2023-11-14T22:13:20+00:00 |  3.14| width 2"

cmake --install "$build" --prefix "$out/prefix" >/dev/null
cmake -S "$here" -B "$out/cmake" -G Ninja -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_CXX_FLAGS="$flags" \
    -DCMAKE_PREFIX_PATH="$out/prefix" >/dev/null
cmake --build "$out/cmake" >/dev/null
got=$("$out/cmake/consumer")
[ "$got" = "$expected" ] || { echo "find_package build printed: $got"; echo "expected: $expected"; exit 1; }

# The tree moves: pkg-config paths are relative to the .pc files.
mv "$out/prefix" "$out/moved"
pc=$(find "$out/moved" -name vestra-basicutil.pc)
pcflags=$(PKG_CONFIG_PATH=$(dirname "$pc") pkg-config --cflags --libs vestra-basicutil)
# shellcheck disable=SC2086
"$cxx" $flags -o "$out/pc-consumer" "$here/main.cpp" $pcflags
got=$("$out/pc-consumer")
[ "$got" = "$expected" ] || { echo "pkg-config build printed: $got"; echo "expected: $expected"; exit 1; }
# The build tree's pkg-config files work where they are.
pcflags=$(PKG_CONFIG_PATH="$build/pkgconfig" pkg-config --cflags --libs vestra-basicutil)
# shellcheck disable=SC2086
"$cxx" $flags -o "$out/tree-consumer" "$here/main.cpp" $pcflags
got=$("$out/tree-consumer")
[ "$got" = "$expected" ] || { echo "build-tree pkg-config build printed: $got"; echo "expected: $expected"; exit 1; }
echo "$got"
