#!/usr/bin/env bash
# Builds the library and the sample package (from WiX source, with wixl and
# msibuild), installs it with msiexec under Wine, checks the machine and the
# installer's log, removes it and checks again, then checks that a failed
# installation rolls back cleanly.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh

cmake -S . -B build/win -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake \
      -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build/win -j "$(nproc)" --target sample_package
exec sample/round-trip.sh build/win/sample/sample.msi build/sample
