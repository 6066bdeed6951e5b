#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need, when missing.
# Usage: scripts/install-deps.sh [--bench] [--windows]
# Safe to run repeatedly; does nothing when everything is present.
# --windows also installs the MinGW-w64 cross compilers and Wine
# (scripts/install-deps-windows.sh, scripts/install-wine32.sh).
set -uo pipefail

want_bench=0
want_windows=0
for option in "$@"; do
  [[ "$option" == "--bench" ]] && want_bench=1
  [[ "$option" == "--windows" ]] && want_windows=1
done
if (( want_windows )); then
  bash "$(dirname "$0")/install-deps-windows.sh" || exit 1
  bash "$(dirname "$0")/install-wine32.sh"
fi

packages=(cmake ninja-build g++ g++-multilib pkg-config rapidjson-dev libyaml-dev
          libyaml-dev:i386 googletest libgtest-dev libgmock-dev libbenchmark-dev clang-format)
if (( want_bench )); then
  packages+=(libyaml-cpp-dev libmsgpack-cxx-dev)
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
apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null

still=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || still+=("$p")
done
if (( ${#still[@]} )); then
  echo "install-deps: could not install: ${still[*]}" >&2
  exit 1
fi
