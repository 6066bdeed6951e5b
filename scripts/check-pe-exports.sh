#!/usr/bin/env bash
# Checks the plugin DLL's export and import tables: exactly one export,
# load_kav_queue_eligibility, undecorated; imports from system DLLs only
# (KERNEL32 and the C runtime). A MinGW runtime DLL (libstdc++, libgcc,
# winpthread) must not be imported: they are linked in statically. Advapi32
# must not be imported either: the event tracing functions are looked up in
# it at run time, so that the DLL loads where it is missing.
#
# Usage: scripts/check-pe-exports.sh OBJDUMP DLL
set -euo pipefail
objdump=$1
dll=$2
table=$("$objdump" -p "$dll")

# Export entries look like "\t[   0] load_kav_queue_eligibility".
exports=$(awk '/^\[Ordinal\/Name Pointer\] Table/ { on = 1; next }
               on && /^[ \t]*\[ *[0-9]+\]/ { print $NF; next }
               on { on = 0 }' <<<"$table")
if [[ "$exports" != "load_kav_queue_eligibility" ]]; then
  echo "unexpected exports in $dll (want load_kav_queue_eligibility only):" >&2
  echo "${exports:-<none>}" >&2
  exit 1
fi
echo "exports: load_kav_queue_eligibility only"

imports=$(awk '/^[ \t]*DLL Name:/ { print $3 }' <<<"$table" | sort -u)
allowed='^(KERNEL32\.dll|msvcrt\.dll|api-ms-win-crt-[a-z0-9-]+\.dll|ucrtbase\.dll)$'
foreign=$(grep -viE "$allowed" <<<"$imports" || true)
if [[ -n "$foreign" ]]; then
  echo "$dll imports DLLs other than KERNEL32 and the C runtime:" >&2
  echo "$foreign" >&2
  exit 1
fi
echo "imports: $(paste -sd ' ' <<<"$imports")"
