#include "binding/text_conversion.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <string>

#include "diagnostics/format.h"
#include "platform/classic_number.h"

namespace kav {
namespace {

constexpr std::string_view kIncorrectFormat =
    "Value %1 for '%2' of type %3 is in an incorrect format";
constexpr std::string_view kOutOfRange = "Value %1 for '%2' of type %3 is out of range";

bool Fail(BindingResult& status, std::string_view format, std::string_view text,
          std::string_view path, std::string_view type_name) {
  status.SetError(FormatMessage(format, {text, path, type_name}));
  return false;
}

// The C library parsers need a terminated copy; a NUL inside the text stops
// them early and so counts as characters left over.
struct TerminatedText {
  explicit TerminatedText(std::string_view text) : copy(text) {}
  const char* begin() const { return copy.c_str(); }
  const char* end() const { return copy.c_str() + copy.size(); }
  std::string copy;
};

}  // namespace

bool ParseSignedText(BindingResult& status, std::string_view text, std::string_view path,
                     std::string_view type_name, int64_t min, int64_t max, int64_t& out) {
  out = 0;
  if (text.empty()) return true;
  TerminatedText terminated(text);
  char* stop = nullptr;
  errno = 0;
  long long parsed = std::strtoll(terminated.begin(), &stop, 0);
  bool overflow = errno == ERANGE;
  if (stop != terminated.end()) return Fail(status, kIncorrectFormat, text, path, type_name);
  if (overflow || parsed < min || parsed > max) {
    return Fail(status, kOutOfRange, text, path, type_name);
  }
  out = parsed;
  return true;
}

bool ParseUnsignedText(BindingResult& status, std::string_view text, std::string_view path,
                       std::string_view type_name, uint64_t max, uint64_t& out) {
  out = 0;
  if (text.empty()) return true;
  TerminatedText terminated(text);
  char* stop = nullptr;
  errno = 0;
  unsigned long long parsed = std::strtoull(terminated.begin(), &stop, 0);
  bool overflow = errno == ERANGE;
  if (stop != terminated.end()) return Fail(status, kIncorrectFormat, text, path, type_name);
  if (overflow || text.front() == '-' || parsed > max) {
    return Fail(status, kOutOfRange, text, path, type_name);
  }
  out = parsed;
  return true;
}

bool ParseFloatText(BindingResult& status, std::string_view text, std::string_view path,
                    std::string_view type_name, double min, double max, double& out) {
  out = 0;
  if (text.empty()) return true;
  TerminatedText terminated(text);
  char* stop = nullptr;
  errno = 0;
  double parsed = ParseClassicDouble(terminated.begin(), &stop);
  // ERANGE also reports underflow; only a result pushed to infinity overflowed.
  bool overflow = errno == ERANGE && std::isinf(parsed);
  if (stop != terminated.end()) return Fail(status, kIncorrectFormat, text, path, type_name);
  if (overflow || parsed < min || parsed > max) {
    return Fail(status, kOutOfRange, text, path, type_name);
  }
  out = parsed;
  return true;
}

}  // namespace kav
