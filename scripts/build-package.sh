#!/usr/bin/env bash
# Builds the Debian package and its debug symbols with Debian's hardening
# flags into $BUILD_DIR (default: build-package) and prints the path of the
# .deb on its last line.
set -euo pipefail
cd "$(dirname "$0")/.."
BUILD_DIR=${BUILD_DIR:-build-package}
dpkg-query -W -f='${Status}' dpkg-dev 2>/dev/null | grep -q "install ok installed" ||
  DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends dpkg-dev > /dev/null

export DEB_BUILD_MAINT_OPTIONS=hardening=+all
BUILD_DIR=$BUILD_DIR TARGETS="OrvelSchedulerService orvelctl package_documents" ./scripts/setup.sh \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DBUILD_TESTING=OFF -DORVEL_BENCHMARKS=OFF \
  -DCMAKE_CXX_FLAGS="$(dpkg-buildflags --get CXXFLAGS) $(dpkg-buildflags --get CPPFLAGS)" \
  -DCMAKE_EXE_LINKER_FLAGS="$(dpkg-buildflags --get LDFLAGS)" >&2
rm -f "$BUILD_DIR"/orvel-scheduler*.deb "$BUILD_DIR"/orvel-scheduler*.ddeb
(cd "$BUILD_DIR" && cpack -G DEB > /dev/null)
ls "$BUILD_DIR"/orvel-scheduler_*.deb
