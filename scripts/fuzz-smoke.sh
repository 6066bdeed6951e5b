#!/usr/bin/env bash
# Builds the fuzz targets (preset "fuzz": clang, libFuzzer, AddressSanitizer
# and UndefinedBehaviorSanitizer), then for each target replays its corpus
# (the checked-in fuzz/corpus/<target>/ and the seeds built from the
# conformance suites) and fuzzes it for a while. Any crash, leak, sanitizer
# report, input slower than the timeout or allocation beyond the memory
# limits fails the script; the input is left in build/fuzz/artifacts/.
#
# Usage: scripts/fuzz-smoke.sh [target...]      (default: all seven)
# Environment: FUZZ_SECONDS (default 30) - fuzzing time per target.
set -euo pipefail
cd "$(dirname "$0")/.."

all_targets=(json yaml msgpack conversion route plugin_call host_value_in)
targets=("$@")
(( ${#targets[@]} )) || targets=("${all_targets[@]}")
seconds=${FUZZ_SECONDS:-30}
jobs=$(nproc 2>/dev/null || echo 2)

bash scripts/install-deps.sh --fuzz
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j "$jobs"

build=build/fuzz
bash scripts/fuzz-seeds.sh "$build/seeds" >/dev/null

# The dictionary of each target (several are joined into one file).
dictionary_parts() {
  case "$1" in
    json) echo json ;;
    yaml) echo yaml ;;
    msgpack) echo plugin ;;
    route) echo plugin ;;
    host_value_in) echo plugin ;;
    conversion | plugin_call) echo json yaml plugin ;;
  esac
}

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:allocator_may_return_null=0}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}

for target in "${targets[@]}"; do
  binary=$build/fuzz/kav_fuzz_$target
  [[ -x "$binary" ]] || { echo "fuzz-smoke: no target $target" >&2; exit 1; }
  dictionary=$build/dictionaries/$target.dict
  mkdir -p "$build/dictionaries" "$build/artifacts/$target"
  for part in $(dictionary_parts "$target"); do cat "fuzz/dictionaries/$part.dict"; done >"$dictionary"
  corpora=()
  [[ -d fuzz/corpus/$target ]] && corpora+=("fuzz/corpus/$target")
  [[ -d $build/seeds/$target ]] && corpora+=("$build/seeds/$target")
  options=(-rss_limit_mb=1536 -malloc_limit_mb=64 -timeout=10 "-dict=$dictionary"
           "-artifact_prefix=$build/artifacts/$target/")
  # The targets that keep a plugin between inputs allocate lasting state
  # in most inputs, which would run LeakSanitizer after each of them;
  # while fuzzing they check for leaks at exit only (the replay checks
  # every input).
  fuzz_options=()
  case "$target" in
    plugin_call | host_value_in) fuzz_options=(-detect_leaks=0) ;;
  esac

  echo "=== fuzz $target: replay ${corpora[*]:-(no corpus)}"
  if (( ${#corpora[@]} )); then
    "$binary" "${options[@]}" -runs=0 "${corpora[@]}" 2>"$build/artifacts/$target/replay.log" ||
      { tail -n 60 "$build/artifacts/$target/replay.log" >&2; exit 1; }
    grep -E '^#[0-9]+[[:space:]]+(INITED|DONE)' "$build/artifacts/$target/replay.log" | tail -n 1 || true
  fi

  echo "=== fuzz $target: ${seconds} s"
  scratch=$build/corpus-run/$target
  rm -rf "$scratch"
  mkdir -p "$scratch"
  "$binary" "${options[@]}" "${fuzz_options[@]}" -max_total_time="$seconds" -print_final_stats=1 \
    "$scratch" "${corpora[@]}" 2>"$build/artifacts/$target/fuzz.log" ||
    { tail -n 60 "$build/artifacts/$target/fuzz.log" >&2; exit 1; }
  grep -E '^(stat::number_of_executed_units|stat::peak_rss_mb)|^#[0-9]+[[:space:]]+DONE' \
    "$build/artifacts/$target/fuzz.log" || true
done
echo "=== fuzz: all targets passed: ${targets[*]}"
