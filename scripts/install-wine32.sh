#!/usr/bin/env bash
# Installs Wine's 32-bit part (wine32:i386), with which the windows-i686
# tests run, when it is missing. Optional: prints why and exits 0 when it
# cannot be installed.
#
# Every multi-arch library must have the same version for amd64 and i386.
# When the i386 index of a mirror lags behind the amd64 one (the security
# suite's i386 index fails to download on some mirrors), apt has no common
# version to offer and refuses wine32. The i386 candidates are then taken for
# both architectures: each amd64 library in wine32's dependencies that
# differs is installed at its i386 candidate version (listed when that is a
# downgrade).
set -uo pipefail

installed() {
  dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q "install ok installed"
}
installed wine32:i386 && exit 0
if [[ $(id -u) -ne 0 ]]; then
  echo "install-wine32: wine32:i386 is missing and not running as root; skipped" >&2
  exit 0
fi
export DEBIAN_FRONTEND=noninteractive
dpkg --print-foreign-architectures | grep -qx i386 || dpkg --add-architecture i386

candidate() {
  apt-cache policy "$1" 2>/dev/null | awk '/Candidate:/ { print $2 }'
}

pins=()
while read -r package; do
  multi_arch=$(apt-cache show "$package:i386" 2>/dev/null | awk '/^Multi-Arch:/ { print $2; exit }')
  [[ $multi_arch == same ]] || continue
  version=$(candidate "$package:i386")
  [[ -n $version && $version != "(none)" ]] || continue
  current=$(dpkg-query -W -f='${Version}' "$package:amd64" 2>/dev/null) || current=
  [[ -n $current ]] || continue
  if [[ $current != "$version" || $(candidate "$package:amd64") != "$version" ]]; then
    pins+=("$package:amd64=$version" "$package:i386=$version")
    if dpkg --compare-versions "$current" gt "$version"; then
      echo "install-wine32: $package:amd64 goes from $current back to $version (the i386 version)"
    fi
  fi
done < <(apt-cache depends --recurse --no-recommends --no-suggests --no-conflicts --no-breaks \
           --no-replaces --no-enhances wine32:i386 2>/dev/null |
         sed -n 's/^\([a-z0-9][^ ]*\):i386$/\1/p' | sort -u)

echo "install-wine32: installing wine32:i386 (${#pins[@]} version pins)"
log=$(mktemp)
if apt-get install -y -q --no-install-recommends --allow-downgrades wine32:i386 "${pins[@]}" \
     >"$log" 2>&1; then
  rm -f "$log"
  exit 0
fi
echo "install-wine32: wine32:i386 could not be installed; the windows-i686 tests will not run." \
     "apt said:" >&2
tail -n 25 "$log" >&2
rm -f "$log"
exit 0
