#!/usr/bin/env bash
# The chaos soak: random LogonUI sessions against the provider's end-to-end build, with the signed
# virtual token engine and the session service double (tools/soak/ChaosSession.cpp says what a
# session does and what it checks after every step). Half the sessions run as Windows 10, half as
# Windows 7, in batches of one host each, with a full DEBUG trace that must hold none of the
# sessions' PINs and passwords. Prints every failing seed and the tally.
#
#   bash scripts/soak.sh [SESSIONS (default 1000)] [FIRST SEED (default 1)]
#
# A failing seed runs again on its own: bash scripts/soak.sh 1 SEED. Its script:
#   scripts/wine-prefix.sh run build/windows/wine/prefix build/windows/bin/logon-host.exe --print-chaos SEED
# Stops the build's Wine prefix at the end: do not run it while the tests run.
set -uo pipefail
cd "$(dirname "$0")/.."
sessions=${1:-1000} first=${2:-1}
batch=50
source scripts/host-prefix.sh
prepare_host_prefix logon-host logon-host-win7 >/dev/null
release_host_prefix >/dev/null 2>&1

log=$(mktemp)
started=$(date +%s)
failed_batches=0 seed=$first end=$((first + sessions))
while [ "$seed" -lt "$end" ]; do
  count=$((end - seed < batch ? end - seed : batch))
  host=logon-host.exe
  (( (seed / batch) % 2 == 1 )) && host=logon-host-win7.exe
  tests/end-to-end/run-script.sh "$bin" "$prefix" "$host" "chaos:$seed:$count" --secrets "Chaos-Pw-Known" >"$log.batch" 2>&1
  rc=$?
  cat "$log.batch" >>"$log"
  # A crash or a hang ends the host early, whatever its exit status (a process that lost its Wine
  # server ends with 0): the batch then has no summary, and the sessions after the last one it
  # began run next.
  summary=$(grep -c 'chaos: [0-9]* sessions from seed' "$log.batch")
  if [ $rc -ne 0 ] || [ "$summary" -eq 0 ]; then
    failed_batches=$((failed_batches + 1))
    last=$(grep -o 'chaos: session [0-9]*' "$log.batch" | tail -1 | grep -o '[0-9]*$')
    if [ "$summary" -eq 0 ]; then
      echo "chaos: CRASH or HANG in session ${last:-$seed} ($host, exit $rc)" | tee -a "$log"
      grep -h 'chaos: HANG\|run-script: ' "$log.batch" | grep -v 'holds none of the secrets' || true
      seed=$(( ${last:-$seed} + 1 ))
      continue
    fi
  fi
  seed=$((seed + count))
done
scripts/wine-prefix.sh stop "$prefix" >/dev/null 2>&1

echo
grep -h 'chaos: FAILED\|chaos: CRASH\|chaos: HANG\|run-script: the trace contains' "$log" || true
crashes=$(grep -c 'chaos: CRASH' "$log")
hangs=$(grep -c 'chaos: HANG' "$log")
failures=$(grep -c 'chaos: FAILED' "$log")
leaks=$(grep -c 'run-script: the trace contains' "$log")
echo "soak: $sessions sessions from seed $first in $(( $(date +%s) - started )) s:" \
  "$crashes crashes or hangs ($hangs hangs), $failures invariant violations, $leaks secrets in the trace"
rm -f "$log" "$log.batch"
[ $((crashes + failures + leaks)) -eq 0 ]
