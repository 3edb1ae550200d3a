#!/usr/bin/env bash
# Every C++ source follows the committed .clang-format.
set -euo pipefail
cd "$(dirname "$0")/.."
git ls-files '*.cpp' '*.h' | xargs clang-format --dry-run --Werror
echo "format check: clean"
