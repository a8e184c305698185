#!/bin/sh
# make-docs.sh [OUTPUT_DIR]: the API reference from the public headers (cmake/public-headers.txt,
# with the settings of docs/Doxyfile) into
# OUTPUT_DIR/html (build/docs by default). Any Doxygen warning fails it, an undocumented public
# declaration included, and the warnings are printed.
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
out=${1:-$top/build/docs}
case $out in /*) ;; *) out=$(pwd)/$out ;; esac
version=$(sed -n 's/^project([A-Za-z_]* VERSION \([0-9.]*\).*/\1/p' "$top/CMakeLists.txt")
[ -n "$version" ] || { echo "make-docs: no version in CMakeLists.txt" >&2; exit 1; }
command -v doxygen >/dev/null || { echo "make-docs: doxygen is missing (scripts/install-deps.sh)" >&2; exit 1; }
mkdir -p "$out"
rm -rf "$out/html" "$out/warnings.txt"
cd "$top"
# The Doxyfile's settings, then this run's own (later lines win).
status=0
{ cat docs/Doxyfile
  # The public headers, as installed (cmake/public-headers.txt).
  printf 'INPUT = docs/mainpage.md'
  grep -v '^#' cmake/public-headers.txt | sed 's|^| src/|' | tr -d '\n'
  echo
  echo "OUTPUT_DIRECTORY = \"$out\""
  echo "PROJECT_NUMBER = $version"
  echo "WARN_LOGFILE = \"$out/warnings.txt\""; } | doxygen - >/dev/null || status=$?
if [ "$status" -ne 0 ] || [ -s "$out/warnings.txt" ]; then
    echo "make-docs: Doxygen failed (exit $status); each warning is an error:" >&2
    cat "$out/warnings.txt" >&2 2>/dev/null || true
    exit 1
fi
echo "make-docs: $out/html/index.html ($(ls "$out/html" | wc -l) files, no warnings)"
