#!/bin/sh
# check-freebsd-plist.sh BUILD_DIR PLIST: the port's pkg-plist lists exactly what `cmake --install`
# puts under the prefix, read as the port builds it (pkg-config files in libdata/pkgconfig, the
# Release build's export file).
set -eu
build=$1
plist=$2
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
cmake --install "$build" --prefix "$out/prefix" >/dev/null
(cd "$out/prefix" && find . -type f | sed 's|^\./||') |
    sed -e 's|^lib/pkgconfig/|libdata/pkgconfig/|' -e 's|^lib/[^/]*-linux-gnu/|lib/|' \
        -e 's|vestraTargets-[a-z]*\.cmake$|vestraTargets-release.cmake|' | LC_ALL=C sort >"$out/installed"
grep -v '^@' "$plist" | LC_ALL=C sort >"$out/listed"
if ! cmp -s "$out/installed" "$out/listed"; then
    echo "pkg-plist and the install differ (< installed, > listed):"
    diff "$out/installed" "$out/listed"
    exit 1
fi
# The port's version is the project's.
top=$(dirname "$0")/..
project=$(sed -n 's/^project([A-Za-z_]* VERSION \([0-9.]*\).*/\1/p' "$top/CMakeLists.txt")
port=$(sed -n 's/^DISTVERSION=[[:space:]]*//p' "$(dirname "$plist")/Makefile")
[ "$project" = "$port" ] || { echo "port DISTVERSION $port, project version $project"; exit 1; }
echo "pkg-plist: $(wc -l <"$out/listed") files, as installed; version $port"
