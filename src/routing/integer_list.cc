#include "routing/integer_list.h"

namespace kav {
namespace {

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

// The most elements a generic value holds; a longer list takes the generic
// way, which reports it.
constexpr size_t kMaxElements = 0x0FFFFFFF;

}  // namespace

std::optional<size_t> PlainIntegerListCount(std::string_view text) {
  if (text.size() < 2 || text.front() != '[' || text.back() != ']') return std::nullopt;
  const char* cursor = text.data() + 1;
  const char* const end = text.data() + text.size() - 1;
  if (cursor == end) return 0;
  size_t count = 0;
  while (true) {
    const bool negative = *cursor == '-';
    if (negative && ++cursor == end) return std::nullopt;
    if (!IsDigit(*cursor)) return std::nullopt;
    if (*cursor == '0') {
      // "0" alone: neither "-0" nor a leading zero.
      if (negative || (++cursor != end && IsDigit(*cursor))) return std::nullopt;
    } else {
      do {
        ++cursor;
      } while (cursor != end && IsDigit(*cursor));
    }
    if (++count > kMaxElements) return std::nullopt;
    if (cursor == end) return count;
    if (*cursor != ',' || ++cursor == end) return std::nullopt;
  }
}

}  // namespace kav
