#!/usr/bin/env bash
# Measures a token logon under Wine with the virtual token engine and prints the ratios to the
# design's floors (see tools/benchmark/LogonBenchmark.cpp). Builds what it needs, installs the
# signed engine and the session service double in the build's Wine prefix, and stops the prefix at
# the end: do not run it while the tests run.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/host-prefix.sh
prepare_host_prefix logon-benchmark
status=0
run_in_host_prefix "$bin/logon-benchmark.exe" 2>/dev/null || status=$?
release_host_prefix
exit $status
