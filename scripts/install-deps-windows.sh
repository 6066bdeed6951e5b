#!/usr/bin/env bash
# Installs what the Windows builds need, when missing: Debian's MinGW-w64
# cross compilers (posix thread model), Wine for running the x86-64 tests,
# and the deb-src entry from which scripts/build-libyaml-mingw.sh fetches
# Debian's source of libyaml. Called by scripts/install-deps.sh --windows.
# Safe to run repeatedly; does nothing when everything is present.
set -uo pipefail

packages=(g++-mingw-w64-i686-posix g++-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64
          binutils-mingw-w64-i686 wine64 dpkg-dev make)

installed() {
  dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q "install ok installed"
}

missing=()
for p in "${packages[@]}"; do installed "$p" || missing+=("$p"); done
have_source=1
apt-get source --print-uris -qq libyaml >/dev/null 2>&1 || have_source=0
(( ${#missing[@]} == 0 && have_source )) && exit 0

if [[ $(id -u) -ne 0 ]]; then
  echo "install-deps-windows: missing packages (${missing[*]}) or the libyaml source entry," \
       "and not running as root" >&2
  exit 1
fi
export DEBIAN_FRONTEND=noninteractive

if (( !have_source )); then
  # The deb-src twin of the system's own Debian entry (deb822 or one-line form).
  src=/etc/apt/sources.list.d/kav-deb-src.sources
  if [[ -f /etc/apt/sources.list.d/debian.sources ]]; then
    awk 'BEGIN { RS = ""; ORS = "\n\n" } NR == 1 { sub(/Types:[^\n]*/, "Types: deb-src"); print }' \
        /etc/apt/sources.list.d/debian.sources >"$src"
  else
    grep -m1 -E '^deb +(\[[^]]*\] +)?https?://' /etc/apt/sources.list |
        sed 's/^deb /deb-src /' >"${src%.sources}.list"
  fi
  echo "install-deps-windows: enabled Debian source packages ($(ls "${src%.sources}".*))"
fi

echo "install-deps-windows: installing ${missing[*]:-nothing}"
apt-get update -qq || echo "install-deps-windows: apt-get update reported errors; continuing" >&2
if (( ${#missing[@]} )); then
  apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi

still=()
for p in "${packages[@]}"; do installed "$p" || still+=("$p"); done
if (( ${#still[@]} )); then
  echo "install-deps-windows: could not install: ${still[*]}" >&2
  exit 1
fi
if ! apt-get source --print-uris -qq libyaml >/dev/null 2>&1; then
  echo "install-deps-windows: Debian's source of libyaml is still not reachable" >&2
  exit 1
fi
