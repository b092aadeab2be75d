#!/usr/bin/env bash
# The demo: installs what is missing (Debian 12, as root), builds the Windows configuration's
# logon host, the provider's end-to-end build, the virtual token engine and the session service
# double, and runs the scripted showcase on the logon host in the build's Wine prefix. Every
# screen of the tile is printed as it changes; SVG pictures of the screens are written to
# build/demo/.
set -euo pipefail
cd "$(dirname "$0")/.."

source scripts/host-prefix.sh
prepare_host_prefix logon-host
out=build/demo
mkdir -p "$out"
status=0
LM2_DEMO_OUT="Z:$(cd "$out" && pwd | tr / '\\')" \
  run_in_host_prefix "$bin/logon-host.exe" --script tools/logon-host/demo/showcase.lm2 2>/dev/null || status=$?
release_host_prefix

echo
echo "Pictures of the screens: $(ls "$out"/*.svg | tr '\n' ' ')"
exit $status
