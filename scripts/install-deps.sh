#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need, when missing.
# Usage: scripts/install-deps.sh [--bench] [--fuzz] [--valgrind] [--windows]
# Safe to run repeatedly; does nothing when everything is present.
# --windows also installs the MinGW-w64 cross compilers and wine64
# (scripts/install-deps-windows.sh), and with KAV_WINE32=1 the 32-bit part of
# Wine (scripts/install-wine32.sh).
set -uo pipefail

want_bench=0
want_fuzz=0
want_valgrind=0
want_windows=0
for option in "$@"; do
  [[ "$option" == "--bench" ]] && want_bench=1
  [[ "$option" == "--fuzz" ]] && want_fuzz=1
  [[ "$option" == "--valgrind" ]] && want_valgrind=1
  [[ "$option" == "--windows" ]] && want_windows=1
done
if (( want_windows )); then
  bash "$(dirname "$0")/install-deps-windows.sh" || exit 1
  # wine32 needs the i386 and amd64 versions of dozens of shared libraries
  # aligned (scripts/install-wine32.sh pins them); that is slow and changes
  # the system's libraries, so it is asked for explicitly.
  if [[ ${KAV_WINE32:-0} == 1 ]]; then
    bash "$(dirname "$0")/install-wine32.sh"
  fi
fi

packages=(cmake ninja-build g++ g++-multilib pkg-config rapidjson-dev libyaml-dev
          libyaml-dev:i386 googletest libgtest-dev libgmock-dev libbenchmark-dev clang-format
          libcpp-httplib-dev libcli11-dev)
if (( want_bench )); then
  packages+=(libyaml-cpp-dev libmsgpack-cxx-dev wrk curl jq)
fi
if (( want_fuzz )); then
  # clang with libFuzzer and the sanitizer runtimes (the "fuzz" preset).
  packages+=(clang libclang-rt-dev)
fi
if (( want_valgrind )); then
  packages+=(valgrind)
fi

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
(( ${#missing[@]} == 0 )) && exit 0

if [[ $(id -u) -ne 0 ]]; then
  echo "install-deps: missing packages (${missing[*]}) and not running as root" >&2
  exit 1
fi

echo "install-deps: installing ${missing[*]}"
if ! dpkg --print-foreign-architectures | grep -qx i386; then
  dpkg --add-architecture i386
fi
export DEBIAN_FRONTEND=noninteractive
# The i386 index of the security mirror sometimes fails; what counts is that the
# packages install, so the update's exit code is deliberately not checked.
apt-get update -qq || echo "install-deps: apt-get update reported errors; continuing" >&2
# cpp-httplib needs libssl-dev, whose version must equal the installed
# libssl3's, which another package (an i386 one, say) may hold back: ask for
# that version when the archive still has it.
if [[ " ${missing[*]} " == *" libcpp-httplib-dev "* ]]; then
  ssl=$(dpkg-query -W -f='${Version}' libssl3 2>/dev/null || true)
  if [[ -n "$ssl" ]] && apt-cache madison libssl-dev | grep -qF " $ssl "; then
    missing+=("libssl-dev=$ssl")
  fi
fi
apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null

still=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || still+=("$p")
done
if (( ${#still[@]} )); then
  echo "install-deps: could not install: ${still[*]}" >&2
  exit 1
fi
