#!/usr/bin/env bash
# What a program pays at its start for being linked with the libraries: time in the dynamic linker
# and relocations, of a program without them, with what they depend on, and with them.
#
#   bench/load-time.sh LIBRARY-FOLDER
#
# The least of 301 runs each, in turn, because everything else that the machine does only adds.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
libraries=$(realpath "$1")
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cd "$scratch"

printf '#include <iostream>\nint main() { std::cout << 1; }\n' >plain.cpp
printf '%s\n' '#include <iostream>' '#include <vornex/vornex.h>' \
    'int main() { std::cout << VornEx::atoui32("1", 10); }' >host.cpp
g++ -O2 plain.cpp -o without
g++ -O2 plain.cpp -o dependencies -Wl,--no-as-needed -letpan -lsasl2 -lpciaccess
g++ -O2 -std=c++17 -I"$here/include" host.cpp -o with -L"$libraries" -lvornex -lvorn \
    -Wl,-rpath,"$libraries"

for _ in $(seq 301); do
    for program in without dependencies with; do
        LD_DEBUG=statistics "./$program" 2>&1 >/dev/null | awk -v name=$program '
            /total startup time/ { cycles = $(NF - 1) }
            /  number of relocations:/ { symbols = $NF }
            /relative relocations:/ { relative = $NF }
            END { print name, cycles, symbols, relative }'
    done
done | sort -k2n | awk '
    BEGIN { printf "%-14s %10s %12s %10s\n", "program", "cycles", "relocations", "relative" }
    !seen[$1]++ { printf "%-14s %10s %12s %10s\n", $1, $2, $3, $4 }'
