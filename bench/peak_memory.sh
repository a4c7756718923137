#!/usr/bin/env bash
# Wall time and peak memory of whole runs of kavri_siteenergy (GNU time -v) on the real crystals
# and the P1 supercells, each in a scratch calculation directory with energy tables sized to
# its cell (one block per molecule, 299 values each).
# The largest cell, anthracene 24x36x17 (705,024 atoms), is made by bench/make_supercell.py in
# a scratch directory for the run and removed afterwards.
# Usage: bench/peak_memory.sh path/to/kavri_siteenergy [large-cell directory]
set -euo pipefail
exe=$(readlink -f "$1")
src=$(cd "$(dirname "$0")/.." && pwd)
large=${2:-$src/../shared/data/large}
huge=$(mktemp -d)
trap 'rm -rf "$huge"' EXIT
python3 "$src/bench/make_supercell.py" "$src/tests/data/crystals/anthracene.cif" 24 36 17 \
  "$huge/anthracene_24x36x17_p1.cif" >/dev/null
printf '%-32s %8s %10s %12s %14s\n' cell atoms "wall (s)" "peak (MB)" "bytes/atom"
for cif in "$src"/tests/data/crystals/anthracene.cif "$src"/tests/data/crystals/tipge_pentacene_pbca.cif \
  "$large"/*.cif "$huge"/*.cif; do
  [ -f "$cif" ] || continue
  work=$(mktemp -d)
  cp "$cif" "$work/cell.cif"
  printf '&transport\n crystal = cell.cif\n chargetype = a\n/\n' > "$work/kavri.inp"
  nmols=$(cd "$work" && { "$exe" -verbose 2>/dev/null || true; } | awk '/Unit cell nmols/ {print $5}')
  natoms=$(cd "$work" && { "$exe" -verbose 2>/dev/null || true; } | awk '/Unit cell natoms/ {s=0; for (i=5;i<=NF;i++) s+=$i; print s}')
  mkdir -p "$work/data"
  awk -v n="$nmols" 'BEGIN { print n; for (m = 0; m < n; m++) { print 299; for (v = 0; v < 299; v++) printf "%.6f\n", (m * 7 + v) % 100 - 50.0 } }' > "$work/data/SE_einternal-h.dat"
  cp "$work/data/SE_einternal-h.dat" "$work/data/SE_einternal-e.dat"
  stats=$(cd "$work" && /usr/bin/time -v "$exe" 2>&1 >/dev/null)
  wall=$(echo "$stats" | awk -F': ' '/Elapsed/ {n=split($2,t,":"); print t[n] + (n>1 ? t[n-1]*60 : 0)}')
  peak=$(echo "$stats" | awk -F': ' '/Maximum resident/ {printf "%.1f", $2/1024}')
  per_atom=$(echo "$stats" | awk -F': ' -v n="$natoms" '/Maximum resident/ {printf "%.0f", $2 * 1024 / n}')
  printf '%-32s %8s %10s %12s %14s\n' "$(basename "$cif")" "$natoms" "$wall" "$peak" "$per_atom"
  rm -rf "$work"
done
