#!/usr/bin/env bash
# Builds the seed corpora of the fuzz targets from the conformance suites
# (../shared/conformance, read in place, never copied into the repository)
# and a few texts of the argument forms. The grown corpora checked in under
# fuzz/corpus/ are used beside these seeds; targets whose input is a
# structured fuzz stream (route, plugin_call, host_value_in) start from
# those alone.
#
# Usage: scripts/fuzz-seeds.sh OUTPUT_DIR [CONFORMANCE_DIR]
# Writes OUTPUT_DIR/<target>/ for json, yaml, msgpack and conversion
# (replacing what was there). Needs only bash and coreutils.
set -euo pipefail
cd "$(dirname "$0")/.."

out=${1:?usage: scripts/fuzz-seeds.sh OUTPUT_DIR [CONFORMANCE_DIR]}
conformance=${2:-../shared/conformance}
if [[ ! -d "$conformance" ]]; then
  echo "fuzz-seeds: no conformance suites at $conformance; seeds are the built-in texts only" >&2
fi

for target in json yaml msgpack conversion; do
  rm -rf "${out:?}/$target"
  mkdir -p "$out/$target"
done

# JSON: every parser input of the suite, accepted or not.
if [[ -d "$conformance/json/test_parsing" ]]; then
  cp "$conformance"/json/test_parsing/*.json "$out/json/"
fi

# YAML: every test's input, valid or not.
if [[ -d "$conformance/yaml/tests" ]]; then
  n=0
  while IFS= read -r -d '' file; do
    cp "$file" "$out/yaml/$(printf 'case-%04d.yaml' "$n")"
    n=$((n + 1))
  done < <(find "$conformance/yaml/tests" -name in.yaml -print0 | sort -z)
fi

# MessagePack: every encoding of the suite ("cd-00-01" and so on), as bytes.
suite=$conformance/msgpack/dist/msgpack-test-suite.json
if [[ -f "$suite" ]]; then
  n=0
  while IFS= read -r hex; do
    escaped=$(sed -e 's/-/\\x/g' -e 's/^/\\x/' <<<"$hex")
    printf '%b' "$escaped" >"$out/msgpack/$(printf 'encoding-%04d.bin' "$n")"
    n=$((n + 1))
  done < <(grep -oE '"[0-9a-f]{2}(-[0-9a-f]{2})*"' "$suite" | tr -d '"' | sort -u)
fi

# Conversion: the first byte picks the target type and whether the text is
# decoded (see fuzz/conversion_fuzzer.cc); every choice gets each text.
texts=(
  '' '1' '-1' '0x10' '010' ' 42' '42 ' '1e3' '-0.5' '1.7976931348623157e309' 'nan' 'inf'
  'true' 'false' '0' 'True' 'Available' 'PlatformDisabled' 'QueueDisabled' 'SUCCEEDED' '7'
  '18446744073709551615' '-9223372036854775808'
  '[1,2,3]' '[1,null,3]' '{"a":"x","b":null}' '{"id":420,"type":"NORMAL","minLevel":30}'
  '{"summonerIds":[1001,1002],"queueIds":[420,440]}'
  '{"uri":"/kav-login/v1/session","eventType":"Update","data":{"state":"SUCCEEDED"}}'
  '--- [1, 2]' '--- {queueIds: [420], summonerIds: [1001]}'
)
for choice in $(seq 0 95); do
  i=0
  for text in "${texts[@]}"; do
    { printf "\\x$(printf '%02x' "$choice")"; printf '%s' "$text"; } \
      >"$out/conversion/$(printf 'choice-%03d-%02d' "$choice" "$i")"
    i=$((i + 1))
  done
done
# MessagePack texts: a fixmap and a fixarray after each choice byte.
for choice in $(seq 0 95); do
  printf "\\x$(printf '%02x' "$choice")\\x81\\xa2id\\x01" >"$out/conversion/$(printf 'choice-%03d-mp1' "$choice")"
  printf "\\x$(printf '%02x' "$choice")\\x92\\x01\\x02" >"$out/conversion/$(printf 'choice-%03d-mp2' "$choice")"
done

for target in json yaml msgpack conversion; do
  echo "fuzz-seeds: $target: $(find "$out/$target" -type f | wc -l) seeds"
done
