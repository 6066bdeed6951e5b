#!/usr/bin/env bash
# The main job: builds the plugin and the reference host (release) and runs
# the host against the built-in demo scenario. Extra arguments go to kav-host.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh
cmake --preset linux-x64-release -DKAV_BUILD_BENCH=OFF >/dev/null
cmake --build --preset linux-x64-release -j "$(nproc 2>/dev/null || echo 2)" --target kav-host kav_queue_eligibility >/dev/null
exec build/linux-x64-release/kav-host "$@"
