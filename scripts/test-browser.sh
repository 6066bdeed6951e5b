#!/usr/bin/env bash
# Tests `kav-host serve` the way people and tools use it: its console page in
# Debian's chromium (headless, driven by playwright-core; no browser is
# downloaded) and its OpenAPI document with a real validator. Installs
# chromium, node and npm from Debian when missing, and the test's npm
# packages from tests/browser/package-lock.json.
#
# Usage: scripts/test-browser.sh [path to kav-host]   (default: the x86-64 debug build)
set -euo pipefail
cd "$(dirname "$0")/.."
kav_host=$(realpath "${1:-build/linux-x64-debug/kav-host}")

need=()
[[ -x /usr/bin/chromium ]] || need+=(chromium)
command -v node >/dev/null || need+=(nodejs)
command -v npm >/dev/null || need+=(npm)
if (( ${#need[@]} )); then
  echo "test-browser: installing ${need[*]}"
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq || echo "test-browser: apt-get update reported errors; continuing" >&2
  apt-get install -y -qq --no-install-recommends "${need[@]}" >/dev/null
fi

cd tests/browser
if [[ ! -d node_modules ]] || [[ package-lock.json -nt node_modules ]]; then
  npm ci --no-audit --no-fund --loglevel=error
fi
KAV_HOST="$kav_host" CHROMIUM=/usr/bin/chromium node --test
