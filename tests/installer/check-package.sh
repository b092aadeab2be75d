#!/usr/bin/env bash
# Reads the administrator's package the way Windows Installer will, table by table:
#
#   check-package.sh PACKAGE.msi SHIPPED_DLL VERSION
#
# x64 template and 64-bit components (Wine installs an Intel package and writes 32-bit components
# under WOW6432Node without a word, Windows would not), the one file is the shipped DLL and nothing
# else, the COM class and provider registration, one condition per setting, the upgrade rows, and
# the version the DLL's resource carries.
set -uo pipefail
msi=$(realpath "${1:?PACKAGE}") dll=$(realpath "${2:?SHIPPED_DLL}") version=${3:?VERSION}
failures=0
fail() { echo "check-package: $*"; failures=$((failures + 1)); }
# Rows only (names, types and the table's keys go), without the export's CR.
table() { msiinfo export "$msi" "$1" | tail -n +4 | tr -d '\r'; }
expect_row() {  # TABLE ROW: the table holds the tab-separated ROW exactly
  table "$1" | grep -qxF -- "$2" || fail "$1 has no row: $(printf '%s' "$2" | tr '\t' '|')"
}

msiinfo suminfo "$msi" | grep -qx 'Template: x64;1033' || fail "the template is not x64;1033"

# Bit 256 (msidbComponentAttributes64bit) in every component, and GUIDs written in capitals.
while IFS=$'\t' read -r component guid _ attributes condition _; do
  (((attributes & 256) == 256)) || fail "component $component is not 64-bit (attributes $attributes)"
  [[ $guid =~ ^\{[0-9A-F-]{36}\}$ ]] || fail "component $component has GUID $guid"
  # A setting is written only when its property was given.
  if [[ $component == Setting.* ]] && [ "$condition" != "${component#Setting.}" ]; then
    fail "component $component has condition '$condition'"
  fi
done < <(table Component)
[ "$(table Component | grep -c '^Setting\.')" -ge 12 ] || fail "fewer settings than expected"

# One file, the DLL as it ships: no test program, no end-to-end link.
files=$(table File)
[ "$(printf '%s\n' "$files" | wc -l)" -eq 1 ] || fail "the package holds more than one file: $files"
printf '%s' "$files" | grep -q $'^ProviderDll\tProviderDll\tLM2CredentialProvider.dll\t' ||
  fail "the package holds no LM2CredentialProvider.dll"
extracted=$(mktemp -d)
(cd "$extracted" && msiextract "$msi" >/dev/null)
found=$(find "$extracted" -iname LM2CredentialProvider.dll | head -1)
if [ -z "$found" ]; then fail "the DLL cannot be extracted"
else
  cmp -s "$found" "$dll" || fail "the packed DLL is not the shipped build"
  # The version resource (UTF-16 strings) and the package agree.
  resource=$(strings -el "$found" | grep -A1 -x FileVersion | tail -1)
  [ "$resource" = "$version" ] || fail "the DLL says version '$resource', the package $version"
fi
rm -rf "$extracted"
expect_row Property $'ProductVersion\t'"$version"
expect_row Directory $'System64Folder\tTARGETDIR\t.'

clsid='{6F3C2A91-5D7E-4B08-9C14-2E8A7D5B3F60}'
rows=$(table Registry | cut -f2-6)
for row in \
  $'2\tSOFTWARE\\Classes\\CLSID\\'"$clsid"$'\t\tLM2CredentialProvider\tComClass' \
  $'2\tSOFTWARE\\Classes\\CLSID\\'"$clsid"$'\\InprocServer32\t\tLM2CredentialProvider.dll\tComClass' \
  $'2\tSOFTWARE\\Classes\\CLSID\\'"$clsid"$'\\InprocServer32\tThreadingModel\tApartment\tComClass' \
  $'2\tSOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Authentication\\Credential Providers\\'"$clsid"$'\t\tLM2CredentialProvider\tCredentialProvider' \
  $'2\tSOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Authentication\\Credential Provider Filters\\'"$clsid"$'\t\tLM2CredentialProvider\tCredentialProviderFilter' \
  $'2\tSOFTWARE\\Corvana\\Lumenar2\\CredentialProvider\tLogSettingsPath\t[LOGSETTINGSPATH]\tSetting.LOGSETTINGSPATH' \
  $'2\tSOFTWARE\\Corvana\\Lumenar2\\CredentialProvider\tAbstractionLayer\t[ABSTRACTIONLAYER]\tSetting.ABSTRACTIONLAYER' \
  $'2\tSOFTWARE\\Corvana\\Lumenar2\\CredentialProvider\tCoreSet\t[CORESET]\tSetting.CORESET' \
  $'2\tSOFTWARE\\Corvana\\Lumenar2\\CredentialProvider\tFilterLogon\t[~][FILTERLOGON][~]\tSetting.FILTERLOGON' \
  $'2\tSOFTWARE\\Corvana\\Lumenar2\\CredentialProvider\tFilterCredUi\t[~][FILTERCREDUI][~]\tSetting.FILTERCREDUI' \
  $'2\tSOFTWARE\\Corvana\\Lumenar2\\CredentialProvider\tEnableExperimentalCredUI\t#[ENABLEEXPERIMENTALCREDUI]\tSetting.ENABLEEXPERIMENTALCREDUI' \
  $'2\tSOFTWARE\\Corvana\\Lumenar2\\CredentialProvider\\AbstractionLayer\\Kaldera\tLdapUseSSL\t#[LDAPUSESSL]\tSetting.LDAPUSESSL'; do
  printf '%s\n' "$rows" | grep -qxF -- "$row" || fail "no registry row $(printf '%s' "$row" | tr '\t' '|')"
done
# Everything the package writes lies under the product's keys, the COM class, the provider list or
# the filter list.
while IFS=$'\t' read -r root key _; do
  [ "$root" = 2 ] || fail "a registry row outside HKLM: $key"
  case $key in
    'SOFTWARE\Corvana\Lumenar2\'* | "SOFTWARE\\Classes\\CLSID\\$clsid"* | \
      "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Authentication\\Credential Providers\\$clsid" | \
      "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Authentication\\Credential Provider Filters\\$clsid") ;;
    *) fail "a registry row outside the product's keys: $key" ;;
  esac
done <<<"$rows"

# Major upgrade: older versions are found and removed before anything is installed, newer ones
# refuse the installation with a message.
upgrade=$(table Property | sed -n 's/^UpgradeCode\t//p')
expect_row Upgrade "$upgrade"$'\t\t'"$version"$'\t\t1\t\tWIX_UPGRADE_DETECTED'
expect_row Upgrade "$upgrade"$'\t'"$version"$'\t\t\t2\t\tWIX_DOWNGRADE_DETECTED'
table LaunchCondition | grep -q $'^NOT WIX_DOWNGRADE_DETECTED\tA newer version of \[ProductName\] is already installed' ||
  fail "no launch condition refuses a downgrade"
expect_row InstallExecuteSequence $'RemoveExistingProducts\t\t1401'
# The remembered properties are read back before the old version goes.
table InstallExecuteSequence | awk -F'\t' '$1 ~ /^Keep\./ && ($3 <= 50 || $3 >= 1401) {bad = 1} END {exit bad}' ||
  fail "a remembered property is restored outside AppSearch .. RemoveExistingProducts"

[ "$failures" -eq 0 ] && echo "check-package: $(basename "$msi") ($(stat -c %s "$msi") bytes): every check passed"
exit $((failures > 0))
