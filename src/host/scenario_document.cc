#include "host/scenario_document.h"

#include <yaml.h>

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <map>
#include <utility>

#include <rapidjson/error/en.h>
#include <rapidjson/reader.h>

namespace kav::host {
namespace {

// Deeper documents are refused rather than risking the stack.
constexpr size_t kMaxDepth = 200;

DocumentNode Scalar(DocumentNode::Kind kind, TextPosition position, std::string text) {
  DocumentNode node;
  node.kind = kind;
  node.position = position;
  node.text = std::move(text);
  return node;
}

// A decimal integer with an optional sign, or hexadecimal after "0x".
bool ParseInteger(std::string_view text, DocumentNode& node) {
  std::string_view digits = text;
  bool negative = false;
  if (!digits.empty() && (digits[0] == '-' || digits[0] == '+')) {
    negative = digits[0] == '-';
    digits.remove_prefix(1);
  }
  int base = 10;
  if (digits.size() > 2 && digits[0] == '0' && (digits[1] == 'x' || digits[1] == 'X')) {
    base = 16;
    digits.remove_prefix(2);
  }
  if (digits.empty()) return false;
  uint64_t magnitude = 0;
  auto [end, failure] =
      std::from_chars(digits.data(), digits.data() + digits.size(), magnitude, base);
  if (failure != std::errc() || end != digits.data() + digits.size()) return false;
  constexpr uint64_t kMostNegative = uint64_t{1} << 63;
  if (negative && magnitude > kMostNegative) return false;
  node.negative = negative && magnitude != 0;
  if (node.negative) {
    node.signed_value = magnitude == kMostNegative ? std::numeric_limits<int64_t>::min()
                                                   : -static_cast<int64_t>(magnitude);
    node.float_value = static_cast<double>(node.signed_value);
  } else {
    node.unsigned_value = magnitude;
    node.signed_value = static_cast<int64_t>(magnitude);  // meaningful when it fits
    node.float_value = static_cast<double>(magnitude);
  }
  node.kind = DocumentNode::Kind::kInteger;
  return true;
}

// [-+]? ( "." digits | digits ( "." digits? )? ) ( [eE] [-+]? digits )?
bool LooksLikeFloat(std::string_view text) {
  size_t i = 0;
  auto digits = [&] {
    const size_t start = i;
    while (i < text.size() && text[i] >= '0' && text[i] <= '9') ++i;
    return i > start;
  };
  if (i < text.size() && (text[i] == '-' || text[i] == '+')) ++i;
  if (i < text.size() && text[i] == '.') {
    ++i;
    if (!digits()) return false;
  } else {
    if (!digits()) return false;
    if (i < text.size() && text[i] == '.') {
      ++i;
      digits();
    }
  }
  if (i < text.size() && (text[i] == 'e' || text[i] == 'E')) {
    ++i;
    if (i < text.size() && (text[i] == '-' || text[i] == '+')) ++i;
    if (!digits()) return false;
  }
  return i == text.size();
}

// A plain scalar of the YAML core schema.
DocumentNode ResolvePlainScalar(std::string text, TextPosition position) {
  using Kind = DocumentNode::Kind;
  if (text.empty() || text == "~" || text == "null" || text == "Null" || text == "NULL") {
    return Scalar(Kind::kNull, position, std::move(text));
  }
  if (text == "true" || text == "True" || text == "TRUE" || text == "false" || text == "False" ||
      text == "FALSE") {
    DocumentNode node = Scalar(Kind::kBool, position, text);
    node.boolean = text[0] == 't' || text[0] == 'T';
    return node;
  }
  DocumentNode node = Scalar(Kind::kString, position, text);
  if (ParseInteger(text, node)) return node;
  std::string_view special = text;
  const bool minus = !special.empty() && special[0] == '-';
  if (!special.empty() && (special[0] == '-' || special[0] == '+')) special.remove_prefix(1);
  if (special == ".inf" || special == ".Inf" || special == ".INF") {
    node.kind = Kind::kFloat;
    node.float_value = minus ? -HUGE_VAL : HUGE_VAL;
  } else if (text == ".nan" || text == ".NaN" || text == ".NAN") {
    node.kind = Kind::kFloat;
    node.float_value = std::nan("");
  } else if (LooksLikeFloat(text)) {
    node.kind = Kind::kFloat;
    node.float_value = std::strtod(text.c_str(), nullptr);
  }
  return node;
}

bool AddMember(DocumentNode& mapping, std::string key, TextPosition key_position,
               DocumentNode value, DocumentError* error) {
  if (mapping.Find(key) != nullptr) {
    if (error != nullptr) *error = {"duplicate key '" + key + "'", key_position};
    return false;
  }
  mapping.members.push_back({std::move(key), key_position, std::move(value)});
  return true;
}

// ---- YAML -------------------------------------------------------------------

class YamlReader {
 public:
  explicit YamlReader(std::string_view text) {
    yaml_parser_initialize(&parser_);
    yaml_parser_set_encoding(&parser_, YAML_UTF8_ENCODING);
    yaml_parser_set_input_string(&parser_, reinterpret_cast<const unsigned char*>(text.data()),
                                 text.size());
  }
  YamlReader(const YamlReader&) = delete;
  YamlReader& operator=(const YamlReader&) = delete;
  ~YamlReader() {
    if (has_event_) yaml_event_delete(&event_);
    yaml_parser_delete(&parser_);
  }

  std::optional<DocumentNode> Read(DocumentError* error) {
    error_ = error;
    if (!Next() || !Expect(YAML_STREAM_START_EVENT)) return std::nullopt;
    if (!Next()) return std::nullopt;
    if (event_.type == YAML_STREAM_END_EVENT) return DocumentNode{};  // no document at all
    if (!Expect(YAML_DOCUMENT_START_EVENT) || !Next()) return std::nullopt;
    DocumentNode root;
    if (!ReadNode(root, 0) || !Next() || !Expect(YAML_DOCUMENT_END_EVENT) || !Next()) {
      return std::nullopt;
    }
    if (event_.type != YAML_STREAM_END_EVENT) {
      return Fail("a scenario file holds one YAML document, found another", Mark());
    }
    return root;
  }

 private:
  TextPosition Mark() const { return {event_.start_mark.line + 1, event_.start_mark.column + 1}; }

  std::nullopt_t Fail(std::string message, TextPosition position) {
    if (error_ != nullptr) *error_ = {std::move(message), position};
    return std::nullopt;
  }

  bool Refuse(std::string message, TextPosition position) {
    Fail(std::move(message), position);
    return false;
  }

  bool Next() {
    if (has_event_) yaml_event_delete(&event_);
    has_event_ = yaml_parser_parse(&parser_, &event_) != 0;
    if (has_event_) return true;
    std::string message = parser_.problem != nullptr ? parser_.problem : "YAML error";
    if (parser_.context != nullptr) message = message + " " + parser_.context;
    Fail(std::move(message), {parser_.problem_mark.line + 1, parser_.problem_mark.column + 1});
    return false;
  }

  bool Expect(yaml_event_type_t type) {
    if (event_.type == type) return true;
    Fail("unexpected YAML structure", Mark());
    return false;
  }

  static std::string Text(const yaml_char_t* text, size_t length) {
    return text != nullptr ? std::string(reinterpret_cast<const char*>(text), length)
                           : std::string();
  }
  static std::string Text(const yaml_char_t* text) {
    return text != nullptr ? std::string(reinterpret_cast<const char*>(text)) : std::string();
  }

  // Reads the node that starts with the current event into `node`; on return
  // the current event is the node's last one.
  bool ReadNode(DocumentNode& node, size_t depth) {
    if (depth > kMaxDepth) return Refuse("the document is nested too deeply", Mark());
    const TextPosition position = Mark();
    switch (event_.type) {
      case YAML_ALIAS_EVENT: {
        auto anchored = anchors_.find(Text(event_.data.alias.anchor));
        if (anchored == anchors_.end()) {
          return Refuse("unknown alias '" + Text(event_.data.alias.anchor) + "'", position);
        }
        node = anchored->second;
        node.position = position;
        return true;
      }
      case YAML_SCALAR_EVENT: {
        std::string text = Text(event_.data.scalar.value, event_.data.scalar.length);
        const std::string tag = Text(event_.data.scalar.tag);
        const bool plain =
            event_.data.scalar.style == YAML_PLAIN_SCALAR_STYLE && tag != "tag:yaml.org,2002:str";
        node = plain ? ResolvePlainScalar(std::move(text), position)
                     : Scalar(DocumentNode::Kind::kString, position, std::move(text));
        Remember(Text(event_.data.scalar.anchor), node);
        return true;
      }
      case YAML_SEQUENCE_START_EVENT: {
        const std::string anchor = Text(event_.data.sequence_start.anchor);
        node = DocumentNode{};
        node.kind = DocumentNode::Kind::kSequence;
        node.position = position;
        while (Next()) {
          if (event_.type == YAML_SEQUENCE_END_EVENT) {
            Remember(anchor, node);
            return true;
          }
          if (!ReadNode(node.elements.emplace_back(), depth + 1)) return false;
        }
        return false;
      }
      case YAML_MAPPING_START_EVENT: {
        const std::string anchor = Text(event_.data.mapping_start.anchor);
        node = DocumentNode{};
        node.kind = DocumentNode::Kind::kMapping;
        node.position = position;
        while (Next()) {
          if (event_.type == YAML_MAPPING_END_EVENT) {
            Remember(anchor, node);
            return true;
          }
          DocumentNode key;
          if (!ReadNode(key, depth + 1)) return false;
          if (!key.IsScalar()) return Refuse("mapping keys must be scalars", key.position);
          DocumentNode value;
          if (!Next() || !ReadNode(value, depth + 1)) return false;
          if (!AddMember(node, key.text, key.position, std::move(value), error_)) return false;
        }
        return false;
      }
      default:
        return Refuse("unexpected YAML structure", position);
    }
  }

  void Remember(const std::string& anchor, const DocumentNode& node) {
    if (!anchor.empty()) anchors_[anchor] = node;
  }

  yaml_parser_t parser_;
  yaml_event_t event_{};
  bool has_event_ = false;
  DocumentError* error_ = nullptr;
  std::map<std::string, DocumentNode> anchors_;
};

// ---- JSON -------------------------------------------------------------------

// A read-only stream over a text whose position the handler can read while
// the reader runs. (The reader copies a rapidjson::StringStream and advances
// the copy, so that the original's Tell() lags behind; a stream type without
// that copy optimisation is read in place.)
class PositionedStream {
 public:
  using Ch = char;
  explicit PositionedStream(const char* text) : inner_(text) {}
  Ch Peek() const { return inner_.Peek(); }
  Ch Take() { return inner_.Take(); }
  size_t Tell() const { return inner_.Tell(); }
  // Writing is only for in-situ parsing, which is not used.
  Ch* PutBegin() { return nullptr; }
  void Put(Ch) {}
  void Flush() {}
  size_t PutEnd(Ch*) { return 0; }

 private:
  rapidjson::StringStream inner_;
};

// Builds the tree from RapidJSON's SAX events. Each value's position is the
// first byte after the previous event that is not blank, "," or ":".
class JsonBuilder {
 public:
  JsonBuilder(std::string_view text, const PositionedStream& stream, DocumentError* error)
      : text_(text), stream_(stream), error_(error) {}

  bool Null() { return AddValue(Start(DocumentNode::Kind::kNull)); }
  bool Bool(bool value) {
    DocumentNode node = Start(DocumentNode::Kind::kBool);
    node.boolean = value;
    return AddValue(std::move(node));
  }
  bool Int(int value) { return Int64(value); }
  bool Uint(unsigned value) { return Uint64(value); }
  bool Int64(int64_t value) {
    if (value >= 0) return Uint64(static_cast<uint64_t>(value));
    DocumentNode node = Start(DocumentNode::Kind::kInteger);
    node.negative = true;
    node.signed_value = value;
    node.float_value = static_cast<double>(value);
    return AddValue(std::move(node));
  }
  bool Uint64(uint64_t value) {
    DocumentNode node = Start(DocumentNode::Kind::kInteger);
    node.unsigned_value = value;
    node.signed_value = static_cast<int64_t>(value);
    node.float_value = static_cast<double>(value);
    return AddValue(std::move(node));
  }
  bool Double(double value) {
    DocumentNode node = Start(DocumentNode::Kind::kFloat);
    node.float_value = value;
    return AddValue(std::move(node));
  }
  bool RawNumber(const char*, rapidjson::SizeType, bool) { return false; }  // not requested
  bool String(const char* text, rapidjson::SizeType length, bool) {
    DocumentNode node = Start(DocumentNode::Kind::kString);
    node.text.assign(text, length);
    return AddValue(std::move(node));
  }
  bool StartObject() { return Open(DocumentNode::Kind::kMapping); }
  bool Key(const char* text, rapidjson::SizeType length, bool) {
    stack_.back().key.assign(text, length);
    stack_.back().key_position = TokenStart();
    Finish();
    return true;
  }
  bool EndObject(rapidjson::SizeType) { return Close(); }
  bool StartArray() { return Open(DocumentNode::Kind::kSequence); }
  bool EndArray(rapidjson::SizeType) { return Close(); }

  DocumentNode TakeRoot() { return std::move(root_); }
  bool failed() const { return failed_; }

 private:
  struct Frame {
    DocumentNode node;
    std::string key;  // the key of the value to come, in a mapping
    TextPosition key_position;
  };

  // The position of the current token; advances the line counter lazily,
  // since offsets only grow.
  TextPosition TokenStart() {
    size_t offset = previous_end_;
    while (offset < text_.size() &&
           (text_[offset] == ' ' || text_[offset] == '\t' || text_[offset] == '\r' ||
            text_[offset] == '\n' || text_[offset] == ',' || text_[offset] == ':')) {
      ++offset;
    }
    for (; counted_ < offset && counted_ < text_.size(); ++counted_) {
      if (text_[counted_] == '\n') {
        ++counted_position_.line;
        counted_position_.column = 1;
      } else {
        ++counted_position_.column;
      }
    }
    return counted_position_;
  }

  DocumentNode Start(DocumentNode::Kind kind) {
    DocumentNode node;
    node.kind = kind;
    node.position = TokenStart();
    return node;
  }

  void Finish() { previous_end_ = stream_.Tell(); }

  bool Open(DocumentNode::Kind kind) {
    stack_.push_back({Start(kind), {}, {}});
    Finish();
    return true;
  }

  bool Close() {
    DocumentNode node = std::move(stack_.back().node);
    stack_.pop_back();
    return AddValue(std::move(node));
  }

  bool AddValue(DocumentNode node) {
    Finish();
    if (stack_.empty()) {
      root_ = std::move(node);
      return true;
    }
    Frame& parent = stack_.back();
    if (parent.node.kind == DocumentNode::Kind::kSequence) {
      parent.node.elements.push_back(std::move(node));
      return true;
    }
    if (AddMember(parent.node, std::move(parent.key), parent.key_position, std::move(node),
                  error_)) {
      return true;
    }
    failed_ = true;
    return false;
  }

  std::string_view text_;
  const PositionedStream& stream_;
  DocumentError* error_;
  std::vector<Frame> stack_;
  DocumentNode root_;
  size_t previous_end_ = 0;
  size_t counted_ = 0;
  TextPosition counted_position_;
  bool failed_ = false;
};

}  // namespace

const DocumentNode* DocumentNode::Find(std::string_view key) const {
  for (const DocumentMember& member : members) {
    if (member.key == key) return &member.value;
  }
  return nullptr;
}

const char* DocumentNode::KindDescription() const {
  switch (kind) {
    case Kind::kNull:
      return "null";
    case Kind::kBool:
      return "a boolean";
    case Kind::kInteger:
      return "an integer";
    case Kind::kFloat:
      return "a number";
    case Kind::kString:
      return "a string";
    case Kind::kSequence:
      return "a list";
    case Kind::kMapping:
      return "a mapping";
  }
  return "";
}

Value DocumentNode::ToValue() const {
  switch (kind) {
    case Kind::kNull:
      return Value();
    case Kind::kBool:
      return Value::Bool(boolean);
    case Kind::kInteger:
      if (negative) return Value::Signed(signed_value);
      if (unsigned_value <= static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) {
        return Value::Signed(signed_value);
      }
      return Value::Unsigned(unsigned_value);
    case Kind::kFloat:
      return Value::Float(float_value);
    case Kind::kString:
      return Value::String(text);
    case Kind::kSequence: {
      Value::Array array;
      for (const DocumentNode& element : elements) array.push_back(element.ToValue());
      return Value::MakeArray(std::move(array));
    }
    case Kind::kMapping: {
      Value::Map map;
      for (const DocumentMember& member : members) {
        map.push_back({member.key, member.value.ToValue()});
      }
      return Value::MakeMap(std::move(map));
    }
  }
  return Value();
}

std::string DocumentError::ToString() const {
  return "line " + std::to_string(position.line) + ", column " + std::to_string(position.column) +
         ": " + message;
}

std::optional<DocumentNode> ReadYamlDocument(std::string_view text, DocumentError* error) {
  YamlReader reader(text);
  return reader.Read(error);
}

std::optional<DocumentNode> ReadJsonDocument(std::string_view text, DocumentError* error) {
  // The reader stops at a NUL; a copy makes sure there is exactly one.
  const std::string terminated(text);
  PositionedStream stream(terminated.c_str());
  JsonBuilder builder(terminated, stream, error);
  rapidjson::Reader reader;
  const rapidjson::ParseResult result =
      reader.Parse<rapidjson::kParseNanAndInfFlag | rapidjson::kParseIterativeFlag>(stream,
                                                                                    builder);
  if (result.IsError()) {
    if (!builder.failed() && error != nullptr) {
      *error = {rapidjson::GetParseError_En(result.Code()),
                PositionOf(terminated, result.Offset())};
    }
    return std::nullopt;
  }
  return builder.TakeRoot();
}

}  // namespace kav::host
