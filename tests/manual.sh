#!/usr/bin/env bash
# The manual names every subcommand and option that the program's help does, and the completion
# offers them.
#
#   manual.sh PROGRAM MANUAL COMPLETION
set -euo pipefail
program=$1 manual=$2 completion=$3
wrong=0

complain() {
    printf '%s\n' "$*"
    wrong=1
}

complete() { :; }
compopt() { :; }
. "$completion"
# offered WORD...: what is completed behind these words of a command line.
offered() {
    COMP_WORDS=("$program" "$@")
    COMP_CWORD=$#
    _vornex "$program"
    printf '%s\n' "${COMPREPLY[@]}"
}

# The text of a section of the manual; its hyphens are written as "\-".
section() {
    awk -v name="$1" '$1 == ".SS" || $1 == ".SH" { inside = $2 == name || $2 == "COMMON" } inside' \
        "$manual" | sed 's/\\-/-/g'
}

subcommands=$("$program" --help | sed '1,/^Subcommands:/d' | awk 'NF { print $1 }')
[ "$(wc -w <<<"$subcommands")" -ge 10 ] || complain "the help shows no subcommands"
for subcommand in $subcommands; do
    grep -qx "\.SS $subcommand" "$manual" || complain "no section of the manual: $subcommand"
    offered "" | grep -x -- "$subcommand" >/dev/null || complain "not completed: $subcommand"
    options=$("$program" "$subcommand" --help | grep -o '^ *-[^ ]*' | tr -d ' ' | tr ',' '\n' |
        sed 's/{.*//')
    [[ $options == *--trace* ]] || complain "the help of $subcommand shows no options"
    for option in $options; do
        section "$subcommand" | grep -- "\(^\|[^-a-z]\)$option\($\|[^-a-z]\)" >/dev/null ||
            complain "not in the manual: $subcommand $option"
        offered "$subcommand" "$option" | grep -x -- "$option" >/dev/null ||
            complain "not completed: $subcommand $option"
    done
done
[ "$(offered log -p w)" = warning ] || complain "priorities of log are not completed"
exit $wrong
