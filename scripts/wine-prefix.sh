#!/usr/bin/env bash
# One Wine prefix per build folder, booted once and served by one persistent wineserver.
#
#   wine-prefix.sh start PREFIX            boot the prefix if needed, start the server, import *.reg
#   wine-prefix.sh run   PREFIX PROGRAM…   start (as above), then run PROGRAM under Wine (its stderr
#                                          is passed on when it ends)
#   wine-prefix.sh stop  PREFIX            end the server and every Wine process of the prefix
#
# Registry files (*.reg) placed beside PREFIX are imported whenever they are newer than the last
# import; the build writes the per-program Windows versions there.
#
# Wine's helper processes (services.exe, rpcss, explorer, …) inherit the output of whichever program
# started them, so booting happens with output sent to a log file, never to a pipe that a test
# runner reads. The persistent server (-p) keeps services alive between tests and saves ~2 s per
# test of server start-up and shut-down.
set -euo pipefail

cmd=${1:?usage: wine-prefix.sh start|run|stop PREFIX [PROGRAM ARGS…]}
prefix=${2:?usage: wine-prefix.sh start|run|stop PREFIX [PROGRAM ARGS…]}
shift 2

home=$(dirname "$prefix")
mkdir -p "$home"
prefix=$(cd "$home" && pwd)/$(basename "$prefix")
home=$(dirname "$prefix")

export WINEPREFIX=$prefix
export WINEARCH=win64
# Wine's own errors stay on (a program that dies at start-up says why); its fixme and warning
# chatter does not.
export WINEDEBUG=${WINEDEBUG:-fixme-all,warn-all}
# No Mono/Gecko installer dialogs, no desktop menu entries.
export WINEDLLOVERRIDES=${WINEDLLOVERRIDES:-mscoree,mshtml=;winemenubuilder.exe=d}
log=$home/wine.log

start() {
  exec 9>"$home/prefix.lock"
  flock 9
  if [ ! -f "$prefix/.lm2-booted-2" ]; then
    echo "wine-prefix: creating $prefix (output in $log)" >&2
    rm -rf "$prefix" "$home"/*.reg.imported
    WINEDEBUG=-all wineboot -i </dev/null >>"$log" 2>&1
    # Wine's "null" graphics driver makes real windows and dialogs without a display, so message
    # boxes block as on Windows and the logon host answers them. The desktop takes its driver when
    # it starts, so the setting is made here, before the server that serves the tests begins.
    WINEDEBUG=-all wine reg add 'HKCU\Software\Wine\Drivers' /v Graphics /d null /f </dev/null >>"$log" 2>&1
    # With windows possible, a crashing program would get Wine's crash dialog and wait for a
    # person forever; the debugger prints its backtrace and lets the program end instead.
    WINEDEBUG=-all wine reg add 'HKCU\Software\Wine\WineDbg' /v ShowCrashDialog /t REG_DWORD /d 0 /f \
      </dev/null >>"$log" 2>&1
    WINEDEBUG=-all wineserver -w </dev/null >>"$log" 2>&1 || true
    touch "$prefix/.lm2-booted-2"
  fi
  # `wineserver -p` exits with 2 at once when the prefix already has a server. When it starts a
  # new one, the helpers (services.exe, plugplay, rpcss, …) are started here too, by wineboot with
  # its output in the log: started by a test instead, they would inherit that test's stderr and
  # CTest would wait for them until the test times out.
  if wineserver -p </dev/null >>"$log" 2>&1; then
    WINEDEBUG=-all wineboot </dev/null >>"$log" 2>&1
    # The desktop process likewise: the build puts a program beside the prefix that keeps one
    # desktop client alive until the server ends (see tests/common/DesktopAnchor.cpp).
    if [ -f "$home/desktop-anchor.exe" ]; then
      WINEDEBUG=-all setsid wine "$home/desktop-anchor.exe" </dev/null >>"$log" 2>&1 9>&- &
    fi
  fi
  local reg
  for reg in "$home"/*.reg; do
    [ -e "$reg" ] || continue
    if [ ! -e "$reg.imported" ] || [ "$reg" -nt "$reg.imported" ]; then
      WINEDEBUG=-all wine reg import "$reg" </dev/null >>"$log" 2>&1
      touch "$reg.imported"
    fi
  done
  flock -u 9
  exec 9>&-
}

case $cmd in
  start) start ;;
  run)
    start
    # Now and then (seen right after a prefix was created) a Wine program dies before its first
    # instruction with "failed to map the shared user data": an address-space collision at process
    # start. Such a program ran nothing, so it is started again; without address randomisation the
    # collision has less room to happen at all. Its stderr is passed on after it ends.
    # setarch is refused where the personality call is filtered (common container profiles):
    # then programs start with randomisation, and the retry below still covers a collision.
    launcher=(setarch "$(uname -m)" -R)
    "${launcher[@]}" true 2>/dev/null || launcher=()
    errors=$(mktemp)
    for attempt in 1 2 3; do
      rc=0
      ${launcher[@]+"${launcher[@]}"} wine "$@" 2>"$errors" || rc=$?
      if [ "$rc" -ne 0 ] && grep -q 'failed to map the shared user data' "$errors"; then
        echo "wine-prefix: start-up collision, starting again (attempt $attempt)" >>"$log"
        continue
      fi
      break
    done
    cat "$errors" >&2
    rm -f "$errors"
    exit "$rc"
    ;;
  stop)
    wineserver -k </dev/null >>"$log" 2>&1 || true
    wineserver -w </dev/null >>"$log" 2>&1 || true
    ;;
  *) echo "wine-prefix: unknown command $cmd" >&2; exit 2 ;;
esac
