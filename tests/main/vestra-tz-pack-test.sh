#!/bin/sh
# vestra-tz-pack-test.sh VESTRA SEED_DIRECTORY: `vestra tz pack` of a directory of two zones
# (copied from the seeds) with a file that is no zone and a zone file cut after its magic beside
# them; then a missing directory.
set -u
vestra=$1
seeds=$2
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
mkdir -p "$out/zones/Europe" "$out/zones/Asia"
cp "$seeds/london" "$out/zones/Europe/London" && cp "$seeds/kolkata" "$out/zones/Asia/Kolkata" || exit 1
echo "not a zone" >"$out/zones/zone.tab"
printf 'TZif' >"$out/zones/Cut"
"$vestra" tz pack "$out/zones" "$out/a" >"$out/log" 2>"$out/err"
[ $? -eq 1 ] || { echo "a damaged zone file did not make the status 1"; exit 1; }
grep -qx "2 zones from $out/zones into $out/a" "$out/log" || { cat "$out/log"; exit 1; }
grep -q '^vestra: left out Cut: ' "$out/err" || { echo "the damaged file was not named:"; cat "$out/err"; exit 1; }
rm "$out/zones/Cut"
"$vestra" tz pack "$out/zones" "$out/a" >"$out/log" 2>"$out/err" || { cat "$out/err"; exit 1; }
if "$vestra" tz pack /nonexistent "$out/b" 2>"$out/err"; then echo "a missing directory was packed"; exit 1; fi
grep -q '^vestra: /nonexistent' "$out/err" || { cat "$out/err"; exit 1; }
[ ! -e "$out/b" ] || { echo "a failed pack left a file"; exit 1; }
echo "tz pack checks passed"
