// The two message formatters.
//
// FormatMessage fills "%1"-style and printf-style conversions from typed
// arguments, checking each conversion against the argument's type so that a
// wrong conversion can never read an argument as something it is not.
// FormatNamed turns "{name}" placeholders into positional ones and records
// every named argument as a typed parameter.
//
// Thread-safe: both work on call-local buffers.
#ifndef KAV_DIAGNOSTICS_FORMAT_H_
#define KAV_DIAGNOSTICS_FORMAT_H_

#include <cstdint>
#include <initializer_list>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

namespace kav {

// One argument of FormatMessage; the native type chooses the allowed and the
// default conversion (text: s; signed: d; unsigned: u; character: c;
// double: g).
class FormatArgument {
 public:
  enum class Type : uint8_t { kText, kSigned, kUnsigned, kChar, kDouble };

  FormatArgument(const char* text) : type_(Type::kText), text_(text ? text : "") {}
  FormatArgument(std::string_view text) : type_(Type::kText), text_(text) {}
  FormatArgument(const std::string& text) : type_(Type::kText), text_(text) {}
  FormatArgument(char c) : type_(Type::kChar) { value_.i64 = c; }
  FormatArgument(signed char v) : type_(Type::kSigned) { value_.i64 = v; }
  FormatArgument(short v) : type_(Type::kSigned) { value_.i64 = v; }
  FormatArgument(int v) : type_(Type::kSigned) { value_.i64 = v; }
  FormatArgument(long v) : type_(Type::kSigned), wide_(sizeof(long) == 8) { value_.i64 = v; }
  FormatArgument(long long v) : type_(Type::kSigned), wide_(true) { value_.i64 = v; }
  FormatArgument(unsigned char v) : type_(Type::kUnsigned) { value_.u64 = v; }
  FormatArgument(unsigned short v) : type_(Type::kUnsigned) { value_.u64 = v; }
  FormatArgument(unsigned v) : type_(Type::kUnsigned) { value_.u64 = v; }
  FormatArgument(unsigned long v) : type_(Type::kUnsigned), wide_(sizeof(long) == 8) {
    value_.u64 = v;
  }
  FormatArgument(unsigned long long v) : type_(Type::kUnsigned), wide_(true) { value_.u64 = v; }
  FormatArgument(double v) : type_(Type::kDouble) { value_.f64 = v; }
  FormatArgument(float v) : type_(Type::kDouble) { value_.f64 = v; }
  FormatArgument(bool) = delete;  // say what a bool should read as

  Type type() const { return type_; }
  // True for 64-bit integers, which the natural form converts with "ll".
  bool wide() const { return wide_; }
  std::string_view text() const { return text_; }
  int64_t as_signed() const { return value_.i64; }
  uint64_t as_unsigned() const { return value_.u64; }
  double as_double() const { return value_.f64; }
  bool is_integer() const { return type_ != Type::kText && type_ != Type::kDouble; }

 private:
  Type type_;
  bool wide_ = false;
  std::string_view text_;
  union {
    int64_t i64;
    uint64_t u64;
    double f64;
  } value_{};
};

// Positional formatter. The result holds at most 4095 characters.
//
// "%N" (N from 1 to the number of arguments, not followed by "$") writes
// argument N with its default conversion; "%N$..." and plain printf-style
// conversions use flags, width, precision ("*" and "*N$" take the value from
// an integer argument), length and conversion as written, except that a
// conversion the argument's type does not allow becomes the type's default
// (so "%s" of an integer prints it in decimal and "n" is never performed).
// Conversions without a number take the arguments in order. Formatting stops,
// keeping what was written, at a conversion longer than 60 characters, at a
// conversion or "*" whose argument is missing, at a "*" whose argument is not
// an integer, and when the 4096-byte buffer is full. No heap allocation
// beyond the returned text.
std::string FormatMessage(std::string_view format, std::span<const FormatArgument> arguments);
inline std::string FormatMessage(std::string_view format,
                                 std::initializer_list<FormatArgument> arguments) {
  return FormatMessage(format,
                       std::span<const FormatArgument>(arguments.begin(), arguments.size()));
}
// FormatMessage("Queue %1 of %2", id, name). Texts are viewed, not copied, so
// temporaries live long enough.
template <class... Arguments>
requires(std::is_constructible_v<FormatArgument, const Arguments&>&&...) std::string
    FormatMessage(std::string_view format, const Arguments&... arguments) {
  if constexpr (sizeof...(Arguments) == 0) {
    return FormatMessage(format, std::span<const FormatArgument>());
  } else {
    const FormatArgument converted[] = {FormatArgument(arguments)...};
    return FormatMessage(format, std::span<const FormatArgument>(converted));
  }
}

// Typed argument of the named formatter and a recorded parameter.
struct NamedArgument {
  enum class Type : uint8_t { kBool = 1, kSigned = 2, kUnsigned = 3, kFloat = 4, kText = 5 };

  NamedArgument(bool v) : type(Type::kBool), boolean(v) {}
  NamedArgument(int v) : type(Type::kSigned), i64(v) {}
  NamedArgument(long v) : type(Type::kSigned), i64(v) {}
  NamedArgument(long long v) : type(Type::kSigned), i64(v) {}
  NamedArgument(unsigned v) : type(Type::kUnsigned), u64(v) {}
  NamedArgument(unsigned long v) : type(Type::kUnsigned), u64(v) {}
  NamedArgument(unsigned long long v) : type(Type::kUnsigned), u64(v) {}
  NamedArgument(double v) : type(Type::kFloat), f64(v) {}
  NamedArgument(const char* v) : type(Type::kText), text(v ? v : "") {}
  NamedArgument(std::string_view v) : type(Type::kText), text(v) {}
  NamedArgument(std::string v) : type(Type::kText), text(std::move(v)) {}

  // The positional argument FormatMessage receives for this value (a bool is
  // written as the text "true" or "false").
  FormatArgument ToFormatArgument() const;
  bool operator==(const NamedArgument& other) const;

  Type type;
  bool boolean = false;
  int64_t i64 = 0;
  uint64_t u64 = 0;
  double f64 = 0.0;
  std::string text;
};

using FormatParameters = std::map<std::string, NamedArgument, std::less<>>;

// Named formatter: writes the positional form of `format` into `positional`
// (replacing its content) and records the named arguments into `parameters`
// (adding to, or overwriting, what it holds).
//
// Outside a placeholder "{{" gives "{", "}}" gives "}", "%%" stays "%%" and a
// "%" conversion is copied unchanged and uses up one argument number. A
// placeholder "{name}" takes the next argument number i and becomes "%i",
// or "%i$spec" for "{name:spec}"; the argument is recorded under the name.
// Inside a placeholder: "#" right after "{" makes a typed key (the name gets
// a suffix by the argument's type, "_bool", "_int", "_float" or "_str",
// unless it already ends in "_bool", "_int", "_long", "_float", "_str",
// "_time" or "_ip"); "!" makes it silent (it writes nothing and removes white
// space before it); "?text" is written instead, with nothing recorded, when
// the argument is empty (false, 0, 0.0 or ""); "\" escapes the next
// character; "{" is ignored. Placeholders beyond the last argument vanish.
void FormatNamed(std::string_view format, std::span<const NamedArgument> arguments,
                 std::string& positional, FormatParameters& parameters);

// FormatNamed followed by FormatMessage with the same arguments.
std::string FormatNamedMessage(std::string_view format, std::span<const NamedArgument> arguments,
                               FormatParameters& parameters);
inline std::string FormatNamedMessage(std::string_view format,
                                      std::initializer_list<NamedArgument> arguments,
                                      FormatParameters& parameters) {
  return FormatNamedMessage(
      format, std::span<const NamedArgument>(arguments.begin(), arguments.size()), parameters);
}

}  // namespace kav

#endif  // KAV_DIAGNOSTICS_FORMAT_H_
