#!/usr/bin/env bash
# The package's life on a machine, with Wine's msiexec in a prefix of its own:
#
#   lifecycle.sh BIN_DIR PACKAGE.msi SHIPPED_DLL VERSION PREFIX
#
# 1. install silently with properties: the DLL in System32, the registration, the given settings
#    with their types, nothing for properties not given;
# 2. upgrade to a higher version without naming the properties again: the settings stay, one
#    product is left. The higher version is built here from the same source with the end-to-end
#    link of the DLL (the production link cannot log on under Wine: it calls CredProtectW), so
#    that the logon host, finding the provider through the registration the package wrote
#    (no --dll), logs on with the virtual token engine through the installed provider;
# 3. installing the older package again is refused with its message, nothing changes;
# 4. uninstall: the file, the registration and every value the package wrote are gone, the value
#    an administrator wrote by other means is still there.
set -uo pipefail
bin=$(realpath "${1:?BIN_DIR}") msi=$(realpath "${2:?PACKAGE}") shipped=$(realpath "${3:?SHIPPED_DLL}")
version=${4:?VERSION} prefix=${5:?PREFIX}
here=$(cd "$(dirname "$0")" && pwd)
installer=$here/../../installer
wine_run=("$here/../../scripts/wine-prefix.sh" run "$prefix")
"$here/../../scripts/wine-prefix.sh" start "$prefix" || exit 1
prefix=$(realpath "$prefix")
export WINEDEBUG=-all

failures=0
fail() { echo "lifecycle: $*"; failures=$((failures + 1)); }
windows_path() { WINEPREFIX=$prefix winepath -w "$1" 2>/dev/null; }
reg_query() { "${wine_run[@]}" reg query "$@" 2>/dev/null | tr -d '\r'; }
# VALUE TYPE DATA under KEY: `reg query` shows "    NAME    TYPE    DATA".
expect_value() {
  local key=$1 name=$2 type=$3 data=$4 which=(/v "$2")
  [ "$name" = '(Default)' ] && which=(/ve)
  reg_query "$key" "${which[@]}" | grep -qxF "    $name    $type    $data" ||
    fail "$key\\$name is not $type '$data': $(reg_query "$key" "${which[@]}" | grep -F "    $name " || echo absent)"
}
expect_no_value() { reg_query "$1" /v "$2" | grep -qF "    $2 " && fail "$1\\$2 exists"; }
expect_no_key() { reg_query "$1" >/dev/null && fail "the key $1 is still there"; }
products() { reg_query 'HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\Uninstall' /s | grep -c 'DisplayName    REG_SZ    Lumenar2 Credential Provider'; }
msiexec() {  # LOG ARGS…: msiexec /qn with a verbose log; prints the exit code, Wine's cut to 8 bits
  local log=$1
  shift
  "${wine_run[@]}" msiexec "$@" /qn /l*v "$(windows_path "$work/$log")" >/dev/null 2>&1
  echo $?
}
milliseconds() { date +%s%3N; }

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
settings='HKLM\SOFTWARE\Corvana\Lumenar2\CredentialProvider'
kaldera="$settings\\AbstractionLayer\\Kaldera"
clsid='{6F3C2A91-5D7E-4B08-9C14-2E8A7D5B3F60}'
system32=$prefix/drive_c/windows/system32
password_provider='{60b78e88-ead8-445c-9cfd-0b87f74ea6cd}'
second_provider='{8D0C5E33-2B7A-4F61-9E0D-7A4C1B2E9F58}'  # the test provider installed-logon.lm2 registers
filter_list="$password_provider;{25CBB996-92ED-457E-B28C-4774084BD562};$second_provider"
filters='HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\Authentication\Credential Provider Filters'

# What an earlier run left (a killed test) goes first.
"${wine_run[@]}" reg delete 'HKLM\SOFTWARE\Corvana' /f >/dev/null 2>&1
"${wine_run[@]}" reg delete 'HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\Authentication\Credential Providers' /f >/dev/null 2>&1
"${wine_run[@]}" reg delete "$filters" /f >/dev/null 2>&1
while read -r code; do
  "${wine_run[@]}" msiexec /x "$code" /qn >/dev/null 2>&1
done < <(reg_query 'HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\Uninstall' /s |
  awk '/^HKEY/ {key = $0} /DisplayName    REG_SZ    Lumenar2 Credential Provider/ {sub(/.*\\/, "", key); print key}')
rm -f "$system32/LM2CredentialProvider.dll"

# A value an administrator wrote before the package came: no property names it.
"${wine_run[@]}" reg add "$kaldera" /v LdapAuthDn /d 'cn=reader,dc=example' /f >/dev/null 2>&1

echo "lifecycle: 1. install $(basename "$msi")"
start=$(milliseconds)
rc=$(msiexec install.log /i "$(windows_path "$msi")" "LOGSETTINGSPATH=C:\\Program Files\\Lumenar2\\trace.properties" \
  ABSTRACTIONLAYER=Default "FILTERLOGON=$filter_list" \
  ENABLEEXPERIMENTALCREDUI=0 LDAPUSESSL=2)
echo "lifecycle: install took $(($(milliseconds) - start)) ms"
[ "$rc" = 0 ] || fail "install exited with $rc"
cmp -s "$system32/LM2CredentialProvider.dll" "$shipped" ||
  fail "System32 does not hold the packed DLL"
[ -e "$prefix/drive_c/windows/syswow64/LM2CredentialProvider.dll" ] && fail "the DLL went to SysWOW64"
expect_value "HKLM\\SOFTWARE\\Classes\\CLSID\\$clsid\\InprocServer32" '(Default)' REG_SZ LM2CredentialProvider.dll
expect_value "HKLM\\SOFTWARE\\Classes\\CLSID\\$clsid\\InprocServer32" ThreadingModel REG_SZ Apartment
expect_value "HKLM\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Authentication\\Credential Providers\\$clsid" \
  '(Default)' REG_SZ LM2CredentialProvider
# LogonUI asks only classes registered as filters to filter.
expect_value "$filters\\$clsid" '(Default)' REG_SZ LM2CredentialProvider
reg_query 'HKLM\SOFTWARE\Wow6432Node\Classes\CLSID' /s | grep -qF "$clsid" && fail "the class went to WOW6432Node"
expect_value "$settings" LogSettingsPath REG_SZ 'C:\Program Files\Lumenar2\trace.properties'
expect_value "$settings" AbstractionLayer REG_SZ Default
expect_value "$settings" FilterLogon REG_MULTI_SZ "$filter_list"
expect_value "$settings" EnableExperimentalCredUI REG_DWORD 0x0
expect_value "$kaldera" LdapUseSSL REG_DWORD 0x2
for absent in CoreSet TileImage FilterCredUi FilterUnlockWorkstation DisableTokenInitialization; do
  expect_no_value "$settings" "$absent"
done
[ "$(products)" = 1 ] || fail "$(products) products are installed"

echo "lifecycle: 2. upgrade to a higher version, without the properties"
next=${version%.*}.$((${version##*.} + 1))
"$installer/build-msi.sh" "$bin/end-to-end/LM2CredentialProvider.dll" "$next" "$work/next.msi" || fail "no $next package"
start=$(milliseconds)
rc=$(msiexec upgrade.log /i "$(windows_path "$work/next.msi")" CORESET=)
echo "lifecycle: upgrade took $(($(milliseconds) - start)) ms"
[ "$rc" = 0 ] || fail "the upgrade exited with $rc"
[ "$(products)" = 1 ] || fail "$(products) products are installed after the upgrade"
reg_query 'HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\Uninstall' /s | grep -qxF "    DisplayVersion    REG_SZ    $next" ||
  fail "the installed version is not $next"
cmp -s "$system32/LM2CredentialProvider.dll" "$bin/end-to-end/LM2CredentialProvider.dll" ||
  fail "the upgrade did not replace the DLL"
expect_value "$settings" LogSettingsPath REG_SZ 'C:\Program Files\Lumenar2\trace.properties'
expect_value "$settings" FilterLogon REG_MULTI_SZ "$filter_list"
expect_value "$settings" EnableExperimentalCredUI REG_DWORD 0x0
expect_value "$kaldera" LdapUseSSL REG_DWORD 0x2
expect_no_value "$settings" CoreSet

echo "lifecycle: logon through the installed provider"
"${wine_run[@]}" "$bin/engine_install.exe" "$bin/engine-variants/VestaAccessLibrary.signed.dll" \
  "$bin/engine-variants/test-root.cer" >/dev/null 2>&1 || fail "engine install failed"
"${wine_run[@]}" "$bin/session_service_double.exe" --install >/dev/null 2>&1 || fail "service install failed"
# The host runs from a folder of its own: beside it in bin/ lies a DLL of the same name, which
# Windows' search order would load before the one in System32.
cp "$bin/logon-host.exe" "$bin/session_service_double.exe" "$bin/second_provider.dll" "$work/"
"${wine_run[@]}" "$work/logon-host.exe" --script "$here/installed-logon.lm2" >"$work/logon.txt" 2>/dev/null
rc=$?
"${wine_run[@]}" "$bin/session_service_double.exe" --remove >/dev/null 2>&1
tr -d '\r' <"$work/logon.txt"
[ "$rc" = 0 ] || fail "the logon through the installed provider failed ($rc)"
grep -q "provider LM2CredentialProvider $clsid loaded" "$work/logon.txt" ||
  fail "the host did not load the registered provider"
grep -q "provider Second provider $second_provider hidden by the filter of LM2CredentialProvider" "$work/logon.txt" ||
  fail "the installed filter did not hide the provider its list names"

echo "lifecycle: 3. the older version is refused"
rc=$(msiexec downgrade.log /i "$(windows_path "$msi")")
[ "$rc" = $((1603 % 256)) ] || fail "installing the older version exited with $rc, not 1603"
# The launch condition stopped it before anything was installed. (Its message, checked on the
# package's table, is shown by Windows with a user interface; Wine's log does not record it.)
grep -aq 'Action ended .*LaunchConditions\. Return value 0' "$work/downgrade.log" &&
  ! grep -aq 'Action start .*InstallFiles' "$work/downgrade.log" ||
  fail "the launch conditions did not stop the older version"
[ "$(products)" = 1 ] || fail "$(products) products are installed after the refused downgrade"
cmp -s "$system32/LM2CredentialProvider.dll" "$bin/end-to-end/LM2CredentialProvider.dll" ||
  fail "the refused downgrade changed the DLL"

echo "lifecycle: 4. uninstall"
start=$(milliseconds)
rc=$(msiexec uninstall.log /x "$(windows_path "$work/next.msi")")
echo "lifecycle: uninstall took $(($(milliseconds) - start)) ms"
[ "$rc" = 0 ] || fail "uninstall exited with $rc"
[ -e "$system32/LM2CredentialProvider.dll" ] && fail "the DLL is still in System32"
expect_no_key "HKLM\\SOFTWARE\\Classes\\CLSID\\$clsid"
expect_no_key "HKLM\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Authentication\\Credential Providers\\$clsid"
expect_no_key "$filters\\$clsid"
expect_no_key 'HKLM\SOFTWARE\Corvana\Lumenar2\Installer'
for gone in LogSettingsPath AbstractionLayer FilterLogon EnableExperimentalCredUI; do expect_no_value "$settings" "$gone"; done
expect_no_value "$kaldera" LdapUseSSL
expect_value "$kaldera" LdapAuthDn REG_SZ 'cn=reader,dc=example'
[ "$(products)" = 0 ] || fail "$(products) products are left"
"${wine_run[@]}" reg delete 'HKLM\SOFTWARE\Corvana' /f >/dev/null 2>&1

[ "$failures" -eq 0 ] && echo "lifecycle: install, upgrade, logon, refused downgrade and uninstall as expected"
exit $((failures > 0))
