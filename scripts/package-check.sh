#!/bin/sh
# package-check.sh BUILD_DIR: installs the Debian package made there, then builds and runs the
# consumer program against /usr, through find_package and through pkg-config. Needs root.
set -eu
build=$1
deb=$(ls "$build"/vestra-dev_*.deb | head -1)
dpkg -i "$deb"
dpkg -s vestra-dev | grep -q '^Status: install ok installed'
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
cmake -S tests/consumer -B "$out/cmake" -G Ninja >/dev/null
cmake --build "$out/cmake" >/dev/null
"$out/cmake/consumer"
# shellcheck disable=SC2046
c++ -o "$out/pc-consumer" tests/consumer/main.cpp $(pkg-config --cflags --libs vestra-basicutil)
"$out/pc-consumer"
vestra --version
echo "package-check: $deb installs, and programs build against it"
