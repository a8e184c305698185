#!/bin/sh
# dieharder.sh [SEED] [TESTS]: feeds the simple random generator's bytes (vestra random bytes) to
# dieharder (Debian package dieharder; installed by install-deps.sh bench) and prints its report.
# TESTS is dieharder's test selection: "-a" (the default) runs every test, which takes hours on a
# small machine; "-d 0" runs one. Too slow for CI: run it by hand and quote its summary.
set -eu
seed=${1:-20261125}
tests=${2:--a}
here=$(cd "$(dirname "$0")/.." && pwd)
vestra=${VESTRA:-$here/build/release/bin/vestra}
command -v dieharder >/dev/null || { echo "dieharder.sh: dieharder is not installed (scripts/install-deps.sh bench)" >&2; exit 2; }
[ -x "$vestra" ] || { echo "dieharder.sh: $vestra not built (make build)" >&2; exit 2; }
# dieharder reads raw 32-bit words from standard input (generator 200, stdin_input_raw) for as
# long as its tests want; the bytes run far beyond what any selection reads.
# shellcheck disable=SC2086
"$vestra" random --seed "$seed" bytes 18446744073709551615 | dieharder -g 200 $tests
