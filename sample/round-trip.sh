#!/usr/bin/env bash
# Checks the execution bits of the sample package's custom actions, installs
# it with msiexec in a fresh Wine prefix, shows and
# checks what the driver, host service, TLS package and reader actions did,
# removes it, checks that the machine is as before, then makes an installation fail after the driver was installed
# and checks that the rollback leaves the machine as before too; last, the
# same for drivers-only.msi (built beside the sample), the driver family alone.
#
#   round-trip.sh <sample.msi, built by sample/build.sh> <work folder>
#
# With SETUPUTILS_WINE_TEMPLATE set, the prefix is a copy of that template.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
# shellcheck source=msiexec-run.sh
source "$here/msiexec-run.sh" "$@"

service_key='HKLM\System\CurrentControlSet\Services\nvsample'
event_log_key='HKLM\System\CurrentControlSet\Services\EventLog\System\nvsample'
location_key='HKLM\Software\Microsoft\Windows\CurrentVersion\Uninstall\{A83F2C6E-91D4-4B5A-8E07-3D6B14C9F251}'
addreg_key='HKLM\Software\SetupUtilsTest\nvsample'
staged=$WINEPREFIX/drive_c/windows/inf/nvsample.inf
driver=$WINEPREFIX/drive_c/windows/system32/drivers/nvsample.sys
host_key='HKLM\System\CurrentControlSet\Services\nvsamplehost'
lsa_key='HKLM\System\CurrentControlSet\Control\Lsa'
power_key='HKLM\System\CurrentControlSet\Control\Session Manager\Power'
readers_key='HKLM\Software\Norvane\Cryptography\CurrentVersion'
cards_key='HKLM\Software\Microsoft\Cryptography\Calais\SmartCards'
cards_key32='HKLM\Software\Wow6432Node\Microsoft\Cryptography\Calais\SmartCards'
service_state() { wine sc query nvsample 2>/dev/null | tr -d '\r' | sed -n 's/^ *STATE *: *[0-9]* *//p'; }
running() { [ "$(service_state)" = RUNNING ]; }

echo
echo "== Package"
# The execution bits as the kit declares them: one action of each kind.
action_type() { msiinfo export "$package" CustomAction | tr -d '\r' | awk -F'\t' -v a="$1" '$1 == a { print $2 }'; }
while read -r action type kind; do
    check "$action: $kind ($type)" test "$(action_type "$action")" = "$type"
done <<'EOF'
KSProcess 1 immediate
KSInstall64 3073 deferred, no impersonation
KSRollback64 3329 rollback, no impersonation
SslRegister 3585 commit, no impersonation
RemoveHostService 3137 deferred, no impersonation, result ignored
SetMsiCreateService 51 sets the CustomActionData
EOF

cd "$public"
# Fast start-up on, as on a Windows machine, so that the package turns it off;
# another vendor's card type in both views, which the package must leave alone.
wine reg add "$power_key" /v HiberbootEnabled /t REG_DWORD /d 1 /f >/dev/null 2>&1
for key in "$cards_key" "$cards_key32"; do
    wine reg add "$key\Other Vendor Card" /v ATR /t REG_BINARY /d 3B0000 /f >/dev/null 2>&1
    wine reg add "$key\Other Vendor Card" /v ATRMask /t REG_BINARY /d FFFFFF /f >/dev/null 2>&1
    wine reg add "$key\Other Vendor Card" /v "Crypto Provider" /d "Other CSP" /f >/dev/null 2>&1
done
snapshot_before

echo
echo "== Installation"
msiexec /i install.log
echo "   Driver log of the installation:"
grep -a -o 'KSInstall64:[a-z]*[^]]*' install.log | sed 's/^/     /'
echo "   Service: $(service_state); staged INF: $(ls "$staged" 2>/dev/null || echo none)"
echo "   INF location record:"
wine reg query "$location_key" 2>/dev/null | tr -d '\r' | sed -n 's/^ *{/     {/p'
check "installation succeeded" test "$status" -eq 0
check "rollback scheduled before the installation" started_before KSRollback64 KSInstall64 install.log
check "INF staged in the system INF store" test -f "$staged"
check "staged location recorded" logged "SaveInfFileLocation success" install.log
check "location record names the staged INF" \
    bash -c "wine reg query '$location_key' 2>/dev/null | grep -q 'C:.windows.inf.nvsample.inf'"
check "install section copied the driver" test -f "$driver"
check "install section wrote its registry values" reg_has "$addreg_key\\Settings" /v Mode
check "driver service installed and running" running
check "installation reported success" logged "KSInstall64:info: Install driver nvsample success." install.log
echo "   Host service:"
wine reg query "$host_key" 2>/dev/null | tr -d '\r' | grep -E 'Type|Start|ImagePath|Group' | sed 's/^ */     /'
check "host service: own process, interactive before Windows 10" reg_shows "$host_key" Type 0x110
check "host service: automatic start" reg_shows "$host_key" Start 0x2
check "host service: in the system's service host" reg_shows "$host_key" ImagePath 'svchost.exe -k nvcsp'
check "host service: in the smart-card load-order group" reg_shows "$host_key" Group SmartCardGroup
check "TLS package in the security authority's list" reg_shows "$lsa_key" "Security Packages" nvsspap
check "fast start-up off" reg_shows "$power_key" HiberbootEnabled 0x0
check "fast start-up switch kept" reg_shows "$power_key" PreHiberbootEnabled 0x1
echo "   Readers, carriers and card types:"
for key in "$readers_key" "$cards_key" "$cards_key32"; do
    wine reg query "$key" /s 2>/dev/null | tr -d '\r' | sed -n 's/^\(.\)/     \1/p'  || true
done
check "carrier written with its default value" reg_shows "$readers_key\KeyCarriers\FAT12\Default" DLL nvfat12.dll
check "random source written as a number" reg_shows "$readers_key\Random\Bio\Default" Level 0x3
check "a device per port of the list ProcessPropertyEx made" \
    bash -c "wine reg query '$readers_key\KeyDevices\Sample\COM1' /v Enabled >/dev/null 2>&1 &&
             wine reg query '$readers_key\KeyDevices\Sample\COM2' /v Enabled >/dev/null 2>&1"
check "a row whose condition is false left out" lacks reg_has "$readers_key\KeyCarriers\Not here"
check "card type in the 64-bit view" tree_shows "$cards_key" "Norvane Sample CSP"
check "card type in the 32-bit view" tree_shows "$cards_key32" "Norvane Sample CSP"

echo
echo "== Removal"
# Wine's services installer skips the INF's event-log section: its key as Windows writes it.
wine reg add "$event_log_key" /v EventMessageFile /d IoLogMsg.dll /f >/dev/null 2>&1
msiexec /x remove.log
grep -a -o 'KSInstall64:[a-z]*[^]]*' remove.log | sed 's/^/     /'
check "removal succeeded" test "$status" -eq 0
check "service stopped and deleted" lacks reg_has "$service_key"
check "event-log key removed" lacks reg_has "$event_log_key"
check "driver file removed" test ! -f "$driver"
check "registry values and emptied keys removed" lacks reg_has "$addreg_key"
check "staged INF and PNF removed" test ! -f "$staged" -a ! -f "${staged%.inf}.pnf"
check "location record removed" lacks reg_has "$location_key"
check "host service removed" lacks reg_has "$host_key"
check "TLS package out of the list" lacks reg_shows "$lsa_key" "Security Packages" nvsspap
check "fast start-up on again" reg_shows "$power_key" HiberbootEnabled 0x1
check "reader tree removed" lacks reg_has 'HKLM\Software\Norvane'
check "card types removed from both views" \
    bash -c "! wine reg query '$cards_key' /s 2>/dev/null | grep -q 'Norvane Sample' &&
             ! wine reg query '$cards_key32' /s 2>/dev/null | grep -q 'Norvane Sample'"
check "the other vendor's card types kept" tree_shows "$cards_key32" "Other CSP"
check "machine as before the installation" same_as_before removal

echo
echo "== Installation failing after the driver was installed"
msiexec /i rollback.log FORCEFAIL=1
check "installation failed (1603, cut to 67)" test "$status" -eq 67
check "driver installed before the failure" logged "KSInstall64:info: Install driver nvsample success." rollback.log
check "rollback removed the driver" logged "KSInstall64:info: Uninstall driver nvsample success." rollback.log
check "service gone" lacks reg_has "$service_key"
check "host service gone" lacks reg_has "$host_key"
check "reader tree and card types gone" \
    bash -c "! wine reg query 'HKLM\Software\Norvane' >/dev/null 2>&1 &&
             ! wine reg query '$cards_key' /s 2>/dev/null | grep -q 'Norvane Sample'"
check "TLS package gone" bash -c "! wine reg query '$lsa_key' /v 'Security Packages' 2>/dev/null | grep -q nvsspap"
check "machine as before the installation" same_as_before rollback

echo
echo "== The driver family alone"
msi=drivers-only.msi
cp "$(dirname "$package")/$msi" "$public/"
msiexec /i drivers.log
check "installation succeeded" test "$status" -eq 0
check "driver service installed and running" running
msiexec /x drivers-removal.log
check "removal succeeded" test "$status" -eq 0
check "machine as before the installation" same_as_before drivers

finish "Sample installed, checked, removed and rolled back: the machine is as it was."
