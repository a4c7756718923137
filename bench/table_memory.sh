#!/usr/bin/env bash
# Peak memory of kavri_siteenergy (GNU time -v) when the energy tables are far larger than the
# neighbour list of the cell, against the same run with tables sized to the list. The cell is
# anthracene.cif (two molecules). Big tables: (a) the two needed blocks followed by N empty
# blocks, (b) a first block of N values (the second block still follows it). Memory should
# follow the neighbour list, so both ratios stay near 1 whatever N is.
# Usage: bench/table_memory.sh path/to/kavri_siteenergy [N, default 10000000]
set -euo pipefail
exe=$(readlink -f "$1")
n=${2:-10000000}
src=$(cd "$(dirname "$0")/.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp "$src/tests/data/crystals/anthracene.cif" "$work/cell.cif"
printf '&transport\n crystal = cell.cif\n chargetype = a\n/\n' > "$work/kavri.inp"
mkdir -p "$work/data"

block() { awk -v k="$1" 'BEGIN { print k; for (v = 0; v < k; v++) printf "%.6f\n", v % 100 - 50.0 }'; }

peak_mb() {
  cp "$1" "$work/data/SE_einternal-h.dat"
  cp "$1" "$work/data/SE_einternal-e.dat"
  local stats
  stats=$(cd "$work" && /usr/bin/time -v "$exe" 2>&1 >/dev/null) || { echo "run failed" >&2; exit 1; }
  echo "$stats" | awk -F': ' '/Maximum resident/ {printf "%.1f", $2/1024}'
}

{ echo 2; block 299; block 299; } > "$work/sized.dat"
{ echo $((n + 2)); block 299; block 299; awk -v k="$n" 'BEGIN { for (b = 0; b < k; b++) print 0 }'; } > "$work/blocks.dat"
{ echo 2; block "$n"; block 299; } > "$work/values.dat"

base=$(peak_mb "$work/sized.dat")
printf '%-40s %12s %12s %8s\n' table "file (MB)" "peak (MB)" ratio
for t in sized blocks values; do
  f="$work/$t.dat"
  peak=$(peak_mb "$f")
  size=$(awk -v b="$(stat -c %s "$f")" 'BEGIN { printf "%.1f", b / 1048576 }')
  case $t in
    sized) label="2 blocks of 299 values" ;;
    blocks) label="2 blocks + $n empty blocks" ;;
    values) label="first block of $n values" ;;
  esac
  printf '%-40s %12s %12s %8s\n' "$label" "$size" "$peak" "$(awk -v p="$peak" -v b="$base" 'BEGIN { printf "%.2f", p / b }')"
done
