#!/usr/bin/env bash
# Builds the HTML reference into a scratch directory with the project's Doxyfile: it must come out
# without a single Doxygen warning, with one page for every exported class.
# Usage: docs.sh SOURCE_DIR DOXYFILE
set -euo pipefail
src=$1 doxyfile=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

{ cat "$doxyfile"; echo "OUTPUT_DIRECTORY = $work"; echo "WARN_LOGFILE = $work/warnings.log"; } \
  | doxygen - >/dev/null || { cat "$work/warnings.log"; exit 1; }
if [ -s "$work/warnings.log" ]; then cat "$work/warnings.log"; exit 1; fi

classes=$(sed -n 's/^class VFCROSSCUTTING_EXPORT \([A-Za-z]*\).*/\1/p' "$src"/crosscutting/*.h)
[ -n "$classes" ]
for c in $classes; do
  [ -f "$work/html/classCrosscutting_1_1${c//_/__}.html" ] || { echo "no page for $c"; exit 1; }
done
echo "docs: $(wc -w <<<"$classes") class pages, no warnings"
