// Writes a host-side Value through any RapidJSON writer (compact or pretty).
// Blobs are written as arrays of byte values.
#ifndef KAV_HOST_JSON_WRITING_H_
#define KAV_HOST_JSON_WRITING_H_

#include <rapidjson/rapidjson.h>

#include "host/host_value.h"

namespace kav::host {

template <class Writer>
void WriteJson(const Value& value, Writer& writer) {
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
      for (const Value& element : value.AsArray()) WriteJson(element, writer);
      writer.EndArray();
      break;
    case Value::Kind::kMap:
      writer.StartObject();
      for (const MapEntry& entry : value.AsMap()) {
        writer.Key(entry.key.data(), static_cast<rapidjson::SizeType>(entry.key.size()));
        WriteJson(entry.value, writer);
      }
      writer.EndObject();
      break;
  }
}

}  // namespace kav::host

#endif  // KAV_HOST_JSON_WRITING_H_
