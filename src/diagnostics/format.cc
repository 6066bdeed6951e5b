// The positional and the named message formatters.
//
// FormatMessage never hands a conversion to snprintf as written: it parses the
// conversion into its parts, checks the conversion character against the
// argument's type, and then calls snprintf with a conversion it assembled
// itself and with the argument converted to exactly the type that conversion
// reads. A format can therefore never make snprintf read an argument as
// something it is not, whatever it contains.
#include "diagnostics/format.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

namespace kav {
namespace {

constexpr size_t kMessageBufferSize = 4096;
constexpr size_t kMaxConversionLength = 60;
// Widths and precisions beyond the buffer cannot change what fits into it.
constexpr int64_t kMaxFieldSize = static_cast<int64_t>(kMessageBufferSize);

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

// The conversions each argument type accepts, and its default.
std::string_view AllowedConversions(FormatArgument::Type type) {
  switch (type) {
    case FormatArgument::Type::kText:
      return "s";
    case FormatArgument::Type::kSigned:
      return "dciouxX";
    case FormatArgument::Type::kUnsigned:
      return "ucdioxX";
    case FormatArgument::Type::kChar:
      return "cdiouxX";
    case FormatArgument::Type::kDouble:
      return "gaefGAEF";
  }
  return "s";
}

char DefaultConversion(FormatArgument::Type type) {
  return AllowedConversions(type)[0];
}

// The parts of one conversion, as parsed from the format.
struct ConversionSpec {
  char flags[6] = {};  // each of "-+ #0" at most once
  bool has_width = false;
  int64_t width = 0;
  bool has_precision = false;
  int64_t precision = 0;
  char length[3] = {};  // "", "h", "hh", "l", "ll", "L", "j", "t", "z"
  char conversion = 0;

  void AddFlag(char flag) {
    if (!std::strchr(flags, flag)) flags[std::strlen(flags)] = flag;
  }
  void RemoveFlag(char flag) {
    char* at = std::strchr(flags, flag);
    if (at) std::memmove(at, at + 1, std::strlen(at));
  }
};

// Which part of the conversion the last character read belongs to; used when
// the format ends before the conversion character, where that character
// gives way to the default conversion.
enum class LastPart {
  kNone,
  kFlag,
  kWidthDigit,
  kWidthStar,
  kDot,
  kPrecisionDigit,
  kPrecisionStar,
  kLength
};

void DropLastCharacter(ConversionSpec& spec, LastPart last) {
  switch (last) {
    case LastPart::kNone:
      break;
    case LastPart::kFlag:
      spec.flags[std::strlen(spec.flags) - 1] = 0;
      break;
    case LastPart::kWidthDigit:
      spec.width /= 10;
      if (spec.width == 0) spec.has_width = false;
      break;
    case LastPart::kWidthStar:
      spec.has_width = false;
      spec.width = 0;
      break;
    case LastPart::kDot:
      spec.has_precision = false;
      break;
    case LastPart::kPrecisionDigit:
      spec.precision /= 10;
      break;
    case LastPart::kPrecisionStar:
      spec.has_precision = true;
      spec.precision = 0;
      break;
    case LastPart::kLength:
      spec.length[std::strlen(spec.length) - 1] = 0;
      break;
  }
}

// Assembles "%<flags><width>.<precision><length><conversion>" for snprintf.
// `length` replaces the parsed length modifier; `precision_override` >= 0
// replaces the precision.
void AssembleConversion(const ConversionSpec& spec, const char* length, char conversion,
                        int64_t precision_override, char* out, size_t size) {
  // Built by hand: this runs for every conversion, and the parts are short
  // (5 flags, two numbers of at most 4 digits, 2 length characters).
  char* const end = out + size - 1;
  auto put = [&](char c) {
    if (out < end) *out++ = c;
  };
  auto put_number = [&](int64_t value) {
    char digits[24];
    int count = 0;
    do {
      digits[count++] = static_cast<char>('0' + value % 10);
      value /= 10;
    } while (value > 0);
    while (count > 0) put(digits[--count]);
  };
  put('%');
  for (const char* flag = spec.flags; *flag; ++flag) put(*flag);
  if (spec.has_width) put_number(spec.width);
  if (precision_override >= 0 || spec.has_precision) {
    put('.');
    put_number(precision_override >= 0 ? precision_override : spec.precision);
  }
  for (; *length; ++length) put(*length);
  put(conversion);
  *out = 0;
}

template <class T>
int Print(char* out, size_t room, const char* conversion, T value) {
  return std::snprintf(out, room, conversion, value);
}

// Writes `argument` with the parsed conversion (whose character the type
// allows) into out[0, room). Returns what snprintf returns.
int WriteConversion(ConversionSpec spec, const FormatArgument& argument, char* out, size_t room) {
  char conversion[64];
  const char c = spec.conversion;
  switch (argument.type()) {
    case FormatArgument::Type::kText: {
      // The text need not end with a NUL: the precision bounds what is read.
      // As for "%s", an embedded NUL ends it.
      std::string_view text = argument.text();
      text = text.substr(0, text.find('\0'));
      int64_t shown = static_cast<int64_t>(std::min<size_t>(text.size(), kMessageBufferSize));
      if (spec.has_precision) shown = std::min(shown, spec.precision);
      if (!spec.has_width) {
        // Nothing to pad: copy, with snprintf's result and cut.
        const size_t copied = std::min(static_cast<size_t>(shown), room - 1);
        text.copy(out, copied);
        out[copied] = 0;
        return static_cast<int>(shown);
      }
      for (char flag : {'+', ' ', '#', '0'}) spec.RemoveFlag(flag);
      AssembleConversion(spec, "", 's', shown, conversion, sizeof(conversion));
      return Print(out, room, conversion, text.empty() ? "" : text.data());
    }
    case FormatArgument::Type::kDouble: {
      if (std::strcmp(spec.length, "L") == 0) {
        AssembleConversion(spec, "L", c, -1, conversion, sizeof(conversion));
        return Print(out, room, conversion, static_cast<long double>(argument.as_double()));
      }
      AssembleConversion(spec, "", c, -1, conversion, sizeof(conversion));
      return Print(out, room, conversion, argument.as_double());
    }
    default:
      break;
  }
  // An integer (signed, unsigned or character), read as the length modifier
  // says, so "%d" of a 64-bit value shows its low 32 bits as printf would.
  const uint64_t bits = argument.as_unsigned();
  if (c == 'c') {
    for (char flag : {'+', ' ', '#', '0'}) spec.RemoveFlag(flag);
    spec.has_precision = false;
    AssembleConversion(spec, "", 'c', -1, conversion, sizeof(conversion));
    return Print(out, room, conversion, static_cast<int>(static_cast<unsigned char>(bits)));
  }
  const std::string_view length = spec.length;
  const bool is_signed = (c == 'd' || c == 'i');
  if (length == "hh" || length == "h" || length.empty()) {
    int value;
    if (length == "hh") {
      value = is_signed ? static_cast<int>(static_cast<signed char>(bits))
                        : static_cast<int>(static_cast<unsigned char>(bits));
    } else if (length == "h") {
      value = is_signed ? static_cast<int>(static_cast<short>(bits))
                        : static_cast<int>(static_cast<unsigned short>(bits));
    } else {
      value = static_cast<int>(static_cast<unsigned>(bits));
    }
    AssembleConversion(spec, spec.length, c, -1, conversion, sizeof(conversion));
    return is_signed ? Print(out, room, conversion, value)
                     : Print(out, room, conversion, static_cast<unsigned>(value));
  }
  if (length == "l") {
    AssembleConversion(spec, "l", c, -1, conversion, sizeof(conversion));
    return is_signed ? Print(out, room, conversion, static_cast<long>(bits))
                     : Print(out, room, conversion, static_cast<unsigned long>(bits));
  }
  if (length == "z" || length == "t") {
    // size_t and ptrdiff_t have the width of a pointer on our targets.
    AssembleConversion(spec, spec.length, c, -1, conversion, sizeof(conversion));
    return is_signed ? Print(out, room, conversion, static_cast<ptrdiff_t>(bits))
                     : Print(out, room, conversion, static_cast<size_t>(bits));
  }
  // "ll", "j" and "L" (which printf does not define for integers) read 64 bits.
  AssembleConversion(spec, "ll", c, -1, conversion, sizeof(conversion));
  return is_signed ? Print(out, room, conversion, static_cast<long long>(bits))
                   : Print(out, room, conversion, static_cast<unsigned long long>(bits));
}

// The natural form: the argument with its default conversion, 64-bit
// integers with "ll".
int WriteNatural(const FormatArgument& argument, char* out, size_t room) {
  ConversionSpec spec;
  spec.conversion = DefaultConversion(argument.type());
  if (argument.is_integer() && argument.wide()) std::strcpy(spec.length, "ll");
  return WriteConversion(spec, argument, out, room);
}

int64_t ClampField(int64_t value) {
  return std::clamp(value, -kMaxFieldSize, kMaxFieldSize);
}

// The value an integer argument supplies for "*".
int64_t StarValue(const FormatArgument& argument) {
  if (argument.type() == FormatArgument::Type::kUnsigned) {
    return static_cast<int64_t>(std::min<uint64_t>(argument.as_unsigned(), kMaxFieldSize));
  }
  if (!argument.wide() && argument.type() == FormatArgument::Type::kSigned) {
    return ClampField(static_cast<int32_t>(argument.as_signed()));
  }
  return ClampField(argument.as_signed());
}

// Reads digits at `format[i]`, saturating above kMaxFieldSize.
int64_t ReadNumber(std::string_view format, size_t& i) {
  int64_t value = 0;
  while (i < format.size() && IsDigit(format[i])) {
    value = std::min<int64_t>(value * 10 + (format[i] - '0'), kMaxFieldSize + 1);
    ++i;
  }
  return value;
}

class MessageFormatter {
 public:
  MessageFormatter(std::string_view format, std::span<const FormatArgument> arguments)
      : format_(format), arguments_(arguments) {}

  std::string Run() {
    size_t i = 0;
    while (i < format_.size() && used_ < kMessageBufferSize - 1) {
      const char c = format_[i];
      if (c != '%') {
        buffer_[used_++] = c;
        ++i;
      } else if (i + 1 < format_.size() && format_[i + 1] == '%') {
        buffer_[used_++] = '%';
        i += 2;
      } else if (!Conversion(i)) {
        break;
      }
    }
    return std::string(buffer_, used_);
  }

 private:
  // The argument number at format_[i] when it names an argument (1 to the
  // number of arguments); 0 otherwise. Advances `i` past it when it does.
  size_t ReadArgumentNumber(size_t& i) const {
    if (i >= format_.size() || format_[i] < '1' || format_[i] > '9') return 0;
    size_t end = i;
    const int64_t number = ReadNumber(format_, end);
    if (number > static_cast<int64_t>(arguments_.size())) return 0;
    i = end;
    return static_cast<size_t>(number);
  }

  // The argument a "*" at format_[i] supplies, advancing `i` past "*" or
  // "*N$"; false when it is missing or no integer.
  bool ReadStar(size_t& i, int64_t& value) {
    ++i;  // the "*"
    size_t index = 0;
    size_t after_number = i;
    const size_t number = ReadArgumentNumber(after_number);
    if (number != 0 && after_number < format_.size() && format_[after_number] == '$') {
      index = number;
      i = after_number + 1;
    } else {
      index = next_sequential_++;
    }
    if (index > arguments_.size() || !arguments_[index - 1].is_integer()) return false;
    value = StarValue(arguments_[index - 1]);
    return true;
  }

  // Formats the conversion starting with the "%" at format_[i]; false when
  // formatting stops.
  bool Conversion(size_t& i) {
    const size_t start = i++;
    auto too_long = [&] { return i - start > kMaxConversionLength; };
    size_t index = 0;

    size_t after_number = i;
    if (const size_t number = ReadArgumentNumber(after_number); number != 0) {
      if (after_number < format_.size() && format_[after_number] == '$') {
        index = number;
        i = after_number + 1;
      } else {
        i = after_number;
        return Emit(
            WriteNatural(arguments_[number - 1], buffer_ + used_, kMessageBufferSize - used_));
      }
    }

    ConversionSpec spec;
    LastPart last = LastPart::kNone;
    while (i < format_.size() && format_[i] != 0 && std::strchr("-+ #0", format_[i])) {
      spec.AddFlag(format_[i++]);
      last = LastPart::kFlag;
      if (too_long()) return false;
    }
    if (i < format_.size() && format_[i] == '*') {
      int64_t width;
      if (!ReadStar(i, width)) return false;
      if (width < 0) spec.AddFlag('-');
      spec.has_width = true;
      spec.width = width < 0 ? -width : width;
      last = LastPart::kWidthStar;
    } else if (i < format_.size() && IsDigit(format_[i])) {
      spec.has_width = true;
      spec.width = ReadNumber(format_, i);
      last = LastPart::kWidthDigit;
    }
    if (too_long()) return false;
    if (i < format_.size() && format_[i] == '.') {
      ++i;
      spec.has_precision = true;
      last = LastPart::kDot;
      if (i < format_.size() && format_[i] == '*') {
        int64_t precision;
        if (!ReadStar(i, precision)) return false;
        // A negative precision counts as none, as in printf.
        spec.has_precision = precision >= 0;
        spec.precision = std::max<int64_t>(precision, 0);
        last = LastPart::kPrecisionStar;
      } else if (i < format_.size() && IsDigit(format_[i])) {
        spec.precision = ReadNumber(format_, i);
        last = LastPart::kPrecisionDigit;
      }
    }
    if (too_long()) return false;
    for (std::string_view length : {"hh", "ll", "h", "l", "L", "j", "t", "z"}) {
      if (format_.substr(i, length.size()) == length) {
        length.copy(spec.length, length.size());
        i += length.size();
        last = LastPart::kLength;
        break;
      }
    }
    if (i < format_.size()) {
      spec.conversion = format_[i++];
    } else {
      DropLastCharacter(spec, last);
    }
    if (too_long()) return false;

    if (index == 0) index = next_sequential_++;
    if (index > arguments_.size()) return false;
    const FormatArgument& argument = arguments_[index - 1];
    if (spec.conversion == 0 ||
        AllowedConversions(argument.type()).find(spec.conversion) == std::string_view::npos) {
      spec.conversion = DefaultConversion(argument.type());
    }
    return Emit(WriteConversion(spec, argument, buffer_ + used_, kMessageBufferSize - used_));
  }

  // Accounts for what snprintf wrote; false when the buffer is full.
  bool Emit(int written) {
    if (written < 0) return false;
    const size_t room = kMessageBufferSize - used_;
    if (static_cast<size_t>(written) >= room) {
      used_ = kMessageBufferSize - 1;
      return false;
    }
    used_ += static_cast<size_t>(written);
    return true;
  }

  std::string_view format_;
  std::span<const FormatArgument> arguments_;
  size_t next_sequential_ = 1;
  size_t used_ = 0;
  char buffer_[kMessageBufferSize];
};

// The length of the "%" conversion at format[i] as FormatMessage reads it,
// for copying it unchanged.
size_t ConversionLength(std::string_view format, size_t i, size_t argument_count) {
  const size_t start = i++;
  if (i < format.size() && format[i] >= '1' && format[i] <= '9') {
    size_t end = i;
    const int64_t number = ReadNumber(format, end);
    if (number <= static_cast<int64_t>(argument_count)) {
      if (end < format.size() && format[end] == '$') {
        i = end + 1;
      } else {
        return end - start;
      }
    }
  }
  auto skip_star_or_digits = [&] {
    if (i < format.size() && format[i] == '*') {
      ++i;
      size_t end = i;
      while (end < format.size() && IsDigit(format[end])) ++end;
      if (end > i && end < format.size() && format[end] == '$') i = end + 1;
    } else {
      while (i < format.size() && IsDigit(format[i])) ++i;
    }
  };
  while (i < format.size() && format[i] != 0 && std::strchr("-+ #0", format[i])) ++i;
  skip_star_or_digits();
  if (i < format.size() && format[i] == '.') {
    ++i;
    skip_star_or_digits();
  }
  while (i < format.size() && format[i] != 0 && std::strchr("hlLjtz", format[i])) ++i;
  if (i < format.size()) ++i;
  return i - start;
}

bool IsEmptyArgument(const NamedArgument& argument) {
  switch (argument.type) {
    case NamedArgument::Type::kBool:
      return !argument.boolean;
    case NamedArgument::Type::kSigned:
      return argument.i64 == 0;
    case NamedArgument::Type::kUnsigned:
      return argument.u64 == 0;
    case NamedArgument::Type::kFloat:
      return argument.f64 == 0.0;
    case NamedArgument::Type::kText:
      return argument.text.empty();
  }
  return false;
}

const char* TypeSuffix(NamedArgument::Type type) {
  switch (type) {
    case NamedArgument::Type::kBool:
      return "_bool";
    case NamedArgument::Type::kSigned:
    case NamedArgument::Type::kUnsigned:
      return "_int";
    case NamedArgument::Type::kFloat:
      return "_float";
    case NamedArgument::Type::kText:
      return "_str";
  }
  return "";
}

bool HasTypedKeySuffix(std::string_view name) {
  const size_t underscore = name.rfind('_');
  if (underscore == std::string_view::npos) return false;
  const std::string_view suffix = name.substr(underscore);
  for (std::string_view known : {"_bool", "_int", "_long", "_float", "_str", "_time", "_ip"}) {
    if (suffix == known) return true;
  }
  return false;
}

bool IsWhiteSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

struct Placeholder {
  std::string name;
  std::string alternative;
  std::string spec;
  bool typed = false;
  bool silent = false;
  bool has_alternative = false;
  bool has_spec = false;
};

void ClosePlaceholder(const Placeholder& placeholder, size_t number,
                      std::span<const NamedArgument> arguments, std::string& positional,
                      FormatParameters& parameters) {
  if (number > arguments.size()) return;
  const NamedArgument& argument = arguments[number - 1];
  if (placeholder.has_alternative && IsEmptyArgument(argument)) {
    positional += placeholder.alternative;
    return;
  }
  if (!placeholder.name.empty()) {
    std::string key = placeholder.name;
    if (placeholder.typed && !HasTypedKeySuffix(key)) key += TypeSuffix(argument.type);
    parameters.insert_or_assign(std::move(key), argument);
  }
  if (placeholder.silent) {
    while (!positional.empty() && IsWhiteSpace(positional.back())) positional.pop_back();
    return;
  }
  positional += '%';
  positional += std::to_string(number);
  if (placeholder.has_spec) {
    positional += '$';
    positional += placeholder.spec;
  }
}

}  // namespace

FormatArgument NamedArgument::ToFormatArgument() const {
  switch (type) {
    case Type::kBool:
      return FormatArgument(boolean ? "true" : "false");
    case Type::kSigned:
      return FormatArgument(static_cast<long long>(i64));
    case Type::kUnsigned:
      return FormatArgument(static_cast<unsigned long long>(u64));
    case Type::kFloat:
      return FormatArgument(f64);
    case Type::kText:
      return FormatArgument(std::string_view(text));
  }
  return FormatArgument("");
}

bool NamedArgument::operator==(const NamedArgument& other) const {
  if (type != other.type) return false;
  switch (type) {
    case Type::kBool:
      return boolean == other.boolean;
    case Type::kSigned:
      return i64 == other.i64;
    case Type::kUnsigned:
      return u64 == other.u64;
    case Type::kFloat:
      return f64 == other.f64;
    case Type::kText:
      return text == other.text;
  }
  return false;
}

std::string FormatMessage(std::string_view format, std::span<const FormatArgument> arguments) {
  return MessageFormatter(format, arguments).Run();
}

void FormatNamed(std::string_view format, std::span<const NamedArgument> arguments,
                 std::string& positional, FormatParameters& parameters) {
  positional.clear();
  positional.reserve(format.size());
  size_t next_number = 1;
  size_t i = 0;
  while (i < format.size()) {
    const char c = format[i];
    const char next = i + 1 < format.size() ? format[i + 1] : 0;
    if (c == '{' && next == '{') {
      positional += '{';
      i += 2;
    } else if (c == '}') {
      positional += '}';
      i += next == '}' ? 2 : 1;
    } else if (c == '%' && next == '%') {
      positional += "%%";
      i += 2;
    } else if (c == '%') {
      const size_t length = ConversionLength(format, i, arguments.size());
      positional.append(format.substr(i, length));
      i += length;
      ++next_number;
    } else if (c == '{') {
      Placeholder placeholder;
      std::string* target = &placeholder.name;
      ++i;
      if (i < format.size() && format[i] == '#') {
        placeholder.typed = true;
        ++i;
      }
      bool closed = false;
      while (i < format.size() && !closed) {
        const char p = format[i++];
        switch (p) {
          case '\\':
            if (i >= format.size()) return;
            *target += format[i++];
            break;
          case '!':
            placeholder.silent = true;
            break;
          case '?':
            placeholder.has_alternative = true;
            target = &placeholder.alternative;
            break;
          case ':':
            placeholder.has_spec = true;
            target = &placeholder.spec;
            break;
          case '{':
            break;
          case '}':
            closed = true;
            break;
          default:
            *target += p;
            break;
        }
      }
      if (!closed) return;
      ClosePlaceholder(placeholder, next_number++, arguments, positional, parameters);
    } else {
      positional += c;
      ++i;
    }
  }
}

std::string FormatNamedMessage(std::string_view format, std::span<const NamedArgument> arguments,
                               FormatParameters& parameters) {
  std::string positional;
  FormatNamed(format, arguments, positional, parameters);
  std::vector<FormatArgument> converted;
  converted.reserve(arguments.size());
  for (const NamedArgument& argument : arguments) converted.push_back(argument.ToFormatArgument());
  return FormatMessage(positional, converted);
}

}  // namespace kav
