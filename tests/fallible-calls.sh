#!/usr/bin/env bash
# Whether every call out of the libraries either cannot fail or is made to fail by a test, which is
# seen from what the test programs define in the libraries' place.
#
#   tests/fallible-calls.sh LIBRARY-FOLDER TEST-PROGRAM...
set -euo pipefail
source=$(dirname "$0")/../Src
folder=$1
shift

# Those that cannot fail, say nothing of it, or fail in a test that needs no definition of its own.
harmless=(
    # The compiler and its library; bytes and characters; variables.
    '__.*' '_ITM_.*' '_Z.*' '_Unwind_.*' 'mem[a-z]+' 'str(chr|cmp|cspn|len|n?casecmp|ncmp|nlen|str)'
    'is[a-z]+' 'to(lower|upper)' 'mailstream_(network_delay|socket_driver)' timezone
    # MemoryFailureTest, where malloc is a realloc of nothing; NumbersTest.
    free malloc realloc 'strtou?ll?'
    # Without a result, or with one that is handed on to libetpan.
    endmntent 'mailsmtp_(free|set_logger)' 'mailstream_low_(cancel|free|set_logger|get_cancel)'
    mailstream_low_get_certificate_chain mailstream_set_low 'pci_(iterator_destroy|system_cleanup)'
    sasl_set_mutex tzset
    # Of ordinary locks, signals that exist, and a stream that is open.
    'pthread_mutex_(un)?lock' 'sig(addset|emptyset|ismember)' mailstream_get_low
    mailstream_low_get_fd
    # Not looked at: the end of a session, SIGSTOP that nobody may ignore, a folder of mechanisms
    # without which SASL has its own.
    mailstream_low_close shutdown signal sasl_set_path
    # No variable: the search goes on without.
    secure_getenv
    # MailToolTest, where what stands in a library's place is none.
    dlsym dlerror
)

# What is bound when a library underneath is loaded.
late() { sed -n 's/^ *SYMBOL(\([a-z_]*\)).*/\1/p' "$source/MailLibrary.h" "$source/PciLocation.cpp"; }
undefined() { nm -D --undefined-only "$folder/$1.so" | awk '{ sub(/@.*/, "", $NF); print $NF }'; }
defined() { nm -D --defined-only "$1" | awk '{ sub(/@.*/, "", $NF); print $NF }'; }

made_to_fail=$(for program in "$@"; do defined "$program"; done)
left=$({ undefined libvorn && undefined libvornex && late; } | sort -u | grep -vxF "$made_to_fail" |
    grep -vxE "$(IFS='|' && echo "${harmless[*]}")" || true)
[ -z "$left" ] || {
    echo "calls that no test lets fail:" $left
    exit 1
}
