#!/usr/bin/env bash
# The main job, served: builds the plugin and the reference host (release)
# and runs `kav-host serve` against the built-in demo scenario (or the
# options given, e.g. --scenario FILE --port 8080 --token T). Open the
# printed URL for the console; stop with Ctrl-C.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh
cmake --preset linux-x64-release -DKAV_BUILD_BENCH=OFF >/dev/null
cmake --build --preset linux-x64-release -j "$(nproc 2>/dev/null || echo 2)" --target kav-host kav_queue_eligibility >/dev/null
exec build/linux-x64-release/kav-host serve "$@"
