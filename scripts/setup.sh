#!/usr/bin/env bash
# Installs what the build needs (Debian packages, only those missing) and
# builds the project into $BUILD_DIR (default: build); $TARGETS limits what is
# built. Extra arguments go to cmake.
set -euo pipefail
cd "$(dirname "$0")/.."

PACKAGES=(cmake ninja-build g++ pkg-config qtbase5-dev libqt5sql5-sqlite liblog4cpp5-dev libsystemd-dev
          libbackward-cpp-dev libdw-dev libgtest-dev libgmock-dev libbenchmark-dev dbus sqlite3
          libfaketime libsqlite3-dev prometheus prometheus-node-exporter)
missing=()
for package in "${PACKAGES[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" || missing+=("$package")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "Installing: ${missing[*]}"
  SUDO=""
  [ "$(id -u)" -eq 0 ] || SUDO="sudo"
  $SUDO apt-get update -q
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -q --no-install-recommends "${missing[@]}"
fi

BUILD_DIR=${BUILD_DIR:-build}
# A compiler cache, where one is installed, makes rebuilds in several work trees cheap.
LAUNCHER=()
command -v ccache > /dev/null && LAUNCHER=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
cmake -S . -B "$BUILD_DIR" -G Ninja "${LAUNCHER[@]}" "$@" > /dev/null
# shellcheck disable=SC2086
cmake --build "$BUILD_DIR" ${TARGETS:+--target $TARGETS}
