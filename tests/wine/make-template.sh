#!/usr/bin/env bash
# Makes the Wine prefix that every test program of this run starts from.
set -eu
template=$1
export WINEPREFIX=$template WINEDEBUG=-all WINEARCH=win64
# No Mono or Gecko installers, no desktop menus, no debugger popping up on a crash.
export WINEDLLOVERRIDES="mscoree=;mshtml=;winemenubuilder.exe=d;winedbg.exe=d"
unset DISPLAY
rm -rf "$template"
mkdir -p "$(dirname "$template")"
wineboot -i >/dev/null 2>&1
wine reg add 'HKLM\Software\Microsoft\Windows NT\CurrentVersion\AeDebug' /v Debugger /d '' /f >/dev/null 2>&1
wine reg add 'HKLM\Software\Microsoft\Windows NT\CurrentVersion\AeDebug' /v Auto /d 0 /f >/dev/null 2>&1
wineserver -w
test -f "$template/system.reg"
echo "Wine prefix template ready: $template"
