#!/usr/bin/env bash
# Every read of the current date-time goes through Clock (framework/Clock.cpp),
# so that tests can shift it. This finds direct reads anywhere else.
set -euo pipefail
cd "$(dirname "$0")/.."
PATTERN='QDateTime::currentDateTime|QDateTime::currentMSecsSinceEpoch|QDateTime::currentSecsSinceEpoch|QDate::currentDate|QTime::currentTime|system_clock::now|gettimeofday|clock_gettime|[^_a-zA-Z]time\(nullptr\)|[^_a-zA-Z]time\(NULL\)|[^_a-zA-Z]time\(0\)'
hits=$(grep -rnE "$PATTERN" --include='*.cpp' --include='*.h' \
  framework timing platform service scheduler triggers firing communication store operations tools bench tests \
  | grep -v '^framework/Clock.cpp:' || true)
if [ -n "$hits" ]; then
  echo "Direct reads of the current time outside framework/Clock.cpp:"
  echo "$hits"
  exit 1
fi
echo "clock check: every read of the current time goes through Clock"
