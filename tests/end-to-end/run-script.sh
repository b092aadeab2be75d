#!/usr/bin/env bash
# Runs one logon host script end to end in the build's Wine prefix:
#
#   run-script.sh BIN_DIR PREFIX HOST SCRIPT [--fails-with TEXT] [--secrets "PIN PASSWORD ..."]
#
# installs the signed virtual token engine and the session service double (as an administrator
# would), runs HOST (logon-host.exe or logon-host-win7.exe) with SCRIPT, and removes the double
# again. SCRIPT may be chaos:SEED:COUNT: the host then runs COUNT random soak sessions from SEED
# on (--chaos), and their PINs and passwords join the secrets. With --fails-with the script must fail and the host's report must contain
# TEXT: a script's wrong expectation has to be caught and named. With --secrets the provider writes
# a full DEBUG trace during the run, which must then contain none of the given words, nor any new
# password the provider handed over in a change request, neither as UTF-8 nor as UTF-16 bytes.
set -uo pipefail
bin=${1:?BIN_DIR} prefix=${2:?PREFIX} host=${3:?HOST} script=${4:?SCRIPT}
shift 4
fails_with="" secrets=""
while [ $# -gt 0 ]; do
  case $1 in
    --fails-with) fails_with=${2:?TEXT}; shift 2 ;;
    --secrets) secrets=${2:?WORDS}; shift 2 ;;
    *) echo "run-script: unknown option $1"; exit 2 ;;
  esac
done

here=$(cd "$(dirname "$0")" && pwd)
prefix=$(cd "$prefix" && pwd)
wine_run=("$here/../../scripts/wine-prefix.sh" run "$prefix")

# Providers registered and settings written by a script that was killed before it could undo its
# changes go first (the prefix is the flows' or, while it runs, the soak's: nothing else keeps
# settings there).
"${wine_run[@]}" reg delete \
  'HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\Authentication\Credential Providers' /f >/dev/null 2>&1
"${wine_run[@]}" reg delete \
  'HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\Authentication\Credential Provider Filters' /f >/dev/null 2>&1
"${wine_run[@]}" reg delete 'HKLM\SOFTWARE\Corvana\Lumenar2' /f >/dev/null 2>&1
"${wine_run[@]}" "$bin/engine_install.exe" "$bin/engine-variants/VestaAccessLibrary.signed.dll" \
  "$bin/engine-variants/test-root.cer" 2>/dev/null || { echo "engine install failed"; exit 1; }
"${wine_run[@]}" "$bin/session_service_double.exe" --install 2>/dev/null || { echo "service install failed"; exit 1; }

# The card-id flows find the test directory's ports as %LM2_LDAP_PORT% and %LM2_LDAPS_PORT%, and
# the one of its server without TLS as %LM2_PLAIN_LDAP_PORT%.
if [ -f "$bin/../test-directory/ports.txt" ]; then
  export LM2_LDAP_PORT=$(sed -n 's/^ldap=//p' "$bin/../test-directory/ports.txt")
  export LM2_LDAPS_PORT=$(sed -n 's/^ldaps=//p' "$bin/../test-directory/ports.txt")
  export LM2_PLAIN_LDAP_PORT=$(sed -n 's/^plain=//p' "$bin/../test-directory/ports.txt")
fi

settings='HKLM\SOFTWARE\Corvana\Lumenar2\CredentialProvider'
trace_dir=""
if [ -n "$secrets" ]; then
  trace_dir=$(mktemp -d)
  trace_windows=$(WINEPREFIX=$prefix winepath -w "$trace_dir/provider.log" 2>/dev/null)
  printf '%s\n' 'log4cpp.rootCategory=DEBUG, file' 'log4cpp.appender.file=FileAppender' \
    "log4cpp.appender.file.fileName=$trace_windows" >"$trace_dir/trace.properties"
  "${wine_run[@]}" reg add "$settings" /v LogSettingsPath /d \
    "$(WINEPREFIX=$prefix winepath -w "$trace_dir/trace.properties" 2>/dev/null)" /f >/dev/null 2>&1
fi

output=$(mktemp)
host_options=()
if [ -n "$trace_dir" ]; then
  # New passwords the provider handed over (generated ones too) join the secrets searched for.
  host_options=(--secrets-out "$(WINEPREFIX=$prefix winepath -w "$trace_dir/new-passwords.txt" 2>/dev/null)")
fi
script_options=(--script "$script")
host_environment=()
clock_dir=""
if [[ $script == chaos:* ]]; then
  IFS=: read -r _ chaos_first chaos_count <<<"$script"
  script_options=(--chaos "$chaos_first" "$chaos_count")
  # Soak sessions step the host's wall clock (time synchronisation, an administrator): libfaketime
  # in the host only, its offset in a file the host's 'wall-clock' word writes; the monotonic
  # clock stays real. The file is read at most once a second: with a read at every clock reading
  # (FAKETIME_NO_CACHE) one soak session in 661 froze the host at 'end' with all tracing stopped,
  # most likely such a read where Wine reads the time and a file read is not safe.
  faketime_library=$(ls /usr/lib/*/faketime/libfaketimeMT.so.1 2>/dev/null | head -n 1)
  if [ -n "$faketime_library" ]; then
    clock_dir=$(mktemp -d)
    echo "+0" >"$clock_dir/offset"
    host_environment=(LD_PRELOAD="$faketime_library" FAKETIME_TIMESTAMP_FILE="$clock_dir/offset"
      FAKETIME_CACHE_DURATION=1 FAKETIME_DONT_FAKE_MONOTONIC=1
      LM2_WALL_CLOCK_FILE="$(WINEPREFIX=$prefix winepath -w "$clock_dir/offset" 2>/dev/null)")
  fi
fi
errors=$(mktemp)
env "${host_environment[@]}" "${wine_run[@]}" "$bin/$host" "${script_options[@]}" "${host_options[@]}" >"$output" 2>"$errors"
rc=$?
"${wine_run[@]}" "$bin/session_service_double.exe" --remove 2>/dev/null
cat "$output"

# The host always ends with its verdict. Without it the process ended early, whatever its exit
# status (Wine ends a process that lost its server with 0): the run fails and tells what is known.
ended_early=""
# What the run finds out about an early end goes with the host's report.
report() { tee -a "$output"; }
if ! grep -qE '^logon-host: (done|FAILED)' "$output"; then
  ended_early=yes
  last_lines=$(grep -v '^$' "$output" | tail -n 6)
  echo "run-script: the host ended early (exit status $rc) without its verdict; its last lines:" | report
  sed 's/^/run-script:   | /' <<<"$last_lines" | report
  crash=$(grep -aE 'Unhandled|^=>|^  [0-9]+ 0x|Backtrace|wine client error|err:seh|err:virtual' "$errors" | head -n 20)
  if [ -z "$crash" ]; then
    echo "run-script: Wine wrote no crash report: the process was ended from outside or lost its Wine server" | report
  elif grep -qi 'LM2CredentialProvider\|VestaAccess' <<<"$crash"; then
    echo "run-script: the provider (or its token engine) faulted; Wine's report:" | report
  else
    echo "run-script: the host or Wine faulted; Wine's report:" | report
  fi
  [ -n "$crash" ] && sed 's/^/run-script:   ! /' <<<"$crash" | report
  rc=4
fi
rm -f "$errors"
[ -n "$clock_dir" ] && rm -rf "$clock_dir"

# \xHH for every byte of $1 in encoding $2: a grep -P pattern that needs no escaping.
byte_pattern() { printf '%s' "$1" | iconv -f UTF-8 -t "$2" | od -An -tx1 -v | tr -s ' \n' ' ' | sed 's/ *\([0-9a-f][0-9a-f]\)/\\x\1/g' | tr -d ' '; }
if [ -n "$trace_dir" ]; then
  "${wine_run[@]}" reg delete "$settings" /v LogSettingsPath /f >/dev/null 2>&1
  trace="$trace_dir/provider.log"
  if [ -n "$ended_early" ]; then
    echo "run-script: the provider's last trace lines:"
    tail -n 12 "$trace" 2>/dev/null | cut -c1-200 | sed 's/^/run-script:   : /'
  fi
  if [[ $script != chaos:* ]] && ! grep -q 'GetSerialization \[START\]' "$trace" 2>/dev/null; then
    echo "run-script: the provider wrote no DEBUG trace of a serialization to $trace"; rc=1
  fi
  # Addresses and result codes are written as hexadecimal digits, in which a numeric PIN turns up
  # by chance (an object at 0000000000d36900 "holds" 3690): they are taken out before the search.
  searched="$trace_dir/without-hex.log"
  LC_ALL=C sed -E 's/(0x)?[0-9A-Fa-f]{16}//g; s/0x[0-9A-Fa-f]{8}//g' "$trace" >"$searched"
  [ -f "$trace_dir/new-passwords.txt" ] && secrets="$secrets $(tr '\n' ' ' <"$trace_dir/new-passwords.txt")"
  set -f  # a password may hold * or ?: no file names in their place
  # One pass over the trace for all of them (a soak batch has hundreds); each is named only when
  # that pass found something.
  patterns=()
  for secret in $secrets; do
    for encoding in UTF-8 UTF-16LE; do patterns+=("$(byte_pattern "$secret" "$encoding")"); done
  done
  if [ ${#patterns[@]} -gt 0 ] && LC_ALL=C grep -aqP "$(IFS='|'; echo "${patterns[*]}")" "$searched"; then
    for secret in $secrets; do
      for encoding in UTF-8 UTF-16LE; do
        if LC_ALL=C grep -aqP "$(byte_pattern "$secret" "$encoding")" "$searched"; then
          echo "run-script: the trace contains the secret '$secret' ($encoding)"; rc=1
        fi
      done
    done
  fi
  set +f
  [ $rc -eq 0 ] && echo "run-script: the DEBUG trace ($(wc -l <"$trace") lines) holds none of the secrets"
  rm -rf "$trace_dir"
fi

if [ -n "$fails_with" ]; then
  if [ "$rc" -eq 0 ]; then echo "run-script: the script was to fail, but the host exited with 0"; rc=1
  elif ! grep -qF -- "$fails_with" "$output"; then echo "run-script: the failure does not say: $fails_with"; rc=1
  else echo "run-script: failed as it should"; rc=0
  fi
fi
rm -f "$output"
exit "$rc"
