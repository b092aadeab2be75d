#!/usr/bin/env bash
# Installs every Debian 12 package the build and the tests need. Quick when all is present:
# apt is only touched when dpkg reports something missing.
set -euo pipefail

packages=(
  cmake ninja-build pkg-config
  g++ clang libclang-rt-14-dev          # native build, sanitizers, libFuzzer
  mingw-w64 g++-mingw-w64-x86-64-posix gcc-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64
  wine wine64                           # runs the Windows test programs
  googletest                            # GoogleTest/GoogleMock sources for both builds
  liblog4cpp5-dev                       # trace logging backend of the native build
  openssl osslsigncode                  # throw-away code signing of the virtual token engine
  nlohmann-json3-dev                    # description files of the virtual token engine
  locales                               # de_DE.UTF-8 for the German runs
  slapd ldap-utils                      # the throw-away LDAP directory of the card-id tests
  wixl msitools                         # the administrator's package (installer/) and its checks
  libxml2-dev                           # reading the Group Policy templates (policy/) in their test
  libfaketime                           # the soak steps the logon host's wall clock
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done

if ((${#missing[@]})); then
  if [ "$(id -u)" -ne 0 ]; then
    echo "install-deps: missing packages ${missing[*]}; run as root to install them" >&2
    exit 1
  fi
  echo "install-deps: installing ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  # The tests start their own directory: no system database, no daemon, no dialog.
  echo "slapd slapd/no_configuration boolean true" | debconf-set-selections
  apt-get update -q
  apt-get install -y -q --no-install-recommends "${missing[@]}"
fi

# German UI runs need the locale generated, not only the package.
if ! locale -a 2>/dev/null | grep -qi '^de_DE\.utf-\?8$'; then
  if [ "$(id -u)" -eq 0 ]; then
    sed -i 's/^# *\(de_DE.UTF-8 UTF-8\)/\1/' /etc/locale.gen
    grep -q '^de_DE.UTF-8 UTF-8' /etc/locale.gen || echo 'de_DE.UTF-8 UTF-8' >> /etc/locale.gen
    locale-gen >/dev/null
  else
    echo "install-deps: locale de_DE.UTF-8 missing; run as root to generate it" >&2
    exit 1
  fi
fi
