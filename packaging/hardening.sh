#!/usr/bin/env bash
# Whether the programs and libraries in Debian packages are hardened as Debian hardens its own:
# position-independent, relocated read-only before they run, no executable stack, stack protector,
# fortified calls.
#
#   packaging/hardening.sh PACKAGE...
set -euo pipefail
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
for package in "$@"; do
    dpkg-deb -x "$package" "$folder"
done

status=0 count=0
# lacks FILE WHAT
lacks() {
    echo "hardening: ${1#"$folder"} has no $2" >&2
    status=1
}
while read -r file; do
    [ "$(head -c 4 "$file")" = $'\x7fELF' ] || continue
    count=$((count + 1))
    headers=$(readelf -hldW "$file")
    symbols=$(readelf --dyn-syms -W "$file")
    grep -q 'Type: *DYN' <<<"$headers" || lacks "$file" "position-independent code"
    grep -q GNU_RELRO <<<"$headers" || lacks "$file" "read-only relocations"
    grep -q BIND_NOW <<<"$headers" || lacks "$file" "immediate binding"
    grep -q 'GNU_STACK.* RW ' <<<"$headers" || lacks "$file" "stack that cannot be executed"
    grep -q ' __stack_chk_fail' <<<"$symbols" || lacks "$file" "stack protector"
    # The compiler sees that those of libvorn are right, or cannot see how large the buffers are.
    [[ $file == */libvorn.so.* ]] || grep -qE ' __[a-z]+_chk(@|$)' <<<"$symbols" ||
        lacks "$file" "fortified call"
done < <(find "$folder" -type f -perm /111 -o -type f -name '*.so.*')
[ "$count" -ge 3 ] || {
    echo "hardening: $count programs and libraries in the packages, not 3" >&2
    status=1
}
exit $status
