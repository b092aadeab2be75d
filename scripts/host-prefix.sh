# Sourced by the programs that drive the provider on the logon host outside the tests (demo,
# benchmark): builds what they need, installs the signed virtual token engine and the session
# service double in the build's Wine prefix, and takes both down again.
#
#   prepare_host_prefix TARGET…   install deps, build TARGET… with the engine and the double, install
#   run_in_host_prefix PROGRAM…    run a Windows program in the prefix
#   release_host_prefix           remove the double, stop the prefix
bin=build/windows/bin
prefix=build/windows/wine/prefix

run_in_host_prefix() { scripts/wine-prefix.sh run "$prefix" "$@"; }

prepare_host_prefix() {
  bash scripts/install-deps.sh
  cmake --preset windows >/dev/null
  cmake --build --preset windows --target "$@" LM2CredentialProviderEndToEnd engine_install \
    virtual_token_engine_variants session_service_double
  run_in_host_prefix "$bin/engine_install.exe" "$bin/engine-variants/VestaAccessLibrary.signed.dll" \
    "$bin/engine-variants/test-root.cer" 2>/dev/null
  run_in_host_prefix "$bin/session_service_double.exe" --install 2>/dev/null
}

release_host_prefix() {
  run_in_host_prefix "$bin/session_service_double.exe" --remove 2>/dev/null || true
  scripts/wine-prefix.sh stop "$prefix"
}
