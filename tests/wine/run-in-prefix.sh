#!/usr/bin/env bash
# Runs one Windows test program under Wine in a fresh copy of the run's prefix,
# optionally reporting another Windows version, and removes the copy afterwards.
set -u
: "${SETUPUTILS_WINE_TEMPLATE:?the prefix template of this run}"
root=$(dirname "$SETUPUTILS_WINE_TEMPLATE")/prefixes
mkdir -p "$root"
prefix=$(mktemp -d "$root/prefix.XXXXXX")
# A copy, never hard links: the server rewrites the registry files in place.
cp -a "$SETUPUTILS_WINE_TEMPLATE/." "$prefix/"

export WINEPREFIX=$prefix WINEDEBUG=${SETUPUTILS_WINEDEBUG:--all}
export WINEDLLOVERRIDES="mscoree=;mshtml=;winemenubuilder.exe=d;winedbg.exe=d"
unset DISPLAY
cleanup() {
    wineserver -k >/dev/null 2>&1
    rm -rf "$prefix"
}
trap cleanup EXIT

if [ -n "${SETUPUTILS_WINDOWS_VERSION:-}" ]; then
    wine reg add 'HKCU\Software\Wine' /v Version /d "$SETUPUTILS_WINDOWS_VERSION" /f >/dev/null 2>&1
fi
# Keep the server between the processes of one program.
wineserver -p 30
timeout --kill-after=10 "${SETUPUTILS_TEST_TIMEOUT:-240}" wine "$@"
