#include "host/json_value.h"

#include "host/json_writing.h"

#include <utility>

#include <rapidjson/document.h>
#include <rapidjson/error/en.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>

namespace kav::host {
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
  WriteJson(value, writer);
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
