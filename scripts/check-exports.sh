#!/usr/bin/env bash
# Checks that the plugin library defines exactly one dynamic symbol of its
# own, and that its thread-local data, which the initial-exec model puts in
# the loading process's small static TLS reserve, stays small.
set -euo pipefail
lib=$1
symbols=$(nm -D --defined-only "$lib" | awk '{print $3}' | grep -v -E '^(_init|_fini|_edata|_end|__bss_start)$' || true)
if [[ "$symbols" != "load_kav_queue_eligibility" ]]; then
  echo "unexpected exported symbols in $lib:" >&2
  echo "$symbols" >&2
  exit 1
fi
echo "exports: load_kav_queue_eligibility only"

tls_size=$(readelf -lW "$lib" | awk '$1 == "TLS" {print $6}')
if [[ -n "$tls_size" ]] && (( tls_size > 256 )); then
  echo "thread-local data of $lib is $((tls_size)) bytes; keep it under 256" >&2
  exit 1
fi
echo "thread-local data: $((${tls_size:-0})) bytes"
