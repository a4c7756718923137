#!/usr/bin/env bash
# Runs every fuzz program for a bounded time on a corpus seeded from the project's test data.
# Usage: fuzz/run.sh BUILD_DIR [SECONDS_PER_TARGET]
# Any crash, leak, sanitizer report or timeout makes it exit non-zero; the input that caused it
# is left in BUILD_DIR/fuzz-findings/ (copy it into fuzz/regressions/<target>/ and give it its
# expected ending in the table of tests/test_fuzz_regressions.cpp).
set -euo pipefail
build=$(cd "$1" && pwd)
seconds=${2:-30}
src=$(cd "$(dirname "$0")/.." && pwd)
data=$src/tests/data
findings=$build/fuzz-findings
mkdir -p "$findings"

seed() {  # seed TARGET FILES...
  local dir=$build/fuzz-corpus/$1
  shift
  mkdir -p "$dir"
  for f in "$@"; do [ -f "$f" ] && cp "$f" "$dir/$(basename "$(dirname "$f")")-$(basename "$f")"; done
  return 0
}
seed input "$data"/golden/*/input/kavri.inp "$src"/examples/*/kavri.inp
seed cif "$data"/crystals/*.cif "$data"/golden/*/input/*.cif
seed mol "$data"/*.mol "$data"/golden/*/input/*.mol
seed tables "$data"/golden/anthracene-holes-scell2/input/data/SE_*.dat
seed neighbor "$src"/fuzz/seeds/neighbor.dat

status=0
for t in input cif mol tables neighbor; do
  echo "== fuzz_$t for ${seconds}s"
  if ! (cd "$findings" && "$build/fuzz/fuzz_$t" "$build/fuzz-corpus/$t" \
        -max_total_time="$seconds" -timeout=60 -rss_limit_mb=3072 -max_len=65536 \
        -print_final_stats=1 -artifact_prefix="$findings/$t-" 2>"$build/fuzz-$t.log"); then
    echo "fuzz_$t found a problem:"; tail -40 "$build/fuzz-$t.log"; status=1
  else
    grep -E "stat::number_of_executed_units|stat::new_units_added" "$build/fuzz-$t.log" || true
  fi
done
exit $status
