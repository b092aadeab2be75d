#!/usr/bin/env bash
# Runs one logon host script end to end in the build's Wine prefix:
#
#   run-script.sh BIN_DIR PREFIX HOST SCRIPT [--fails-with TEXT]
#
# installs the signed virtual token engine and the session service double (as an administrator
# would), runs HOST (logon-host.exe or logon-host-win7.exe) with SCRIPT, and removes the double
# again. With --fails-with the script must fail (exit code 1) and the host's report must contain
# TEXT: a script's wrong expectation has to be caught and named.
set -uo pipefail
bin=${1:?BIN_DIR} prefix=${2:?PREFIX} host=${3:?HOST} script=${4:?SCRIPT}
shift 4
fails_with=""
if [ "${1:-}" = --fails-with ]; then fails_with=${2:?TEXT}; fi

here=$(cd "$(dirname "$0")" && pwd)
wine_run=("$here/../../scripts/wine-prefix.sh" run "$prefix")

# Providers registered by a script that was killed before it could undo its changes go first.
"${wine_run[@]}" reg delete \
  'HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\Authentication\Credential Providers' /f >/dev/null 2>&1
"${wine_run[@]}" "$bin/engine_install.exe" "$bin/engine-variants/VestaAccessLibrary.signed.dll" \
  "$bin/engine-variants/test-root.cer" 2>/dev/null || { echo "engine install failed"; exit 1; }
"${wine_run[@]}" "$bin/session_service_double.exe" --install 2>/dev/null || { echo "service install failed"; exit 1; }

output=$(mktemp)
"${wine_run[@]}" "$bin/$host" --script "$script" >"$output" 2>/dev/null
rc=$?
"${wine_run[@]}" "$bin/session_service_double.exe" --remove 2>/dev/null
cat "$output"

if [ -n "$fails_with" ]; then
  if [ "$rc" -ne 1 ]; then echo "run-script: the script was to fail, but the host exited with $rc"; rc=1
  elif ! grep -qF -- "$fails_with" "$output"; then echo "run-script: the failure does not say: $fails_with"; rc=1
  else echo "run-script: failed as it should"; rc=0
  fi
fi
rm -f "$output"
exit "$rc"
