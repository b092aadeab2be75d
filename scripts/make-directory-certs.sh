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
out=$1
mkdir -p "$out"
cd "$out"
rm -f index.txt* serial* ./*.pem

make_ca() {  # name, subject
  openssl req -x509 -newkey rsa:2048 -nodes -sha256 -days 3650 -keyout "$1.key" -out "$1.crt" \
    -subj "/CN=$2" -addext "basicConstraints=critical,CA:TRUE" \
    -addext "keyUsage=critical,keyCertSign,cRLSign" 2>/dev/null
}
make_ca directory-ca "LM2 Test Directory CA"
make_ca stranger-ca "LM2 Untrusted Directory CA"

make_server() {  # name, issuer, DNS name, start, end, extended key usage
  : > index.txt
  echo 01 > serial
  cat > ca.cnf <<CNF
[ ca ]
default_ca = test_ca
[ test_ca ]
database = index.txt
new_certs_dir = .
serial = serial
default_md = sha256
policy = any_name
unique_subject = no
copy_extensions = none
[ any_name ]
commonName = supplied
[ server ]
basicConstraints = CA:FALSE
keyUsage = critical,digitalSignature,keyEncipherment
extendedKeyUsage = $6
subjectAltName = DNS:$3
CNF
  openssl req -newkey rsa:2048 -nodes -keyout "$1.key" -out "$1.csr" -subj "/CN=$3" 2>/dev/null
  openssl ca -batch -config ca.cnf -cert "$2.crt" -keyfile "$2.key" -in "$1.csr" -out "$1.crt" \
    -startdate "$4" -enddate "$5" -extensions server -notext 2>/dev/null
  openssl x509 -in "$1.crt" -outform DER -out "$1.cer"
}
now=$(date -u -d '-1 day' +%Y%m%d000000Z)
later=$(date -u -d '+2 years' +%Y%m%d000000Z)
make_server localhost directory-ca localhost "$now" "$later" serverAuth
make_server expired directory-ca localhost 20200101000000Z 20210101000000Z serverAuth
make_server other-host directory-ca ldap.other.example "$now" "$later" serverAuth
make_server client-only directory-ca localhost "$now" "$later" clientAuth
make_server stranger stranger-ca localhost "$now" "$later" serverAuth

openssl x509 -in directory-ca.crt -outform DER -out directory-ca.cer
openssl x509 -in stranger-ca.crt -outform DER -out stranger-ca.cer
rm -f ./*.csr ca.cnf index.txt* serial* ./*.pem
