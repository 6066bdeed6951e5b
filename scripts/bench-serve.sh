#!/usr/bin/env bash
# Load benchmark of `kav-host serve` with wrk (Debian's) over loopback,
# keep-alive, 64 connections:
#   * baseline: an unknown path (answered by the HTTP layer alone, never
#     reaching the plugin thread), measured in the same run;
#   * the initial-configuration flag resource;
#   * a v3 call answered from the plugin's cache (the signed-in player).
# Before loading, each answer is checked against the one-shot kav-host's.
# Then it prints the server's RSS and the plugin's bytes in use once a
# million requests have been served, and again after 1,000,000 more: neither
# may grow with the requests served.
#
# Usage: scripts/bench-serve.sh [seconds per phase]   (default 20)
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-20}
bash scripts/install-deps.sh --bench
cmake --preset linux-x64-release >/dev/null
cmake --build --preset linux-x64-release -j 2 --target kav-host kav_queue_eligibility >/dev/null
host=build/linux-x64-release/kav-host

flag=/kav-queue-eligibility/v1/initial-configuration-complete
cached='/kav-queue-eligibility/v3/eligibility?summonerIds=[1001]&queueIds=[420,450,830]'

log=$(mktemp)
"$host" serve --port 0 >"$log" 2>&1 &
server=$!
trap 'kill "$server" 2>/dev/null || true; rm -f "$log"' EXIT
for _ in $(seq 100); do
  grep -q 'listening on' "$log" && break
  sleep 0.1
done
url=$(grep -o 'http://127\.0\.0\.1:[0-9]*' "$log" | head -1)
[[ -n "$url" ]] || { cat "$log"; exit 1; }

# The same answers as the one-shot command (whitespace aside).
squeeze() { tr -d ' \n'; }
for target in "$flag" "$cached"; do
  served=$(curl -sg "$url$target" | squeeze)
  printed=$("$host" "GET $target" | sed -n '/^> GET/,$p' | tail -n +2 | squeeze)
  if [[ "$served" != "$printed" ]]; then
    echo "answers differ for $target:"; echo "  served:  $served"; echo "  printed: $printed"
    exit 1
  fi
done
echo "answers equal the one-shot command's: $flag, $cached"

memory() {
  local rss bytes
  rss=$(ps -o rss= -p "$server" | tr -d ' ')
  bytes=$(curl -s "$url/_host/state" | grep -o '"bytesInUse":[0-9]*' | cut -d: -f2)
  echo "server RSS ${rss} KiB, plugin bytes in use ${bytes}"
}

run() {  # name path
  local out requests rate errors
  out=$(wrk -t2 -c64 -d"${seconds}s" --latency "$url$2")
  requests=$(awk '/requests in/ {print $1}' <<<"$out")
  rate=$(awk '/Requests\/sec/ {print $2}' <<<"$out")
  # The baseline's answers are 404s by design; only socket errors count there.
  if [[ $1 == baseline ]]; then
    errors=$(awk '/Socket errors/ {print}' <<<"$out")
  else
    errors=$(awk '/Non-2xx|Socket errors/ {print}' <<<"$out")
  fi
  total=$((total + requests))
  printf '%-10s %10s req/s  %9s requests  p99 %s  %s\n' "$1" "$rate" "$requests" \
    "$(awk '/ 99%/ {print $2}' <<<"$out")" "${errors:-no errors}"
  eval "rate_$1=$rate"
}

total=0
curl -s "$url$flag" >/dev/null
wrk -t2 -c64 -d3s "$url$flag" >/dev/null  # warm-up
echo "before: $(memory)"
run baseline /nowhere
run flag "$flag"
run cached "$cached"
echo "after ${total} requests: $(memory)"
awk -v f="$rate_flag" -v c="$rate_cached" -v b="$rate_baseline" \
  'BEGIN { printf "ratios to the baseline: flag %.2f, cached v3 %.2f\n", f / b, c / b }'
# Flatness at scale. The first million requests grow the server to its
# working size: each of its worker threads serves for the first time, its
# stack pages and its allocator arena are touched. From there, 1,000,000
# more requests must leave the RSS and the plugin's bytes where they were.
while ((total < 1000000)); do
  run flag "$flag"
done
echo "after ${total} requests: $(memory)"
target=$((total + 1000000))
while ((total < target)); do
  run flag "$flag"
done
echo "after ${total} requests: $(memory)"
kill -TERM "$server"
wait "$server" || true
tail -4 "$log"
