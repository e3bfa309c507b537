#!/usr/bin/env bash
# Installs what building and testing need on Debian 12, when it is missing.
set -euo pipefail

packages=(cmake ninja-build g++ googletest clang-format clang libclang-rt-14-dev
          g++-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64 wine wine64 xvfb
          wixl msitools)

missing=()
for package in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$package")
    fi
done

if [ ${#missing[@]} -gt 0 ]; then
    echo "Installing: ${missing[*]}"
    if [ "$(id -u)" -ne 0 ]; then
        sudo=sudo
    else
        sudo=
    fi
    export DEBIAN_FRONTEND=noninteractive
    $sudo apt-get update -qq
    $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" </dev/null
fi
