#!/usr/bin/env bash
# A throw-away OpenLDAP directory for the card-id tests, on 127.0.0.1 only:
#
#   test-directory.sh start DIR CERT_DIR   configure, fill (directory.ldif) and start slapd
#   test-directory.sh stop DIR             stop it and remove DIR
#
# `start` picks free high ports and writes them to DIR/ports.txt as "ldap=P" and "ldaps=P2";
# the server certificate is CERT_DIR/localhost.crt (scripts/make-directory-certs.sh). The bind
# account is "cn=reader,dc=lm2,dc=test" with the password "reader-secret". A second server with
# the same entries and no TLS at all, "plain=P3", refuses StartTLS as a directory without a
# certificate does.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
export PATH="$PATH:/usr/sbin"  # slapd and slapadd, also for users without sbin in their path
command=${1:?start|stop} dir=${2:?DIR}

stop() {
  for pidfile in "$dir/slapd.pid" "$dir/plain/slapd.pid"; do
    if [ -f "$pidfile" ]; then
      kill "$(cat "$pidfile")" 2>/dev/null || true
      for _ in $(seq 50); do [ -f "$pidfile" ] || break; sleep 0.1; done
    fi
  done
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
mkdir -p "$dir/data" "$dir/plain/data"
dir=$(cd "$dir" && pwd)
# Spread over the range so that two builds on one machine rarely meet.
ldap=$(free_port $((20000 + RANDOM % 20000)))
ldaps=$(free_port $((ldap + 1)))
plain=$(free_port $((ldaps + 1)))

configuration() {  # DIR [TLS lines]
  cat <<CONF
include /etc/ldap/schema/core.schema
include /etc/ldap/schema/cosine.schema
include /etc/ldap/schema/inetorgperson.schema
pidfile $1/slapd.pid
modulepath /usr/lib/ldap
moduleload back_mdb
${2:-}
access to attrs=userPassword by anonymous auth by * none
access to * by * read
database mdb
maxsize 10485760
suffix "dc=lm2,dc=test"
rootdn "cn=admin,dc=lm2,dc=test"
directory $1/data
CONF
}
configuration "$dir" "TLSCACertificateFile $certs/directory-ca.crt
TLSCertificateFile $certs/localhost.crt
TLSCertificateKeyFile $certs/localhost.key" >"$dir/slapd.conf"
configuration "$dir/plain" >"$dir/plain/slapd.conf"

# The account running the tests (Wine's user has the Unix user's name) has the card "04E2E0A1",
# so that a card logs on to an account that exists; a second entry names it for "(*)04E2E0A1", for
# a prefix of filter metacharacters.
me=$(id -un)
for conf in "$dir/slapd.conf" "$dir/plain/slapd.conf"; do
  slapadd -q -f "$conf" -l "$here/directory.ldif"
  printf 'dn: uid=%s,ou=people,dc=lm2,dc=test\nobjectClass: inetOrgPerson\nuid: %s\ncn: %s\nsn: Runner\nemployeeNumber: 04E2E0A1\n\ndn: cn=literal,ou=people,dc=lm2,dc=test\nobjectClass: inetOrgPerson\nuid: %s\ncn: literal\nsn: Runner\nemployeeNumber: (*)04E2E0A1\n' \
    "$me" "$me" "$me" "$me" | slapadd -q -f "$conf"
done
slapd -f "$dir/slapd.conf" -h "ldap://127.0.0.1:$ldap/ ldaps://127.0.0.1:$ldaps/"
slapd -f "$dir/plain/slapd.conf" -h "ldap://127.0.0.1:$plain/"
listening() { (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null; }
for _ in $(seq 100); do
  if listening "$ldap" && listening "$ldaps" && listening "$plain"; then
    printf 'ldap=%s\nldaps=%s\nplain=%s\n' "$ldap" "$ldaps" "$plain" >"$dir/ports.txt"
    echo "test-directory: slapd on 127.0.0.1:$ldap (ldap) and :$ldaps (ldaps), without TLS on :$plain"
    exit 0
  fi
  sleep 0.05
done
echo "test-directory: slapd did not start" >&2
stop
exit 1
