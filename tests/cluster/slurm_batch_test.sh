#!/bin/bash
# The shipped job script on a real Slurm: a one-node cluster on localhost (munged, slurmctld and
# slurmd started here with a configuration in a temporary folder, stopped by their process ids on
# every way out), four simulated captures with one damaged shot submitted as tables job, array
# and report, and the results compared with a local `velmora batch` of the same manifest.
#
# Usage: slurm_batch_test.sh VELMORA_TOOL JOB_SCRIPT. Exit 77 (skipped) where it cannot run.
set -euo pipefail

tool=$(readlink -f "$1")
job_script=$(readlink -f "$2")
timeout_seconds=${VELMORA_SLURM_TIMEOUT:-420}

skip() {
  echo "SKIP: $*"
  exit 77
}
[ "$(id -u)" -eq 0 ] || skip "the Slurm test starts munged, slurmctld and slurmd as root"
for program in munged mungekey slurmctld slurmd sbatch squeue sinfo; do
  command -v "$program" >/dev/null || skip "$program is missing (Debian: slurm-wlm, munge)"
done

work=$(mktemp -d /tmp/velmora-slurm.XXXXXX)
chmod 755 "$work"
daemons=()
stop_daemons() {
  local pid
  for pid in "${daemons[@]}"; do kill -TERM "$pid" 2>/dev/null || true; done
  for pid in "${daemons[@]}"; do wait "$pid" 2>/dev/null || true; done
}
show_logs() {
  for log in "$work"/*.log "$work"/out/slurm/*.log; do
    [ -f "$log" ] && { echo "==== $log"; tail -n 30 "$log"; }
  done
}
fail() {
  echo "FAIL: $*"
  show_logs
  exit 1
}
trap 'stop_daemons; rm -rf "$work"' EXIT

# ---- MUNGE with a key, socket, pid, log and seed of its own ------------------------------------
mkdir -m 711 "$work/munge"
mungekey --create --keyfile="$work/munge/munge.key"
socket="$work/munge/munge.socket"
munged --foreground --force --socket="$socket" --key-file="$work/munge/munge.key" \
  --pid-file="$work/munge/munged.pid" --log-file="$work/munged.log" \
  --seed-file="$work/munge/munged.seed" >"$work/munged.out" 2>&1 &
daemons+=($!)
for _ in $(seq 100); do [ -S "$socket" ] && break; sleep 0.1; done
[ -S "$socket" ] || fail "munged did not open its socket"

# ---- Slurm on this host, ports away from the defaults -------------------------------------------
host=$(hostname -s)
port=$((20000 + $$ % 20000))
mkdir -p "$work/state" "$work/spool"
export SLURM_CONF="$work/slurm.conf"
cat >"$SLURM_CONF" <<CONF
ClusterName=velmoratest
SlurmctldHost=$host(127.0.0.1)
SlurmctldPort=$port
SlurmdPort=$((port + 1))
SlurmUser=root
SlurmdUser=root
AuthType=auth/munge
CredType=cred/munge
AuthInfo=socket=$socket
StateSaveLocation=$work/state
SlurmdSpoolDir=$work/spool
SlurmctldPidFile=$work/slurmctld.pid
SlurmdPidFile=$work/slurmd.pid
SlurmctldLogFile=$work/slurmctld.log
SlurmdLogFile=$work/slurmd.log
PlugStackConfig=$work/plugstack.conf
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
JobAcctGatherType=jobacct_gather/none
AccountingStorageType=accounting_storage/none
SchedulerType=sched/builtin
SelectType=select/cons_tres
SelectTypeParameters=CR_Core
MpiDefault=none
ReturnToService=2
NodeName=$host NodeAddr=127.0.0.1 CPUs=$(nproc) State=UNKNOWN
PartitionName=batch Nodes=$host Default=YES MaxTime=INFINITE State=UP
CONF
touch "$work/plugstack.conf"
slurmctld -D -c -f "$SLURM_CONF" >"$work/slurmctld.out" 2>&1 &
daemons+=($!)
slurmd -D -f "$SLURM_CONF" -N "$host" >"$work/slurmd.out" 2>&1 &
daemons+=($!)
for _ in $(seq 60); do
  state=$(sinfo -h -n "$host" -o %T 2>/dev/null || true)
  [ "$state" = idle ] && break
  sleep 1
done
[ "$state" = idle ] || fail "the node did not become idle (state: ${state:-none})"

# ---- Four captures, one with a shot cut short --------------------------------------------------
captures="$work/captures"
for k in 0 1 2 3; do
  "$tool" simulate -o "$captures/c$k" --shot-size 200x150 --grid 128x64 --no-truth --noise 2 \
    --seed $((k + 1)) >/dev/null
done
head -c 2000 "$captures/c2/Up_3.jpg" >"$work/short.jpg"
mv "$work/short.jpg" "$captures/c2/Up_3.jpg"
"$tool" batch scan "$captures" --grid 128x64 >/dev/null

# ---- The array, as a user submits it -----------------------------------------------------------
out="$work/out"
(cd "$work" && VELMORA="$tool" "$job_script" submit "$captures/manifest.jsonl" "$out") ||
  fail "submitting failed"
deadline=$((SECONDS + timeout_seconds))
while [ -n "$(squeue -h -o %i 2>/dev/null)" ]; do
  [ "$SECONDS" -lt "$deadline" ] || fail "the jobs did not end within $timeout_seconds s"
  sleep 2
done

# ---- What the tasks left -----------------------------------------------------------------------
for task in 0 1 2 3; do
  [ -s "$out/status-task-$task.jsonl" ] || fail "task $task wrote no status file"
  grep -q "tables in /" "$out"/slurm/task-*_"$task".log || fail "task $task copied no tables"
done
report=$(cat "$out"/slurm/report-*.log)
grep -q "4 captures: 3 done, 1 failed, 0 stopped, 0 not run" <<<"$report" ||
  fail "unexpected report: $report"
grep -q "c2 failed (status -1): Read imgPath: $captures/c2/Up_3.jpg error." <<<"$report" ||
  fail "the damaged capture is not reported with its error line: $report"
/usr/bin/python3 -c '
import json, sys
summary = json.load(open(sys.argv[1]))
assert (summary["done"], summary["failed"]) == (3, 1), summary
assert sorted(r["task"] for r in summary["records"]) == [0, 1, 2, 3], summary
' "$out/summary.json" || fail "summary.json does not hold the four tasks' records"

local_out="$work/local"
"$tool" batch "$captures/manifest.jsonl" -o "$local_out" >/dev/null || true
for k in 0 1 3; do
  for camera in Up Down; do
    cmp "$out/c${k}_$camera.jpg" "$local_out/c${k}_$camera.jpg" ||
      fail "c${k}_$camera.jpg differs from the local batch's"
  done
done
[ ! -e "$out/c2_Up.jpg" ] || fail "the failed capture left a panorama"
echo "ok: the job array stitched 3 captures, recorded the damaged one, and the report merged 4 tasks"
