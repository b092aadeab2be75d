#!/usr/bin/env bash
# A throw-away OpenLDAP directory for the card-id tests, on 127.0.0.1 only:
#
#   test-directory.sh start DIR CERT_DIR   configure, fill (directory.ldif) and start slapd
#   test-directory.sh stop DIR             stop it and remove DIR
#
# `start` picks two free high ports and writes them to DIR/ports.txt as "ldap=P" and "ldaps=P2";
# the server certificate is CERT_DIR/localhost.crt (scripts/make-directory-certs.sh). The bind
# account is "cn=reader,dc=lm2,dc=test" with the password "reader-secret".
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
export PATH="$PATH:/usr/sbin"  # slapd and slapadd, also for users without sbin in their path
command=${1:?start|stop} dir=${2:?DIR}

stop() {
  if [ -f "$dir/slapd.pid" ]; then
    kill "$(cat "$dir/slapd.pid")" 2>/dev/null || true
    for _ in $(seq 50); do [ -f "$dir/slapd.pid" ] || break; sleep 0.1; done
  fi
  rm -rf "$dir"
}

free_port() {  # a port nothing listens on, above the given one
  local port=$1
  while (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null; do port=$((port + 1)); done
  echo "$port"
}

case $command in
  stop) stop; exit 0 ;;
  start) ;;
  *) echo "test-directory: unknown command $command" >&2; exit 2 ;;
esac

certs=$(cd "${3:?CERT_DIR}" && pwd)
stop
mkdir -p "$dir/data"
dir=$(cd "$dir" && pwd)
# Spread over the range so that two builds on one machine rarely meet.
ldap=$(free_port $((20000 + RANDOM % 20000)))
ldaps=$(free_port $((ldap + 1)))

cat >"$dir/slapd.conf" <<CONF
include /etc/ldap/schema/core.schema
include /etc/ldap/schema/cosine.schema
include /etc/ldap/schema/inetorgperson.schema
pidfile $dir/slapd.pid
modulepath /usr/lib/ldap
moduleload back_mdb
TLSCACertificateFile $certs/directory-ca.crt
TLSCertificateFile $certs/localhost.crt
TLSCertificateKeyFile $certs/localhost.key
access to attrs=userPassword by anonymous auth by * none
access to * by * read
database mdb
maxsize 10485760
suffix "dc=lm2,dc=test"
rootdn "cn=admin,dc=lm2,dc=test"
directory $dir/data
CONF

slapadd -q -f "$dir/slapd.conf" -l "$here/directory.ldif"
# The account running the tests (Wine's user has the Unix user's name) has the card "04E2E0A1",
# so that a card logs on to an account that exists.
me=$(id -un)
printf 'dn: uid=%s,ou=people,dc=lm2,dc=test\nobjectClass: inetOrgPerson\nuid: %s\ncn: %s\nsn: Runner\nemployeeNumber: 04E2E0A1\n' \
  "$me" "$me" "$me" | slapadd -q -f "$dir/slapd.conf"
slapd -f "$dir/slapd.conf" -h "ldap://127.0.0.1:$ldap/ ldaps://127.0.0.1:$ldaps/"
for _ in $(seq 100); do
  if (exec 3<>"/dev/tcp/127.0.0.1/$ldap") 2>/dev/null && (exec 3<>"/dev/tcp/127.0.0.1/$ldaps") 2>/dev/null; then
    printf 'ldap=%s\nldaps=%s\n' "$ldap" "$ldaps" >"$dir/ports.txt"
    echo "test-directory: slapd on 127.0.0.1:$ldap (ldap) and :$ldaps (ldaps)"
    exit 0
  fi
  sleep 0.05
done
echo "test-directory: slapd did not start" >&2
stop
exit 1
