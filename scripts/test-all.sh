#!/usr/bin/env bash
# Builds and tests every supported configuration: Linux x86-64 (debug and
# release), Linux i386, the AddressSanitizer+UndefinedBehaviorSanitizer build,
# and the Windows DLL
# (windows-* presets, through scripts/test-windows.sh). Installs the Debian
# packages it needs first (as root), so it runs on a fresh Debian 12 machine.
#
# With no preset named it runs all six, then the browser test of kav-host
# serve, every fuzz target's corpus replay and 30 s smoke run, and the Linux
# test programs under valgrind's memcheck.
#
# Usage: scripts/test-all.sh [preset...]
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh

presets=("$@")
everything=0
(( ${#presets[@]} )) || everything=1
(( everything )) && presets=(linux-x64-debug linux-x64-release linux-i386 asan-ubsan windows-i686 windows-x64)
jobs=$(nproc 2>/dev/null || echo 2)

timings=()
for preset in "${presets[@]}"; do
  started=$SECONDS
  if [[ $preset == windows-* ]]; then
    bash scripts/test-windows.sh "$preset"
  else
    echo "=== ${preset}: configure and build"
    cmake --preset "$preset" >/dev/null
    cmake --build --preset "$preset" -j "$jobs"
    echo "=== ${preset}: test"
    ctest --preset "$preset" -j "$jobs"
  fi
  timings+=("$(printf '%-18s %4d s' "$preset" $((SECONDS - started)))")
done
# The console in a real browser and the API document's validation, against
# the x86-64 debug build of kav-host.
if [[ " ${presets[*]} " == *" linux-x64-debug "* ]]; then
  echo "=== kav-host serve: browser test and OpenAPI validation"
  bash scripts/test-browser.sh build/linux-x64-debug/kav-host
fi
if (( everything )); then
  started=$SECONDS
  echo "=== fuzz targets: corpus replay and smoke run"
  bash scripts/fuzz-smoke.sh
  timings+=("$(printf '%-18s %4d s' "fuzz smoke" $((SECONDS - started)))")
  started=$SECONDS
  echo "=== memcheck: the Linux test programs under valgrind"
  bash scripts/test-valgrind.sh
  timings+=("$(printf '%-18s %4d s' "valgrind" $((SECONDS - started)))")
fi
echo "=== time per configuration (build and test)"
printf '%s\n' "${timings[@]}"
echo "all in ${SECONDS} s"
echo "=== all configurations passed: ${presets[*]}"
