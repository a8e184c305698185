#!/bin/sh
# Installs whatever the build and the tests need and the machine lacks.
# Debian/Ubuntu through apt-get, FreeBSD through pkg. Safe to run again: it only
# installs what is missing, and it never downloads anything outside the package manager.
set -eu

# python3 runs the table generator (and the test that checks its output against the tree);
# clang-format checks the formatting; ICU's converters are the Unicode readers' oracle; tzdata is
# the zone directory the time-zone tests read, and cctz their second oracle; the JSON parser
# checks every JSON log line; hexdump (bsdextrautils) and xxd are the hex dump's oracles; PCRE2
# itself, called directly, is the regular expressions' oracle; CLI11 reads the vestra tool's
# arguments; Doxygen makes the API reference (make docs, and its test); elfutils' libdw reads the
# debugging information `vestra crash symbolize` turns crash logs' frames into lines with.
# FreeBSD's toolchain checked on Linux (make libcxx, make platform-check, bmake in CI): clang 16
# with libc++ 16 and LLVM's libunwind 16 (its header: the crash handler unwinds from a signal's
# context through it, as on FreeBSD), GoogleTest's sources (googletest) to build with them, and
# BSD make.
DEBIAN_PACKAGES="cmake ninja-build g++ clang clang-format libclang-rt-dev pkg-config python3 git
libgtest-dev libgmock-dev googletest libdouble-conversion-dev libpcre2-dev libicu-dev
tzdata libcctz-dev nlohmann-json3-dev bsdextrautils xxd libcli11-dev doxygen libdw-dev
clang-16 libc++-16-dev libc++abi-16-dev libunwind-16-dev bmake"
# FreeBSD has clang, libc++, make (BSD make), hexdump and the zone directory in its base system.
# coreutils brings GNU date and printf (gdate, gprintf), the oracles of the tool's end-to-end test;
# llvm brings clang-format; bash runs CI's script and the completion test.
FREEBSD_PACKAGES="cmake ninja pkgconf python3 git bash coreutils xxd llvm googletest double-conversion
pcre2 icu cctz nlohmann-json cli11 doxygen elfutils"

# With the argument "bench": Google Benchmark and the benchmarks' peers as well (make bench): fmt
# (formatting), abseil (time formats, locks, hashing), spdlog and log4cpp (logging), RE2 (regular
# expressions), xxHash and wyhash (string hashes), gperf (perfect hash tables, run by the
# benchmark's build), PCG (random numbers), dieharder (scripts/dieharder.sh), python3-dateutil
# (timestamps in log lines, run by the benchmark); ICU, cctz and PCRE2 are peers too, and installed
# anyway. FreeBSD has no wyhash package: its benchmark is left out.
DEBIAN_BENCH_PACKAGES="libbenchmark-dev libfmt-dev libabsl-dev libspdlog-dev liblog4cpp5-dev libre2-dev
libxxhash-dev libwyhash-dev gperf libpcg-cpp-dev dieharder python3-dateutil"
FREEBSD_BENCH_PACKAGES="benchmark libfmt abseil spdlog log4cpp re2 xxhash gperf pcg-cpp dieharder py311-dateutil"
if [ "${1:-}" = bench ]; then
    DEBIAN_PACKAGES="$DEBIAN_PACKAGES $DEBIAN_BENCH_PACKAGES"
    FREEBSD_PACKAGES="$FREEBSD_PACKAGES $FREEBSD_BENCH_PACKAGES"
fi

# Root's own commands as they are; otherwise sudo, or doas where sudo is absent (FreeBSD).
as_root() {
    if [ "$(id -u)" -eq 0 ]; then "$@"
    elif command -v sudo >/dev/null 2>&1; then sudo "$@"
    elif command -v doas >/dev/null 2>&1; then doas "$@"
    else echo "install-deps: need root (or sudo, or doas) to run: $*" >&2; exit 1
    fi
}

install_debian() {
    missing=""
    for p in $DEBIAN_PACKAGES; do
        dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing="$missing $p"
    done
    [ -z "$missing" ] && return 0
    echo "install-deps: installing$missing"
    export DEBIAN_FRONTEND=noninteractive
    as_root apt-get update -qq
    as_root apt-get install -y -qq --no-install-recommends $missing
}

install_freebsd() {
    # A pristine system has only pkg's bootstrap stub, which asks before it installs pkg itself.
    if ! pkg -N >/dev/null 2>&1; then
        echo "install-deps: bootstrapping pkg"
        as_root env ASSUME_ALWAYS_YES=yes pkg bootstrap -f
    fi
    missing=""
    for p in $FREEBSD_PACKAGES; do
        pkg info -e "$p" || missing="$missing $p"
    done
    [ -z "$missing" ] && return 0
    echo "install-deps: installing$missing"
    as_root env ASSUME_ALWAYS_YES=yes pkg install -y $missing
}

case "$(uname -s)" in
    FreeBSD) install_freebsd ;;
    Linux)
        if command -v apt-get >/dev/null 2>&1; then install_debian
        else echo "install-deps: no apt-get here; install by hand: $DEBIAN_PACKAGES" >&2; exit 1
        fi ;;
    *) echo "install-deps: unsupported system $(uname -s)" >&2; exit 1 ;;
esac
