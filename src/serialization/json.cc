#include "serialization/json.h"

#include <rapidjson/error/en.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/reader.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <new>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

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
    open_.push_back(&target);
    return true;
  }
  bool Key(const char* name, rapidjson::SizeType length, bool) {
    member_target_ = &open_.back()->Member(std::string_view(name, length));
    return true;
  }
  bool EndObject(rapidjson::SizeType) {
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
  bool nesting_exceeded_ = false;
};

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

// Visitor that feeds a RapidJSON Writer or PrettyWriter. Element and member
// boundaries need no output: the RapidJSON writer places separators itself.
template <class JsonWriter>
class JsonEmitter final : public BindingPropertyVisitor {
 public:
  JsonEmitter(JsonWriter& writer, const TypeRegistry* registry)
      : writer_(writer), registry_(registry) {}

  void VisitNull() override { writer_.Null(); }
  void VisitBool(bool value) override { writer_.Bool(value); }
  void VisitSigned(int64_t value) override { writer_.Int64(value); }
  void VisitUnsigned(uint64_t value) override { writer_.Uint64(value); }
  void VisitFloat(double value) override {
    // RapidJSON refuses non-finite numbers after it has written the
    // separator; null keeps the text valid JSON.
    if (std::isfinite(value)) {
      writer_.Double(value);
    } else {
      writer_.Null();
    }
  }
  void VisitString(std::string_view value) override {
    writer_.String(TextOf(value), static_cast<rapidjson::SizeType>(value.size()));
  }
  void VisitBlob(std::span<const uint8_t> bytes) override {
    EncodeBase64(bytes, scratch_);
    writer_.String(scratch_.data(), static_cast<rapidjson::SizeType>(scratch_.size()));
  }
  void VisitEnum(const BindingEnum& value) override {
    if (registry_ != nullptr && value.type != nullptr) {
      if (const char* name = registry_->EnumValueName(*value.type, value.value)) {
        writer_.String(name, static_cast<rapidjson::SizeType>(std::strlen(name)));
        return;
      }
    }
    VisitSigned(value.value);
  }
  void BeginCollection(size_t) override { writer_.StartArray(); }
  void BeginElement(size_t) override {}
  void EndElement(size_t) override {}
  void EndCollection() override { writer_.EndArray(); }
  void BeginStructure(size_t) override { writer_.StartObject(); }
  void VisitKey(std::string_view name) override {
    writer_.Key(TextOf(name), static_cast<rapidjson::SizeType>(name.size()));
  }
  void EndMember(std::string_view) override {}
  void EndStructure() override { writer_.EndObject(); }

 private:
  // RapidJSON asserts on a null pointer even for an empty text.
  static const char* TextOf(std::string_view text) { return text.data() ? text.data() : ""; }

  JsonWriter& writer_;
  const TypeRegistry* registry_;
  std::string scratch_;  // Base64 text of the current blob
};

std::string ReplaceLineFeeds(std::string_view text, std::string_view newline) {
  std::string out;
  out.reserve(text.size() + text.size() / 8 * (newline.size() - 1));
  for (char c : text) {
    if (c == '\n') {
      out += newline;
    } else {
      out += c;
    }
  }
  return out;
}

}  // namespace

std::string SerializeJson(const BindingProperty& value, const TypeRegistry* registry,
                          const char* newline) {
  if (value.IsEmpty()) return std::string();

  rapidjson::StringBuffer buffer;
  if (newline == nullptr || *newline == '\0') {
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    JsonEmitter emitter(writer, registry);
    value.Visit(emitter);
    return std::string(buffer.GetString(), buffer.GetSize());
  }

  rapidjson::PrettyWriter<rapidjson::StringBuffer> writer(buffer);
  writer.SetIndent(' ', 4);
  writer.SetFormatOptions(rapidjson::kFormatDefault);
  JsonEmitter emitter(writer, registry);
  value.Visit(emitter);
  std::string_view text(buffer.GetString(), buffer.GetSize());
  if (std::strcmp(newline, "\n") == 0) return std::string(text);
  return ReplaceLineFeeds(text, newline);
}

BindingResult DeserializeJson(const char* text) {
  BindingResult result;
  const char* start = text;
  while (IsJsonWhiteSpace(*start)) ++start;
  if (*start == '\0') return result;  // empty or all white space: an empty value
  const size_t skipped = static_cast<size_t>(start - text);

  rapidjson::StringStream stream(start);
  ValueBuilder builder(result);
  rapidjson::Reader reader;
  rapidjson::ParseResult parsed;
  // Growing the value may throw (out of memory, or a collection beyond its
  // element limit); that is reported like a parse error, never thrown on.
  try {
    parsed = reader.Parse<rapidjson::kParseDefaultFlags>(stream, builder);
  } catch (const std::bad_alloc&) {
    result.SetError(ReadErrorMessage("Out of memory.", skipped + stream.Tell()));
    return result;
  } catch (const std::length_error&) {
    result.SetError(ReadErrorMessage("Too many elements in one array.", skipped + stream.Tell()));
    return result;
  }
  if (parsed.IsError()) {
    const size_t offset = skipped + parsed.Offset();
    if (builder.nesting_exceeded()) {
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
