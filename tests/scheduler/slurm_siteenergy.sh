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

# The clean-up and polling functions are called through trap and wait loops.
# shellcheck disable=SC2317
set -uo pipefail

KAVRI_EXE=$(realpath "$1")
JOBSCRIPT_EXE=$(realpath "$2")
ARRAY_EXE=$(realpath "$3")
EXAMPLE_DIR=$(realpath "$4")
SKIP=77
# Every wait below ends by this many seconds after the start, so the script always gets to
# stop its daemons before CTest's own time-out (170 s) would kill it.
DEADLINE=$(( SECONDS + 145 ))
INSTALL_SECONDS=100
PACKAGES=(slurmctld slurmd slurm-client munge)

say() { echo "[slurm-test] $*"; }
fail() {
  say "FAIL: $*"
  exit 1
}

# ---------------------------------------------------------------- packages

have_tools() {
  [ -x /usr/sbin/slurmctld ] && [ -x /usr/sbin/slurmd ] && [ -x /usr/sbin/munged ] &&
    command -v sbatch >/dev/null && command -v scontrol >/dev/null
}

install_packages() {
  if [ "$(id -u)" -ne 0 ] || ! command -v apt-get >/dev/null; then
    return 1
  fi
  say "installing ${PACKAGES[*]}"
  export DEBIAN_FRONTEND=noninteractive
  # Package scripts must not start the system's own munge or slurm services: block them
  # for the duration of the install unless the machine already has a policy in place.
  local policy=/usr/sbin/policy-rc.d own_policy=0
  if [ ! -e "$policy" ]; then
    printf '#!/bin/sh\nexit 101\n' >"$policy" && chmod 755 "$policy" && own_policy=1
  fi
  local end=$(( SECONDS + INSTALL_SECONDS ))
  local apt=(apt-get -y -qq -o DPkg::Lock::Timeout=60 --no-install-recommends)
  local ok=0
  timeout $INSTALL_SECONDS "${apt[@]}" install "${PACKAGES[@]}" >"/tmp/kavri-slurm-apt.$$" 2>&1 ||
    { timeout $(( end - SECONDS )) apt-get -qq update >>"/tmp/kavri-slurm-apt.$$" 2>&1 &&
      timeout $(( end - SECONDS )) "${apt[@]}" install "${PACKAGES[@]}" \
        >>"/tmp/kavri-slurm-apt.$$" 2>&1; } || { ok=1; tail -n 5 "/tmp/kavri-slurm-apt.$$"; }
  rm -f "/tmp/kavri-slurm-apt.$$"
  [ "$own_policy" -eq 1 ] && rm -f "$policy"
  return $ok
}

if ! have_tools; then
  install_packages || true
  if ! have_tools; then
    say "SKIP: SLURM and munge are not installed and cannot be installed here" \
      "(needs root and apt-get with access to Debian's ${PACKAGES[*]} packages)."
    exit $SKIP
  fi
fi

# ---------------------------------------------------------------- cluster set-up

WORK=$(mktemp -d /tmp/kavri-slurm.XXXXXX) || fail "cannot create a temporary directory"
chmod 700 "$WORK"
mkdir -p "$WORK/munge" "$WORK/state" "$WORK/spool" "$WORK/log" "$WORK/run"
CONF=$WORK/slurm.conf
export SLURM_CONF=$CONF
NODE=kavri-node
PARTITION=kavri-test
JOB_IDS=()
declare -A DAEMON_PID=()  # name -> pid of the process this script started

# Stops one daemon started here: the pid from its pid file (the process started here when
# that file was never written), TERM, then KILL after 5 s.
stop_daemon() {
  local name=$1 pidfile=$2 pid=""
  [ -s "$pidfile" ] && pid=$(cat "$pidfile")
  [ -z "$pid" ] && pid=${DAEMON_PID[$name]:-}
  [ -z "$pid" ] && return 0
  kill -0 "$pid" 2>/dev/null || return 0
  kill -TERM "$pid" 2>/dev/null
  for _ in $(seq 1 25); do
    kill -0 "$pid" 2>/dev/null || return 0
    sleep 0.2
  done
  say "$name ($pid) did not stop on TERM; killing it"
  kill -KILL "$pid" 2>/dev/null
}

show_logs() {
  for log in "$WORK"/log/*.log; do
    [ -f "$log" ] || continue
    echo "----- $(basename "$log") (last 40 lines)"
    tail -n 40 "$log"
  done
}

cleanup() {
  local rc=$?
  trap - EXIT
  if [ ${#JOB_IDS[@]} -gt 0 ] && [ -n "${DAEMON_PID[slurmctld]:-}" ]; then
    timeout 5 scancel "${JOB_IDS[@]}" >/dev/null 2>&1
  fi
  stop_daemon slurmd "$WORK/run/slurmd.pid"
  stop_daemon slurmctld "$WORK/run/slurmctld.pid"
  stop_daemon munged "$WORK/munge/munged.pid"
  if [ "$rc" -ne 0 ] && [ "$rc" -ne "$SKIP" ]; then
    show_logs
  fi
  rm -rf "$WORK"
  say "daemons stopped; $SECONDS s in all"
  exit "$rc"
}
trap cleanup EXIT
trap 'exit 1' INT TERM

# A port on 127.0.0.1 that nothing listens on.
free_port() {
  local p
  for _ in $(seq 1 100); do
    p=$(( 20000 + RANDOM % 40000 ))
    if ! (exec 3<>"/dev/tcp/127.0.0.1/$p") 2>/dev/null; then
      echo "$p"
      return 0
    fi
  done
  return 1
}
CTLD_PORT=$(free_port) || fail "no free port"
SLURMD_PORT=$(free_port) || fail "no free port"
while [ "$SLURMD_PORT" = "$CTLD_PORT" ]; do SLURMD_PORT=$(free_port); done
HOST=$(hostname -s)

cat >"$CONF" <<EOF
ClusterName=kavri
SlurmctldHost=$HOST(127.0.0.1)
SlurmctldPort=$CTLD_PORT
SlurmdPort=$SLURMD_PORT
SlurmUser=root
SlurmdUser=root
AuthType=auth/munge
AuthInfo=socket=$WORK/munge/munge.socket
CryptoType=crypto/munge
MpiDefault=none
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
SwitchType=switch/none
JobAcctGatherType=jobacct_gather/none
AccountingStorageType=accounting_storage/none
JobCompType=jobcomp/none
SchedulerType=sched/builtin
SelectType=select/cons_tres
SelectTypeParameters=CR_CPU
ReturnToService=2
SlurmdParameters=config_overrides
StateSaveLocation=$WORK/state
SlurmdSpoolDir=$WORK/spool
SlurmctldPidFile=$WORK/run/slurmctld.pid
SlurmdPidFile=$WORK/run/slurmd.pid
SlurmctldLogFile=$WORK/log/slurmctld.log
SlurmdLogFile=$WORK/log/slurmd.log
SlurmctldDebug=info
SlurmdDebug=info
MinJobAge=600
KillWait=5
NodeName=$NODE NodeHostname=$HOST NodeAddr=127.0.0.1 CPUs=$(nproc) State=UNKNOWN
PartitionName=$PARTITION Nodes=$NODE Default=YES MaxTime=INFINITE State=UP
EOF

# The end of a wait of $1 seconds from now, cut at the deadline.
wait_end() {
  local end=$(( SECONDS + $1 ))
  echo $(( end < DEADLINE ? end : DEADLINE ))
}

# Waits up to $1 seconds for the command that follows to succeed.
wait_for() {
  local limit=$1
  shift
  local end
  end=$(wait_end "$limit")
  until "$@" >/dev/null 2>&1; do
    [ "$SECONDS" -ge "$end" ] && return 1
    sleep 0.5
  done
}

alive() { kill -0 "${DAEMON_PID[$1]}" 2>/dev/null; }

# Waits up to $2 seconds for the command that follows to succeed while daemon $1 lives.
wait_up() {
  local name=$1 limit=$2
  shift 2
  local end
  end=$(wait_end "$limit")
  until "$@" >/dev/null 2>&1; do
    alive "$name" || { say "$name exited"; return 1; }
    [ "$SECONDS" -ge "$end" ] && { say "$name not ready after $limit s"; return 1; }
    sleep 0.5
  done
}

start_daemon() {
  local name=$1
  shift
  "$@" >>"$WORK/log/$name.out" 2>&1 </dev/null &
  DAEMON_PID[$name]=$!
}

dd if=/dev/urandom of="$WORK/munge/munge.key" bs=1024 count=1 status=none
chmod 400 "$WORK/munge/munge.key"
start_daemon munged /usr/sbin/munged --foreground --force \
  --socket="$WORK/munge/munge.socket" --key-file="$WORK/munge/munge.key" \
  --pid-file="$WORK/munge/munged.pid" --seed-file="$WORK/munge/munged.seed" \
  --log-file="$WORK/log/munged.log"
wait_up munged 10 test -S "$WORK/munge/munge.socket" || {
  cat "$WORK/log/munged.out" 2>/dev/null
  fail "munged did not start"
}

start_daemon slurmctld /usr/sbin/slurmctld -D -i -f "$CONF"
wait_up slurmctld 20 scontrol ping || {
  cat "$WORK/log/slurmctld.out" 2>/dev/null
  fail "slurmctld did not answer"
}
start_daemon slurmd /usr/sbin/slurmd -D -N "$NODE" -f "$CONF"

node_idle() { sinfo -h -n "$NODE" -o %t | grep -qx idle; }
wait_up slurmd 30 node_idle || {
  cat "$WORK/log/slurmd.out" 2>/dev/null
  sinfo -N 2>&1
  fail "node $NODE did not become idle"
}
say "cluster up after $SECONDS s (ports $CTLD_PORT, $SLURMD_PORT)"

# Waits (bounded) until every job of the given id, array tasks included, has ended.
job_ended() {
  local states
  states=$(scontrol -o show job "$1" 2>/dev/null | grep -o 'JobState=[A-Z_]*') || return 1
  ! grep -qE 'PENDING|RUNNING|CONFIGURING|COMPLETING|SUSPENDED|REQUEUED' <<<"$states"
}

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
