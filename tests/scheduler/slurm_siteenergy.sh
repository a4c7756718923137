#!/usr/bin/env bash
# Runs the site-energy job script on a real one-node SLURM cluster that this script starts
# on the local machine (munged, slurmctld, slurmd; state, spool, logs and sockets in a
# temporary directory, free ports on 127.0.0.1) and stops again, pass or fail.
#
#   slurm_siteenergy.sh <kavri_siteenergy> <kavri_jobscript> <write_array_job> <example dir>
#
# 1. The site-energy script written by write_calc_siteEner_job (sched_type slurm, the test
#    partition, a 30-hour wall time that the reader turns into 1 day 6 hours, a node list)
#    is submitted with sbatch; the job must complete with exit code 0, write EH.dat and
#    EL.dat identical to a direct run, write its standard output where the directive says
#    and remove its marker file.
# 2. A transfer-integral array script over tasks 3,7,9 with a job-slot limit of 2 is
#    submitted; exactly the listed tasks must run, each writing its own output file.
# 3. Site-energy scripts written from kavri_jobscript's options alone (-sched, -queue,
#    -walltime, -nodes, -ppn, -nodelist; no scheduler keys in kavri.inp) into an output
#    directory that does not exist yet, one for a good run and one whose energy table is
#    missing: SLURM reports both as completed, `kavri_jobscript -check` passes the first and
#    fails the second.
#
# Installs slurmctld, slurmd, slurm-client and munge with apt-get when they are missing;
# exits 77 (skipped) only when they cannot be installed. A daemon that does not come up
# fails the test with its log.

set -uo pipefail

KAVRI_EXE=$(realpath "$1")
JOBSCRIPT_EXE=$(realpath "$2")
ARRAY_EXE=$(realpath "$3")
EXAMPLE_DIR=$(realpath "$4")
# The cluster, started here and stopped on exit.
# shellcheck source=slurm_cluster.sh
source "$(dirname "${BASH_SOURCE[0]}")/slurm_cluster.sh"

# ---------------------------------------------------------------- site-energy job

mkdir -p "$WORK/direct" "$WORK/job" "$WORK/out"
cp -r "$EXAMPLE_DIR/." "$WORK/direct/"
cp -r "$EXAMPLE_DIR/." "$WORK/job/"
(cd "$WORK/direct" && "$KAVRI_EXE" >"$WORK/direct.log" 2>&1) ||
  { cat "$WORK/direct.log"; fail "direct run of kavri_siteenergy failed"; }

# Scheduler settings go into the job's own input file, ahead of the closing "/".
sed -i "/^[[:space:]]*\/[[:space:]]*$/i\\
  sched_type = slurm\\
  queue_name = $PARTITION\\
  walltime_hour = 30\\
  qc_nodes = 1\\
  qc_ppn = 1\\
  nodelist = $NODE\\
  job_slot_limit = 2" "$WORK/job/kavri.inp"

cd "$WORK/job" || fail "no job directory"
"$JOBSCRIPT_EXE" -script siteenergy -job kavri-se -marker siteenergy.running \
  -outdir "$WORK/out" -command "$KAVRI_EXE -verbose" || fail "kavri_jobscript failed"
SCRIPT=$WORK/job/siteenergy.slurm
[ -f "$SCRIPT" ] || fail "no siteenergy.slurm written"
grep -qx '#SBATCH --time=1-06:00:00' "$SCRIPT" || { cat "$SCRIPT"; fail "wall time directive"; }
grep -qx "#SBATCH -p $PARTITION" "$SCRIPT" || { cat "$SCRIPT"; fail "partition directive"; }
grep -qx "#SBATCH --nodelist=$NODE" "$SCRIPT" || { cat "$SCRIPT"; fail "node-list directive"; }
touch siteenergy.running

JOB=$(sbatch --parsable "$SCRIPT") || fail "sbatch rejected siteenergy.slurm"
JOB=${JOB%%;*}
JOB_IDS+=("$JOB")
say "site-energy job $JOB submitted"
wait_for 60 job_ended "$JOB" || { scontrol show job "$JOB"; fail "job $JOB did not end in time"; }
INFO=$(scontrol -o show job "$JOB")
if ! grep -q 'JobState=COMPLETED' <<<"$INFO" || ! grep -q 'ExitCode=0:0' <<<"$INFO"; then
  echo "$INFO"
  cat "$WORK/out/stdout-kavri-se" 2>/dev/null
  fail "job $JOB did not succeed"
fi
grep -q 'TimeLimit=1-06:00:00' <<<"$INFO" || { echo "$INFO"; fail "time limit not taken"; }

STDOUT_FILE=$WORK/out/stdout-kavri-se
[ -f "$STDOUT_FILE" ] || fail "no standard output at $STDOUT_FILE"
for text in "Working directory is $WORK/job" "Starting job run at" \
  "*** Successfully done." "Ending job run at"; do
  grep -qF -- "$text" "$STDOUT_FILE" || { cat "$STDOUT_FILE"; fail "stdout lacks: $text"; }
done
for f in EH.dat EL.dat; do
  cmp "$WORK/direct/data/$f" "$WORK/job/data/$f" || fail "$f differs from the direct run"
done
[ -e siteenergy.running ] && fail "marker file siteenergy.running not removed"
say "site-energy job: completed, EH.dat and EL.dat identical, stdout written, marker removed"

# ---------------------------------------------------------------- array job

cat >"$WORK/job/record_task.sh" <<'EOF'
#!/bin/sh
# Arguments: -batch mol<i>_trans_int_files.dat -prefix V -postfix <i>
echo "$*" >"task-$6.done"
EOF
touch transint.running
"$ARRAY_EXE" transint kavri-ti transint.running "sh $WORK/job/record_task.sh" 3,7,9 ||
  fail "write_array_job failed"
grep -qx '#SBATCH --array=3,7,9%2' transint.slurm || { cat transint.slurm; fail "array directive"; }
AJOB=$(sbatch --parsable transint.slurm) || fail "sbatch rejected transint.slurm"
AJOB=${AJOB%%;*}
JOB_IDS+=("$AJOB")
say "array job $AJOB submitted"
scontrol -o show job "$AJOB" | grep -q 'ArrayTaskThrottle=2' ||
  { scontrol -o show job "$AJOB"; fail "job-slot limit 2 not taken"; }
wait_for 60 job_ended "$AJOB" || { scontrol show job "$AJOB"; fail "array job did not end"; }
AINFO=$(scontrol -o show job "$AJOB")
tasks=$(grep -o 'ArrayTaskId=[0-9]*' <<<"$AINFO" | cut -d= -f2 | sort -n | tr '\n' ' ')
[ "$tasks" = "3 7 9 " ] || { echo "$AINFO"; fail "array tasks were '$tasks', not 3 7 9"; }
[ "$(grep -c 'JobState=COMPLETED' <<<"$AINFO")" -eq 3 ] || { echo "$AINFO"; fail "a task failed"; }
for t in 3 7 9; do
  grep -qx -- "-batch mol${t}_trans_int_files.dat -prefix V -postfix $t" "task-$t.done" ||
    fail "task $t did not run its command"
  grep -q "Ending job run at" "stdout-kavri-ti-$t" || fail "no stdout-kavri-ti-$t"
done
[ "$(find . -maxdepth 1 -name 'task-*.done' | wc -l)" -eq 3 ] || fail "tasks outside the list ran"
[ -e transint.running ] && fail "marker file transint.running not removed"
say "array job: tasks 3 7 9 ran (slot limit 2), one output file each"

# ---------------------------------------------------------------- kavri_jobscript options

OPT_JOBS=()
for run in good bad; do
  mkdir -p "$WORK/$run"
  cp -r "$EXAMPLE_DIR/." "$WORK/$run/"
  cd "$WORK/$run" || fail "no $run directory"
  [ "$run" = bad ] && rm data/SE_einternal-h.dat
  "$JOBSCRIPT_EXE" -sched slurm -queue "$PARTITION" -walltime 0-00:20:00 -nodes 1 -ppn 1 \
    -nodelist "$NODE" -job "kavri-$run" -outdir logs/se -command "$KAVRI_EXE" ||
    fail "kavri_jobscript with options failed ($run)"
  [ -d logs/se ] || fail "output directory logs/se not created ($run)"
  touch siteenergy.running
  OJOB=$(sbatch --parsable siteenergy.slurm) || fail "sbatch rejected the $run script"
  OJOB=${OJOB%%;*}
  JOB_IDS+=("$OJOB")
  OPT_JOBS+=("$OJOB")
done
for OJOB in "${OPT_JOBS[@]}"; do
  wait_for 60 job_ended "$OJOB" || { scontrol show job "$OJOB"; fail "job $OJOB did not end"; }
  OINFO=$(scontrol -o show job "$OJOB")
  for field in JobState=COMPLETED ExitCode=0:0 TimeLimit=00:20:00 "Partition=$PARTITION"; do
    grep -q "$field" <<<"$OINFO" || { echo "$OINFO"; fail "job $OJOB: no $field"; }
  done
done
cd "$WORK/good" || fail "no good directory"
"$JOBSCRIPT_EXE" -check -job kavri-good -outdir logs/se ||
  { cat logs/se/stdout-kavri-good; fail "-check did not pass the good run"; }
cd "$WORK/bad" || fail "no bad directory"
"$JOBSCRIPT_EXE" -check -job kavri-bad -outdir logs/se
status=$?
[ "$status" -eq 1 ] || { cat logs/se/stdout-kavri-bad; fail "-check gave $status for the bad run"; }
say "option-written jobs: directives taken, logs/se created, -check passes the good run" \
  "and fails the run that SLURM calls COMPLETED"

say "PASS"
exit 0
