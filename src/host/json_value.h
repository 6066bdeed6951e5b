// Host-side JSON: JSON text to and from the host's Value, and KavHostValue
// records built from JSON that the host owns and releases itself. The peers
// of a scenario answer with such values, and the host prints the plugin's
// answers as indented JSON.
//
// Thread-compatible: free functions keep no state; an OwnedHostValue is used
// by one thread at a time.
#ifndef KAV_HOST_JSON_VALUE_H_
#define KAV_HOST_JSON_VALUE_H_

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "host/host_value.h"
#include "kav/plugin_host.h"

namespace kav::host {

// A place in a text; line and column count from 1, the column in bytes.
struct TextPosition {
  size_t line = 1;
  size_t column = 1;

  bool operator==(const TextPosition& other) const = default;
};

// The line and column of byte `offset` of `text` (an offset past the end
// names the place just after the last byte).
TextPosition PositionOf(std::string_view text, size_t offset);

// Why a JSON text was refused: RapidJSON's English message and where.
struct JsonError {
  std::string message;
  size_t offset = 0;
  TextPosition position;

  // "line L, column C: message".
  std::string ToString() const;
};

// Parses one JSON document into a Value (objects keep their member order).
// Nothing, with `error` filled when given, for text that is not JSON.
std::optional<Value> ParseJson(std::string_view text, JsonError* error = nullptr);

// `value` as JSON indented by two spaces per level.
std::string ToIndentedJson(const Value& value);

// A KavHostValue that the host built and owns, with all the storage its
// record points to. The storage is released with the object; the record must
// not be used afterwards. Movable, not copyable; moving keeps the record's
// pointers valid.
class OwnedHostValue {
 public:
  explicit OwnedHostValue(const Value& value);
  // Nothing, with `error` filled when given, for text that is not JSON.
  static std::optional<OwnedHostValue> FromJson(std::string_view json, JsonError* error = nullptr);

  const KavHostValue& record() const { return record_; }
  Value ToValue() const { return Value::FromRecord(record_); }

 private:
  std::unique_ptr<RecordArena> arena_;
  KavHostValue record_{};
};

// A record (of the plugin or of the host) written as indented JSON.
std::string RecordToIndentedJson(const KavHostValue& record);

}  // namespace kav::host

#endif  // KAV_HOST_JSON_VALUE_H_
