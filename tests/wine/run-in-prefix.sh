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
xvfb=
cleanup() {
    wineserver -k >/dev/null 2>&1
    if [ -n "$xvfb" ]; then
        kill "$xvfb" 2>/dev/null
        wait "$xvfb" 2>/dev/null
    fi
    rm -rf "$prefix"
}
trap cleanup EXIT

# Programs that show windows (message boxes) get an X server of their own on a
# free display; SETUPUTILS_XVFB_OPTIONS adds options, e.g. "-fbdir <folder>".
if [ -n "${SETUPUTILS_XVFB:-}" ]; then
    displayfile=$prefix/xvfb-display
    # shellcheck disable=SC2086
    Xvfb -displayfd 3 -screen 0 1024x768x24 -nolisten tcp ${SETUPUTILS_XVFB_OPTIONS:-} \
        3>"$displayfile" >/dev/null 2>&1 &
    xvfb=$!
    for _ in $(seq 100); do
        [ -s "$displayfile" ] && break
        sleep 0.1
    done
    if [ ! -s "$displayfile" ]; then
        echo "Xvfb did not start" >&2
        exit 1
    fi
    export DISPLAY=":$(head -n1 "$displayfile")"
    # There is no window manager: windows Wine leaves to one would make each
    # closing wait two seconds for it.
    wine reg add 'HKCU\Software\Wine\X11 Driver' /v Managed /d N /f >/dev/null 2>&1
fi

if [ -n "${SETUPUTILS_WINDOWS_VERSION:-}" ]; then
    wine reg add 'HKCU\Software\Wine' /v Version /d "$SETUPUTILS_WINDOWS_VERSION" /f >/dev/null 2>&1
fi
# Keep the server between the processes of one program.
wineserver -p 30
timeout --kill-after=10 "${SETUPUTILS_TEST_TIMEOUT:-240}" wine "$@"
