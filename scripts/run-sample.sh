#!/usr/bin/env bash
# Builds the library and a sample package, installs it with msiexec under Wine,
# checks the machine and the installer's log, removes it and checks again.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh

cmake -S . -B build/win -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake \
      -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build/win -j "$(nproc)" --target setuputils sample_package

work=$PWD/build/sample
export WINEPREFIX=$work/prefix WINEDEBUG=-all
export WINEDLLOVERRIDES="mscoree=;mshtml=;winemenubuilder.exe=d;winedbg.exe=d"
unset DISPLAY
tests/wine/make-template.sh "$WINEPREFIX" >/dev/null
trap 'wineserver -k >/dev/null 2>&1 || true' EXIT
wineserver -p 30

public=$WINEPREFIX/drive_c/users/Public/sample
mkdir -p "$public"
code=$(wine build/win/bin/sample_package.exe 'C:\users\Public\sample' "$(winepath -w build/win/bin/setuputils.dll)" |
       tr -d '\r' | sed -n 's/^ProductCode=//p')
echo "Sample package built: product $code"

failures=0
check() { # check <description> <command...>
    if "${@:2}"; then echo "  ok    $1"; else echo "  FAIL  $1"; failures=$((failures + 1)); fi
}
logged() { grep -a -q -- "$1" "$2"; }
first_line() { grep -a -n -m1 -- "$1" "$2" | cut -d: -f1; }
started_before() { # started_before <action> <later action> <log>
    local a b
    a=$(first_line "Action start .*: $1\." "$3")
    b=$(first_line "Action start .*: $2\." "$3")
    [ -n "$a" ] && [ -n "$b" ] && [ "$a" -lt "$b" ]
}
uninstall_key="HKLM\\Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\$code"
registered() { wine reg query "$uninstall_key" >/dev/null 2>&1; }
inf="$WINEPREFIX/drive_c/Program Files/Sample Provider/Drivers/nvsample.inf"
sep=$'\x01'

msiexec() { # msiexec <option> <log name>: the exit status is cut to 8 bits by wine
    set +e
    wine msiexec "$1" sample.msi /qn /l*v "C:\\users\\Public\\sample\\$2"
    status=$?
    set -e
    echo "msiexec $1: exit status $status"
}

cd "$public"
msiexec /i install.log
check "installation succeeded" test "$status" -eq 0
check "product registered" registered
check "driver INF installed" test -f "$inf"
check "KSProcess ran" logged "Action start .*: KSProcess." install.log
check "rollback scheduled before install" started_before KSRollback64 KSInstall64 install.log
check "install data: directory, file, component id, flags, ticks" \
    logged "Drivers\\\\${sep}nvsample.inf${sep}{[0-9A-F-]*}${sep}32${sep}3000000\$" install.log

msiexec /x remove.log
check "removal succeeded" test "$status" -eq 0
check "uninstall scheduled" logged "KSUninstall64" remove.log
check "uninstall data names the INF's service" logged "${sep}3000000${sep}nvsample" remove.log
check "product unregistered" bash -c "! wine reg query '$uninstall_key' >/dev/null 2>&1"
check "driver INF removed" test ! -f "$inf"

echo "Logs: $public/install.log, $public/remove.log"
if [ "$failures" -ne 0 ]; then
    echo "$failures check(s) failed"
    exit 1
fi
echo "Sample installed, checked and removed."
