#!/usr/bin/env bash
# Measures what the test suite catches: applies each fault of scripts/mutants.tsv
# on its own, rebuilds, runs the tests, restores the file, and prints one line
# per fault (killed, survived or no-build) and last "killed K of N".
#   scripts/mutants.sh [text...]   only the faults whose line contains one of the texts
# A tool for developers, not a test: it takes the better part of an hour.
set -euo pipefail
cd "$(dirname "$0")/.."
faults=scripts/mutants.tsv
filters=("$@")
jobs=$(nproc)

scripts/setup.sh >/dev/null
cmake -S . -B build/native -G Ninja -DCMAKE_BUILD_TYPE=Debug >/dev/null
cmake -S . -B build/win -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake \
      -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null

build() {
    cmake --build build/native -j "$jobs" >/dev/null 2>&1 &&
        cmake --build build/win -j "$jobs" >/dev/null 2>&1
}

suite_passes() {
    ctest --test-dir build/native -j "$jobs" --stop-on-failure --timeout 300 "$@" >/dev/null 2>&1 &&
        ctest --test-dir build/win -j "$jobs" --stop-on-failure --timeout 300 "$@" >/dev/null 2>&1
}

# The Wine tests of the folder a fault is in, which run first: a fault they
# catch costs seconds, not the whole suite. Only a fault they miss runs the rest.
first_tests() {
    case "$1" in
    src/frame/*) echo "frame|drivers|windows" ;;
    src/drivers/*) echo "drivers|windows" ;;
    src/readers/*) echo "readers" ;;
    src/registry/* | src/profiles/*) echo "registry|profiles|windows|script" ;;
    src/services/* | src/integrity/*) echo "system|script" ;;
    src/provider/*) echo "provider" ;;
    src/rng/*) echo "provider|windows" ;;
    src/sspi/*) echo "system|tls_package|script" ;;
    src/legacy/*) echo "legacy" ;;
    src/features/*) echo "features" ;;
    *) echo "none" ;;
    esac
}

# The native unit tests, then the Wine tests of the fault's folder, then all.
caught() {
    ! ctest --test-dir build/native -j "$jobs" --stop-on-failure -E fuzz >/dev/null 2>&1 ||
        ! ctest --test-dir build/win -j "$jobs" --timeout 300 -R "wine.prefix|$(first_tests "$1")" \
            >/dev/null 2>&1 ||
        ! suite_passes
}

backup=$(mktemp)
mutated=
restore() {
    if [ -n "$mutated" ]; then
        cp "$backup" "$mutated"
        mutated=
    fi
}
trap 'restore; rm -f "$backup"' EXIT

build || { echo "the unchanged tree does not build" >&2; exit 1; }
suite_passes || { echo "the unchanged tree fails its tests" >&2; exit 1; }

killed=0
total=0
while IFS=$'\t' read -r file old new what; do
    case "$file" in '' | '#'*) continue ;; esac
    if [ ${#filters[@]} -gt 0 ]; then
        chosen=
        for filter in "${filters[@]}"; do
            [[ "$file $old $what" == *"$filter"* ]] && chosen=1
        done
        [ -n "$chosen" ] || continue
    fi
    total=$((total + 1))
    cp "$file" "$backup"
    mutated=$file
    FAULT_OLD=$old FAULT_NEW=$new perl -0777 -i -pe \
        '$n = s/\Q$ENV{FAULT_OLD}\E/$ENV{FAULT_NEW}/g; END { exit($n == 1 ? 0 : 3) }' "$file" ||
        { echo "bad fault (text not found once): $file: $old" >&2; exit 1; }
    if ! build; then
        outcome="no-build"
    elif caught "$file"; then
        outcome="killed"
        killed=$((killed + 1))
    else
        outcome="survived"
    fi
    restore
    printf '%-8s %s: %s\n' "$outcome" "$file" "$what"
done <"$faults"
build
echo "killed $killed of $total"
