#!/usr/bin/env bash
# Builds the Debian package with Debian's hardening flags, has lintian and
# systemd-analyze judge it, installs it, runs the installed service as its own
# user from its installed folder the way its unit does (systemd need not be
# PID 1 here), uses orvelctl as root and as another user, crashes the service
# with and without its debug symbols, and removes and purges it again. Needs
# root.
set -euo pipefail
cd "$(dirname "$0")/.."
BUILD_DIR=${BUILD_DIR:-build-package}
# systemd for systemd-analyze only: it need not run.
for package in lintian systemd; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" ||
    DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends "$package"
done

fail() { echo "package check: $*"; exit 1; }
step() { echo "package check: $*"; }

package=$(BUILD_DIR=$BUILD_DIR ./scripts/build-package.sh | tail -n 1)
symbols=$(ls "$BUILD_DIR"/orvel-scheduler-dbgsym_*.*deb)
step "built $package and $symbols"

lintian --allow-root --fail-on error,warning "$package" || fail "lintian found errors or warnings"
unit=packaging/OrvelSchedulerService.service
exposure=$(systemd-analyze security --offline=yes "$unit" 2>&1 | sed -n 's/.*Overall exposure level for .*: \([0-9.]*\).*/\1/p')
[ -n "$exposure" ] || fail "systemd-analyze did not rate the unit"
awk -v e="$exposure" 'BEGIN { exit !(e <= 2.0) }' || fail "the unit's exposure is $exposure, above 2.0"
step "lintian is clean; the unit's exposure is $exposure"

# A check that stopped half-way on this machine leaves the package and its
# plans behind; start from none, as a fresh machine would.
dpkg -P orvel-scheduler-dbgsym orvel-scheduler > /dev/null 2>&1 || true
rm -rf /etc/orvel-scheduler /var/lib/orvel-scheduler /var/log/orvel-scheduler
DEBIAN_FRONTEND=noninteractive apt-get install -y -q "./$package" > /dev/null
app=/usr/lib/orvel-scheduler
log=/var/log/orvel-scheduler/schedulerservice.log
getent passwd orvel-scheduler > /dev/null || fail "no user orvel-scheduler"
[ -x $app/OrvelSchedulerService ] || fail "service not installed"
[ -f /usr/share/bash-completion/completions/orvelctl ] || fail "no bash completion for orvelctl"
[ "$(readlink $app/cfg)" = /etc/orvel-scheduler ] && [ "$(readlink $app/data)" = /var/lib/orvel-scheduler ] ||
  fail "application folder links wrong"
[ "$(stat -c %U /var/lib/orvel-scheduler/dump)" = orvel-scheduler ] || fail "dump folder not the service's"
readelf -S $app/OrvelSchedulerService | grep -q debug_info && fail "binary not stripped"
systemd-analyze verify --man=no /lib/systemd/system/OrvelSchedulerService.service || fail "unit refused"

service=
trap '[ -z "$service" ] || kill "$service" 2> /dev/null || true' EXIT

# Info lines reach the log file up to 100 ms after they are written, and a
# loaded machine adds to that: wait up to 20 s for the line.
log_has() {
  for _ in $(seq 200); do
    grep -qF "$1" "$log" 2>/dev/null && return 0
    sleep 0.1
  done
  return 1
}

# The unit's identity, umask and privileges, without systemd.
start_service() {
  rm -f "$log"
  (cd $app && setpriv --reuid=orvel-scheduler --regid=orvel-scheduler --init-groups --no-new-privs \
    --bounding-set=-all --inh-caps=-all -- sh -c 'umask 0027 && exec ./OrvelSchedulerService -e') &
  service=$!
  log_has "SchedulerService start success." || fail "service did not start: $(cat "$log" 2>/dev/null)"
  [ "$(stat -c %U /proc/"$service")" = orvel-scheduler ] || fail "service does not run as orvel-scheduler"
}

# Crashes the running service and waits for its end; $report is the crash report.
crash_service() {
  rm -f /var/lib/orvel-scheduler/dump/*.dmp
  kill -SEGV "$service"
  if wait "$service"; then fail "service survived SIGSEGV"; fi
  service=
  report=$(ls /var/lib/orvel-scheduler/dump/schedulerservice*.dmp) || fail "no crash report"
  [ "$(stat -c '%U %a' "$report")" = "orvel-scheduler 640" ] || fail "crash report owner or mode: $(stat -c '%U %a' "$report")"
}

start_service
step "the service runs as orvel-scheduler from $app"
orvelctl plan add --plan package-check --type 2 --start "2030-01-01 02:00:00" | grep -q "result 0" ||
  fail "orvelctl plan as root was not served"
refusal=$(setpriv --reuid=nobody --regid=nogroup --clear-groups -- orvelctl plan delete --plan package-check 2>&1) &&
  fail "orvelctl as nobody was served"
[ "$refusal" = "not allowed: user nobody (65534) is not in AllowedUsers or AllowedGroups" ] ||
  fail "orvelctl as nobody said: $refusal"
log_has "Plan command 200 for plan package-check from user id 0 accepted." || fail "accepted plan command not logged"
step "orvelctl works as root and refuses nobody"

crash_service
grep -q "QtServiceBase::exec" "$report" && fail "stripped binary named its functions: $(cat "$report")"
dpkg -i "$symbols" > /dev/null
start_service
crash_service
grep -q "QtServiceBase::exec" "$report" || fail "crash report without function names: $(cat "$report")"
grep -q "at .*\.cpp:[0-9]" "$report" || fail "crash report without source lines: $(cat "$report")"
step "crash reports are written as orvel-scheduler; with the debug symbols they name functions and lines"
dpkg -r orvel-scheduler-dbgsym > /dev/null

dpkg -r orvel-scheduler > /dev/null
[ ! -e $app ] || fail "left after remove: $(find $app)"
[ ! -e /usr/bin/orvelctl ] || fail "orvelctl left on the PATH"
[ -f /etc/orvel-scheduler/config.ini ] || fail "configuration not kept on remove"
[ -f /var/lib/orvel-scheduler/alldb.db ] || fail "plans not kept on remove"
getent passwd orvel-scheduler > /dev/null || fail "user removed on remove"
dpkg -P orvel-scheduler > /dev/null
for path in /etc/orvel-scheduler /var/lib/orvel-scheduler /var/log/orvel-scheduler \
            /lib/systemd/system/OrvelSchedulerService.service; do
  [ ! -e $path ] || fail "left after purge: $path"
done
getent passwd orvel-scheduler > /dev/null && fail "user left after purge"
getent group orvel-scheduler > /dev/null && fail "group left after purge"
echo "package check: lintian-clean, exposure $exposure, installs, runs as its own user, removes and purges cleanly"
