#!/usr/bin/env bash
# Builds the sample package from sample.wxs and the kit in wix/:
#
#   sample/build.sh <sample.msi> <setuputils.dll> <driver .sys> [more.wxi]
#
# A .wxi given after the driver is included after the sample's own families
# (the library's tests build a package with every family this way).
# wixl takes the files a package holds from paths relative to the folder it
# runs in: the library, the INF and the driver are copied beside the package.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
if [ $# -lt 3 ] || [ $# -gt 4 ]; then
    sed -n '4p' "$0" >&2
    exit 2
fi
mkdir -p "$(dirname "$1")"
out=$(cd "$(dirname "$1")" && pwd)
cp "$2" "$out/setuputils.dll"
cp "$3" "$out/nvsample.sys"
cp "$here/nvsample.inf" "$out/nvsample.inf"
source=$here/sample.wxs
more=()
if [ $# -eq 4 ]; then
    source=$out/$(basename "$1" .msi).wxs
    sed "s|<?include readers.wxi?>|&\n    <?include $(basename "$4")?>|" "$here/sample.wxs" >"$source"
    more=(-I "$(cd "$(dirname "$4")" && pwd)")
fi
cd "$out"
exec "$here/../wix/build-msi.sh" "$(basename "$1")" -a x64 -D SetupUtilsDll=setuputils.dll "${more[@]}" "$source" \
    -- "$here/../wix/Error.idt" "$here"/{NVDriverPackages,RegReaders,PropertyEx,Registry,RemoveRegistry}.idt
