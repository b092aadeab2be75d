#!/usr/bin/env bash
# The demo: installs what is missing (Debian 12, as root), builds the Windows configuration's
# logon host, the provider's end-to-end build, the virtual token engine and the session service
# double, and runs the scripted showcase on the logon host in the build's Wine prefix. Every
# screen of the tile is printed as it changes; SVG pictures of the screens are written to
# build/demo/.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh
cmake --preset windows >/dev/null
cmake --build --preset windows --target logon-host LM2CredentialProviderEndToEnd engine_install \
  virtual_token_engine_variants session_service_double

bin=build/windows/bin
prefix=build/windows/wine/prefix
out=build/demo
mkdir -p "$out"
run=(scripts/wine-prefix.sh run "$prefix")

"${run[@]}" "$bin/engine_install.exe" "$bin/engine-variants/VestaAccessLibrary.signed.dll" \
  "$bin/engine-variants/test-root.cer" 2>/dev/null
"${run[@]}" "$bin/session_service_double.exe" --install 2>/dev/null
status=0
LM2_DEMO_OUT="Z:$(cd "$out" && pwd | tr / '\\')" \
  "${run[@]}" "$bin/logon-host.exe" --script tools/logon-host/demo/showcase.lm2 2>/dev/null || status=$?
"${run[@]}" "$bin/session_service_double.exe" --remove 2>/dev/null || true
scripts/wine-prefix.sh stop "$prefix"

echo
echo "Pictures of the screens: $(ls "$out"/*.svg | tr '\n' ' ')"
exit $status
