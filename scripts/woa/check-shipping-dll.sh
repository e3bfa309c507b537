#!/usr/bin/env bash
# Checks the shipping Windows-on-ARM library and prints one PASS or FAIL line per
# check; exits non-zero when one fails.
#   - the image is ARM64X: a native ARM64 view and an ARM64EC view (hybrid
#     metadata), so native ARM64 and emulated x64 installer processes both load it;
#   - both views export every name of src/exports.def (the x64 build's exports);
#   - both views import system DLLs only (on Windows 10 and later the C runtime's
#     api-ms-win-crt-* DLLs are part of the system);
#   - no x86-only code (inline assembly, x86 intrinsics) anywhere in the sources.
# Usage: scripts/woa/check-shipping-dll.sh <setuputils.dll> [<x64 setuputils.dll>]
#        With an x64 build, its export table is compared as well.
set -uo pipefail
root=$(cd "$(dirname "$0")/../.." && pwd)
dll=${1:?usage: check-shipping-dll.sh <setuputils.dll> [<x64 setuputils.dll>]}
x64_dll=${2:-}
readobj=${READOBJ:-llvm-readobj-22}
def=$root/src/exports.def
system_dlls=" advapi32 crypt32 kernel32 msi msvcrt netapi32 ntdll ole32 secur32 setupapi shell32 shlwapi user32 ucrtbase "

failed=0
pass() { echo "PASS  $*"; }
fail() {
    echo "FAIL  $*"
    failed=1
}

# The exported names of a .def file, aliases included: "Name", "Name = Internal",
# "Name @1"; comments start with ';'.
def_exports() {
    sed -e 's/;.*//' "$1" | awk '
        toupper($1) == "EXPORTS" { on = 1; next }
        toupper($1) ~ /^(LIBRARY|NAME|SECTIONS|HEAPSIZE|STACKSIZE|VERSION|DESCRIPTION)$/ { on = 0 }
        on && NF { sub(/=.*/, "", $0); split($0, word, /[ \t@]+/); print (word[1] != "" ? word[1] : word[2]) }' |
        sort -u
}

# readobj's export and import lists split by view: each line is
# "<view> export|import <name>"; the native view comes first, the ARM64EC view
# (when there is one) under the "HybridObject" heading.
view_tables() {
    "$readobj" --coff-exports --coff-imports "$1" | awk '
        /HybridObject/ { view = "ec" }
        /^ *Export \{/ { what = "export" } /^ *Import \{/ { what = "import" }
        what == "export" && /^ *Name: / { print view, "export", $2; what = "" }
        what == "import" && /^ *Name: / { print view, "import", tolower($2); what = "" }' view=native
}

if [ ! -f "$dll" ]; then
    fail "no library at $dll"
    exit 1
fi

# 1. ARM64X: readobj names the format; the load configuration points at the
#    ARM64EC (CHPE) metadata and its code map holds both kinds of code.
headers=$("$readobj" --file-headers --coff-load-config "$dll" 2>&1)
format=$(sed -n 's/^Format: *//p' <<<"$headers" | head -n 1)
chpe=$(sed -n 's/^ *CHPEMetadataPointer: *//p' <<<"$headers" | head -n 1)
if [ "$format" = "COFF-ARM64X" ] && [ -n "$chpe" ] && [ "$chpe" != "0x0" ] &&
    grep -qE '^ *0x[0-9A-F]+ - 0x[0-9A-F]+ +ARM64EC$' <<<"$headers" &&
    grep -qE '^ *0x[0-9A-F]+ - 0x[0-9A-F]+ +ARM64$' <<<"$headers"; then
    pass "ARM64X image ($format, hybrid metadata at $chpe, code map with ARM64 and ARM64EC code)"
else
    fail "not an ARM64X image: format '$format', CHPE metadata '${chpe:-none}'"
fi

# 2. Exports of both views.
expected=$(def_exports "$def")
count=$(wc -l <<<"$expected")
tables=$(view_tables "$dll")
view_name() { [ "$1" = native ] && echo "native ARM64" || echo "ARM64EC"; }
for view in native ec; do
    name=$(view_name $view)
    present=$(awk -v v=$view '$1 == v && $2 == "export" { print $3 }' <<<"$tables" | sort -u)
    missing=$(comm -23 <(echo "$expected") <(echo "$present") | tr '\n' ' ')
    if [ -z "$missing" ]; then
        pass "$name view exports all $count names of src/exports.def"
    else
        fail "$name view lacks exports: $missing"
    fi
done
if [ -n "$x64_dll" ]; then
    x64=$(view_tables "$x64_dll" | awk '$2 == "export" { print $3 }' | sort -u)
    for view in native ec; do
        present=$(awk -v v=$view '$1 == v && $2 == "export" { print $3 }' <<<"$tables" | sort -u)
        missing=$(comm -23 <(echo "$x64") <(echo "$present") | tr '\n' ' ')
        if [ -z "$missing" ]; then
            pass "$(view_name $view) view holds every export of the x64 build $x64_dll"
        else
            fail "$(view_name $view) view lacks exports of the x64 build: $missing"
        fi
    done
fi

# 3. Imports of both views.
imports=$(awk '$2 == "import" { print $3 }' <<<"$tables" | sort -u)
foreign=
for import in $imports; do
    base=${import%.dll}
    case "$system_dlls" in *" $base "*) continue ;; esac
    [[ $base == api-ms-win-crt-* ]] && continue
    foreign+="$import "
done
if [ -z "$imports" ]; then
    fail "no import table found"
elif [ -z "$foreign" ]; then
    pass "imports are system DLLs only: $(tr '\n' ' ' <<<"$imports")"
else
    fail "imports DLLs that are not part of the system: $foreign"
fi

# 4. No x86-only code in the sources.
pattern='\b(asm|__asm|__asm__)\b|__readgs|__readfs|__writegs|__writefs|__cpuid|__rdtsc|__builtin_ia32_|\b_mm_[a-z]|<(intrin|immintrin|emmintrin|xmmintrin|pmmintrin|tmmintrin|smmintrin|nmmintrin|wmmintrin|x86intrin|cpuid)\.h>'
hits=$(cd "$root" && grep -rnE --include='*.c' --include='*.cpp' --include='*.h' --include='*.hpp' \
    --include='*.inl' "$pattern" src tests sample bench 2>/dev/null)
if [ -z "$hits" ]; then
    pass "no x86-only code (inline assembly, x86 intrinsics, __readgsqword) in src, tests, sample, bench"
else
    fail "x86-only code in the sources:"
    echo "$hits" | sed 's/^/      /'
fi

exit $failed
