// YAML reader: turns one YAML document into a BindingProperty tree, driving
// libyaml's event parser (input read as UTF-8, no encoding detection). There
// is no YAML writer.
//
// Typing of scalars:
//   * Tags: "tag:yaml.org,2002:str" string; "...:int" signed 64-bit when the
//     text starts with "-", else unsigned 64-bit; "...:float" double;
//     "...:bool" a true/false word (any other text leaves the value empty).
//     Numbers follow the shared text conversion rules (value named "yaml").
//     Any other tag fails with "Unsupported YAML tag '%1'.".
//   * Quoted scalars without a tag are strings.
//   * Plain, literal and folded scalars without a tag, in this order: a null
//     word ("", "~", "null", "Null", "NULL") gives empty; a text that strtod
//     reads completely to a finite number gives a float when it has a
//     fractional part, else signed when negative, else unsigned (2^63 and up
//     reach the full unsigned range); integral numbers outside the 64-bit
//     ranges stay floats. Then the true/false words (true/yes/y/on and
//     false/no/n/off in lower, capitalised and upper case) give bool; any
//     other text a string.
//
// Structure: mapping keys must be untagged (or "!!str") scalars; an alias in
// key position is accepted when it names a key anchor or a string value.
// Anchors are recorded by path from the root, aliases deep-copy the anchored
// node. A repeated key reuses the member: a later sequence appends to an
// earlier one, a later scalar or alias replaces the earlier value, and a later
// collection after an earlier mapping fails as a collection in key position.
// Only one document is accepted; an empty document before it is skipped.
//
// Messages (line and column counted from 1, except the parser's own, which
// are reported as libyaml gives them, from 0):
//   "Multi-document YAML is not supported."
//   "Invalid mapping key. Only string scalar keys are allowed. At line: %1 col: %2"
//   "Duplicate occurrence of anchor "%1". At line: %2 col: %3"
//   "Unexpected start of sequence. At line: %1 col: %2"
//   "Unexpected start of mapping. At line: %1 col: %2"
//   "Cannot deserialize cyclic aliases. Alias "%1". At line: %2 col: %3"
//   "Undefined alias encountered: "%1". At line: %2 col: %3"
//   "YAML parser error: %1. At line: %2 col: %3"
//   "Unsupported YAML tag '%1'."
//   "Nesting exceeds %1 levels. At line: %2 col: %3"
//   "Alias expansion exceeds %1 nodes. Alias "%2". At line: %3 col: %4"
//   "Sequence exceeds %1 elements. At line: %2 col: %3"
//   "YAML document does not fit in memory. At line: %1 col: %2"
//   and the text conversion messages for "!!int" and "!!float" scalars.
// Nothing is thrown: running out of memory ends the read with the message
// above, and the parser and its event are given back to libyaml on every
// path.
//
// Limits for hostile input:
//   * At most kYamlMaxDepth (1000) sequences and mappings may be open at once;
//     the start of one more fails with the nesting message. The same bound
//     holds for the tree that aliases build: an alias whose copy would nest
//     deeper than kYamlMaxDepth containers where it lands fails with the
//     nesting message too (anchors that each wrap an alias of the one
//     before would otherwise deepen the tree by one level per alias).
//   * Aliases may cost at most kYamlMaxAliasNodes (100,000) units in
//     total per document: one per node copied (scalar, sequence or mapping),
//     one more per 64 bytes of copied text, and one per step of the path
//     walked to find the anchored node. Nested-alias expansion bombs and
//     floods of aliases to long texts or deep nodes end early with an error
//     instead of exhausting memory or time. A copied node costs at most
//     about 64 bytes (a structure member), so the copies of one document
//     stay under about 7 MiB.
//   * Anchored nodes are remembered by path in a tree of steps shared between
//     anchors, so many anchors deep in a document cost memory in proportion
//     to the input, not to anchors times depth.
//   * A sequence may hold at most 0x0FFFFFFF elements, the value layer's own
//     bound, reported as an error instead of an exception.
//
// Thread-safety: stateless; each call is independent.
#ifndef KAV_SERIALIZATION_YAML_H_
#define KAV_SERIALIZATION_YAML_H_

#include <cstddef>
#include <string_view>

#include "binding/binding_property.h"

namespace kav {

inline constexpr size_t kYamlMaxDepth = 1000;
inline constexpr size_t kYamlMaxAliasNodes = 100000;

// Reads the single document of `text`. An empty stream gives an empty value.
BindingResult ReadYaml(std::string_view text);

}  // namespace kav

#endif  // KAV_SERIALIZATION_YAML_H_
