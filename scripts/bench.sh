#!/usr/bin/env bash
# Runs the benchmarks under Wine in a fresh prefix and prints their ratios:
# the registry library against the system on a large tree, and the table and
# per-user actions at 100 and 2,000 items against bare loops.
#
#   scripts/bench.sh [rounds]
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
cmake -S . -B build/win -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake \
      -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build/win -j "$(nproc)" --target registry_bench action_bench

export WINEPREFIX=$PWD/build/bench/prefix WINEDEBUG=-all
export WINEDLLOVERRIDES="mscoree=;mshtml=;winemenubuilder.exe=d;winedbg.exe=d"
unset DISPLAY
tests/wine/make-template.sh "$WINEPREFIX" >/dev/null
trap 'wineserver -k >/dev/null 2>&1 || true' EXIT
wine build/win/bin/registry_bench.exe "${1:-3}" | tr -d '\r'
wine build/win/bin/action_bench.exe "${1:-3}" | tr -d '\r'
