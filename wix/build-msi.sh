#!/usr/bin/env bash
# Builds a package from WiX source with Debian's wixl and msibuild (msitools):
#
#   wix/build-msi.sh <package.msi> [wixl options: -D NAME=VALUE, -I folder, -a arch] <source.wxs>... [-- <table.idt>...]
#
# 1. wixl compiles the source; this folder is on its include path, so a
#    product includes the families it uses with <?include drivers.wxi?>.
# 2. wixl 0.101 writes every DLL custom action as immediate or deferred and
#    takes a missing Impersonate for "no": each CustomAction row is rewritten
#    with the type its Execute, Impersonate and Return attributes give (the
#    types WiX proper writes from the same source).
# 3. msibuild imports the .idt files after "--": the custom tables, the
#    Error texts and whatever else wixl cannot write. An imported table
#    replaces a table of the same name.
set -euo pipefail
kit=$(cd "$(dirname "$0")" && pwd)
if [ $# -lt 2 ]; then
    sed -n '2,4p' "$0" >&2
    exit 2
fi
msi=$1
shift
wixl_args=()
tables=()
while [ $# -gt 0 ]; do
    if [ "$1" = -- ]; then
        shift
        tables=("$@")
        break
    fi
    wixl_args+=("$1")
    shift
done

rm -f "$msi"
wixl -I "$kit" -o "$msi" "${wixl_args[@]}"

attribute() { # attribute <name> <element line>
    sed -n "s/.* $1=\"\\([^\"]*\\)\".*/\\1/p" <<<"$2"
}

# The CustomAction type of one element of the preprocessed source, or
# nothing for a kind this script leaves as wixl wrote it (an EXE, a script).
# An attribute it does not know stops the build rather than lose a bit.
custom_action_type() {
    local line=$1 type execute impersonate name
    if [ -n "$(attribute BinaryKey "$line")" ] && [ -n "$(attribute DllEntry "$line")" ]; then
        type=1 # DLL in the Binary table
    elif [ -n "$(attribute Property "$line")" ] && [ -n "$(attribute Value "$line")" ]; then
        type=51 # sets a property to a formatted text
    else
        return 0
    fi
    for name in $(grep -o ' [A-Za-z]*="' <<<"$line" | tr -d ' ="'); do
        case "$name" in
            Id | BinaryKey | DllEntry | Property | Value | Execute | Impersonate | Return | HideTarget | TerminalServerAware) ;;
            *) echo "build-msi.sh: CustomAction/@$name is not handled" >&2; return 1 ;;
        esac
    done
    execute=$(attribute Execute "$line")
    case "$execute" in
        '' | immediate) ;;
        deferred) type=$((type | 0x400)) ;;
        rollback) type=$((type | 0x500)) ;;
        commit) type=$((type | 0x600)) ;;
        *) echo "build-msi.sh: Execute=\"$execute\" is not handled" >&2; return 1 ;;
    esac
    impersonate=$(attribute Impersonate "$line")
    if [ "$impersonate" = no ] && [ -n "$execute" ] && [ "$execute" != immediate ]; then
        type=$((type | 0x800))
    fi
    case "$(attribute Return "$line")" in
        '' | check) ;;
        ignore) type=$((type | 0x40)) ;;
        asyncWait) type=$((type | 0x80)) ;;
        asyncNoWait) type=$((type | 0xC0)) ;;
    esac
    if [ "$(attribute HideTarget "$line")" = yes ]; then
        type=$((type | 0x2000))
    fi
    if [ "$(attribute TerminalServerAware "$line")" = yes ]; then
        type=$((type | 0x4000))
    fi
    echo "$type"
}

updates=()
while IFS= read -r line; do
    id=$(attribute Id "$line")
    type=$(custom_action_type "$line")
    if [ -n "$type" ]; then
        updates+=(-q "UPDATE \`CustomAction\` SET \`Type\` = $type WHERE \`Action\` = '$id'")
    fi
done < <(wixl -E -I "$kit" "${wixl_args[@]}" | grep '<CustomAction ')
if [ ${#updates[@]} -gt 0 ]; then
    msibuild "$msi" "${updates[@]}"
fi

for table in "${tables[@]}"; do
    msibuild "$msi" -i "$table"
done
