#!/usr/bin/env bash
# Runs kavri_mobility on the one-node SLURM cluster of slurm_cluster.sh: the array script of
# `kavri_mobility -jobscript 3` (three slices of the runs) and, after it, the merge script;
# the merged average track, mobility.json and every track file must equal those of a single
# local run with the same seed.
#
#   slurm_mobility.sh <kavri_mobility> <mobility example dir>

set -uo pipefail

MOBILITY_EXE=$(realpath "$1")
EXAMPLE_DIR=$(realpath "$2")
# The cluster, started here and stopped on exit.
# shellcheck source=slurm_cluster.sh
source "$(dirname "${BASH_SOURCE[0]}")/slurm_cluster.sh"

# Short runs: 12 trajectories of 20 ns (about 1e4 hops each).
for d in local job; do
  mkdir -p "$WORK/$d"
  cp "$EXAMPLE_DIR/anthracene.cif" "$EXAMPLE_DIR/WH.dat" "$WORK/$d/"
  cat >"$WORK/$d/kavri.inp" <<INP
&transport
  crystal = anthracene.cif
  chargetype = h
  lattice_cutoff = 4.0
  neighbor_scell = 3 3 3
  temp = 300
  tsimu = 20
  tsnap = 1
  nsimu = 12
  sched_type = slurm
  queue_name = $PARTITION
  qc_nodes = 1
  qc_ppn = 1
  nodelist = $NODE
/
INP
done

(cd "$WORK/local" && "$MOBILITY_EXE" -seed 9 -threads 1 -out res >"$WORK/local.log" 2>&1) ||
  { cat "$WORK/local.log"; fail "local run of kavri_mobility failed"; }

cd "$WORK/job" || fail "no job directory"
"$MOBILITY_EXE" -seed 9 -out res -jobscript 3 || fail "kavri_mobility -jobscript failed"
grep -qx '#SBATCH --array=1-3' mobility_parts.slurm ||
  { cat mobility_parts.slurm; fail "array directive"; }
# shellcheck disable=SC2016  # the task variable as the script holds it
grep -q -- '-part ${SLURM_ARRAY_TASK_ID}/3' mobility_parts.slurm ||
  { cat mobility_parts.slurm; fail "task slice"; }

AJOB=$(sbatch --parsable mobility_parts.slurm) || fail "sbatch rejected mobility_parts.slurm"
AJOB=${AJOB%%;*}
JOB_IDS+=("$AJOB")
MJOB=$(sbatch --parsable --dependency=afterok:"$AJOB" mobility_merge.slurm) ||
  fail "sbatch rejected mobility_merge.slurm"
MJOB=${MJOB%%;*}
JOB_IDS+=("$MJOB")
say "array job $AJOB and merge job $MJOB submitted"
wait_for 90 job_ended "$MJOB" || { scontrol show job "$AJOB" "$MJOB"; fail "jobs did not end"; }

AINFO=$(scontrol -o show job "$AJOB")
[ "$(grep -c 'JobState=COMPLETED' <<<"$AINFO")" -eq 3 ] || { echo "$AINFO"; fail "a slice failed"; }
MINFO=$(scontrol -o show job "$MJOB")
{ grep -q 'JobState=COMPLETED' <<<"$MINFO" && grep -q 'ExitCode=0:0' <<<"$MINFO"; } ||
  { echo "$MINFO"; cat stdout-kavri-mob-merge 2>/dev/null; fail "merge job did not succeed"; }

for f in track_ave.dat mobility.json; do
  cmp "$WORK/local/res/$f" "res/$f" || fail "$f of the merge differs from the local run"
done
for t in "$WORK"/local/res/track_0*.dat; do
  name=$(basename "$t")
  found=$(find res -name "$name" -path '*/part-*')
  { [ -n "$found" ] && cmp "$t" "$found"; } || fail "$name of the slices differs from the local run"
done
say "array of 3 slices and merge: average track, mobility.json and 12 tracks identical"

say "PASS"
exit 0
