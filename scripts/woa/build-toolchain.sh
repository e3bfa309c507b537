#!/usr/bin/env bash
# Builds the Windows-on-ARM toolchain (ARM64 and ARM64EC) on Debian 12 from
# Debian's archive only, into a cache folder outside the source tree that later
# runs reuse:
#   - clang-22, lld-22 and llvm-22 from bookworm-security, installed with apt-get;
#   - the mingw-w64 headers, CRT and import libraries, built from Debian's
#     mingw-w64 14 orig tarball (ARM64EC support; trixie's 12 has none);
#   - compiler-rt builtins, libunwind, libc++abi and libc++ (static), built from
#     Debian's llvm-toolchain-22 orig tarball.
#
# Usage: scripts/woa/build-toolchain.sh [--wine-test | --cached]
#        Prints the toolchain folder last. --wine-test adds the libc++ that the
#        ARM64 test build links to run under Wine (build_wine_test_runtime);
#        --cached builds nothing and exits with 3 when the cache lacks the toolchain.
#        Exits with 4 when a pinned source is gone from the archive or cannot be fetched.
# Cache: $SETUPUTILS_WOA_CACHE, else $XDG_CACHE_HOME/setuputils-woa, else
#        ~/.cache/setuputils-woa. The toolchain goes to <cache>/toolchain-<versions>;
#        the source tarballs stay in <cache>/sources.
# Mirror: $WOA_MIRROR, else the Debian mirror of the system's apt sources.
set -euo pipefail

# Pinned sources: Debian source package, version, orig tarball and its sha256.
MINGW_PACKAGE="mingw-w64"
MINGW_VERSION=14.0.0
MINGW_SUITES="sid"
MINGW_SHA256=6eaf921d9eb987d3820b364ea9775bc19b965ec81490b6fdd716526c28e1995c
LLVM_PACKAGE="llvm-toolchain-22"
LLVM_VERSION=22.1.8
LLVM_SUITES="trixie sid"
LLVM_SHA256=b49b9277aef97616320b2da259e1f8174c65b0ce2fbe2e8629644a97693402fe
# Raise when the way the toolchain is built changes, so caches are rebuilt.
RECIPE=1

LLVM=/usr/lib/llvm-22
TARGETS=(aarch64-w64-mingw32 arm64ec-w64-mingw32)
JOBS=${WOA_JOBS:-2}
HOST_PACKAGES=(clang-22 lld-22 llvm-22 cmake ninja-build make python3 bzip2 xz-utils ca-certificates)

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
cache=${SETUPUTILS_WOA_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/setuputils-woa}
prefix=$cache/toolchain-mingw$MINGW_VERSION-llvm$LLVM_VERSION-r$RECIPE
sources=$cache/sources
work=$cache/work

say() { echo "woa-toolchain: $*" >&2; }
fail() {
    say "error: $*"
    exit 1
}
# A pinned source that the archive no longer holds, or cannot be reached.
EXIT_SOURCE_GONE=4
source_gone() {
    say "error: $*"
    exit $EXIT_SOURCE_GONE
}

# step <log name> <command>...: the command's output goes to <cache>/logs; its
# end is shown when it fails.
step() {
    local log=$cache/logs/$1.log
    shift
    mkdir -p "$cache/logs"
    if ! "$@" >"$log" 2>&1; then
        tail -n 30 "$log" >&2
        fail "$* failed; the whole output is in $log"
    fi
}

install_host_packages() {
    local missing=() package
    for package in "${HOST_PACKAGES[@]}"; do
        dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" ||
            missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    say "installing ${missing[*]}"
    [ "$(id -u)" -eq 0 ] || fail "run as root to install ${missing[*]}"
    export DEBIAN_FRONTEND=noninteractive
    step apt-update apt-get update
    step apt-install apt-get install -y --no-install-recommends "${missing[@]}" </dev/null
}

debian_mirror() {
    "$here/debian-mirror.sh" || fail "no Debian mirror to fetch the sources from"
}

# A private apt configuration holding the source indexes of the newer suites;
# the system's apt state is left as it is.
setup_source_apt() {
    local mirror=$1 suite
    mkdir -p "$work/apt/lists/partial" "$work/apt/cache/archives/partial" "$work/apt/parts" "$cache/logs"
    : >"$work/apt/sources.list"
    for suite in $(echo "$MINGW_SUITES $LLVM_SUITES" | tr ' ' '\n' | sort -u); do
        echo "deb-src $mirror $suite main" >>"$work/apt/sources.list"
    done
    cat >"$work/apt/apt.conf" <<EOF
Dir::Etc::SourceList "$work/apt/sources.list";
Dir::Etc::SourceParts "$work/apt/parts";
Dir::State::Lists "$work/apt/lists";
Dir::Cache "$work/apt/cache";
Acquire::Languages "none";
APT::Sandbox::User "root";
EOF
    APT_CONFIG=$work/apt/apt.conf apt-get update >"$cache/logs/apt-update-sources.log" 2>&1 ||
        source_gone "the source indexes of $mirror ($(awk '{printf "%s%s", sep, $3; sep=" "}' \
            "$work/apt/sources.list")) cannot be read; see $cache/logs/apt-update-sources.log"
}

# fetch <package> <version> <sha256>: the orig tarball into $sources, checked.
fetch_orig() {
    local package=$1 version=$2 sha=$3 mirror=$4 file directory
    file=$(find "$sources" -maxdepth 1 -name "${package}_$version.orig.tar.*" -printf '%f\n' | head -n 1)
    if [ -n "$file" ] && echo "$sha  $sources/$file" | sha256sum -c --quiet 2>/dev/null; then
        echo "$sources/$file"
        return 0
    fi
    [ -f "$work/apt/apt.conf" ] || setup_source_apt "$mirror"
    # The index names the file and the folder of the pool that holds it.
    local record
    record=$(APT_CONFIG=$work/apt/apt.conf apt-cache showsrc "$package" 2>/dev/null |
        awk -v sha="$sha" '
            /^$/ { if (found) exit; dir = "" } /^Directory:/ { dir = $2 }
            /^Checksums-Sha256:/ { sums = 1; next } /^[^ ]/ { sums = 0 }
            sums && $1 == sha { found = $3 }
            END { if (found) print dir, found }')
    if [ -z "$record" ]; then
        source_gone "the Debian source $package $version (orig tarball, sha256 $sha) is not in the
  archive at $mirror (gone from it, or the archive cannot be reached; suites: $(awk '{printf "%s%s", sep, $3; sep=" "}' "$work/apt/sources.list")).
  Either pin the version the archive now holds in ${BASH_SOURCE[0]} (its version and the
  sha256 of its orig tarball: APT_CONFIG=$work/apt/apt.conf apt-cache showsrc $package;
  ARM64EC needs mingw-w64 14 or later and LLVM 22 or later),
  or put ${package}_$version.orig.tar.* into $sources and run again."
    fi
    read -r directory file <<<"$record"
    say "fetching $file"
    /usr/lib/apt/apt-helper -o APT::Sandbox::User=root download-file "$mirror/$directory/$file" "$sources/$file" "SHA256:$sha" >/dev/null ||
        source_gone "could not fetch $mirror/$directory/$file with sha256 $sha.
  If the archive now holds a different file, pin the new version and sha256 in ${BASH_SOURCE[0]};
  or put the file into $sources and run again."
    echo "$sources/$file"
}

write_wrappers() {
    local target tool driver
    mkdir -p "$prefix/bin" "$prefix/resource/lib"
    ln -sfn "$LLVM/lib/clang/22/include" "$prefix/resource/include"
    for target in "${TARGETS[@]}"; do
        for driver in clang clang++; do
            cat >"$prefix/bin/$target-$driver" <<EOF
#!/bin/sh
exec $LLVM/bin/$driver --target=$target --sysroot="$prefix/sysroot" -resource-dir="$prefix/resource" -fuse-ld=lld -rtlib=compiler-rt -unwindlib=libunwind -stdlib=libc++ -Qunused-arguments "\$@"
EOF
            chmod +x "$prefix/bin/$target-$driver"
        done
        for tool in ar ranlib nm strip objcopy objdump readobj windres dlltool; do
            ln -sf "$LLVM/bin/llvm-$tool" "$prefix/bin/$target-$tool"
        done
    done
}

build_target() {
    local target=$1 mingw=$2 llvm=$3 arch=${1%%-*} build=$work/build/$1
    local triple=$arch-w64-windows-gnu
    mkdir -p "$build/headers" "$build/crt"
    say "$target: mingw-w64 headers"
    (cd "$build/headers" && step "$target-headers" "$mingw/mingw-w64-headers/configure" \
        --host="$target" --prefix="$prefix/sysroot/$target" --with-default-msvcrt=ucrt \
        --with-default-win32-winnt=0x0A00 && step "$target-headers-install" make install)
    say "$target: mingw-w64 CRT and import libraries"
    (cd "$build/crt" && step "$target-crt-configure" "$mingw/mingw-w64-crt/configure" \
        --host="$target" --prefix="$prefix/sysroot/$target" --with-sysroot="$prefix/sysroot" \
        --with-default-msvcrt=ucrt --disable-lib32 --disable-lib64 --enable-libarm64 \
        CC="$target-clang" AR="$target-ar" RANLIB="$target-ranlib" DLLTOOL="$target-dlltool" &&
        step "$target-crt" make -j"$JOBS" && step "$target-crt-install" make install)

    local common=(-G Ninja -Wno-dev -DCMAKE_BUILD_TYPE=Release -DCMAKE_SYSTEM_NAME=Windows
        -DCMAKE_SYSTEM_PROCESSOR="$arch" -DCMAKE_C_COMPILER="$target-clang"
        -DCMAKE_CXX_COMPILER="$target-clang++" -DCMAKE_C_COMPILER_TARGET="$triple"
        -DCMAKE_CXX_COMPILER_TARGET="$triple" -DCMAKE_C_COMPILER_WORKS=TRUE
        -DCMAKE_CXX_COMPILER_WORKS=TRUE -DCMAKE_AR="$LLVM/bin/llvm-ar"
        -DCMAKE_RANLIB="$LLVM/bin/llvm-ranlib")
    say "$target: compiler-rt builtins"
    step "$target-builtins-configure" cmake "${common[@]}" -S "$llvm/compiler-rt/lib/builtins" -B "$build/builtins" \
        -DCMAKE_ASM_COMPILER="$target-clang" -DCMAKE_ASM_COMPILER_TARGET="$triple" \
        -DCOMPILER_RT_DEFAULT_TARGET_ONLY=TRUE -DCOMPILER_RT_EXCLUDE_ATOMIC_BUILTIN=FALSE \
        -DLLVM_ENABLE_PER_TARGET_RUNTIME_DIR=OFF -DCOMPILER_RT_OS_DIR=windows \
        -DCMAKE_INSTALL_PREFIX="$build/builtins-install"
    step "$target-builtins" ninja -C "$build/builtins" -j"$JOBS" install
    mkdir -p "$prefix/resource/lib/$triple"
    cp "$(find "$build/builtins-install" -name 'libclang_rt.builtins*.a' | head -n 1)" \
        "$prefix/resource/lib/$triple/libclang_rt.builtins.a"

    say "$target: libunwind, libc++abi, libc++"
    build_runtimes "$target" "$llvm" "$build/runtimes" "$prefix/sysroot/$target" ""
}

# build_runtimes <target> <llvm source> <build folder> <install prefix> <C/C++ flags>
build_runtimes() {
    local target=$1 llvm=$2 build=$3 install=$4 flags=$5 arch=${1%%-*}
    local triple=$arch-w64-windows-gnu
    step "$target-runtimes-configure" cmake -G Ninja -Wno-dev -DCMAKE_BUILD_TYPE=Release \
        -DCMAKE_SYSTEM_NAME=Windows -DCMAKE_SYSTEM_PROCESSOR="$arch" \
        -DCMAKE_C_COMPILER="$target-clang" -DCMAKE_CXX_COMPILER="$target-clang++" \
        -DCMAKE_C_COMPILER_TARGET="$triple" -DCMAKE_CXX_COMPILER_TARGET="$triple" \
        -DCMAKE_C_COMPILER_WORKS=TRUE -DCMAKE_CXX_COMPILER_WORKS=TRUE \
        -DCMAKE_AR="$LLVM/bin/llvm-ar" -DCMAKE_RANLIB="$LLVM/bin/llvm-ranlib" \
        -DCMAKE_C_FLAGS="$flags" -DCMAKE_CXX_FLAGS="$flags" \
        -S "$llvm/runtimes" -B "$build" -DCMAKE_INSTALL_PREFIX="$install" \        -DLLVM_ENABLE_RUNTIMES="libunwind;libcxxabi;libcxx" \
        -DLIBUNWIND_USE_COMPILER_RT=ON -DLIBUNWIND_ENABLE_SHARED=OFF -DLIBUNWIND_ENABLE_STATIC=ON \
        -DLIBCXXABI_USE_COMPILER_RT=ON -DLIBCXXABI_USE_LLVM_UNWINDER=ON \
        -DLIBCXXABI_ENABLE_SHARED=OFF -DLIBCXXABI_LIBDIR_SUFFIX="" \
        -DLIBCXX_USE_COMPILER_RT=ON -DLIBCXX_ENABLE_SHARED=OFF -DLIBCXX_ENABLE_STATIC=ON \
        -DLIBCXX_ENABLE_STATIC_ABI_LIBRARY=ON -DLIBCXX_CXX_ABI=libcxxabi -DLIBCXX_LIBDIR_SUFFIX="" \
        -DLIBCXX_INCLUDE_TESTS=OFF -DLIBCXX_INCLUDE_BENCHMARKS=OFF -DLIBCXX_INSTALL_MODULES=OFF \
        -DLIBCXX_ENABLE_ABI_LINKER_SCRIPT=OFF -DLIBUNWIND_INCLUDE_TESTS=OFF \
        -DLIBCXXABI_INCLUDE_TESTS=OFF -DLLVM_INCLUDE_TESTS=OFF -DLLVM_INCLUDE_DOCS=OFF
    step "$target-runtimes" ninja -C "$build" -j"$JOBS" install
}

# Wine 8's ARM64 C runtime reads a va_list passed by ARM64 Windows code the way
# Linux lays it out, so every UCRT function taking one (printf, vswprintf, and
# libc++'s number formatting) crashes there. The ARM64 test build therefore
# formats with mingw-w64's own printf (__USE_MINGW_ANSI_STDIO) and links this
# libc++, built the same way; the shipping build keeps the UCRT's.
build_wine_test_runtime() {
    local llvm_tar=$1 l=${LLVM_PACKAGE}_$LLVM_VERSION
    say "aarch64-w64-mingw32: libc++ for the Wine test build"
    [ -d "$work/src/$l/runtimes" ] || extract_llvm "$llvm_tar"
    export PATH="$prefix/bin:$PATH"
    rm -rf "$prefix/wine-test"
    build_runtimes aarch64-w64-mingw32 "$work/src/$l" "$work/build/wine-test" \
        "$work/wine-test-install" "-D__USE_MINGW_ANSI_STDIO=1"
    mkdir -p "$prefix/wine-test/lib"
    cp "$work/wine-test-install/lib/"*.a "$prefix/wine-test/lib/"
    touch "$prefix/wine-test/.complete"
}

# mingw-w64's printf still passes strings it writes to a file on to the runtime's
# fwprintf: wine-test-stdio.c writes them itself. Rebuilt when it changes.
build_wine_test_stdio() {
    local source=$here/wine-test-stdio.c object=$prefix/wine-test/lib/wine_test_stdio.o sum
    sum=$(sha256sum "$source" | cut -d' ' -f1)
    [ -f "$object" ] && [ "$(cat "$object.sha256" 2>/dev/null)" = "$sum" ] && return 0
    step wine-test-stdio "$prefix/bin/aarch64-w64-mingw32-clang" -O2 -Wall -Wextra -Werror \
        -c "$source" -o "$object"
    echo "$sum" >"$object.sha256"
}

extract_llvm() {
    local l=${LLVM_PACKAGE}_$LLVM_VERSION
    mkdir -p "$work/src"
    tar -xJf "$1" -C "$work/src" $l/compiler-rt $l/libcxx $l/libcxxabi $l/libunwind \
        $l/runtimes $l/cmake $l/llvm/cmake $l/llvm/utils/llvm-lit $l/third-party $l/libc \
        $l/llvm/include/llvm/Config
}

main() {
    local wine_test=
    case "${1:-}" in
        --wine-test) wine_test=1 ;;
        --cached)
            [ -f "$prefix/.complete" ] || { say "no toolchain in $prefix" && exit 3; }
            echo "$prefix"
            return 0
            ;;
        "") ;;
        *) fail "usage: build-toolchain.sh [--wine-test | --cached]" ;;
    esac
    # One build at a time; a second run waits, then finds the toolchain made.
    mkdir -p "$cache"
    exec 9>"$cache/.lock"
    flock 9
    local started=$SECONDS mirror mingw_tar llvm_tar
    if [ -f "$prefix/.complete" ]; then
        say "reusing $prefix"
    else
        install_host_packages
        mirror=$(debian_mirror)
        rm -rf "$work" "$prefix"
        mkdir -p "$sources" "$work/src"
        mingw_tar=$(fetch_orig "$MINGW_PACKAGE" "$MINGW_VERSION" "$MINGW_SHA256" "$mirror")
        llvm_tar=$(fetch_orig "$LLVM_PACKAGE" "$LLVM_VERSION" "$LLVM_SHA256" "$mirror")

        say "unpacking the sources"
        tar -xjf "$mingw_tar" -C "$work/src"
        extract_llvm "$llvm_tar"
        local mingw_src llvm_src=$work/src/${LLVM_PACKAGE}_$LLVM_VERSION
        mingw_src=$(find "$work/src" -maxdepth 1 -type d -name 'mingw-w64-*' | head -n 1)
        [ -d "$mingw_src/mingw-w64-crt" ] || fail "unexpected layout of $mingw_tar"

        write_wrappers
        export PATH="$prefix/bin:$PATH"
        local target
        for target in "${TARGETS[@]}"; do
            build_target "$target" "$mingw_src" "$llvm_src"
        done
        touch "$prefix/.complete"
        say "built in $((SECONDS - started)) s: $prefix"
    fi
    if [ -n "$wine_test" ] && [ ! -f "$prefix/wine-test/.complete" ]; then
        [ -n "${llvm_tar:-}" ] || llvm_tar=$(fetch_orig "$LLVM_PACKAGE" "$LLVM_VERSION" "$LLVM_SHA256" "$(debian_mirror)")
        build_wine_test_runtime "$llvm_tar"
        say "Wine test runtime built: $prefix/wine-test"
    fi
    [ -z "$wine_test" ] || build_wine_test_stdio
    rm -rf "$work"
    echo "$prefix"
}

main "$@"
