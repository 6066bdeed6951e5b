#!/usr/bin/env bash
# Runs the Linux x86-64 test programs under valgrind's memcheck: any invalid
# read or write, use of uninitialised memory or leaked block fails the run.
# The debug preset is built first. scripts/test-all.sh runs it last (about
# four minutes: memcheck makes the suite some fifteen times slower).
#
# Usage: scripts/test-valgrind.sh [test-program...]   (default: every kav_*_tests)
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh --valgrind

preset=linux-x64-debug
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset" -j "$(nproc 2>/dev/null || echo 2)"

programs=("$@")
if (( ${#programs[@]} == 0 )); then
  for program in build/"$preset"/kav_*_tests; do programs+=("$(basename "$program")"); done
fi

# The server's tests bind sockets and wait on clocks sized for native speed.
skip='ServerTest.*:EventHubTest.*'

failed=()
for program in "${programs[@]}"; do
  echo "=== ${program} under memcheck"
  if ! valgrind --quiet --error-exitcode=99 --leak-check=full \
      --errors-for-leak-kinds=definite,indirect --track-origins=yes \
      "build/${preset}/${program}" --gtest_brief=1 --gtest_filter="-${skip}"; then
    failed+=("$program")
  fi
done

if (( ${#failed[@]} )); then
  echo "test-valgrind: memcheck failed in: ${failed[*]}" >&2
  exit 1
fi
echo "test-valgrind: ${#programs[@]} test programs clean under memcheck"
