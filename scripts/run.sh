#!/usr/bin/env bash
# Sets up and builds, then shows the whole road on this machine: the stand-in
# agent and the service start, a demo plan that runs every minute is added, and
# the agent prints each command it receives (600 runs the plan's job, 601
# reports its next start time). Ctrl-C stops both.
set -euo pipefail
cd "$(dirname "$0")/.."
BUILD_DIR=${BUILD_DIR:-build}
BUILD_DIR=$BUILD_DIR TARGETS="OrvelSchedulerService orvelctl" ./scripts/setup.sh
BIN="$BUILD_DIR/bin"

"$BIN/orvelctl" agent &
AGENT=$!
# The demo plan goes into the plans file before the service starts: a service
# that opened the file while orvelctl was creating it would find it empty and
# refuse it. That no service listens yet is expected, so orvelctl's word on it
# is not shown.
"$BIN/orvelctl" plan modify --plan demo-every-minute --name "Demo plan" --type 2 --start "" --interval 60 \
  > /dev/null 2>&1 || true
"$BIN/OrvelSchedulerService" &
SERVICE=$!
cleanup() {
  kill -TERM "$SERVICE" "$AGENT" 2>/dev/null || true
  wait "$SERVICE" "$AGENT" 2>/dev/null || true
  echo "Stopped. The service's log: $BIN/log/schedulerservice.log"
}
trap cleanup EXIT
trap 'exit 0' INT TERM

for _ in $(seq 50); do
  "$BIN/orvelctl" plan modify --plan demo-every-minute --name "Demo plan" --type 2 --start "" --interval 60 \
    && break
  sleep 0.2
done
echo "The demo plan runs every minute; watch for command 600 above. Ctrl-C stops the agent and the service."
wait "$SERVICE"
