#!/usr/bin/env bash
# The real service across a daylight-saving change, watched from outside. Eight
# cases run side by side, each for SECONDS (default 200): Berlin's fall-back
# and spring-forward, Dublin's and Lord Howe's fall-back, each in polling and
# in timer mode. libfaketime sets every service's wall clock to 100 s before
# its change; the monotonic clock runs on. A daily plan repeats every 120 s,
# so each case must see exactly 2 runs, at most 3 trigger-info reports and no
# "less than currdatetime" warning.
#
# Run from the source tree after building OrvelSchedulerService and orvelctl:
#   bench/zone_change_check.sh [build/bin] [seconds]
# With KEEP=1 the cases' folders (logs, agent output) stay and are named.
set -euo pipefail

BIN=$(realpath "${1:-build/bin}")
SECONDS_PER_CASE=${2:-200}
FAKETIME_LIB=/usr/lib/x86_64-linux-gnu/faketime/libfaketime.so.1
[ -r "$FAKETIME_LIB" ] || { echo "libfaketime is not installed" >&2; exit 2; }

# name, zone, the change as a UTC instant
CASES=(
  "berlin-fall-back    Europe/Berlin       2029-10-28T01:00:00Z"
  "berlin-spring       Europe/Berlin       2029-03-25T01:00:00Z"
  "dublin-fall-back    Europe/Dublin       2029-10-28T01:00:00Z"
  "lord-howe-fall-back Australia/Lord_Howe 2029-03-31T15:00:00Z"
)
WORK=$(mktemp -d)
PIDS=()
# shellcheck disable=SC2317  # run by the trap
cleanup() {
  for pid in "${PIDS[@]}"; do kill "$pid" 2> /dev/null || true; done
  wait 2> /dev/null || true
  if [ "${KEEP:-0}" = 1 ]; then echo "cases kept in $WORK"; else rm -rf "$WORK"; fi
}
trap cleanup EXIT

# Starts one case in its own folder: a stand-in agent on a free port, the
# plan in the database, the service under the shifted clock.
start_case() {
  local dir=$1 zone=$2 change=$3 mode=$4
  mkdir -p "$dir/cfg" "$dir/data"
  cp "$BIN/OrvelSchedulerService" "$dir/"
  "$BIN/orvelctl" agent --listen 127.0.0.1 --port 0 > "$dir/agent.out" 2> "$dir/agent.err" &
  PIDS+=($!)
  local port=""
  for _ in $(seq 100); do
    port=$(sed -n 's/.*listening on 127.0.0.1:\([0-9]*\).*/\1/p' "$dir/agent.err")
    [ -n "$port" ] && break
    sleep 0.1
  done
  [ -n "$port" ] || { echo "the agent of $dir did not listen" >&2; exit 1; }
  printf '[Communication]\nAgentLocalServerName=127.0.0.1\nAgentPort=%s\nSchedulerLocalServerName=127.0.0.1\nSchedulerPort=0\n[Scheduler]\nDateTimeFireType=%s\n' \
    "$port" "$mode" > "$dir/cfg/config.ini"
  # No service answers yet: the plan is only recorded.
  "$BIN/orvelctl" plan add --db "$dir/data/alldb.db" --port 1 --plan two-min --type 2 \
    --start "2029-01-01 00:00:00" --interval 120 > /dev/null 2>&1 || true
  local offset=$(( $(date -d "$change" +%s) - 100 - $(date +%s) ))
  TZ=$zone LD_PRELOAD=$FAKETIME_LIB FAKETIME="+$offset" FAKETIME_DONT_FAKE_MONOTONIC=1 \
    "$dir/OrvelSchedulerService" > /dev/null 2>&1 &
  PIDS+=($!)
}

for case_line in "${CASES[@]}"; do
  read -r name zone change <<< "$case_line"
  for mode in 0 1; do
    start_case "$WORK/$name-$mode" "$zone" "$change" "$mode"
  done
done
sleep "$SECONDS_PER_CASE"
for pid in "${PIDS[@]}"; do kill "$pid" 2> /dev/null || true; done
wait 2> /dev/null || true
PIDS=()

failed=0
printf '%-20s %-6s %5s %8s %9s\n' CASE MODE RUNS REPORTS WARNINGS
for case_line in "${CASES[@]}"; do
  read -r name _ _ <<< "$case_line"
  for mode in 0 1; do
    dir="$WORK/$name-$mode"
    runs=$(grep -c ' 600 two-min ' "$dir/agent.out" || true)
    reports=$(grep -c ' 601 two-min ' "$dir/agent.out" || true)
    warnings=$(grep -c 'less than currdatetime' "$dir/log/schedulerservice.log" 2> /dev/null || true)
    verdict=ok
    if [ "$runs" -ne 2 ] || [ "$reports" -gt 3 ] || [ "$warnings" -ne 0 ]; then
      verdict=FAILED
      failed=1
    fi
    printf '%-20s %-6s %5s %8s %9s  %s\n' "$name" "$([ $mode = 1 ] && echo timer || echo poll)" \
      "$runs" "$reports" "$warnings" "$verdict"
  done
done
exit $failed
