#!/usr/bin/env bash
# Builds everything and runs every test: the portable logic natively under the
# sanitizers, then the cross-built library under Wine, then the Windows-on-ARM
# shipping build's checks.
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

# The Windows-on-ARM shipping build and its checks, once its toolchain is in the
# cache (CI builds it first; on a workstation scripts/shipping-build.sh builds it
# once). Its export tables are compared with those of the x64 build above.
SETUPUTILS_X64_DLL=build/win/bin/setuputils.dll scripts/shipping-build.sh --if-cached
