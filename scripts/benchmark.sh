#!/usr/bin/env bash
# Measures a token logon under Wine with the virtual token engine and prints the ratios to the
# design's floors (see tools/benchmark/LogonBenchmark.cpp), then an access card's logon against the
# test directory. Builds what it needs, installs the signed engine and the session service double
# in the build's Wine prefix, starts the test directory, and stops both at the end: do not run it
# while the tests run.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/host-prefix.sh
prepare_host_prefix logon-benchmark directory_certificates
directory=build/windows/test-directory
tests/directory/test-directory.sh start "$directory" "$bin/directory-certs" >/dev/null
status=0
run_in_host_prefix "$bin/logon-benchmark.exe" 2>/dev/null || status=$?
run_in_host_prefix "$bin/logon-benchmark.exe" --card 2>/dev/null || status=$?
tests/directory/test-directory.sh stop "$directory"
release_host_prefix
exit $status
