// Plain integer lists: argument texts such as "[400,420,440]" that bind
// straight into a std::vector of integers, without the generic value that
// the JSON reader would build first (eligibility_bench
// CachedSelfEligibility/50/50; dispatch_bench BM_V3CallThroughTable).
//
// A plain integer list is "[" then either "]" or integers separated by ","
// then "]", and nothing else: no spaces, and each integer an optional "-"
// then "0" or a digit 1-9 followed by digits ("-0" is not plain). Such a
// text is valid JSON whose values are exactly the integers written, so
// reading it here gives what the JSON reader and the vector conversion give
// when every integer fits the element type; any other text takes the
// generic way, which reports what is wrong with it.
//
// Plain functions; thread-safe.
#ifndef KAV_ROUTING_INTEGER_LIST_H_
#define KAV_ROUTING_INTEGER_LIST_H_

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>
#include <type_traits>
#include <vector>

namespace kav {

// The element count of `text` when it is a plain integer list.
std::optional<size_t> PlainIntegerListCount(std::string_view text);

template <class T>
concept ListInteger =
    std::is_integral_v<T> && !std::same_as<T, bool> && !std::same_as<T, char> && sizeof(T) <= 8;

// Replaces `values` by the integers of `text`, a plain integer list of
// `count` elements. False, with `values` unspecified, when `text` is not
// one or an integer does not fit T.
template <ListInteger T>
bool ReadPlainIntegerList(std::string_view text, size_t count, std::vector<T>& values) {
  values.clear();
  if (text.size() < 2 || text.front() != '[' || text.back() != ']') return false;
  values.reserve(count);
  const char* cursor = text.data() + 1;
  const char* const end = text.data() + text.size() - 1;
  if (cursor == end) return count == 0;
  // Magnitudes up to the most that T admits on each side. Up to 19 digits
  // fit 64 bits; longer runs are checked for overflow as they are read.
  using Magnitude = uint64_t;
  constexpr Magnitude kPositiveLimit = static_cast<Magnitude>(std::numeric_limits<T>::max());
  constexpr Magnitude kNegativeLimit = std::is_signed_v<T> ? kPositiveLimit + 1 : 0;
  constexpr ptrdiff_t kSafeDigits = 19;
  while (true) {
    const bool negative = *cursor == '-';
    if (negative) ++cursor;
    const char* const first = cursor;
    Magnitude magnitude = 0;
    bool overflow = false;
    while (cursor != end && static_cast<unsigned char>(*cursor - '0') <= 9) {
      const auto digit = static_cast<Magnitude>(*cursor - '0');
      if (cursor - first < kSafeDigits) {
        magnitude = magnitude * 10 + digit;
      } else {
        overflow |= __builtin_mul_overflow(magnitude, Magnitude{10}, &magnitude);
        overflow |= __builtin_add_overflow(magnitude, digit, &magnitude);
      }
      ++cursor;
    }
    if (cursor == first || (*first == '0' && cursor - first > 1)) return false;
    if (overflow || magnitude > (negative ? kNegativeLimit : kPositiveLimit)) return false;
    if (negative && magnitude == 0) return false;
    if constexpr (std::is_signed_v<T>) {
      values.push_back(negative ? static_cast<T>(-static_cast<int64_t>(magnitude - 1) - 1)
                                : static_cast<T>(magnitude));
    } else {
      values.push_back(static_cast<T>(magnitude));
    }
    if (cursor == end) return values.size() == count;
    if (*cursor != ',') return false;
    ++cursor;
  }
}

}  // namespace kav

#endif  // KAV_ROUTING_INTEGER_LIST_H_
