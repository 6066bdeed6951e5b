// The JSON codec: JSON text to and from BindingProperty values.
//
// Reading drives RapidJSON's SAX reader (default parse flags) with a handler
// that builds the value in place; no document tree is built. Writing walks the
// value with a visitor that feeds RapidJSON's Writer or PrettyWriter.
//
// Mapping of JSON to values:
//   null -> empty; true/false -> bool; strings -> string (cut at the first NUL
//   character, escaped \u0000 included); a non-negative integer that fits 64
//   bits -> unsigned; a negative integer that fits 64 bits (and "-0") ->
//   signed; any other number (fraction, exponent, out of range) -> float;
//   arrays -> collection; objects -> structure (members in name order).
//   A repeated member name is assigned again: a later scalar replaces the
//   earlier value, a later array appends to an earlier array, a later object
//   merges into an earlier object, and a later null leaves the member as it is.
//
// Thread-safety: no shared state; each call builds its own reader or writer.
// The registry passed to SerializeJson is only read.
#ifndef KAV_SERIALIZATION_JSON_H_
#define KAV_SERIALIZATION_JSON_H_

#include <cstddef>
#include <string>
#include <string_view>

#include "binding/binding_property.h"

namespace kav {

class TypeRegistry;

// Arrays and objects may nest at most this many levels deep. RapidJSON's
// reader recurses once per level, so without a limit a text such as 100000
// "[" exhausts the stack (the plugin runs on host threads whose stacks may be
// as small as 1 MiB). 512 leaves room for any real document and costs well
// under 100 KiB of stack. A deeper text fails with
//   "Error: Nesting deeper than 512 levels. at offset N."
// where N is the offset just past the bracket or brace that opens level 513.
inline constexpr size_t kJsonMaxNesting = 512;

// Writes `value` as JSON.
//   newline null or "": compact output without any white space.
//   otherwise: indented by four spaces per level, arrays broken over lines
//   too; every line break is `newline` (e.g. "\r\n"). The text never ends with
//   a line break.
// An empty value at the top level gives "" (nested, it is written as null).
// Blobs are written as Base64 strings. Enums are written by name when
// `registry` (may be null) knows a name for the value, otherwise as numbers.
// NaN and the infinities have no JSON form and are written as null, so the
// output is always valid JSON.
std::string SerializeJson(const BindingProperty& value, const TypeRegistry* registry = nullptr,
                          const char* newline = nullptr);

// Reads one JSON value from UTF-8 `text`, up to its terminating NUL (the
// first NUL byte ends the text; bytes after it are ignored). Leading white
// space is skipped; a text that holds nothing else gives an empty value with
// success. On a syntax error the result fails with
//   "Error: <RapidJSON's English message> at offset <byte offset>."
// where the offset counts from the start of `text`; nothing of the partial
// value is kept. REQUIRES: `text` is not null.
BindingResult DeserializeJson(const char* text);
BindingResult DeserializeJson(const std::string& text);
// As above for a text that need not be NUL-terminated: it ends at the end of
// the view or at its first NUL byte, whichever comes first (the view is
// copied once to terminate it).
BindingResult DeserializeJson(std::string_view text);

}  // namespace kav

#endif  // KAV_SERIALIZATION_JSON_H_
