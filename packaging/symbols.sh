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
    # What runs before main: an entry of the compiler's own, and the module objects of libvornex.
    width=$(readelf -h "$folder/$library.so.5" | awk '/Class:/ { print $2 == "ELF64" ? 8 : 4 }')
    entries=$(($(readelf -SW "$folder/$library.so.5" |
        sed -n 's/.* \.init_array *INIT_ARRAY *[^ ]* [^ ]* \([^ ]*\) .*/0x\1/p') / width))
    [ $library = libvorn ] && expected=1 || expected=2
    if [ "$entries" != "$expected" ]; then
        echo "$library: $entries static initialisers where there are to be $expected:"
        nm -C "$folder/$library.so.5" | grep -E '_GLOBAL__sub_I_|__cpu_indicator_init|frame_dummy$' || true
        status=1
    fi
done
exit $status
