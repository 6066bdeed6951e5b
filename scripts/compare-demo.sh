#!/usr/bin/env bash
# Runs the kav-host demo with the Linux build and with a Windows build of
# kav-host (under Wine) and fails when their answers differ. Line ends (CR LF
# from the Windows C runtime), the plugin's log time stamps and the expiry
# times of restrictions (readings of the monotonic clock, which counts from a
# different moment in each process) are not compared; everything else, the
# log lines included, must be equal.
#
# Usage: scripts/compare-demo.sh build/windows-x64/kav-host.exe [linux-kav-host]
set -euo pipefail
cd "$(dirname "$0")/.."
windows_host=$1
linux_host=${2:-build/linux-x64-debug/kav-host}

if [[ ! -x $linux_host ]]; then
  echo "compare-demo: building the Linux kav-host"
  cmake --preset linux-x64-debug >/dev/null
  cmake --build --preset linux-x64-debug --target kav-host kav_queue_eligibility >/dev/null
fi

out=build/demo-compare
mkdir -p "$out"
name=$(basename "$(dirname "$windows_host")")
normalize() {
  tr -d '\r' |
    sed -E -e 's/[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}(\.[0-9]{3})?/<time>/g' \
           -e 's/"expiredTimestamp": [1-9][0-9]*/"expiredTimestamp": <monotonic>/g'
}
"$linux_host" --verbose | normalize >"$out/linux.txt"
scripts/wine-run.sh "$windows_host" --verbose | normalize >"$out/$name.txt"
if ! diff -u "$out/linux.txt" "$out/$name.txt"; then
  echo "compare-demo: $windows_host answers differently from $linux_host" >&2
  exit 1
fi
echo "compare-demo: $windows_host prints the same demo as $linux_host ($(wc -l <"$out/linux.txt") lines)"
