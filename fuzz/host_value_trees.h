// Host value records (kav/plugin_host.h) built from fuzz input, the way a
// host hands values to the plugin: as call arguments, event payloads and
// request answers.
//
// Trees cover every kind, valid or not, and the shapes that hostile input
// takes: chains of arrays or maps deeper than the plugin accepts, arrays
// and maps with many elements, counts beyond the plugin's element limit
// over a one-element array (the plugin must refuse them before reading an
// element), and counts without elements (a null pointer). Every other record
// is well formed: its pointers point at as many elements, bytes or
// characters as it says (a borrowed text is terminated; its length field
// is not trusted by the plugin and is fuzzed).
//
// Building is iterative, so trees of any depth cost no stack.
//
// Ownership: the arena owns every record, text and array it hands out until
// it is destroyed. Not thread-safe.
#ifndef KAV_FUZZ_HOST_VALUE_TREES_H_
#define KAV_FUZZ_HOST_VALUE_TREES_H_

#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kav/plugin_host.h"

namespace kav::fuzz {

class HostValueTrees {
 public:
  struct Limits {
    size_t max_nodes = 512;   // records of one tree besides its chains
    size_t max_chain = 1200;  // the longest chain of one-element arrays or maps
    size_t max_elements = 8;  // elements of an ordinary array or map
    size_t max_wide = 3000;   // elements of a wide array (null records)
  };

  // A tree read from `input`; a null record once the input is used up.
  KavHostValue Tree(FuzzedDataProvider& input, const Limits& limits);
  // A map of `entries`, keys owned by the arena.
  KavHostValue Map(const std::vector<std::pair<std::string, KavHostValue>>& entries);
  // Kind 5 (borrowed) over an arena copy of `text`.
  KavHostValue String(std::string_view text);
  // A terminated copy of `text` that lives as long as the arena.
  const char* Text(std::string_view text);
  // A key for a map entry: one of the plugin's field and parameter names,
  // or fuzzed text.
  std::string Key(FuzzedDataProvider& input);

 private:
  KavHostValue* Array(size_t count);
  KavHostMapEntry* Entries(size_t count);

  std::deque<std::string> texts_;
  std::deque<std::unique_ptr<KavHostValue[]>> arrays_;
  std::deque<std::unique_ptr<KavHostMapEntry[]>> entries_;
  std::deque<std::vector<uint8_t>> blobs_;
};

}  // namespace kav::fuzz

#endif  // KAV_FUZZ_HOST_VALUE_TREES_H_
