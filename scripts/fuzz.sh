#!/usr/bin/env bash
# Runs every fuzzer of tests/fuzz (libFuzzer under AddressSanitizer and
# UndefinedBehaviorSanitizer) for as long as asked, each growing its corpus in
# build/fuzz/<name>, and prints each one's figures: executions, coverage,
# corpus. The test command runs the same fuzzers for a few seconds each.
#
#   scripts/fuzz.sh [seconds per fuzzer, default 60]
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
cmake -S . -B build/native -G Ninja -DCMAKE_BUILD_TYPE=Debug >/dev/null
cmake --build build/native -j "$(nproc)" >/dev/null

seconds=${1:-60}
for fuzzer in build/native/tests/fuzz/*_fuzzer; do
    name=$(basename "$fuzzer" _fuzzer)
    mkdir -p "build/fuzz/$name"
    echo "== $name, $seconds s"
    "$fuzzer" "build/fuzz/$name" -max_total_time="$seconds" -max_len=1200 -print_final_stats=1 \
        >"build/fuzz/$name.log" 2>&1 || { tail -40 "build/fuzz/$name.log"; exit 1; }
    grep -a -E 'DONE|stat::number_of_executed_units' "build/fuzz/$name.log"
done
echo "Every fuzzer ran $seconds s without a finding."
