#ifdef _WIN32
#include "platform/classic_number.h"

#include <locale.h>
#include <stdlib.h>

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>

namespace kav {
namespace {

// The C runtime's strtod either follows the process's locale (the MinGW one)
// or, in its classic-locale form (_strtod_l of msvcrt.dll), reads neither
// the hexadecimal form nor the words for infinity and NaN. std::from_chars
// reads every form independently of the locale but takes no white space,
// no "+" and no "0x"; those are handled here.

bool IsSpace(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

bool IsHexDigit(char c) {
  const char lower = static_cast<char>(c | 0x20);
  return (c >= '0' && c <= '9') || (lower >= 'a' && lower <= 'f');
}

_locale_t ClassicLocale() {
  static const _locale_t locale = _create_locale(LC_ALL, "C");
  return locale;
}

// For hexadecimal digits that std::from_chars found out of range: whether
// the value is too large (else too small). The binary exponent of the
// leading digit decides; it is far from 0 either way.
bool HexadecimalOverflows(const char* digits) {
  long long exponent = 0;
  bool leading = true;
  bool after_point = false;
  const char* at = digits;
  for (; IsHexDigit(*at) || (*at == '.' && !after_point); ++at) {
    if (*at == '.') {
      after_point = true;
    } else if (leading && *at == '0') {
      if (after_point) exponent -= 4;
    } else {
      leading = false;
      if (!after_point) exponent += 4;
    }
  }
  if ((*at | 0x20) == 'p') exponent += std::strtoll(at + 1, nullptr, 10);
  return exponent > 0;
}

}  // namespace

double ParseClassicDouble(const char* text, char** end) {
  const char* at = text;
  while (IsSpace(*at)) ++at;
  const bool negative = *at == '-';
  if (*at == '-' || *at == '+') ++at;
  const char* const last = at + std::strlen(at);
  double value = 0;
  const char* stop = text;
  if (at[0] == '0' && (at[1] | 0x20) == 'x') {
    const auto [next, error] = std::from_chars(at + 2, last, value, std::chars_format::hex);
    if (error == std::errc::invalid_argument || at[2] == '-') {
      value = 0;  // "0x" without digits: the "0" alone
      stop = at + 1;
    } else {
      stop = next;
      if (error == std::errc::result_out_of_range) {
        errno = ERANGE;
        value = HexadecimalOverflows(at + 2) ? HUGE_VAL : 0.0;
      }
    }
  } else if (*at != '-') {
    const auto [next, error] = std::from_chars(at, last, value, std::chars_format::general);
    if (error == std::errc::result_out_of_range) {
      // The decimal form alone is read right by the classic-locale runtime
      // function, including the result and errno for what is out of range.
      return _strtod_l(text, end, ClassicLocale());
    }
    if (error != std::errc::invalid_argument) stop = next;
  }
  if (end != nullptr) *end = const_cast<char*>(stop);
  if (stop == text) return 0;
  return negative ? -value : value;
}

}  // namespace kav
#endif  // _WIN32
