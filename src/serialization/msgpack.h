// MessagePack reader: decodes bytes into one BindingProperty tree.
//
// Accepted subset of the MessagePack format: nil, bool, positive and negative
// fixint, int 8-64 (-> signed), uint 8-64 (-> unsigned, whatever the value;
// positive fixints stay signed), float 32/64 (-> float), str (-> string, raw
// bytes, no encoding check), bin (-> blob), array (-> collection) and map with
// string keys (-> structure). Extension types, fixext and the unused 0xC1 are
// errors. Multi-byte numbers are big-endian.
//
// Messages (positions are byte offsets from the start of the input):
//   "Invalid MessagePack data at position %1."            reserved/ext byte
//   "Invalid MessagePack data at position %1. Map keys must be strings."
//   "Invalid MessagePack data. Raw bytes of size %1 at position %2 are truncated."
//   "Invalid MessagePack data. String of size %1 at position %2 is truncated."
//   "Invalid MessagePack data. 8/16/32/64-bit integer value at position %1 is truncated."
//     (also for truncated length and count fields and floats of that width)
//   "Invalid MessagePack data at position %1. Nesting exceeds %2 levels."
//   "Invalid MessagePack data at position %1. Collection exceeds %2 elements."
//   "MessagePack data at position %1 does not fit in memory."
//
// Nothing is thrown: running out of memory ends decoding with the last
// message above.
//
// Limits for hostile input:
//   * At most kMessagePackMaxDepth (1000) containers may be open at once; the
//     array or map header that would open one more fails. This keeps the
//     recursive walks of a value tree (copy, destruction, writers) within a
//     small stack.
//   * A collection may hold at most kMessagePackMaxElements (0x0FFFFFFF)
//     elements, the value layer's own bound, reported as an error instead of
//     an exception. Declared counts reserve room only for as many elements
//     as the bytes left could still hold (each takes one byte at least, and
//     elements promised to the collections already open count against them),
//     so a header that promises four billion items costs memory in proportion
//     to the input, not to the promise.
//
// A container whose items have not all arrived when the input ends is kept
// with the items read so far; that is not an error. Bytes after the first
// complete value are not read: the caller compares `consumed` with the input
// length.
//
// Thread-safety: stateless; each call is independent.
#ifndef KAV_SERIALIZATION_MSGPACK_H_
#define KAV_SERIALIZATION_MSGPACK_H_

#include <cstddef>
#include <cstdint>

#include "binding/binding_property.h"

namespace kav {

inline constexpr uint32_t kMessagePackMaxDepth = 1000;
inline constexpr uint32_t kMessagePackMaxElements = 0x0FFFFFFF;

// Decodes the value that starts at `bytes[0]`. REQUIRES: `bytes` points at
// `count` readable bytes (may be null when `count` is 0); they are only
// borrowed for the call. `consumed` receives the offset reached: on success
// the length of the decoded value, on failure where decoding stopped.
BindingResult ReadMessagePack(const uint8_t* bytes, uint32_t count, uint32_t& consumed);

// True when `length` is not 0 and the first byte opens a fixmap, fixarray,
// array 16/32 or map 16/32: the guess used when no content type is given.
bool LooksLikeMessagePack(const uint8_t* bytes, size_t length);
bool LooksLikeMessagePack(const char* bytes, size_t length);

}  // namespace kav

#endif  // KAV_SERIALIZATION_MSGPACK_H_
