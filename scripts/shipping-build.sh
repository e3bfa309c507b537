#!/usr/bin/env bash
# The shipping build for Windows on ARM: one ARM64X setuputils.dll (native ARM64
# code for ARM64 installer processes, ARM64EC code for emulated x64 ones) from
# the sources of the x64 build, then its checks (scripts/woa/check-shipping-dll.sh).
# The toolchain is built once into a cache folder (scripts/woa/build-toolchain.sh)
# and reused by later runs.
# Usage: scripts/shipping-build.sh [--if-cached] [<build folder>]
#        default folder build/woa-arm64x; --if-cached skips the build when the
#        toolchain has not been built yet (for the test run). With
#        SETUPUTILS_X64_DLL naming an x64 build, the checks compare its exports too.
set -euo pipefail
cd "$(dirname "$0")/.."
if_cached=
if [ "${1:-}" = "--if-cached" ]; then
    if_cached=1
    shift
fi
build=${1:-build/woa-arm64x}
started=$SECONDS

if [ -n "$if_cached" ]; then
    if ! toolchain=$(scripts/woa/build-toolchain.sh --cached 2>/dev/null); then
        echo "SKIP  Windows-on-ARM shipping build: its toolchain is not built yet" \
            "(scripts/shipping-build.sh builds it once)"
        exit 0
    fi
else
    toolchain=$(scripts/woa/build-toolchain.sh)
fi
toolchain_seconds=$((SECONDS - started))

# The toolchain file's flags take effect when a build folder is made: a folder
# made with another toolchain or toolchain file starts again.
stamp="$(sha256sum cmake/woa-llvm-mingw.cmake | cut -c1-64) $toolchain"
[ "$(cat "$build"/.woa-toolchain 2>/dev/null)" = "$stamp" ] || rm -rf "$build"
cmake -S . -B "$build" -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/woa-llvm-mingw.cmake \
    -DWOA_ARCH=arm64ec -DWOA_TOOLCHAIN="$toolchain" -DCMAKE_BUILD_TYPE=Release \
    -DSETUPUTILS_TESTS=OFF >/dev/null
echo "$stamp" >"$build"/.woa-toolchain
cmake --build "$build" -j "$(nproc)" --target setuputils

dll=$build/bin/setuputils.dll
scripts/woa/check-shipping-dll.sh "$dll" ${SETUPUTILS_X64_DLL:+"$SETUPUTILS_X64_DLL"}
echo "setuputils.dll (ARM64X): $(realpath "$dll"), $(stat -c %s "$dll") bytes;" \
    "toolchain $toolchain_seconds s, total $((SECONDS - started)) s"
