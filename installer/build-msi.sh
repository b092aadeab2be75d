#!/usr/bin/env bash
# Builds the administrator's package from LM2CredentialProvider.wxs:
#
#   build-msi.sh DLL VERSION OUTPUT.msi
#
# wixl writes the package (x64: without -a x64 it would silently be a 32-bit package), with
# warnings made fatal so that an attribute wixl ignores fails the build instead of vanishing; then
# msibuild gives each setting component its condition, which wixl cannot express: a component
# "Setting.NAME" is installed only when the property NAME has a value.
set -euo pipefail
dll=${1:?DLL} version=${2:?VERSION} output=${3:?OUTPUT.msi}
here=$(cd "$(dirname "$0")" && pwd)
wxs=$here/LM2CredentialProvider.wxs

output=$(cd "$(dirname "$output")" && pwd)/$(basename "$output")
tmp=$output.partial
rm -f "$tmp"
# wixl takes a file's Source relative to the working folder only (an absolute path makes it abort).
cd "$(dirname "$dll")"
G_DEBUG=fatal-warnings wixl -a x64 -D Version="$version" -D ProviderDll="$(basename "$dll")" -o "$tmp" "$wxs"
for property in $(sed -n 's/.*<Component Id="Setting\.\([A-Z0-9_]*\)".*/\1/p' "$wxs"); do
  msibuild "$tmp" -q "UPDATE Component SET Condition = '$property' WHERE Component = 'Setting.$property'"
done
mv "$tmp" "$output"
