#!/usr/bin/env bash
# Every deferred, rollback and commit action of the library from a real
# installation script: the sample package with every other family of the kit
# (every-family.wxi) is installed, repaired, removed and installed again with a
# forced failure under msiexec, with the machine prepared so that each action
# has its work to do. Checks what each action did (those of the sample's own
# families: the sample's round trip), that every such entry point of the
# package ran, and that none of them used what a script does not give a
# deferred action: a property other than CustomActionData, ProductCode and
# UserSID, or an installer function that needs the session (Wine serves both;
# msiexec is traced and the trace read by script-context.awk).
#
#   every-action.sh <every.msi, built by sample/build.sh> <test programs folder> <work folder>
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
programs=$(cd "$2" && pwd)
# shellcheck source=../../sample/msiexec-run.sh
source "$here/../../sample/msiexec-run.sh" "$1" "$3"
cp "$programs"/test_service.exe "$programs"/test_verifier.exe "$public/"

control='HKLM\System\CurrentControlSet\Control'
services='HKLM\System\CurrentControlSet\Services'
norvane='HKLM\Software\Norvane'
run_once='HKU\S-1-5-21-0-0-0-1000\Software\Microsoft\Windows\CurrentVersion\RunOnce'
records='HKCU\Software\SetupUtilsTests'
started='HKLM\Software\SetupUtilsTests' # starts of the stand-in services
slot='HKLM\Software\Wow6432Node\Norvane\Cryptography\CurrentVersion\PKCS11\slot0'
both() { # both <command...> -- <command...>
    local i
    for ((i = 1; i <= $#; i++)); do [ "${!i}" = -- ] && break; done
    "${@:1:i-1}" && "${@:i+1}"
}
add() { wine reg add "$@" /f >/dev/null 2>&1; }
# The work each action finds, on a machine as Windows has it where Wine differs.
add 'HKLM\Software\Microsoft\Windows\CurrentVersion' /v ProgramW6432Dir /d 'C:\Program Files' /reg:64
add "$control\Session Manager\Power" /v HiberbootEnabled /t REG_DWORD /d 1
add "$control\Lsa" /v "Security Packages" /t REG_MULTI_SZ /d 'kerberos\0nvtls\0itcssp\0schannel\0SSPP'
add "$control\Windows" /v NoInteractiveServices /t REG_DWORD /d 1
patches="$control\Session Manager\NvnPatches"
add "$patches\Msi" /v "Image Dll" /d MSI.DLL
add "$patches\ADVAPI32" /v "Image Dll" /d advapi32.dll
add "$patches\ADVAPI32" /v "Patch Dll64" /d nvpatch64.dll
add "$patches\Excluded" /v "Image Dll" /d msxml5.dll
defaults='HKLM\SOFTWARE\Microsoft\Cryptography\Defaults'
add "$defaults\Provider\Norvane SmartCard CSP\Sub" /v Type /t REG_DWORD /d 75
add "$defaults\Provider Types\Type 071\Sub" /v Name /d old
add 'HKLM\SOFTWARE\WOW6432Node\Microsoft\Cryptography\Defaults\Provider Types\Type 001' /v Name /d 'RSA 32'
add "$run_once"
add 'HKLM\Software\Wow6432Node\Norvane\Linked' /v Shared /d both
add "$norvane\Linked" /v Stale /d native
service="C:\\users\\Public\\sample\\test_service.exe"
wine sc create SCardSvr binPath= "$service SCardSvr" start= disabled >/dev/null
wine sc create NvnProtected binPath= "$service NvnProtected -k nvcsp -p" type= share >/dev/null
wine sc start NvnProtected >/dev/null
until wine sc query NvnProtected | grep -q RUNNING; do sleep 0.2; done
# What the installer's calls into the library show: the trace is read per run.
add 'HKCU\Software\Wine\Debug' /v RelayInclude /d 'msi.*;secur32.AddSecurityPackageW;sspicli.AddSecurityPackageW'
cd "$public"
traced() { WINEDEBUG=+msi,+relay msiexec "$@" 2>"$work/$2.trace"; }

echo
echo "== Installation"
traced /i install.log
check "installation succeeded" test "$status" -eq 0
check "SetSCardSvrAutoStart: smart-card service automatic and started" \
    both reg_shows "$services\\SCardSvr" Start 0x2 -- reg_shows "$started" SCardSvr 0x1
check "UnprotectService: service in a process of its own, without -p" \
    both reg_shows "$services\\NvnProtected" Type 0x10 -- lacks reg_shows "$services\\NvnProtected" ImagePath -p
check "UnprotectService: running service started again" reg_shows "$started" NvnProtected 0x2
check "EnableInteractiveServices: allowed again" reg_shows "$control\\Windows" NoInteractiveServices 0x0
check "TlsRegUninstall, SslRegInstall: older and competing packages out, the provider's last" \
    reg_shows "$control\\Lsa" "Security Packages" 'REG_MULTI_SZ *kerberos\\0schannel\\0nvsspap$'
check "SslRegister: package loaded (Wine's AddSecurityPackageW is a stub: its call)" \
    logged 'AddSecurityPackageW(.*nvsspap' "$work/install.log.trace"
check "NvnLink: settings key linked, the native one gone" \
    both reg_shows "$norvane\\Linked" Shared both -- lacks reg_shows "$norvane\\Linked" Stale native
check "NvnRelocate: integrity lists moved" reg_has "$services\\NvnCtrl\\Parameters\\NvnPatches\\Msi"
check "DelNVCSPs: old provider entry and type gone, whole" \
    both lacks reg_has "$defaults\\Provider\\Norvane SmartCard CSP" -- lacks reg_has "$defaults\\Provider Types\\Type 071"
check "RegCreateSlot0Entry: slot entry with the 32-bit RSA default" \
    both reg_shows "$slot" Reader REGISTRY -- reg_shows "$slot" ProvRSA 'RSA 32'
check "AddNVCertStore: trusted store registered" reg_has 'HKLM\Software\Microsoft\SystemCertificates\NorvaneTrustedStore'
check "NVRegisterUser: fields split at the first two bars" \
    both reg_shows "$norvane\\Settings" CompanyName 'Co \[1\]' -- reg_shows "$norvane\\Settings" UserName 'A|B'
check "SetupCSPTest: self-test ran" tree_shows "$records\\Verifier" -selftest
check "InitializeHardRng: seeding at the next logon" reg_shows "$run_once" Seed 'C:\\seed.exe'
check "SetRunOnceEveryone: entry for every user" reg_shows "$run_once" InstallCSP 'C:\\nv.exe'
check "RebuildIconCache: cache deleted at restart" reg_shows "$control\\Session Manager" PendingFileRenameOperations IconCache
check "CheckModeOn: check mode on, through the link NvnRelocate left" \
    reg_shows "$services\\NvnCtrl\\Parameters\\NvnIntegrity" CheckMode 0x2
verified() { tree_shows "$records\\Verifier" "$1 .*/q -addreg -file"; }
check "UpdateSystemIntegrity: verifier ran on each listed image in both system folders" \
    both verified 'syswow64.advapi32.dll' -- both verified 'system32.advapi32.dll' -- \
    both verified 'syswow64.MSI.DLL' -- verified 'system32.MSI.DLL'
check "UpdateSystemIntegrity: not on an excluded image or a patch" \
    both lacks tree_shows "$records\\Verifier" msxml5 -- lacks tree_shows "$records\\Verifier" nvpatch64

echo
echo "== Repair"
# Wine's setup API cannot copy over the file of a running driver (a copy
# error, which ends the installation): the driver is stopped first.
wine sc stop nvsample >/dev/null
traced /i repair.log REINSTALL=ALL REINSTALLMODE=amus
check "repair succeeded" test "$status" -eq 0
check "KSInstInstall: driver running again" bash -c "wine sc query nvsample | grep -q RUNNING"
check "CheckModeOn: check mode on again" reg_shows "$control\\Session Manager\\NvnIntegrity" CheckMode 0x2

echo
echo "== Removal"
add "$control\Lsa" /v "Security Packages" /t REG_MULTI_SZ /d 'NVSSL\0kerberos\0nvsspap\0nvtls'
traced /x remove.log
check "removal succeeded" test "$status" -eq 0
check "SslRegUninstall: only the provider's packages out, Schannel back" \
    reg_shows "$control\\Lsa" "Security Packages" 'REG_MULTI_SZ *kerberos\\0nvtls\\0Schannel$'
check "NvnRevert: integrity lists back" \
    both lacks reg_has "$services\\NvnCtrl\\Parameters\\NvnPatches" -- reg_has "$control\\Session Manager\\NvnPatches\\Msi"
check "CheckModeOff: check mode off" reg_shows "$control\\Session Manager\\NvnIntegrity" CheckMode 0x0
check "RemoveHardRngEntry: seeding entry removed" lacks reg_shows "$run_once" Seed .

echo
echo "== Installation failing after the other deferred actions"
marker='HKLM\Software\Microsoft\Windows\CurrentVersion\Uninstall\{6C1E5F0A-3B7D-4E29-9A41-52D8C0B7E613}'
add "$marker" /v Reboot /d Force
traced /i rollback.log FORCEFAIL=1
check "installation failed (1603, cut to 67)" test "$status" -eq 67
check "KSInstCleanUp: no reboot marker left" lacks reg_has "$marker"
check "NvnRevert (rollback): integrity lists back" lacks reg_has "$services\\NvnCtrl\\Parameters\\NvnPatches"
check "CheckModeOn (rollback): check mode on" reg_shows "$control\\Session Manager\\NvnIntegrity" CheckMode 0x2
check "NVRegisterUser (rollback): registration removed" lacks reg_shows "$norvane\\Settings" ProductID .

echo
echo "== Every deferred, rollback and commit entry point, in a script's context"
# The other entry points' effects cannot be seen here: Wine keeps no file ACL
# or integrity label (AllAppPackageSecurity, SetRegistryLow), has no
# certificate or provider to repair (FixPrivateKeyLinks, ClearWrong*,
# FixDefaultProvider, InitializeHardRngUser) and no kernel component to
# unhook (UnHookSystem); NvnUnlink changes nothing by design; what
# DeleteShortcuts, DelAllReg, DelNVCryptographyKey and NVUnregisterUser
# remove goes with the package's own removal of its tree too.
entries=$(msiinfo export "$package" CustomAction | tr -d '\r' |
    awk -F'\t' 'NR > 3 && $2 % 8 == 1 && int($2 / 1024) % 2 == 1 { print $4 }' | sort -u)
for entry in $entries; do
    check "$entry ran from a script" grep -a -q "Calling function L\"$entry\"" "$work"/*.trace
done
# The trace must show the actions' own calls, or the check below would pass on nothing.
check "the trace holds the deferred actions' reads of their data" \
    grep -a -q 'Call msi.MsiGetPropertyW(.*"CustomActionData"' "$work/install.log.trace"
awk -f "$here/script-context.awk" "$work"/*.trace > "$work/context.txt"
check "no deferred action used the installing session" test ! -s "$work/context.txt"
sed 's/^/        /' "$work/context.txt" | sort -u

finish "Every deferred, rollback and commit action ran from a real script and did its work."
