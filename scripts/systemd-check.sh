#!/usr/bin/env bash
# Boots a Debian 12 root with systemd as PID 1 in a container, installs the
# package there and checks the service under the real systemd: readiness and
# status, a plan that stays due through restarts and a crash that
# Restart=on-failure recovers, a clean stop, the crash report, the peer check,
# and what remove and purge leave. Every step has a timeout. Needs root; ends
# with "N passed, M failed" and fails when any check did.
# shellcheck disable=SC2317,SC2016 # checks are called through check and wait_for;
# the shell inside the container expands what is quoted for it
set -euo pipefail
cd "$(dirname "$0")/.."
BUILD_DIR=${BUILD_DIR:-build-package}
UNIT=OrvelSchedulerService
PLAN=systemd-check-once
MARKER=systemd-check-marker
began=$SECONDS

missing=()
for package in mmdebstrap systemd-container iproute2; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" || missing+=("$package")
done
if [ ${#missing[@]} -gt 0 ]; then
  apt-get update -q > /dev/null
  DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends "${missing[@]}" > /dev/null
fi

package=$(BUILD_DIR=$BUILD_DIR ./scripts/build-package.sh | tail -n 1)
work=$(mktemp -d /var/tmp/orvel-systemd-check.XXXXXX)
nspawn=
leader=

shut_down() {
  if [ -n "$nspawn" ]; then
    # systemd-nspawn asks the container's systemd to power off.
    kill -TERM "$nspawn" 2> /dev/null || true
    for _ in $(seq 300); do
      kill -0 "$nspawn" 2> /dev/null || break
      sleep 0.1
    done
    kill -KILL "$nspawn" 2> /dev/null || true
    wait "$nspawn" 2> /dev/null || true
    nspawn=
  fi
  rm -rf --one-file-system "$work"
}
trap shut_down EXIT

passed=0
failed=0
pass() {
  passed=$((passed + 1))
  echo "systemd check: ok: $*"
}
flunk() {
  failed=$((failed + 1))
  echo "systemd check: FAILED: $*"
}
check() {
  local name=$1
  shift
  if "$@"; then pass "$name"; else flunk "$name"; fi
}
finish() {
  shut_down
  trap - EXIT
  echo "systemd check: $((SECONDS - began)) s, load average $(cut -d ' ' -f 1-3 /proc/loadavg)"
  echo "$passed passed, $failed failed"
  [ "$failed" -eq 0 ]
  exit
}

# A command inside the container, as its root.
inside() { timeout 60 nsenter --target "$leader" --all "$@"; }
property() { inside systemctl show --property="$1" --value "$UNIT"; }
# Polls a command every 0.2 s until it succeeds or $1 seconds have passed.
wait_for() {
  local deadline=$((SECONDS + $1))
  shift
  until "$@"; do
    [ "$SECONDS" -lt "$deadline" ] || return 1
    sleep 0.2
  done
}
running() { [ "$(property ActiveState)/$(property SubState)" = active/running ]; }
# The execute-trigger commands (600) the stand-in agent received for plan $1.
runs_of() {
  local runs
  runs=$(inside grep -c " 600 $1 " /root/agent.log 2> /dev/null)
  echo "${runs:-0}"
}
has_run() { [ "$(runs_of "$1")" -ge 1 ]; }
now() { inside date '+%F %T'; }
add_once_plan() {
  inside orvelctl plan add --plan "$1" --type 1 --start "$2" | grep -q "result 0"
}

# The container's systemd, as a process of the host.
found_leader() { leader=$(pgrep -P "$nspawn") && [ -n "$leader" ]; }
booted() { inside systemctl is-system-running --wait 2> /dev/null | grep -qx 'running\|degraded'; }

boot() {
  # The package's dependencies come with the root, so that the container
  # needs no network of its own.
  local depends
  depends=$(dpkg-deb --field "$package" Depends | sed -e 's/([^)]*)//g' -e 's/|[^,]*//g' -e 's/ //g')
  timeout 900 mmdebstrap --quiet --variant=minbase --include="systemd,systemd-sysv,$depends" bookworm "$work/root" ||
    return 1
  cp "$package" "$work/root/root/orvel-scheduler.deb"
  # Without machined on the host the container must not register or ask for a
  # scope of its own; bpf lets its systemd enforce the unit's IP allow list.
  systemd-nspawn --quiet --keep-unit --register=no --system-call-filter=bpf --private-network \
    --console=passive --directory="$work/root" --boot > "$work/console.log" 2>&1 &
  nspawn=$!
  wait_for 30 found_leader && wait_for 120 booted
}

installs_and_starts() {
  inside dpkg -i /root/orvel-scheduler.deb > /dev/null 2>&1 && wait_for 60 running &&
    inside systemctl is-enabled --quiet "$UNIT"
}

start_agent() {
  inside systemd-run --quiet --unit=orvel-agent --property=StandardOutput=append:/root/agent.log \
    /usr/lib/orvel-scheduler/orvelctl agent
}

# For a Type=notify unit, start returns only once READY=1 has come, and fails
# without it.
starts_ready_with_status() {
  [ "$(property Type)" = notify ] || return 1
  inside systemctl stop "$UNIT" && inside systemctl start "$UNIT" && running || return 1
  local status
  status=$(property StatusText)
  echo "systemd check: status \"$status\""
  [ -n "$status" ]
}

# From inside the unit's own cgroup, a datagram to an address of the
# container's that is not localhost is refused, and one to localhost goes out.
ip_allow_list_enforced() {
  nsenter --target "$leader" --net ip address replace 192.0.2.1/32 dev lo || return 1
  local cgroup
  cgroup=$(inside sed -n 's/^0:://p' "/proc/$(property MainPID)/cgroup")
  inside bash -c 'for root in /sys/fs/cgroup/unified /sys/fs/cgroup; do
      [ -e "$root$1/cgroup.procs" ] && echo $$ > "$root$1/cgroup.procs" && break
    done
    echo > /dev/udp/127.0.0.1/9 && ! echo > /dev/udp/192.0.2.1/9' sh "$cgroup" 2> /dev/null
}

refuses_nobody() {
  local refusal
  refusal=$(inside setpriv --reuid=nobody --regid=nogroup --clear-groups -- \
    orvelctl plan delete --plan "$PLAN" 2>&1) && return 1
  echo "systemd check: nobody was told \"$refusal\""
  [ "$refusal" = "not allowed: user nobody (65534) is not in AllowedUsers or AllowedGroups" ]
}

restarted_since() { [ "$(property NRestarts)" -gt "$1" ] && running; }

crash_and_recover() {
  local restarts
  restarts=$(property NRestarts)
  inside sh -c 'rm -f /var/lib/orvel-scheduler/dump/schedulerservice*.dmp'
  inside sh -c 'kill -SEGV "$1"' sh "$(property MainPID)" || return 1
  # Restart=on-failure waits RestartSec (10 s) first.
  wait_for 60 restarted_since "$restarts"
}

# One start, due between the first and the second of three restarts, with a
# crash after them: the agent must see it once.
runs_once_through_restarts_and_crash() {
  add_once_plan "$PLAN" "$(inside date -d '+20 seconds' '+%F %T')" || return 1
  inside systemctl restart "$UNIT" || return 1
  wait_for 90 has_run "$PLAN" || return 1
  inside systemctl restart "$UNIT" && inside systemctl restart "$UNIT" || return 1
  check "kill -SEGV restarts the service (Restart=on-failure)" crash_and_recover
  # A plan added now runs in one of the first polls; by then a repeated run
  # of the earlier start would have gone out before it.
  add_once_plan "$MARKER" "$(now)" && wait_for 60 has_run "$MARKER" || return 1
  local runs
  runs=$(runs_of "$PLAN")
  echo "systemd check: the plan ran $runs times, at" \
    "$(inside grep " 600 $PLAN " /root/agent.log | cut -d ' ' -f 2 | paste -sd ' ')"
  [ "$runs" -eq 1 ]
}

crash_report_written() {
  inside sh -c 'grep -l SIGSEGV /var/lib/orvel-scheduler/dump/schedulerservice*.dmp' > /dev/null
}

stops_cleanly() {
  inside systemctl stop "$UNIT" || return 1
  [ "$(property ActiveState)/$(property Result)/$(property ExecMainStatus)" = inactive/success/0 ]
}

exists_inside() { inside test -e "$1"; }
user_exists() { inside getent passwd orvel-scheduler > /dev/null; }
service_user_runs_nothing() { [ -z "$(inside find /proc -maxdepth 1 -user orvel-scheduler)" ]; }

# Removing stops the service and keeps the configuration, the plans, the log
# and the user.
remove_keeps_data() {
  inside systemctl start "$UNIT" && inside dpkg -r orvel-scheduler > /dev/null 2>&1 || return 1
  ! running && service_user_runs_nothing && ! exists_inside /usr/lib/orvel-scheduler &&
    ! exists_inside /usr/bin/orvelctl && exists_inside /etc/orvel-scheduler/config.ini &&
    exists_inside /var/lib/orvel-scheduler/alldb.db && exists_inside /var/log/orvel-scheduler/schedulerservice.log &&
    user_exists
}

# Purging removes all of it, the user and group and the unit's mask too.
purge_removes_everything() {
  inside dpkg -P orvel-scheduler > /dev/null 2>&1 || return 1
  local path
  for path in /etc/orvel-scheduler /var/lib/orvel-scheduler /var/log/orvel-scheduler \
              /lib/systemd/system/$UNIT.service /etc/systemd/system/$UNIT.service; do
    ! exists_inside "$path" || return 1
  done
  ! user_exists && ! inside getent group orvel-scheduler > /dev/null
}

if ! boot; then
  flunk "a Debian 12 root boots with systemd as PID 1: $(tail -n 5 "$work/console.log" 2> /dev/null)"
  finish
fi
pass "a Debian 12 root boots with systemd as PID 1 ($((SECONDS - began)) s)"
check "installing enables and starts the unit" installs_and_starts
check "the stand-in agent runs" start_agent
check "systemctl start: active after READY=1, with a status line" starts_ready_with_status
check "the unit's IP allow list is enforced" ip_allow_list_enforced
check "orvelctl as nobody is refused" refuses_nobody
check "a plan due through three restarts and a crash runs exactly once" runs_once_through_restarts_and_crash
check "the crash left a report in dump/" crash_report_written
check "systemctl stop exits 0 and the service ends cleanly" stops_cleanly
check "remove stops the service and keeps configuration, plans, log and user" remove_keeps_data
check "purge removes configuration, plans, log, user, group and unit" purge_removes_everything
finish
