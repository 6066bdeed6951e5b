#!/usr/bin/env bash
# Builds the seed corpora of the fuzz targets from the conformance suites
# (../shared/conformance, read in place, never copied into the repository)
# and a few texts of the argument forms. The grown corpora checked in under
# fuzz/corpus/ are used beside these seeds; targets whose input is a
# structured fuzz stream (plugin_call, host_value_in) start from those
# alone.
#
# Usage: scripts/fuzz-seeds.sh OUTPUT_DIR [CONFORMANCE_DIR]
# Writes OUTPUT_DIR/<target>/ for json, yaml, msgpack, conversion and route
# (replacing what was there). Needs only bash and coreutils.
set -euo pipefail
cd "$(dirname "$0")/.."

out=${1:?usage: scripts/fuzz-seeds.sh OUTPUT_DIR [CONFORMANCE_DIR]}
conformance=${2:-../shared/conformance}
if [[ ! -d "$conformance" ]]; then
  echo "fuzz-seeds: no conformance suites at $conformance; seeds are the built-in texts only" >&2
fi

for target in json yaml msgpack conversion route; do
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

# Inputs of the unit tests (tests/serialization, tests/routing): the forms
# and edge cases they pin down, hostile ones in small sizes.
msgpack_cases=(
  "7f" "ff" "cc ff" "cd 01 00" "ce ff ff ff ff" "cf ff ff ff ff ff ff ff ff" "d0 ff" "d1 ff fe"
  "d2 80 00 00 00" "d3 80 00 00 00 00 00 00 00" "ca 3f c0 00 00" "cb 3f f8 00 00 00 00 00 00"
  "a3 61 62 63" "d9 02 68 69" "da 00 02 68 69" "db 00 00 00 02 68 69" "c4 03 01 02 03"
  "c5 00 00" "c6 00 00 00 01 ff" "82 a1 62 01 a1 61 02" "81 d9 01 61 01" "93 01 a1 78 c0"
  "dc 00 02 01 02" "dd 00 00 00 01 01" "de 00 01 a1 61 c3" "df 00 00 00 01 a1 61 c3"
  "81 a1 61 92 81 a1 62 c3 90" "92 01" "df ff ff ff ff a1 61 01" "82 a1 61 93 01 02 03 a1 61 92 09 08"
  "82 a1 61 81 a1 62 01 a1 61 02" "c1" "d4 00 00" "c7 01 00 00" "81 01 01" "d9" "d9 05 61" "cd 01"
  "91 91 91 91 91 91 91 91 91 91 91 91 91 91 91 91 01"
)
n=0
for bytes in "${msgpack_cases[@]}"; do
  printf '%b' "$(sed -e 's/^/\\x/' -e 's/ /\\x/g' <<<"$bytes")" \
    >"$out/msgpack/$(printf 'unit-%03d.bin' "$n")"
  n=$((n + 1))
done
yaml_cases=(
  $'a: 1\nb: -1\nc: 1.5\nd: 1.0\ne: 1e3\nf: 0x10\ng: yes\nh: \'yes\'\ni: ~\nj:\nk: inf\nl: nan'
  $'a: |-\n  true\nb: |\n  true\nc: >\n  folded\n  text\n'
  $'a: !!str 1\nb: !!int -5\nc: !!float 2.5\nd: !!bool yes\ne: !!bool maybe\nf: !custom x'
  $'a: &x [1, 2]\nb: *x\nc: &k key\n*k : v\nd: &s [*s]'
  $'a: *missing'
  $'[1, 2]: x'
  $'a: 1\na: [2]\na: [3]\nb: {c: 1}\nb: {d: 2}'
  $'--- 1\n--- 2'
  $'---\n...\n--- 3'
  $'l0: &l0 [lol, lol, lol]\nl1: &l1 [*l0, *l0, *l0]\nl2: &l2 [*l1, *l1, *l1]\nl3: [*l2, *l2, *l2]'
  $'a0: &a0 [1]\na1: &a1 [*a0]\na2: &a2 [*a1]\na3: &a3 [*a2]\na4: [*a3, *a3]'
  "$(printf '%.0s[' $(seq 1 64))1$(printf '%.0s]' $(seq 1 64))"
  "$(printf '%.0s- ' $(seq 1 64))1"
)
n=0
for text in "${yaml_cases[@]}"; do
  printf '%s' "$text" >"$out/yaml/$(printf 'unit-%03d.yaml' "$n")"
  n=$((n + 1))
done

# Route: the method text, the template and the URL as the route target
# reads them (texts ended by a backslash and another character, the URL up
# to the last four bytes, which are the method code).
route_cases=(
  "GET|/a/b|/a/b?x=1" "GET|/items/{id}|/items/a%20b" "GET|/items/{id}|/items/a/b"
  "POST|/files/{+path}|/files/a/b/c" "GET|/x/{#frag}|/x/#top" "GET|/v1.0/{id}|/v1x0/3"
  "DELETE|/a/{x}/{y}|/a/1/2" "GET|/a/{x}/}|/a/1/" "GET|/a/{+x}/{+y}|/a/1/2/3"
  "GET|/a/{x}{y}|/a/abc" "GET|/x/{+a}{#b}|/x/1#2#3" "GET|/k/{x}-{y}|/k/a-b-c"
  "GET|/f/{+p}|/f/a%0Ab" "GET|/a_b/c.d|a+b%41%4" "PUT|{|}" "GET|/{a}/{+b}/{c}{d}|/aaaa/b/c"
)
n=0
for case in "${route_cases[@]}"; do
  IFS='|' read -r method path_template url <<<"$case"
  printf '%s\\Z%s\\Z%s\x02\x00\x00\x00' "$method" "$path_template" "$url" \
    >"$out/route/$(printf 'unit-%03d' "$n")"
  n=$((n + 1))
done

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

for target in json yaml msgpack conversion route; do
  echo "fuzz-seeds: $target: $(find "$out/$target" -type f | wc -l) seeds"
done
