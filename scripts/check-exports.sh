#!/usr/bin/env bash
# Checks that the plugin library defines exactly one dynamic symbol of its own.
set -euo pipefail
lib=$1
symbols=$(nm -D --defined-only "$lib" | awk '{print $3}' | grep -v -E '^(_init|_fini|_edata|_end|__bss_start)$' || true)
if [[ "$symbols" != "load_kav_queue_eligibility" ]]; then
  echo "unexpected exported symbols in $lib:" >&2
  echo "$symbols" >&2
  exit 1
fi
echo "exports: load_kav_queue_eligibility only"
