#!/usr/bin/env bash
# Builds the fuzz targets with clang's libFuzzer (the command decoding with the
# plan data it carries, and the reader of stored trigger rows) and runs each
# for a bounded time (seconds, default 60). Any crash fails the run.
set -euo pipefail
cd "$(dirname "$0")/.."
SECONDS_TO_RUN=${1:-60}
for package in clang-14 libclang-rt-14-dev; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed"; then
    DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends clang-14 libclang-rt-14-dev
    break
  fi
done
BUILD_DIR=${BUILD_DIR:-build-fuzz}
CXX=clang++-14 CC=clang-14 cmake -S . -B "$BUILD_DIR" -G Ninja -DORVEL_FUZZ=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo > /dev/null
cmake --build "$BUILD_DIR" --target command_fuzzer row_fuzzer
for target in command_fuzzer row_fuzzer; do
  echo "== $target"
  mkdir -p "$BUILD_DIR/corpus/$target"
  "$BUILD_DIR/bin/$target" -max_total_time="$SECONDS_TO_RUN" -max_len=4096 -print_final_stats=1 \
    "$BUILD_DIR/corpus/$target" 2>&1 | tail -n 15
done
