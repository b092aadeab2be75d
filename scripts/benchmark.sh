#!/usr/bin/env bash
# Measures a token logon under Wine with the virtual token engine and prints the ratios to the
# design's floors (see tools/benchmark/LogonBenchmark.cpp). Builds what it needs, installs the
# signed engine and the session service double in the build's Wine prefix, and stops the prefix at
# the end: do not run it while the tests run.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
cmake --preset windows >/dev/null
cmake --build --preset windows --target logon-benchmark LM2CredentialProviderEndToEnd engine_install \
  virtual_token_engine_variants session_service_double
bin=build/windows/bin
prefix=build/windows/wine/prefix
run=(scripts/wine-prefix.sh run "$prefix")
"${run[@]}" "$bin/engine_install.exe" "$bin/engine-variants/VestaAccessLibrary.signed.dll" \
  "$bin/engine-variants/test-root.cer" 2>/dev/null
"${run[@]}" "$bin/session_service_double.exe" --install 2>/dev/null
status=0
"${run[@]}" "$bin/logon-benchmark.exe" 2>/dev/null || status=$?
"${run[@]}" "$bin/session_service_double.exe" --remove 2>/dev/null || true
scripts/wine-prefix.sh stop "$prefix"
exit $status
