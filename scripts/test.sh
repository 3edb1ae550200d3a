#!/usr/bin/env bash
# Sets up, builds and runs the whole test suite. With CI set, warnings are errors.
set -euo pipefail
cd "$(dirname "$0")/.."
BUILD_DIR=${BUILD_DIR:-build}
WERROR=OFF
[ -n "${CI:-}" ] && WERROR=ON
BUILD_DIR=$BUILD_DIR ./scripts/setup.sh -DBUILD_TESTING=ON -DORVEL_WERROR=$WERROR "$@"
cd "$BUILD_DIR"
ctest --output-on-failure -j "$(nproc)" ${CTEST_ARGS:-}
