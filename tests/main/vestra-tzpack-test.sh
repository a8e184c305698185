#!/bin/sh
# vestra-tzpack TOOL SEED_DIRECTORY: packs a directory of two zones (copied from the seeds, with a
# file that is no zone beside them), then a missing directory.
set -u
tool=$1
seeds=$2
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
mkdir -p "$out/zones/Europe" "$out/zones/Asia"
cp "$seeds/london" "$out/zones/Europe/London" && cp "$seeds/kolkata" "$out/zones/Asia/Kolkata" || exit 1
echo "not a zone" >"$out/zones/zone.tab"
"$tool" "$out/zones" "$out/a" >"$out/log" || { echo "packing failed"; exit 1; }
grep -qx "2 zones from $out/zones into $out/a" "$out/log" || { cat "$out/log"; exit 1; }
if "$tool" /nonexistent "$out/b" 2>"$out/err"; then echo "a missing directory was packed"; exit 1; fi
grep -q '^vestra-tzpack: /nonexistent' "$out/err" || { cat "$out/err"; exit 1; }
[ ! -e "$out/b" ] || { echo "a failed pack left a file"; exit 1; }
