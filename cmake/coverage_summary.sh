#!/usr/bin/env bash
# Line coverage of src/ after a test run of a coverage build: runs gcov over the library's and
# the commands' object files, prints one line per source file and the total.
# Usage: cmake/coverage_summary.sh BUILD_DIR SOURCE_DIR
set -euo pipefail
build=$(cd "$1" && pwd)
src=$(cd "$2" && pwd)/src
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
find "$build/CMakeFiles" -name '*.gcda' -path '*/src/*' -print0 |
  xargs -0 -r gcov -p >/dev/null 2>&1 || true
# One .gcov file per source seen by some object; a header included by several objects appears
# once per object and is counted by its best-covered copy.
for f in *.gcov; do
  name=$(sed -n '1s/^ *-: *0:Source://p' "$f")
  case "$name" in "$src"/*) ;; *) continue ;; esac
  awk -v n="${name#"$src"/}" -F: '
    $2 + 0 == 0 || $1 ~ /^ *-$/ {next}
    $1 ~ /#####|=====/ {total++; next}
    $1 ~ /^ *[0-9]+\*? *$/ {total++; hit++}
    END {print n, hit + 0, total + 0}' "$f"
done | awk '
  { if (!($1 in t) || $2 > h[$1]) { h[$1] = $2; t[$1] = $3 } }
  END {
    for (n in t) { printf "%-36s %6d / %6d  %5.1f%%\n", n, h[n], t[n], t[n] ? 100 * h[n] / t[n] : 100; H += h[n]; T += t[n] }
    printf "%-36s %6d / %6d  %5.1f%%\n", "TOTAL (src/)", H, T, T ? 100 * H / T : 100
  }' | sort
