#!/usr/bin/env bash
# Makes throw-away certificates for the test directory server (never committed):
#
#   make-directory-certs.sh OUT_DIR
#
#   directory-ca.cer        the CA the test prefix trusts (DER)
#   localhost.crt/.key      server certificate for "localhost", issued by that CA (PEM)
#   expired.crt/.key        the same, but its validity ended in 2021
#   other-host.crt/.key     issued by the CA for "ldap.other.example" only
#   client-only.crt/.key    for "localhost", but meant for client authentication only
#   stranger.crt/.key       for "localhost", issued by a CA nobody trusts (stranger-ca.cer)
#   *.cer                   each certificate also in DER, as a server presents it
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
out=$1
mkdir -p "$out"
cd "$out"

source "$here/test-ca.sh"
make_ca directory-ca "LM2 Test Directory CA"
make_ca stranger-ca "LM2 Untrusted Directory CA"

server() {  # name, issuer, DNS name, start, end, extended key usage
  issue "$1" "$2" "$3" "$4" "$5" "basicConstraints = CA:FALSE
keyUsage = critical,digitalSignature,keyEncipherment
extendedKeyUsage = $6
subjectAltName = DNS:$3"
  openssl x509 -in "$1.crt" -outform DER -out "$1.cer"
}
now=$(date -u -d '-1 day' +%Y%m%d000000Z)
later=$(date -u -d '+2 years' +%Y%m%d000000Z)
server localhost directory-ca localhost "$now" "$later" serverAuth
server expired directory-ca localhost 20200101000000Z 20210101000000Z serverAuth
server other-host directory-ca ldap.other.example "$now" "$later" serverAuth
server client-only directory-ca localhost "$now" "$later" clientAuth
server stranger stranger-ca localhost "$now" "$later" serverAuth

openssl x509 -in directory-ca.crt -outform DER -out directory-ca.cer
openssl x509 -in stranger-ca.crt -outform DER -out stranger-ca.cer
