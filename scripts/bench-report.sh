#!/usr/bin/env bash
# Builds the benchmarks of the release preset, runs kav_bench once pinned to
# one core and prints, from that one run:
#   * each codec against its library's own loop on the same bytes (CPU-time
#     medians, ours / baseline, and the target ratio), and
#   * calls per second of the flag, v3 and cached eligibility calls, and the
#     cost of rebuilding the eligibility cache per queue.
#
# Usage: scripts/bench-report.sh [--json FILE] [--cpu N] [--repetitions N] [--no-build]
#   --json FILE      also write the same figures as JSON to FILE
#   --cpu N          the core to pin the run to (default 1)
#   --repetitions N  runs of each benchmark, interleaved; medians are reported (default 5)
#   --no-build       use the kav_bench already built
#   `spread` is the larger of the two sides' coefficients of variation over
#   the repetitions: a ratio within about that much of its target is decided
#   by the machine's noise, not by the code.
# Exit status: 0 when the run completed (whether or not every target is met).
set -euo pipefail
cd "$(dirname "$0")/.."

json_out=""
cpu=1
repetitions=5
build=1
while (( $# )); do
  case "$1" in
    --json) json_out=${2:?--json needs a file}; shift 2 ;;
    --cpu) cpu=${2:?--cpu needs a core number}; shift 2 ;;
    --repetitions) repetitions=${2:?--repetitions needs a count}; shift 2 ;;
    --no-build) build=0; shift ;;
    *) echo "bench-report: unknown option $1" >&2; exit 2 ;;
  esac
done

[[ $cpu =~ ^[0-9]+$ && $repetitions =~ ^[1-9][0-9]*$ ]] ||
  { echo "bench-report: --cpu and --repetitions take whole numbers" >&2; exit 2; }

preset=linux-x64-release
bench=build/$preset/kav_bench
if (( build )); then
  bash scripts/install-deps.sh --bench
  cmake --preset "$preset" >/dev/null
  # Only the benchmark program: the report needs nothing else of the preset.
  cmake --build --preset "$preset" --target kav_bench -- -j2 >/dev/null
fi
[[ -x $bench ]] || { echo "bench-report: $bench is missing (drop --no-build)" >&2; exit 1; }

# Each codec case: label, our benchmark, the baseline's, the target ratio.
cases='[
  ["JSON text -> value, queues",         "ReadWithCodec/queues/1000",             "ReadWithDocument/queues/1000",         1.10],
  ["JSON text -> value, eligibility",    "ReadWithCodec/eligibility/500",         "ReadWithDocument/eligibility/500",     1.10],
  ["value -> JSON, queues",              "WriteWithCodec/queues/1000",            "WriteWithDocument/queues/1000",        1.00],
  ["value -> JSON, eligibility",         "WriteWithCodec/eligibility/500",        "WriteWithDocument/eligibility/500",    1.00],
  ["MessagePack -> value, queues",       "ReadMessagePackBench/queues/1000",      "UnpackWithMsgpackC/queues/1000",       1.50],
  ["MessagePack -> value, eligibility",  "ReadMessagePackBench/eligibility/500",  "UnpackWithMsgpackC/eligibility/500",   1.50],
  ["YAML -> value, queues",              "ReadYamlBench/queues/1000",             "LibyamlEventLoop/queues/1000",         1.10],
  ["YAML -> value, eligibility",         "ReadYamlBench/eligibility/500",         "LibyamlEventLoop/eligibility/500",     1.10]
]'
# Calls: label, benchmark, queues the answer covers (0: not per queue).
calls='[
  ["flag call",                         "BM_FlagCallThroughTable",           0],
  ["v3 call",                           "BM_V3CallThroughTable",             0],
  ["cached v3 call, 2 of 50 queues",    "CachedSelfEligibility/50/2",        0],
  ["cached v3 call, 50 of 50 queues",   "CachedSelfEligibility/50/50",       50],
  ["cached v3 call, 100 of 100 queues", "CachedSelfEligibility/100/100",     100],
  ["cached v3 call, 400 of 400 queues", "CachedSelfEligibility/400/400",     400],
  ["cache rebuild, 50 queues",          "RebuiltSelfEligibility/50",         50],
  ["cache rebuild, 400 queues",         "RebuiltSelfEligibility/400",        400]
]'

names=$(jq -r '.[] | .[1], .[2]' <<<"$cases"; jq -r '.[] | .[1]' <<<"$calls")
filter="^($(paste -sd'|' <<<"$names"))\$"

raw=$(mktemp)
trap 'rm -f "$raw"' EXIT
echo "bench-report: running $bench on core $cpu, $repetitions interleaved repetitions..." >&2
taskset -c "$cpu" "$bench" --benchmark_filter="$filter" \
  --benchmark_repetitions="$repetitions" --benchmark_enable_random_interleaving=true \
  --benchmark_report_aggregates_only=true --benchmark_format=json --benchmark_out_format=json \
  --benchmark_out="$raw" >/dev/null

# Medians of CPU time (the one time with one repetition), in nanoseconds,
# by benchmark name.
report=$(jq --argjson cases "$cases" --argjson calls "$calls" --argjson repetitions "$repetitions" \
  --argjson cpu "$cpu" '
  def ns: .cpu_time * ({"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}[.time_unit]);
  ([.benchmarks[] | select(.run_type == "iteration" or .aggregate_name == "median")
    | {key: .run_name, value: ns}] | from_entries) as $median
  | ([.benchmarks[] | select(.aggregate_name == "cv") | {key: .run_name, value: .cpu_time}]
     | from_entries) as $cv
  | {
      context: {date: .context.date, host: .context.host_name, cpus: .context.num_cpus,
                mhz: .context.mhz_per_cpu, load_avg: .context.load_avg, cpu: $cpu,
                repetitions: $repetitions},
      codecs: [$cases[] | {case: .[0], ours: .[1], baseline: .[2], target: .[3],
                           ours_ns: $median[.[1]], baseline_ns: $median[.[2]]}
               | . + {ratio: (if .ours_ns and .baseline_ns then .ours_ns / .baseline_ns else null end),
                      spread: ([$cv[.ours], $cv[.baseline]] | map(select(. != null)) | max)}
               | . + {met: (.ratio != null and .ratio <= .target)}],
      calls: [$calls[] | {what: .[0], benchmark: .[1], queues: .[2], ns: $median[.[1]]}
              | . + {calls_per_s: (if .ns then 1e9 / .ns else null end),
                     us_per_queue: (if .ns and .queues > 0 then .ns / 1e3 / .queues else null end)}]
    }' "$raw")

jq -r '
  def fmt_ns: if . == null then "missing" elif . >= 1e6 then "\(. / 1e6 * 100 | round / 100) ms"
              elif . >= 1e3 then "\(. / 1e3 * 10 | round / 10) us" else "\(round) ns" end;
  def fmt2: if . == null then "-" else (. * 100 | round) as $n
              | "\($n / 100 | floor).\($n % 100 | tostring | if length < 2 then "0" + . else . end)" end;
  def row(widths): [., widths] | transpose
    | map(.[0] as $text | .[1] as $width
          | $text + (if $width - ($text | length) > 0 then " " * ($width - ($text | length)) else "" end))
    | join("  ");
  "kav_bench, one run pinned to one core: CPU-time medians (\(.context.date), load average \(.context.load_avg | map(. * 100 | round / 100 | tostring) | join(" ")))",
  "",
  (["case", "ours", "baseline", "ratio", "target", "met?", "spread"] | row([34, 10, 10, 5, 7, 4, 6])),
  (.codecs[] | [.case, (.ours_ns | fmt_ns), (.baseline_ns | fmt_ns), (.ratio | fmt2),
                "<= \(.target | fmt2)", (if .met then "yes" else "NO" end),
                (if .spread then "\(.spread * 100 | round)%" else "-" end)]
             | row([34, 10, 10, 5, 7, 4, 6])),
  "",
  (["call", "time", "calls/s", "us/queue"] | row([34, 10, 10, 8])),
  (.calls[] | [.what, (.ns | fmt_ns),
               (if .calls_per_s then (.calls_per_s | round | tostring) else "-" end),
               (if .us_per_queue then (.us_per_queue * 1000 | round / 1000 | tostring) else "-" end)]
            | row([34, 10, 10, 8]))
' <<<"$report"

if [[ -n $json_out ]]; then
  printf '%s\n' "$report" >"$json_out"
  echo "bench-report: wrote $json_out" >&2
fi
