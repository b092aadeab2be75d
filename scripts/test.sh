#!/usr/bin/env bash
# The project's test command: installs what is missing (Debian 12, as root), builds both
# configurations and runs every test, printing CTest's summary for each. Exits non-zero when any
# step or test fails.
set -uo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh || exit 1

status=0
for preset in native native-tsan windows; do
  echo
  echo "=== $preset: configure, build, test ==="
  if cmake --preset "$preset" && cmake --build --preset "$preset"; then
    ctest --preset "$preset" || status=1
  else
    echo "=== $preset: build failed ===" >&2
    status=1
  fi
done
exit $status
