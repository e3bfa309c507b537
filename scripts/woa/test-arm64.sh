#!/usr/bin/env bash
# Builds the native ARM64 library and its Wine test program, and runs the
# in-process installer-session tests and the registry tests under Debian's
# arm64 Wine, in an arm64 Debian chroot on qemu-user.
#   - the toolchain comes from scripts/woa/build-toolchain.sh (cached);
#   - the chroot is made once with debootstrap into the same cache folder;
#   - the build goes to build/woa-arm64; each test group runs in a fresh prefix.
#   - Wine 8's ARM64 C runtime crashes on any printf-like call that passes a
#     va_list, so this build formats through mingw-w64's own printf
#     (cmake/woa-llvm-mingw.cmake, WOA_WINE_TEST); the shipping build uses UCRT's.
# Usage: scripts/woa/test-arm64.sh [<gtest filter>...]    (run as root)
# Without filters it runs the groups below.
set -euo pipefail
cd "$(dirname "$0")/../.."
root=$PWD

# The session, registry, service, previous-generation, profile and feature
# groups of tests/CMakeLists.txt. Left out: the tests that start the x64 test
# kernel driver, show windows (they need an X server in the chroot), depend on
# the reported Windows version, or on "VersionNT64", which Wine's msi does not
# set on ARM64.
GATED="*OnWindows10*:*OnWindows7*:*OnWindowsXP*"
groups=("Session*:InstallLog*:Exports*-$GATED" "Registry*:Nvn*:AccessRights*-$GATED"
    "MsiCreateService*:UnprotectService*:SCardSvr*:InteractiveServices*-$GATED"
    "PreviousVersion*:Profiles*:Features*-$GATED")
[ $# -eq 0 ] || groups=("$@")

RELEASE=bookworm
ROOTFS_RECIPE=1
cache=${SETUPUTILS_WOA_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/setuputils-woa}
rootfs=$cache/rootfs-arm64-$RELEASE-r$ROOTFS_RECIPE
build=build/woa-arm64
say() { echo "test-arm64: $*" >&2; }
fail() {
    say "error: $*"
    exit 1
}
[ "$(id -u)" -eq 0 ] || fail "run as root: it installs packages, registers qemu and uses chroot"

install_host_packages() {
    local missing=() package
    for package in qemu-user-static debootstrap googletest cmake ninja-build; do
        dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" ||
            missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    say "installing ${missing[*]}"
    export DEBIAN_FRONTEND=noninteractive
    apt-get update -qq
    apt-get install -y -qq --no-install-recommends "${missing[@]}" </dev/null >/dev/null
}

# The kernel runs arm64 programs through qemu-aarch64-static. The handler is
# registered with the F flag, so it also works inside the chroot.
register_qemu() {
    local misc=/proc/sys/fs/binfmt_misc
    [ -e $misc/register ] || mount -t binfmt_misc binfmt_misc $misc ||
        fail "binfmt_misc is not available (a container without it cannot run arm64 programs)"
    if [ -e $misc/qemu-aarch64 ]; then
        grep -q '^enabled' $misc/qemu-aarch64 || echo 1 >$misc/qemu-aarch64
    else
        # The kernel reads the \x escapes itself.
        # shellcheck disable=SC2028
        echo ':qemu-aarch64:M::\x7fELF\x02\x01\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00\x02\x00\xb7\x00:\xff\xff\xff\xff\xff\xff\xff\x00\xff\xff\xff\xff\xff\xff\xff\xff\xfe\xff\xff\xff:/usr/bin/qemu-aarch64-static:F' \
            >$misc/register
    fi
    # A handler registered by others without F looks for its interpreter inside the chroot.
    local interpreter
    interpreter=$(sed -n 's/^interpreter //p' $misc/qemu-aarch64)
    if ! grep -q '^flags:.*F' $misc/qemu-aarch64 && [ -d "$rootfs" ]; then
        mkdir -p "$rootfs$(dirname "$interpreter")"
        cp /usr/bin/qemu-aarch64-static "$rootfs$interpreter"
    fi
}

mounted=
# shellcheck disable=SC2317 # run by the trap
cleanup() {
    [ -z "$mounted" ] || umount "$rootfs/proc" 2>/dev/null || true
}
trap cleanup EXIT
mount_proc() {
    mountpoint -q "$rootfs/proc" || { mount -t proc proc "$rootfs/proc" && mounted=1; }
}

make_rootfs() {
    [ -f "$rootfs/.complete" ] && return 0
    local mirror
    mirror=$(scripts/woa/debian-mirror.sh) || fail "no Debian mirror for the chroot"
    say "making the arm64 $RELEASE chroot with Wine in $rootfs"
    rm -rf "$rootfs"
    debootstrap --arch=arm64 --variant=minbase $RELEASE "$rootfs" "$mirror" >/dev/null ||
        fail "debootstrap failed; see $rootfs/debootstrap/debootstrap.log"
    register_qemu
    mount_proc
    chroot "$rootfs" /usr/bin/env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y --no-install-recommends wine wine64 </dev/null >"$rootfs.log" 2>&1 ||
        fail "installing Wine in the chroot failed; see $rootfs.log"
    chroot "$rootfs" apt-get clean
    touch "$rootfs/.complete"
}

started=$SECONDS
install_host_packages
register_qemu
make_rootfs
mount_proc
toolchain=$(scripts/woa/build-toolchain.sh --wine-test)

say "building the ARM64 library and test programs in $build"
# The toolchain file's flags take effect when a build folder is made: a folder
# made with another toolchain or toolchain file starts again.
stamp="$(sha256sum cmake/woa-llvm-mingw.cmake | cut -c1-64) $toolchain"
stamp+=" $(cat "$toolchain/wine-test/lib/wine_test_stdio.o.sha256")"
[ "$(cat $build/.woa-toolchain 2>/dev/null)" = "$stamp" ] || rm -rf $build
cmake -S . -B $build -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/woa-llvm-mingw.cmake -DWOA_ARCH=aarch64 \
    -DWOA_TOOLCHAIN="$toolchain" -DWOA_WINE_TEST=ON -DCMAKE_BUILD_TYPE=Release \
    -DWINE=wine -DWINESERVER=wineserver \
    >/dev/null
echo "$stamp" >$build/.woa-toolchain
cmake --build $build -j "$(nproc)" --target setuputils_wine_tests

# The programs and the project's Wine scripts go into the chroot.
inside=/tmp/setuputils-arm64
rm -rf "$rootfs$inside"
mkdir -p "$rootfs$inside"
cp -a $build/bin "$rootfs$inside/bin"
cp tests/wine/make-template.sh tests/wine/run-in-prefix.sh "$rootfs$inside/"
in_chroot() { chroot "$rootfs" /usr/bin/env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root "$@"; }
in_chroot "$inside/make-template.sh" "$inside/template" >/dev/null

failed=0
# run_group <label> <folder of the programs in the chroot> <gtest filter>
run_group() {
    local label=$1 folder=$2 filter=$3 log
    say "running $label: $filter"
    log=$root/$build/arm64-wine-$(echo "$label $filter" | tr -c 'A-Za-z0-9\n' '_' | cut -c1-60).log
    if in_chroot SETUPUTILS_WINE_TEMPLATE=$inside/template SETUPUTILS_TEST_TIMEOUT=1200 \
        bash -c "cd $folder && $inside/run-in-prefix.sh ./setuputils_wine_tests.exe --gtest_filter='$filter'" \
        >"$log" 2>&1 && grep -q '^\[  PASSED  \]' "$log"; then
        echo "PASS  arm64 Wine, $label: $filter ($(sed -n 's/^\[  PASSED  \] //p' "$log"))"
    else
        echo "FAIL  arm64 Wine, $label: $filter (log: $log)"
        grep -E '^\[  FAILED  \]' "$log" | sed 's/^/      /' || tail -n 20 "$log" | sed 's/^/      /'
        failed=1
    fi
}
for filter in "${groups[@]}"; do
    run_group "ARM64 build" "$inside/bin" "$filter"
done

# The shipping ARM64X image, when scripts/shipping-build.sh has made one: Wine
# loads its native ARM64 view, whose export table the test reads. (Only that
# test: the image formats through the UCRT, which Wine cannot run on ARM64.)
shipping=build/woa-arm64x/bin/setuputils.dll
if [ $# -eq 0 ] && [ -f $shipping ]; then
    cp -a "$rootfs$inside/bin" "$rootfs$inside/shipping"
    cp $shipping "$rootfs$inside/shipping/setuputils.dll"
    run_group "shipping ARM64X image" "$inside/shipping" "ExportsLibrary*"
fi
rm -rf "${rootfs:?}$inside"
say "done in $((SECONDS - started)) s"
exit $failed
