#!/usr/bin/env bash
# Builds the command decoding fuzz target with clang's libFuzzer and runs it
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
cmake --build "$BUILD_DIR" --target command_fuzzer
mkdir -p "$BUILD_DIR/corpus"
"$BUILD_DIR/bin/command_fuzzer" -max_total_time="$SECONDS_TO_RUN" -max_len=4096 -print_final_stats=1 \
  "$BUILD_DIR/corpus" 2>&1 | tail -n 15
