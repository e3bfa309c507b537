# Shared by the sample's round trip and the library's script tests: a fresh
# Wine prefix for one package, msiexec with a verbose log, checks that count
# failures, and snapshots of the registry and files of the prefix.
#
#   source msiexec-run.sh <package.msi> <work folder>
#
# With SETUPUTILS_WINE_TEMPLATE set, the prefix is a copy of that template.
# The package and its logs are in $public (C:\users\Public\sample).
if [ $# -ne 2 ]; then
    sed -n '5p' "${BASH_SOURCE[0]}" >&2
    exit 2
fi
package=$(cd "$(dirname "$1")" && pwd)/$(basename "$1")
mkdir -p "$2"
work=$(cd "$2" && pwd)
kit_here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)

export WINEPREFIX=$work/prefix WINEDEBUG=-all
export WINEDLLOVERRIDES="mscoree=;mshtml=;winemenubuilder.exe=d;winedbg.exe=d"
unset DISPLAY
wineserver -k >/dev/null 2>&1 || true
rm -rf "$WINEPREFIX"
if [ -n "${SETUPUTILS_WINE_TEMPLATE:-}" ]; then
    cp -a "$SETUPUTILS_WINE_TEMPLATE" "$WINEPREFIX"
else
    "$kit_here/../tests/wine/make-template.sh" "$WINEPREFIX" >/dev/null
fi
trap 'wineserver -k >/dev/null 2>&1 || true' EXIT
# One server for the whole run: the driver keeps running between the steps.
wineserver -p 600

public=$WINEPREFIX/drive_c/users/Public/sample
mkdir -p "$public"
msi=$(basename "$package") # the package msiexec installs
cp "$package" "$public/$msi"
code=$(msiinfo export "$package" Property | tr -d '\r' | sed -n 's/^ProductCode\t//p')
echo "Package: $public/$msi, product $code"

failures=0
check() { # check <description> <command...>
    if "${@:2}"; then echo "  ok    $1"; else echo "  FAIL  $1"; failures=$((failures + 1)); fi
}
logged() { grep -a -q -- "$1" "$2"; }
first_line() { grep -a -n -m1 -- "$1" "$2" | cut -d: -f1; }
started_before() { # started_before <action> <later action> <log>
    local a b
    a=$(first_line "Action start .*: $1\\." "$3")
    b=$(first_line "Action start .*: $2\\." "$3")
    [ -n "$a" ] && [ -n "$b" ] && [ "$a" -lt "$b" ]
}
reg_shows() { # reg_shows <key> <value> <text>
    wine reg query "$1" /v "$2" 2>/dev/null | tr -d '\r' | grep -q -- "$3"
}
tree_shows() { # tree_shows <key> <text>: anywhere below the key
    wine reg query "$1" /s 2>/dev/null | tr -d '\r' | grep -q -- "$2"
}
reg_has() { wine reg query "$@" >/dev/null 2>&1; }
lacks() { ! "$@"; }

# The registry and files of the prefix, less what the installer and the
# service manager keep for themselves (installer registration and cache,
# the service start counter) and the sample's own folder.
bookkeeping='\\Installer(\\|\])|\\ServiceCurrent\]'
snapshot() {
    for hive in HKLM HKCU; do
        wine reg export "$hive" "C:\\users\\Public\\sample\\$hive.reg" /y >/dev/null 2>&1
        iconv -f UTF-16LE -t UTF-8 "$public/$hive.reg"
    done | tr -d '\r' | SKIP=$bookkeeping awk '
        /^\[/ { key = $0; keep = (key !~ ENVIRON["SKIP"]); if (keep) print key; next }
        keep && NF { print key " " $0 }'
    (cd "$WINEPREFIX/drive_c" && find . -path ./users/Public/sample -prune -o -path ./windows/Installer -prune \
        -o -print | sort)
}
same_as_before() { # same_as_before <name>
    snapshot > "$work/$1.snapshot"
    if diff -u "$work/before.snapshot" "$work/$1.snapshot" > "$work/$1.diff"; then
        return 0
    fi
    echo "        differences after $1 (first lines of $work/$1.diff):"
    sed -n '3,22p' "$work/$1.diff" | sed 's/^/        /'
    return 1
}
msiexec() { # msiexec <option> <log name> [properties]: wine cuts the exit status to 8 bits
    set +e
    wine msiexec "$1" "$msi" /qn /l*v "C:\\users\\Public\\sample\\$2" "${@:3}"
    status=$?
    set -e
    echo "msiexec $*: exit status $status"
}


# Wine registers its display devices when the first program of the window
# system starts: a removal of a product that is not installed starts one
# before the first snapshot, so that they do not count as the package's changes.
snapshot_before() {
    wine msiexec /qn /x '{00000000-0000-0000-0000-000000000000}' >/dev/null 2>&1 || true
    snapshot > "$work/before.snapshot"
}
# The end of a run: its status.
finish() { # finish <message when every check passed>
    echo
    echo "Logs and snapshots: $public, $work"
    if [ "$failures" -ne 0 ]; then
        echo "$failures check(s) failed"
        exit 1
    fi
    echo "$1"
}
