#!/usr/bin/env bash
# Compares what the libraries export with the lists of this architecture, in packaging/symbols/.
#
#   packaging/symbols.sh LIBRARY-FOLDER [--update]
#
# A symbol that appears is a promise to hosts, one that disappears breaks them: --update writes the
# lists anew, for the change to be seen where it is reviewed.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
folder=$1 update=${2:-}
case "$(file -bL "$folder/libvornex.so.5")" in
*"x86-64"*) architecture=amd64 ;;
*"Intel 80386"* | *"Intel i386"*) architecture=i386 ;;
*)
    echo "symbols: no lists for this architecture" >&2
    exit 77
    ;;
esac

status=0
for library in libvorn libvornex; do
    list=$here/symbols/$library.$architecture
    # Type and name with version; lower-case letters are local to the linker's own affairs.
    exported=$(nm -D --defined-only --with-symbol-versions "$folder/$library.so.5" |
        awk '{ print $2, $3 }' | LC_ALL=C sort -k2)
    if [ "$update" = --update ]; then
        mkdir -p "$here/symbols"
        printf '%s\n' "$exported" >"$list"
    elif ! difference=$(diff -u --label "$list" --label "$library.so.5" "$list" - <<<"$exported"); then
        c++filt <<<"$difference"
        status=1
    fi
    # Objects that hosts may hold a copy of have to be looked up by name.
    objects=$(nm -D --defined-only "$folder/$library.so.5" |
        awk '$2 ~ /[BDRu]/ && $3 !~ /^_ZT/ { sub("@.*", "", $3); print $3 }')
    for pattern in $(sed -n 's/^ *\(_Z.*\);$/\1/p' "$here/data.list"); do
        objects=$(grep -vx "${pattern//\*/.*}" <<<"$objects" || true)
    done
    if [ -n "$objects" ]; then
        echo "$library: not in data.list: $objects"
        status=1
    fi
    # What runs before main: the module objects of libvornex, and nothing of the compiler's that asks
    # the processor (Src/Processor.h says why).
    initialisers=$(nm -C "$folder/$library.so" | grep -o -e '_GLOBAL__sub_I_.*' -e __cpu_indicator_init || true)
    [ $library = libvorn ] && expected= || expected=_GLOBAL__sub_I_Module.cpp
    if [ "$initialisers" != "$expected" ]; then
        echo "$library: static initialisers: ${initialisers:-none}"
        status=1
    fi
done
exit $status
