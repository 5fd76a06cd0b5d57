#!/usr/bin/env bash
# Installs the packages in the Debian system that it runs in, a fresh one, uses them as their users
# do, and removes them. Not for a system that somebody needs.
#
#   try-packages.sh PACKAGE-FOLDER TREE
set -euo pipefail
packages=$1 tree=$2
export DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8

fail() {
    printf 'try-packages: %s\n' "$*" >&2
    exit 1
}

# quietly COMMAND...: shows what it prints only when it fails.
quietly() {
    "$@" >/tmp/log 2>&1 </dev/null || {
        tail -n 30 /tmp/log >&2
        fail "$* failed"
    }
}

install() { quietly apt-get install -q -y --no-install-recommends "$@"; }

quietly apt-get update -q
install "$packages"/libvornex5_*.deb "$packages"/vornex_*.deb
# A disk that cannot be read here is a complaint, not a failure of the packages.
vornex report >/tmp/report 2>/tmp/complaints || cat /tmp/complaints >&2
cat /tmp/report
grep -q "^  Product  *Debian GNU/Linux" /tmp/report || fail "the report does not know this system"
[ "$(vornex number 0x1F --base 0)" = 31 ] || fail "vornex number prints something else"

install "$packages"/libvornex-dev_*.deb g++ cmake make pkg-config
"$tree/examples/try" /tmp/hosts

quietly apt-get purge -q -y vornex libvornex5 libvornex-dev
left=$(find / -xdev \( -path /proc -o -path /sys -o -path /tmp -o -path /var/lib/dpkg -o -path \
    "$tree" -o -path "$packages" \) -prune -o -name '*vorn*' -print)
[ -z "$left" ] || fail "left behind: $left"
