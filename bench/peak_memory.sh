#!/usr/bin/env bash
# Wall time and peak memory of whole runs of kavri_siteenergy (GNU time -v) on the real crystals
# and the P1 supercells, each in a scratch calculation directory: a run of one charge type
# (holes) with its energy table sized to the cell's neighbour list.
# The largest cell, anthracene 24x36x17 (705,024 atoms), is made by bench/make_supercell.py in
# a scratch directory for the run and removed afterwards.
# Usage: bench/peak_memory.sh path/to/kavri_siteenergy [large-cell directory]
set -euo pipefail
exe=$(readlink -f "$1")
crystal=$(dirname "$exe")/kavri_crystal
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
  printf '&transport\n crystal = cell.cif\n chargetype = h\n/\n' > "$work/kavri.inp"
  # One block per molecule with as many values as it has neighbours, from kavri_crystal's
  # report of the same cell.
  mkdir -p "$work/data"
  (cd "$work" && "$crystal" cell.cif -json 2>/dev/null) | python3 -c '
import json, sys
d = json.load(sys.stdin)
print(len(d["molecules"]))
for m in d["molecules"]:
    n = len(m["neighbours"])
    print(n)
    for v in range(n):
        print("%.6f" % ((m["id"] * 7 + v) % 100 - 50.0))
' > "$work/data/SE_einternal-h.dat"
  natoms=$(cd "$work" && { "$exe" -verbose 2>/dev/null || true; } | awk '/Unit cell natoms/ {s=0; for (i=5;i<=NF;i++) s+=$i; print s}')
  stats=$(cd "$work" && /usr/bin/time -v "$exe" 2>&1 >/dev/null)
  wall=$(echo "$stats" | awk -F': ' '/Elapsed/ {n=split($2,t,":"); print t[n] + (n>1 ? t[n-1]*60 : 0)}')
  peak=$(echo "$stats" | awk -F': ' '/Maximum resident/ {printf "%.1f", $2/1024}')
  per_atom=$(echo "$stats" | awk -F': ' -v n="$natoms" '/Maximum resident/ {printf "%.0f", $2 * 1024 / n}')
  printf '%-32s %8s %10s %12s %14s\n' "$(basename "$cif")" "$natoms" "$wall" "$peak" "$per_atom"
  rm -rf "$work"
done
