#include "host/json_value.h"

#include <utility>

#include <rapidjson/document.h>
#include <rapidjson/error/en.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>

namespace kav::host {
namespace {

void WriteValue(const Value& value, rapidjson::PrettyWriter<rapidjson::StringBuffer>& writer) {
  switch (value.kind()) {
    case Value::Kind::kNull:
      writer.Null();
      break;
    case Value::Kind::kBool:
      writer.Bool(value.AsBool());
      break;
    case Value::Kind::kSigned:
      writer.Int64(value.AsSigned());
      break;
    case Value::Kind::kUnsigned:
      writer.Uint64(value.AsUnsigned());
      break;
    case Value::Kind::kFloat:
      writer.Double(value.AsFloat());
      break;
    case Value::Kind::kString:
      writer.String(value.AsString().data(),
                    static_cast<rapidjson::SizeType>(value.AsString().size()));
      break;
    case Value::Kind::kBlob:
      writer.StartArray();
      for (uint8_t byte : value.AsBlob()) writer.Uint(byte);
      writer.EndArray();
      break;
    case Value::Kind::kArray:
      writer.StartArray();
      for (const Value& element : value.AsArray()) WriteValue(element, writer);
      writer.EndArray();
      break;
    case Value::Kind::kMap:
      writer.StartObject();
      for (const MapEntry& entry : value.AsMap()) {
        writer.Key(entry.key.data(), static_cast<rapidjson::SizeType>(entry.key.size()));
        WriteValue(entry.value, writer);
      }
      writer.EndObject();
      break;
  }
}

}  // namespace

TextPosition PositionOf(std::string_view text, size_t offset) {
  TextPosition position;
  const size_t end = offset < text.size() ? offset : text.size();
  for (size_t i = 0; i < end; ++i) {
    if (text[i] == '\n') {
      ++position.line;
      position.column = 1;
    } else {
      ++position.column;
    }
  }
  return position;
}

std::string JsonError::ToString() const {
  return "line " + std::to_string(position.line) + ", column " + std::to_string(position.column) +
         ": " + message;
}

std::optional<Value> ParseJson(std::string_view text, JsonError* error) {
  std::optional<Value> value = Value::FromJson(text);
  if (value.has_value() || error == nullptr) return value;
  // Parse once more for the error's code and offset; only refused texts pay.
  rapidjson::Document document;
  document.Parse(text.data(), text.size());
  error->message = rapidjson::GetParseError_En(document.GetParseError());
  error->offset = document.GetErrorOffset();
  error->position = PositionOf(text, error->offset);
  return value;
}

std::string ToIndentedJson(const Value& value) {
  rapidjson::StringBuffer buffer;
  rapidjson::PrettyWriter<rapidjson::StringBuffer> writer(buffer);
  writer.SetIndent(' ', 2);
  WriteValue(value, writer);
  return std::string(buffer.GetString(), buffer.GetSize());
}

OwnedHostValue::OwnedHostValue(const Value& value)
    : arena_(std::make_unique<RecordArena>()), record_(arena_->Build(value)) {}

std::optional<OwnedHostValue> OwnedHostValue::FromJson(std::string_view json, JsonError* error) {
  std::optional<Value> value = ParseJson(json, error);
  if (!value.has_value()) return std::nullopt;
  return OwnedHostValue(*value);
}

std::string RecordToIndentedJson(const KavHostValue& record) {
  return ToIndentedJson(Value::FromRecord(record));
}

}  // namespace kav::host
