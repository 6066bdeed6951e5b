#include "serialization/json.h"

#include <rapidjson/error/en.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/reader.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <new>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "binding/binding_walk.h"
#include "binding/type_registry.h"

namespace kav {
namespace {

// ---------------------------------------------------------------------------
// Reading

// RapidJSON reader handler that builds a BindingProperty in place.
//
// `open_` holds the open collections and structures, innermost last. The
// pointers stay valid while the containers are open: only the innermost
// container grows, and structure members never move.
class ValueBuilder {
 public:
  explicit ValueBuilder(BindingProperty& root) : member_target_(&root) { open_.reserve(16); }

  bool nesting_exceeded() const { return nesting_exceeded_; }

  bool Null() {
    NextTarget();  // an element is appended; the target itself stays as it is
    return true;
  }
  bool Bool(bool value) {
    NextTarget().SetBool(value);
    return true;
  }
  // RapidJSON reports non-negative integers through Uint/Uint64 and negative
  // ones (and "-0") through Int/Int64; anything else arrives as Double.
  bool Int(int value) {
    NextTarget().SetSigned(value);
    return true;
  }
  bool Uint(unsigned value) {
    NextTarget().SetUnsigned(value);
    return true;
  }
  bool Int64(int64_t value) {
    NextTarget().SetSigned(value);
    return true;
  }
  bool Uint64(uint64_t value) {
    NextTarget().SetUnsigned(value);
    return true;
  }
  bool Double(double value) {
    NextTarget().SetFloat(value);
    return true;
  }
  // Only produced with kParseNumbersAsStringsFlag, which is not used.
  bool RawNumber(const char*, rapidjson::SizeType, bool) { return false; }
  // Strings and member names are cut at their first NUL character by the
  // value itself, so an escaped \u0000 ends the stored text.
  bool String(const char* text, rapidjson::SizeType length, bool) {
    NextTarget().SetString(std::string_view(text, length));
    return true;
  }

  bool StartObject() {
    if (!CanOpen()) return false;
    BindingProperty& target = NextTarget();
    target.MakeStructure();  // an existing structure keeps its members
    structures_.Open(target);
    open_.push_back(&target);
    return true;
  }
  bool Key(const char* name, rapidjson::SizeType length, bool) {
    member_target_ = &structures_.Member(std::string_view(name, length));
    return true;
  }
  bool EndObject(rapidjson::SizeType) {
    structures_.Close();
    open_.pop_back();
    return true;
  }

  bool StartArray() {
    if (!CanOpen()) return false;
    BindingProperty& target = NextTarget();
    target.MakeCollection();  // an existing collection keeps its elements
    open_.push_back(&target);
    return true;
  }
  bool EndArray(rapidjson::SizeType) {
    open_.pop_back();
    return true;
  }

 private:
  // The value the next JSON value is stored into: a new element when the
  // innermost container is a collection, otherwise the member named by the
  // last key (or the root, for the first value).
  BindingProperty& NextTarget() {
    if (!open_.empty() && open_.back()->Kind() == BindingKind::kCollection) {
      return open_.back()->Append();
    }
    return *member_target_;
  }

  // Stops the parse before RapidJSON recurses past kJsonMaxNesting levels.
  bool CanOpen() {
    if (open_.size() < kJsonMaxNesting) return true;
    nesting_exceeded_ = true;
    return false;
  }

  BindingProperty* member_target_;
  std::vector<BindingProperty*> open_;
  StructureBuilder structures_;  // fills the open structures of open_
  bool nesting_exceeded_ = false;
};

// Bytes that stand for themselves inside a JSON string: all but the quote,
// the backslash and the control characters (which end or escape it, or are
// errors).
constexpr auto kPlainStringByte = [] {
  std::array<bool, 256> plain{};
  for (size_t c = 0x20; c < plain.size(); ++c) plain[c] = c != '"' && c != '\\';
  return plain;
}();

bool IsJsonWhiteSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

std::string ReadErrorMessage(std::string_view what, size_t offset) {
  std::string message = "Error: ";
  message += what;
  message += " at offset ";
  message += std::to_string(offset);
  message += '.';
  return message;
}

std::string NestingErrorText() {
  return "Nesting deeper than " + std::to_string(kJsonMaxNesting) + " levels.";
}

// ---------------------------------------------------------------------------
// Writing

constexpr char kBase64Alphabet[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Standard Base64 with "=" padding; `out` is replaced.
void EncodeBase64(std::span<const uint8_t> bytes, std::string& out) {
  out.clear();
  out.reserve((bytes.size() + 2) / 3 * 4);
  size_t i = 0;
  for (; i + 3 <= bytes.size(); i += 3) {
    uint32_t group = (uint32_t{bytes[i]} << 16) | (uint32_t{bytes[i + 1]} << 8) | bytes[i + 2];
    out += kBase64Alphabet[(group >> 18) & 0x3F];
    out += kBase64Alphabet[(group >> 12) & 0x3F];
    out += kBase64Alphabet[(group >> 6) & 0x3F];
    out += kBase64Alphabet[group & 0x3F];
  }
  size_t rest = bytes.size() - i;
  if (rest == 0) return;
  uint32_t group = uint32_t{bytes[i]} << 16;
  if (rest == 2) group |= uint32_t{bytes[i + 1]} << 8;
  out += kBase64Alphabet[(group >> 18) & 0x3F];
  out += kBase64Alphabet[(group >> 12) & 0x3F];
  out += rest == 2 ? kBase64Alphabet[(group >> 6) & 0x3F] : '=';
  out += '=';
}

// RapidJSON output stream that writes straight into the result string, so
// that the text is never copied out of a separate buffer. The string is
// kept larger than the text while writing (the spare bytes are zeros) and
// cut to the text by Finish.
class StringOutput {
 public:
  using Ch = char;

  explicit StringOutput(std::string& text) : text_(text) {
    text_.resize(kInitialCapacity);
    cursor_ = text_.data();
    end_ = cursor_ + text_.size();
  }

  void Put(char c) {
    if (cursor_ == end_) Grow(1);
    *cursor_++ = c;
  }
  // REQUIRES: room was made by Reserve.
  void PutReserved(char c) { *cursor_++ = c; }
  // Makes room for `count` more bytes.
  void Reserve(size_t count) {
    if (static_cast<size_t>(end_ - cursor_) < count) Grow(count);
  }
  void Flush() {}
  // Room for `count` more bytes, to be filled directly and then passed to
  // Commit with the end of what was filled.
  char* Claim(size_t count) {
    Reserve(count);
    return cursor_;
  }
  void Commit(char* end) { cursor_ = end; }

  size_t Written() const { return static_cast<size_t>(cursor_ - text_.data()); }
  size_t Capacity() const { return text_.size(); }
  // Cuts the string to the text written; gives back the spare room when a
  // projection overshot by far. No Put may follow.
  void Finish() {
    const size_t written = Written();
    text_.resize(written);
    if (text_.capacity() > 2 * written + 4096) text_.shrink_to_fit();
  }

 private:
  static constexpr size_t kInitialCapacity = 256;

  void Grow(size_t count) {
    const size_t written = Written();
    text_.resize(std::max(written + count, text_.size() + text_.size() / 2));
    cursor_ = text_.data() + written;
    end_ = text_.data() + text_.size();
  }

  std::string& text_;
  char* cursor_;
  char* end_;
};

// RapidJSON's writers reserve room before runs of bytes; found by
// argument-dependent lookup in preference to RapidJSON's generic versions.
inline void PutReserve(StringOutput& output, size_t count) {
  output.Reserve(count);
}
inline void PutUnsafe(StringOutput& output, char c) {
  output.PutReserved(c);
}

}  // namespace
}  // namespace kav

namespace rapidjson {

// Integers are written straight into the output, as RapidJSON does for its
// own StringBuffer, instead of through a scratch buffer; those that fit 32
// bits take the shorter 32-bit conversion.
template <>
inline bool Writer<kav::StringOutput>::WriteInt64(int64_t value) {
  char* start = os_->Claim(21);
  const bool fits = value >= INT32_MIN && value <= INT32_MAX;
  os_->Commit(fits ? internal::i32toa(static_cast<int32_t>(value), start)
                   : internal::i64toa(value, start));
  return true;
}
template <>
inline bool Writer<kav::StringOutput>::WriteUint64(uint64_t value) {
  char* start = os_->Claim(20);
  os_->Commit(value <= UINT32_MAX ? internal::u32toa(static_cast<uint32_t>(value), start)
                                  : internal::u64toa(value, start));
  return true;
}

// Runs of bytes that need no escape are copied in one tight loop rather than
// byte by byte through RapidJSON's escape and transcoding steps; WriteString
// has reserved room for the whole string before (json_bench WriteWithCodec).
template <>
inline bool Writer<kav::StringOutput>::ScanWriteUnescapedString(StringStream& is, size_t length) {
  const char* source = is.src_;
  const char* const end = is.head_ + length;
  char* out = os_->Claim(0);
  while (source != end && kav::kPlainStringByte[static_cast<uint8_t>(*source)]) *out++ = *source++;
  os_->Commit(out);
  is.src_ = source;
  return source != end;
}

}  // namespace rapidjson

namespace kav {
namespace {

// Visitor that feeds a RapidJSON Writer or PrettyWriter; walked by
// BindingWalk, so its calls are inlined. Element and member boundaries need
// no output: the RapidJSON writer places separators itself.
//
// Once a sample of the children of the top-level container is written, the
// output is reserved for all of them at the average size so far, with an
// eighth to spare (payloads are mostly lists of like records), so that a large text is
// allocated once or twice rather than grown step by step.
template <class JsonWriter>
class JsonEmitter {
 public:
  JsonEmitter(JsonWriter& writer, StringOutput& output, const TypeRegistry* registry)
      : writer_(writer), output_(output), registry_(registry) {}

  void VisitNull() { writer_.Null(); }
  void VisitBool(bool value) { writer_.Bool(value); }
  void VisitSigned(int64_t value) { writer_.Int64(value); }
  void VisitUnsigned(uint64_t value) { writer_.Uint64(value); }
  void VisitFloat(double value) {
    // RapidJSON refuses non-finite numbers after it has written the
    // separator; null keeps the text valid JSON.
    if (std::isfinite(value)) {
      writer_.Double(value);
    } else {
      writer_.Null();
    }
  }
  void VisitString(std::string_view value) {
    writer_.String(TextOf(value), static_cast<rapidjson::SizeType>(value.size()));
  }
  void VisitBlob(std::span<const uint8_t> bytes) {
    EncodeBase64(bytes, scratch_);
    writer_.String(scratch_.data(), static_cast<rapidjson::SizeType>(scratch_.size()));
  }
  void VisitEnum(const BindingEnum& value) {
    if (registry_ != nullptr && value.type != nullptr) {
      if (const char* name = registry_->EnumValueName(*value.type, value.value)) {
        writer_.String(name, static_cast<rapidjson::SizeType>(std::strlen(name)));
        return;
      }
    }
    VisitSigned(value.value);
  }
  void BeginCollection(size_t count) {
    Open(count);
    writer_.StartArray();
  }
  void BeginElement(size_t) {}
  void EndElement(size_t) {
    if (depth_ == 1) ChildDone();
  }
  void EndCollection() {
    --depth_;
    writer_.EndArray();
  }
  void BeginStructure(size_t count) {
    Open(count);
    writer_.StartObject();
  }
  void VisitKey(std::string_view name) {
    writer_.Key(TextOf(name), static_cast<rapidjson::SizeType>(name.size()));
  }
  void EndMember(std::string_view) {
    if (depth_ == 1) ChildDone();
  }
  void EndStructure() {
    --depth_;
    writer_.EndObject();
  }

 private:
  // RapidJSON asserts on a null pointer even for an empty text.
  static const char* TextOf(std::string_view text) { return text.data() ? text.data() : ""; }

  void Open(size_t count) {
    if (depth_ == 0) {
      top_children_ = count;
      top_done_ = 0;
    }
    ++depth_;
  }
  void ChildDone() {
    ++top_done_;
    // The first few children alone are a poor sample (an overestimate is
    // never taken back); until then the output grows by half each time.
    if (top_done_ < std::min<size_t>(kSampleChildren, (top_children_ + 31) / 32)) return;
    const size_t written = output_.Written();
    const size_t expected = written / top_done_ * top_children_;
    if (expected > output_.Capacity()) {
      output_.Reserve(expected + expected / 8 - written);
    }
  }

  static constexpr size_t kSampleChildren = 16;

  JsonWriter& writer_;
  StringOutput& output_;
  const TypeRegistry* registry_;
  size_t depth_ = 0;         // containers open
  size_t top_children_ = 0;  // children of the top-level container
  size_t top_done_ = 0;      // of them written so far
  std::string scratch_;      // Base64 text of the current blob
};

std::string ReplaceLineFeeds(std::string_view text, std::string_view newline) {
  std::string out;
  out.reserve(text.size() + text.size() / 8 * (newline.size() - 1));
  size_t start = 0;
  for (size_t lf = text.find('\n'); lf != std::string_view::npos; lf = text.find('\n', start)) {
    out.append(text, start, lf - start);
    out += newline;
    start = lf + 1;
  }
  out.append(text, start);
  return out;
}

}  // namespace

std::string SerializeJson(const BindingProperty& value, const TypeRegistry* registry,
                          const char* newline) {
  std::string text;
  if (value.IsEmpty()) return text;

  StringOutput output(text);
  if (newline == nullptr || *newline == '\0') {
    rapidjson::Writer<StringOutput> writer(output);
    JsonEmitter emitter(writer, output, registry);
    BindingWalk::Walk(value, emitter);
    output.Finish();
    return text;
  }

  rapidjson::PrettyWriter<StringOutput> writer(output);
  writer.SetIndent(' ', 4);
  writer.SetFormatOptions(rapidjson::kFormatDefault);
  JsonEmitter emitter(writer, output, registry);
  BindingWalk::Walk(value, emitter);
  output.Finish();
  if (std::strcmp(newline, "\n") == 0) return text;
  return ReplaceLineFeeds(text, newline);
}

}  // namespace kav

namespace rapidjson {

// Strings and member names of the reader that builds values: a text without
// escapes or control characters (nearly all of them) is handed to the builder
// straight from the input, which interns it anyway, instead of being copied
// byte by byte onto RapidJSON's stack first (json_bench ReadWithCodec).
// Anything else takes RapidJSON's own path from the opening quote, so
// escapes, errors and their offsets are exactly RapidJSON's.
template <>
template <>
inline void GenericReader<UTF8<>, UTF8<>, CrtAllocator>::ParseString<
    kParseDefaultFlags, StringStream, kav::ValueBuilder>(StringStream& is,
                                                         kav::ValueBuilder& handler, bool isKey) {
  const char* const begin = is.src_ + 1;  // past the opening quote
  const char* end = begin;
  while (kav::kPlainStringByte[static_cast<uint8_t>(*end)]) ++end;
  if (*end == '"') {
    is.src_ = end + 1;
    const auto length = static_cast<SizeType>(end - begin);
    const bool accepted =
        isKey ? handler.Key(begin, length, true) : handler.String(begin, length, true);
    if (RAPIDJSON_UNLIKELY(!accepted)) RAPIDJSON_PARSE_ERROR(kParseErrorTermination, is.Tell());
    return;
  }

  internal::StreamLocalCopy<StringStream> copy(is);
  StringStream& s(copy.s);
  s.Take();  // the opening quote
  StackStream<char> stackStream(stack_);
  ParseStringToStream<kParseDefaultFlags, UTF8<>, UTF8<>>(s, stackStream);
  RAPIDJSON_PARSE_ERROR_EARLY_RETURN_VOID;
  const auto length = static_cast<SizeType>(stackStream.Length()) - 1;
  const char* const str = stackStream.Pop();
  const bool accepted = isKey ? handler.Key(str, length, true) : handler.String(str, length, true);
  if (RAPIDJSON_UNLIKELY(!accepted)) RAPIDJSON_PARSE_ERROR(kParseErrorTermination, s.Tell());
}

}  // namespace rapidjson

namespace kav {

BindingResult DeserializeJson(const char* text) {
  BindingResult result;
  const char* start = text;
  while (IsJsonWhiteSpace(*start)) ++start;
  if (*start == '\0') return result;  // empty or all white space: an empty value
  const size_t skipped = static_cast<size_t>(start - text);

  rapidjson::StringStream stream(start);
  rapidjson::Reader reader;
  rapidjson::ParseResult parsed;
  bool nesting_exceeded = false;
  // Growing the value may throw (out of memory, or a collection beyond its
  // element limit); that is reported like a parse error, never thrown on.
  // The builder is gone before any failure clears the value, as its
  // structure builder requires.
  try {
    ValueBuilder builder(result);
    parsed = reader.Parse<rapidjson::kParseDefaultFlags>(stream, builder);
    nesting_exceeded = builder.nesting_exceeded();
  } catch (const std::bad_alloc&) {
    result.SetError(ReadErrorMessage("Out of memory.", skipped + stream.Tell()));
    return result;
  } catch (const std::length_error&) {
    result.SetError(ReadErrorMessage("Too many elements in one array.", skipped + stream.Tell()));
    return result;
  }
  if (parsed.IsError()) {
    const size_t offset = skipped + parsed.Offset();
    if (nesting_exceeded) {
      result.SetError(ReadErrorMessage(NestingErrorText(), offset));
    } else {
      result.SetError(ReadErrorMessage(rapidjson::GetParseError_En(parsed.Code()), offset));
    }
  }
  return result;
}

BindingResult DeserializeJson(const std::string& text) {
  return DeserializeJson(text.c_str());
}

BindingResult DeserializeJson(std::string_view text) {
  return DeserializeJson(std::string(text).c_str());
}

}  // namespace kav
