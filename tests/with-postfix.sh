#!/usr/bin/env bash
# usage: with-postfix.sh PROGRAM [ARGUMENT...]
#
# Runs a program beside a Postfix of its own: configuration, queue, mailboxes, log and certificate
# stand in a folder that is gone afterwards, and nothing of the machine's mail set-up is touched.
# Network and processes live in namespaces of their own, as an ordinary user in a user namespace
# (which needs the package uidmap and a range in /etc/subuid). Exit status 77 means that this machine
# lets one do neither that nor be root.
#
# The program finds the folder in VORNEX_POSTFIX: "maillog", and "mail/inbox/new" for every address
# @probe.test. User tester, password secret. Ports of 127.0.0.1:
#   2525 plain   2587 STARTTLS and AUTH   465 TLS and AUTH
#   2601 to 2604 without TLS, each with one way to log in: PLAIN, LOGIN, CRAM-MD5, DIGEST-MD5
set -euo pipefail
PATH=$PATH:/usr/sbin:/sbin

skip() {
    echo "with-postfix.sh: skipped: $*" >&2
    exit 77
}

if [ -z "${VORNEX_IN_NAMESPACE:-}" ]; then
    for tool in postfix saslpasswd2 openssl unshare ip; do
        command -v "$tool" >/dev/null || skip "$tool is not installed"
    done
    space=(unshare --mount --net --pid --fork --mount-proc --kill-child)
    [ "$(id -u)" -eq 0 ] || space+=(--map-auto --map-root-user)
    if "${space[@]}" ip link set lo up 2>/dev/null; then
        exec env VORNEX_IN_NAMESPACE=1 "${space[@]}" bash "$0" "$@"
    elif [ "$(id -u)" -ne 0 ]; then
        skip "neither root nor user namespaces"
    fi
fi

[ -z "${VORNEX_IN_NAMESPACE:-}" ] || ip link set lo up
folder=$(mktemp -d /tmp/vornex-postfix-XXXXXX)
conf=$folder/conf
started=
cleanup() {
    [ -z "$started" ] || postfix -c "$conf" stop >/dev/null 2>&1 || true
    rm -rf "$folder"
}
trap cleanup EXIT

mkdir -p "$conf/sasl" "$folder/spool/pid" "$folder/data" "$folder/mail"
chmod 755 "$folder"
chown postfix "$folder/data"
chown nobody "$folder/mail"
openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 2 -subj /CN=localhost \
    -keyout "$folder/key.pem" -out "$folder/cert.pem" 2>/dev/null
printf secret | saslpasswd2 -p -c -f "$folder/sasldb2" -u probe.test tester
chown postfix "$folder/sasldb2"

# sasl_service NAME MECHANISMS: what a service with -o smtpd_sasl_path=NAME offers.
sasl_service() {
    cat >"$conf/sasl/$1.conf" <<TEXT
pwcheck_method: auxprop
auxprop_plugin: sasldb
sasldb_path: $folder/sasldb2
mech_list: $2
TEXT
}
sasl_service all "PLAIN LOGIN CRAM-MD5 DIGEST-MD5 SCRAM-SHA-1 NTLM"
sasl_service plain PLAIN
sasl_service login LOGIN
sasl_service cram CRAM-MD5
sasl_service digest DIGEST-MD5

cat >"$conf/main.cf" <<TEXT
compatibility_level = 3.6
queue_directory = $folder/spool
data_directory = $folder/data
command_directory = /usr/sbin
daemon_directory = /usr/lib/postfix/sbin
myhostname = probe.test
mydomain = probe.test
mydestination =
inet_interfaces = 127.0.0.1
inet_protocols = ipv4
mynetworks = 127.0.0.0/8
default_transport = error:no outside mail
relay_transport = error:no outside mail
virtual_mailbox_domains = probe.test
virtual_mailbox_base = $folder/mail
virtual_mailbox_maps = static:inbox/
virtual_minimum_uid = 1
virtual_uid_maps = static:$(id -u nobody)
virtual_gid_maps = static:$(id -g nobody)
local_recipient_maps =
alias_maps =
alias_database =
biff = no
maillog_file = $folder/maillog
maillog_file_prefixes = /tmp
smtpd_recipient_restrictions = reject_unauth_destination
smtpd_relay_restrictions = reject_unauth_destination
smtpd_sasl_local_domain = probe.test
cyrus_sasl_config_path = $conf/sasl
smtpd_sasl_security_options = noanonymous
smtpd_tls_cert_file = $folder/cert.pem
smtpd_tls_key_file = $folder/key.pem
smtpd_client_connection_rate_limit = 0
smtpd_client_connection_count_limit = 0
message_size_limit = 52428800
mailbox_size_limit = 0
virtual_mailbox_limit = 0
TEXT

# service PORT OPTION...
service() {
    printf '127.0.0.1:%s inet n - n - - smtpd' "$1"
    shift
    printf ' -o %s' "$@"
    echo
}
{
    service 2525 smtpd_sasl_auth_enable=no
    service 2587 smtpd_tls_security_level=may smtpd_sasl_auth_enable=yes smtpd_sasl_path=all
    service 465 smtpd_tls_wrappermode=yes smtpd_sasl_auth_enable=yes smtpd_sasl_path=all
    port=2601
    for path in plain login cram digest; do
        service $((port++)) smtpd_sasl_auth_enable=yes smtpd_sasl_path=$path
    done
    cat <<'TEXT'
cleanup unix n - n - 0 cleanup
qmgr unix n - n 300 1 qmgr
tlsmgr unix - - n 1000? 1 tlsmgr
rewrite unix - - n - - trivial-rewrite
bounce unix - - n - 0 bounce
defer unix - - n - 0 bounce
trace unix - - n - 0 bounce
proxymap unix - - n - - proxymap
error unix - - n - - error
retry unix - - n - - error
virtual unix - n n - - virtual
anvil unix - - n - 1 anvil
postlog unix-dgram n - n - 1 postlogd
TEXT
} >"$conf/master.cf"
# Postfix waits for a configuration that has just changed.
touch -d '1 minute ago' "$conf/main.cf" "$conf/master.cf"

postfix -c "$conf" start >"$folder/start.log" 2>&1 || {
    cat "$folder/start.log" >&2
    exit 1
}
started=yes
for _ in $(seq 100); do
    (exec 3<>/dev/tcp/127.0.0.1/2525) 2>/dev/null && break
    sleep 0.05
done
status=0
VORNEX_POSTFIX=$folder "$@" || status=$?
[ "$status" -eq 0 ] || grep -v ': connect from\|: disconnect from' "$folder/maillog" | tail -n 20 >&2
exit "$status"
