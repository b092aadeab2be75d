# Sourced by the scripts that make throw-away certificates for the tests (never committed), in
# the current folder:
#
#   make_ca NAME SUBJECT                          a self-signed CA: NAME.key, NAME.crt
#   issue NAME ISSUER SUBJECT START END EXTENSIONS  a certificate of ISSUER for the common name
#                                                 SUBJECT, valid from START to END (YYYYMMDDHHMMSSZ),
#                                                 with EXTENSIONS (openssl lines): NAME.key, NAME.crt

make_ca() {
  # Made a month ago, as real roots were made long before: a wall clock set back a day (the soak
  # steps it) still finds them valid. openssl req has no start date of its own: libfaketime gives it.
  local backdate=()
  local faketime_library
  faketime_library=$(ls /usr/lib/*/faketime/libfaketime.so.1 2>/dev/null | head -n 1)
  [ -n "$faketime_library" ] && backdate=(env LD_PRELOAD="$faketime_library" FAKETIME="-30d")
  "${backdate[@]}" openssl req -x509 -newkey rsa:2048 -nodes -sha256 -days 3650 -keyout "$1.key" -out "$1.crt" \
    -subj "/CN=$2" -addext "basicConstraints=critical,CA:TRUE" \
    -addext "keyUsage=critical,keyCertSign,cRLSign" 2>/dev/null
}

issue() {
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
[ issued ]
$6
CNF
  openssl req -newkey rsa:2048 -nodes -keyout "$1.key" -out "$1.csr" -subj "/CN=$3" 2>/dev/null
  openssl ca -batch -config ca.cnf -cert "$2.crt" -keyfile "$2.key" -in "$1.csr" -out "$1.crt" \
    -startdate "$4" -enddate "$5" -extensions issued -notext 2>/dev/null
  rm -f "$1.csr" ca.cnf index.txt* serial* 01.pem
}
