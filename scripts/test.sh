#!/usr/bin/env bash
# Builds everything and runs every test: the portable logic natively under the
# sanitizers, then the cross-built library under Wine.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh

jobs=$(nproc)
cmake -S . -B build/native -G Ninja -DCMAKE_BUILD_TYPE=Debug >/dev/null
cmake --build build/native -j "$jobs"
cmake -S . -B build/win -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake \
      -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build/win -j "$jobs"

ctest --test-dir build/native --output-on-failure -j "$jobs"
ctest --test-dir build/win --output-on-failure -j "$jobs"
