#!/usr/bin/env bash
# A real one-node SLURM cluster for the scheduler tests, sourced by them after they have read
# their arguments: installs slurmctld, slurmd, slurm-client and munge with apt-get when they
# are missing (exit 77, skipped, only when they cannot be installed), starts munged,
# slurmctld and slurmd on the local machine (state, spool, logs and sockets in the temporary
# directory $WORK, free ports on 127.0.0.1) and stops them again on exit, pass or fail.
# Provides say, fail, wait_for, job_ended, $WORK, $NODE, $PARTITION and JOB_IDS (jobs to
# cancel on exit). A daemon that does not come up fails the test with its log.

# The clean-up and polling functions are called through trap and wait loops.
# shellcheck disable=SC2317

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
