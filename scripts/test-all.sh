#!/usr/bin/env bash
# Builds and tests every supported configuration: Linux x86-64, Linux i386,
# the AddressSanitizer+UndefinedBehaviorSanitizer build, and the Windows DLL
# (windows-* presets, through scripts/test-windows.sh). Installs the Debian
# packages it needs first (as root), so it runs on a fresh Debian 12 machine.
#
# Usage: scripts/test-all.sh [preset...]   (default: all five)
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh

presets=("$@")
(( ${#presets[@]} )) || presets=(linux-x64-debug linux-i386 asan-ubsan windows-i686 windows-x64)
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
echo "=== time per configuration (build and test)"
printf '%s\n' "${timings[@]}"
echo "=== all configurations passed: ${presets[*]}"
