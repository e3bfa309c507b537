#!/usr/bin/env bash
# Prints the Debian mirror the Windows-on-ARM scripts fetch from: $WOA_MIRROR,
# else the first non-security mirror of the system's apt sources (deb822 or
# one-line form). Fails with a message when there is none.
set -euo pipefail
mirror=${WOA_MIRROR:-}
[ -n "$mirror" ] || mirror=$(grep -h -o -E '^URIs: *[^ ]+' /etc/apt/sources.list.d/*.sources 2>/dev/null |
    awk '{print $2}' | grep -v -- '-security' | head -n 1 || true)
[ -n "$mirror" ] || mirror=$(grep -h -o -E '^deb +(\[[^]]*\] +)?[^ []+' /etc/apt/sources.list 2>/dev/null |
    awk '{print $NF}' | grep -v -- '-security' | head -n 1 || true)
if [ -z "$mirror" ]; then
    echo "debian-mirror: no Debian mirror found in the apt sources; set WOA_MIRROR" >&2
    exit 1
fi
echo "${mirror%/}"
