#!/usr/bin/env bash
# What a program pays at its start for being linked with the libraries: time in the dynamic linker
# and relocations, of a program without them, with libpcre2-8 and libblkid, with libvornex and
# libvorn, and with what these load when it is first needed. Then what the libraries weigh.
#
#   bench/load-time.sh LIBRARY-FOLDER
#
# The least of 301 runs each, in turn, because everything else that the machine does only adds. All
# libraries stand in one folder, so that finding them costs the same.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
libraries=$(realpath "$1")
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cd "$scratch"

mkdir lib
for library in vornex vorn pcre2-8 blkid etpan sasl2 pciaccess; do
    file=$libraries/lib$library.so
    [ -e "$file" ] || file=$(g++ -print-file-name=lib$library.so)
    name=$(objdump -p "$file" | awk '$1 == "SONAME" { print $2 }')
    strip --strip-unneeded -o "lib/$name" "$(realpath "$file")"
    ln -s "$name" "lib/lib$library.so"
done

printf '#include <iostream>\nint main() { std::cout << 1; }\n' >plain.cpp
printf '%s\n' '#include <iostream>' '#include <vornex/vornex.h>' \
    'int main() { std::cout << VornEx::atoui32("1", 10); }' >host.cpp
place="-L$scratch/lib -Wl,-rpath,$scratch/lib,--no-as-needed"
g++ -O2 plain.cpp -o without $place
g++ -O2 plain.cpp -o peers $place -lpcre2-8 -lblkid
g++ -O2 plain.cpp -o late $place -letpan -lsasl2 -lpciaccess
g++ -O2 -std=c++17 -I"$here/include" host.cpp -o vornex $place -lvornex -lvorn

for _ in $(seq 301); do
    for program in without peers vornex late; do
        LD_DEBUG=statistics "./$program" 2>&1 >/dev/null | awk -v name=$program '
            /total startup time/ { cycles = $(NF - 1) }
            /  number of relocations:/ { symbols = $NF }
            /relative relocations:/ { relative = $NF }
            END { print name, cycles, symbols, relative }'
    done
done | sort -k2n | awk '
    BEGIN { printf "%-14s %10s %12s %10s\n", "program", "cycles", "relocations", "relative" }
    !seen[$1]++ { printf "%-14s %10s %12s %10s\n", $1, $2, $3, $4 }'

printf '\n%-20s %10s %10s\n' stripped bytes 'in memory'
for library in lib/*.so.*; do
    printf '%-20s %10s %10s\n' "${library##*/}" "$(stat -c %s "$library")" \
        "$(size "$library" | awk 'NR == 2 { print $4 }')"
done
