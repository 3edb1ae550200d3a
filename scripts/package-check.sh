#!/usr/bin/env bash
# Builds the Debian package, installs it, runs the installed service from its
# folder with its default configuration, and removes and purges it again,
# checking that nothing is left behind. Needs root.
set -euo pipefail
cd "$(dirname "$0")/.."
BUILD_DIR=${BUILD_DIR:-build-package}
dpkg-query -W -f='${Status}' dpkg-dev 2>/dev/null | grep -q "install ok installed" ||
  DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends dpkg-dev
BUILD_DIR=$BUILD_DIR TARGETS="OrvelSchedulerService orvelctl" ./scripts/setup.sh -DCMAKE_BUILD_TYPE=Release \
  -DBUILD_TESTING=OFF -DORVEL_BENCHMARKS=OFF
(cd "$BUILD_DIR" && cpack -G DEB > /dev/null)
package=$(ls "$BUILD_DIR"/orvel-scheduler_*.deb)
echo "built $package"
DEBIAN_FRONTEND=noninteractive apt-get install -y -q "./$package" > /dev/null

fail() { echo "package check: $*"; exit 1; }
[ -x /opt/orvel-scheduler/OrvelSchedulerService ] || fail "service not installed"
orvelctl preview --type 1 --start "2030-01-01 00:00:00" --now "2029-12-31 00:00:00" --count 1 | grep -q 2030 ||
  fail "orvelctl not on the PATH"
if command -v systemd-analyze > /dev/null; then
  systemd-analyze verify /lib/systemd/system/OrvelSchedulerService.service || fail "unit refused"
fi
/opt/orvel-scheduler/OrvelSchedulerService &
pid=$!
for _ in $(seq 50); do
  grep -q "SchedulerService start success." /opt/orvel-scheduler/log/schedulerservice.log 2>/dev/null && break
  sleep 0.1
done
grep -q "SchedulerService start success." /opt/orvel-scheduler/log/schedulerservice.log || fail "service did not start"
kill -TERM $pid
wait $pid || fail "service did not stop cleanly"

dpkg -r orvel-scheduler > /dev/null
left=$(find /opt/orvel-scheduler -type f 2>/dev/null | grep -v -E '^/opt/orvel-scheduler/(cfg/config.ini|data/)' || true)
[ -z "$left" ] || fail "left after remove: $left"
[ -f /opt/orvel-scheduler/cfg/config.ini ] || fail "configuration not kept on remove"
[ ! -e /usr/bin/orvelctl ] || fail "orvelctl left on the PATH"
dpkg -P orvel-scheduler > /dev/null
[ ! -e /opt/orvel-scheduler ] || fail "left after purge: $(find /opt/orvel-scheduler)"
[ ! -e /lib/systemd/system/OrvelSchedulerService.service ] || fail "unit left after purge"
echo "package check: installs, runs, removes and purges cleanly"
