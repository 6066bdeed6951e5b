#!/usr/bin/env bash
# Runs a Windows program under Wine: the emulator of the Windows presets, so
# CTest and GoogleTest's test discovery run the .exe files through it.
#
# The Wine prefix lives in build/wine (created on first use), so a fresh
# clone needs nothing from $HOME. Wine is quiet (WINEDEBUG=-all) and never
# asks to install Mono or Gecko (mscoree and mshtml disabled).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
export WINEPREFIX=${KAV_WINEPREFIX:-$root/build/wine}
export WINEDEBUG=${WINEDEBUG:--all}
export WINEDLLOVERRIDES=${WINEDLLOVERRIDES:-mscoree,mshtml=}
export WINEARCH=win64
unset DISPLAY WAYLAND_DISPLAY

# Debian's wine64 package puts its loader and server under /usr/lib/wine;
# the loader also starts 32-bit programs when wine32 is installed.
wine=/usr/lib/wine/wine64
wineserver=/usr/lib/wine/wineserver
[[ -x $wine ]] || wine=$(command -v wine64 || command -v wine)
[[ -x $wineserver ]] || wineserver=$(command -v wineserver)

# A prefix made before wine32 was installed cannot run 32-bit programs: it is
# made again. The stamp records which parts of Wine made it.
parts=64
[[ -x /usr/lib/wine/wine ]] && parts=32+64
stamp=$WINEPREFIX/.made-with-wine$parts
if [[ ! -f $stamp ]]; then
  mkdir -p "$(dirname "$WINEPREFIX")"
  (
    flock 9
    if [[ ! -f $stamp ]]; then
      rm -rf "$WINEPREFIX"
      "$wine" wineboot --init >/dev/null 2>&1 || true
      "$wineserver" -w
      touch "$stamp"
    fi
  ) 9>"$WINEPREFIX.lock"
fi

# A server that outlives each program by 30 s: one started per program ends
# when its last client does, and a program started by a parallel CTest job at
# that moment loses its connection ("recvmsg: Connection reset by peer").
# When a server runs already, this one exits at once.
"$wineserver" -p 30 2>/dev/null || true

# Windows programs end their lines with CR LF; the test lister's output is
# read by CMake, which expects bare line feeds.
for argument in "$@"; do
  if [[ $argument == --gtest_list_tests ]]; then
    set +e
    "$wine" "$@" | tr -d '\r'
    exit "${PIPESTATUS[0]}"
  fi
done
exec "$wine" "$@"
