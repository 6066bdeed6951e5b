#!/usr/bin/env bash
# A long fuzzing run of one target: 10,000,000 executions or two hours,
# whichever comes first, at the lowest priority, with the memory limits of
# the smoke run, a timeout of 60 s per input (at the lowest priority on a
# busy machine the process can be starved for several seconds), and inputs
# of at most 8 KiB (longer seeds are cut; the replay
# of the smoke run reads them whole). The inputs that add coverage are
# then merged into the checked-in corpus fuzz/corpus/<target>/ (files of
# at most 4 KiB): an input is kept when it reaches an edge that none of the
# others reaches (hit counts aside, which keeps the corpus to a few hundred
# files that CI replays in seconds).
#
# Usage: scripts/fuzz-long.sh TARGET [WORK_DIR]
# Expects the fuzz preset built (scripts/fuzz-smoke.sh builds it). The run's
# log is WORK_DIR/<target>.log; a crashing input is left in WORK_DIR.
set -euo pipefail
cd "$(dirname "$0")/.."
# The whole script is one block, read before it runs: a run lasts hours, and
# bash would otherwise read the rest of the file only when it gets there,
# from a file that may have changed meanwhile.
{

target=${1:?usage: scripts/fuzz-long.sh TARGET [WORK_DIR]}
work=${2:-build/fuzz/long}
runs=${FUZZ_RUNS:-10000000}
seconds=${FUZZ_MAX_SECONDS:-7200}
build=build/fuzz
binary=$build/fuzz/kav_fuzz_$target
[[ -x "$binary" ]] || { echo "fuzz-long: build the fuzz preset first" >&2; exit 1; }

mkdir -p "$work/$target-corpus" "fuzz/corpus/$target"
[[ -d "$build/seeds" ]] || bash scripts/fuzz-seeds.sh "$build/seeds" >/dev/null
dictionary=$work/$target.dict
case "$target" in
  json) parts=(json) ;;
  yaml) parts=(yaml) ;;
  conversion | plugin_call) parts=(json yaml plugin) ;;
  *) parts=(plugin) ;;
esac
for part in "${parts[@]}"; do cat "fuzz/dictionaries/$part.dict"; done >"$dictionary"
corpora=("fuzz/corpus/$target")
[[ -d "$build/seeds/$target" ]] && corpora+=("$build/seeds/$target")
extra=()
case "$target" in
  plugin_call | host_value_in) extra=(-detect_leaks=0) ;;
esac

# At the lowest priority. Where the kernel groups tasks by session
# (autogroup), nice alone only ranks the run against its own session, and the
# run would take an equal share from builds and benchmarks started
# elsewhere: so it gets a session of its own whose group weight is lowered too.
lowest() { setsid --wait bash -c 'echo 19 >/proc/self/autogroup 2>/dev/null; exec nice -n 19 "$@"' _ "$@"; }

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:allocator_may_return_null=0}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
lowest "$binary" -rss_limit_mb=1536 -malloc_limit_mb=64 -timeout=60 "-dict=$dictionary" \
  "${extra[@]}" -max_len=8192 -runs="$runs" -max_total_time="$seconds" -print_final_stats=1 \
  "-artifact_prefix=$work/$target-" "$work/$target-corpus" "${corpora[@]}" \
  >"$work/$target.log" 2>&1
grep -E '^#[0-9]+[[:space:]]+DONE|^stat::' "$work/$target.log" || true

# Keep what adds coverage, in small files.
lowest "$binary" -merge=1 -use_counters=0 -max_len=4096 "${extra[@]}" "fuzz/corpus/$target" \
  "$work/$target-corpus" >"$work/$target-merge.log" 2>&1
echo "fuzz-long: fuzz/corpus/$target holds $(find "fuzz/corpus/$target" -type f | wc -l) inputs"
exit
}
