#!/usr/bin/env bash
# Signs the virtual token engine for the tests with keys made for this build only (never
# committed), and writes the variants the signature check must refuse:
#
#   sign-test-engine.sh OUT_DIR ENGINE_DLL OBJDUMP [NAME=OTHER_BUILD_DLL …]
#
#   VestaAccessLibrary.signed.dll     signed by a code-signing leaf of the test root
#   VestaAccessLibrary.unsigned.dll   no signature
#   VestaAccessLibrary.tampered.dll   signed, then one byte of .text changed
#   VestaAccessLibrary.untrusted.dll  signed under a root the prefix does not trust
#   VestaAccessLibrary.expired.dll    signed by a leaf whose validity ended in 2021
#   VestaAccessLibrary.partial.dll    signed by a leaf whose issuer is nowhere to be found
#   VestaAccessLibrary.NAME.dll       each further build of the engine, signed like .signed.dll
#   test-root.cer                     the test root (DER), trusted in the test prefix
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
out=$1
engine=$(cd "$(dirname "$2")" && pwd)/$(basename "$2")
objdump=$3
shift 3
others=()
for other in "$@"; do
  others+=("${other%%=*}=$(cd "$(dirname "${other#*=}")" && pwd)/$(basename "${other#*=}")")
done
mkdir -p "$out"
cd "$out"
rm -f index.txt* serial* ./*.pem

source "$here/test-ca.sh"
make_ca root "LM2 Test Root"
make_ca stranger "LM2 Untrusted Root"

make_leaf() {  # name, issuer, subject, start, end
  issue "$1" "$2" "$3" "$4" "$5" "basicConstraints = CA:FALSE
keyUsage = critical,digitalSignature
extendedKeyUsage = codeSigning"
}
# Issued a month ago, as a vendor's certificate was: a wall clock set back a day (the soak steps it)
# still finds it valid.
issued=$(date -u -d '-30 days' +%Y%m%d000000Z)
later=$(date -u -d '+2 years' +%Y%m%d000000Z)
make_leaf signer root "LM2 Test Code Signing" "$issued" "$later"
make_leaf stranger-signer stranger "LM2 Untrusted Code Signing" "$issued" "$later"
make_leaf expired-signer root "LM2 Expired Code Signing" 20200101000000Z 20210101000000Z

sign() {  # certificates (leaf first), key, output[, input]
  rm -f "$3"
  osslsigncode sign -certs "$1" -key "$2" -h sha256 -in "${4:-$engine}" -out "$3" >/dev/null
}
# The untrusted signature carries its whole chain up to its (untrusted) root.
cat stranger-signer.crt stranger.crt > stranger-chain.pem
sign signer.crt signer.key VestaAccessLibrary.signed.dll
sign stranger-chain.pem stranger-signer.key VestaAccessLibrary.untrusted.dll
sign expired-signer.crt expired-signer.key VestaAccessLibrary.expired.dll
# Only the leaf of the untrusted chain: the chain cannot even be built to a root.
sign stranger-signer.crt stranger-signer.key VestaAccessLibrary.partial.dll
cp "$engine" VestaAccessLibrary.unsigned.dll
for other in ${others[@]+"${others[@]}"}; do
  sign signer.crt signer.key "VestaAccessLibrary.${other%%=*}.dll" "${other#*=}"
done

# One byte in the middle of the code section: the hash over the image no longer matches.
cp VestaAccessLibrary.signed.dll VestaAccessLibrary.tampered.dll
read -r text_size text_offset < <("$objdump" -h VestaAccessLibrary.signed.dll |
  awk '$2 == ".text" { print $3, $6 }')
position=$(( 0x$text_offset + 0x$text_size / 2 ))
byte=$(od -An -tu1 -j "$position" -N1 VestaAccessLibrary.tampered.dll | tr -d ' ')
printf "$(printf '\\%03o' $(( (byte + 1) % 256 )))" |
  dd of=VestaAccessLibrary.tampered.dll bs=1 seek="$position" conv=notrunc status=none

openssl x509 -in root.crt -outform DER -out test-root.cer
