#include "host/host_value.h"

#include "host/json_writing.h"

#include <cstring>
#include <utility>

#include <rapidjson/document.h>
#include <rapidjson/error/en.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace kav::host {
namespace {

std::string_view RecordText(const KavHostValue& record) {
  const char* data = static_cast<const char*>(record.payload.ref.data);
  if (data == nullptr) return {};
  return {data, record.payload.ref.size};
}

Value FromJsonValue(const rapidjson::Value& json) {
  switch (json.GetType()) {
    case rapidjson::kNullType:
      return Value();
    case rapidjson::kFalseType:
    case rapidjson::kTrueType:
      return Value::Bool(json.GetBool());
    case rapidjson::kStringType:
      return Value::String(std::string(json.GetString(), json.GetStringLength()));
    case rapidjson::kNumberType:
      if (json.IsInt64()) return Value::Signed(json.GetInt64());
      if (json.IsUint64()) return Value::Unsigned(json.GetUint64());
      return Value::Float(json.GetDouble());
    case rapidjson::kArrayType: {
      Value::Array elements;
      elements.reserve(json.Size());
      for (const auto& element : json.GetArray()) elements.push_back(FromJsonValue(element));
      return Value::MakeArray(std::move(elements));
    }
    case rapidjson::kObjectType: {
      Value::Map entries;
      entries.reserve(json.MemberCount());
      for (const auto& member : json.GetObject()) {
        entries.push_back({std::string(member.name.GetString(), member.name.GetStringLength()),
                           FromJsonValue(member.value)});
      }
      return Value::MakeMap(std::move(entries));
    }
  }
  return Value();
}

}  // namespace

Value Value::Bool(bool value) {
  Value made;
  made.data_ = value;
  return made;
}

Value Value::Signed(int64_t value) {
  Value made;
  made.data_ = value;
  return made;
}

Value Value::Unsigned(uint64_t value) {
  Value made;
  made.data_ = value;
  return made;
}

Value Value::Float(double value) {
  Value made;
  made.data_ = value;
  return made;
}

Value Value::String(std::string text) {
  Value made;
  made.data_ = std::move(text);
  return made;
}

Value Value::MakeBlob(Blob bytes) {
  Value made;
  made.data_ = std::move(bytes);
  return made;
}

Value Value::MakeArray(Array elements) {
  Value made;
  made.data_ = std::move(elements);
  return made;
}

Value Value::MakeMap(Map entries) {
  Value made;
  made.data_ = std::move(entries);
  return made;
}

Value Value::FromRecord(const KavHostValue& record) {
  switch (record.kind) {
    case KAV_VALUE_BOOL:
      return Bool(record.payload.boolean != 0);
    case KAV_VALUE_SIGNED:
      return Signed(record.payload.i64);
    case KAV_VALUE_UNSIGNED:
      return Unsigned(record.payload.u64);
    case KAV_VALUE_FLOAT:
      return Float(record.payload.f64);
    case KAV_VALUE_STRING_BORROWED:
    case KAV_VALUE_STRING_OWNED:
      return String(std::string(RecordText(record)));
    case KAV_VALUE_BLOB_BORROWED:
    case KAV_VALUE_BLOB_OWNED: {
      const auto* bytes = static_cast<const uint8_t*>(record.payload.ref.data);
      return MakeBlob(bytes == nullptr ? Blob() : Blob(bytes, bytes + record.payload.ref.size));
    }
    case KAV_VALUE_ARRAY: {
      const auto* elements = static_cast<const KavHostValue*>(record.payload.ref.data);
      Array copied;
      for (uint32_t i = 0; elements != nullptr && i < record.payload.ref.size; ++i) {
        copied.push_back(FromRecord(elements[i]));
      }
      return MakeArray(std::move(copied));
    }
    case KAV_VALUE_MAP: {
      const auto* entries = static_cast<const KavHostMapEntry*>(record.payload.ref.data);
      Map copied;
      for (uint32_t i = 0; entries != nullptr && i < record.payload.ref.size; ++i) {
        copied.push_back(
            {entries[i].key != nullptr ? entries[i].key : "", FromRecord(entries[i].value)});
      }
      return MakeMap(std::move(copied));
    }
    default:
      return Value();
  }
}

std::optional<Value> Value::FromJson(std::string_view text, std::string* error) {
  rapidjson::Document document;
  document.Parse(text.data(), text.size());
  if (document.HasParseError()) {
    if (error != nullptr) {
      *error = std::string(rapidjson::GetParseError_En(document.GetParseError())) + " (offset " +
               std::to_string(document.GetErrorOffset()) + ")";
    }
    return std::nullopt;
  }
  return FromJsonValue(document);
}

const Value* Value::Find(std::string_view key) const {
  if (kind() != Kind::kMap) return nullptr;
  for (const MapEntry& entry : AsMap()) {
    if (entry.key == key) return &entry.value;
  }
  return nullptr;
}

std::string Value::ToJson() const {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  WriteJson(*this, writer);
  return std::string(buffer.GetString(), buffer.GetSize());
}

bool Value::operator==(const Value& other) const {
  return data_ == other.data_;
}

namespace {

// The bytes that `value`'s texts (with their zeros), blob bytes, arrays and
// map entries take when laid out together.
size_t LaidOutSize(const Value& value) {
  switch (value.kind()) {
    case Value::Kind::kString:
      return value.AsString().size() + 1;
    case Value::Kind::kBlob:
      return value.AsBlob().size();
    case Value::Kind::kArray: {
      size_t size = value.AsArray().size() * sizeof(KavHostValue);
      for (const Value& element : value.AsArray()) size += LaidOutSize(element);
      return size;
    }
    case Value::Kind::kMap: {
      size_t size = value.AsMap().size() * sizeof(KavHostMapEntry);
      for (const MapEntry& entry : value.AsMap()) {
        size += entry.key.size() + 1 + LaidOutSize(entry.value);
      }
      return size;
    }
    default:
      return 0;
  }
}

// The record of `value`, its parts laid out from `cursor` on (advanced past
// them).
KavHostValue LayOut(const Value& value, uint8_t*& cursor) {
  const auto take = [&cursor](size_t size) {
    uint8_t* taken = cursor;
    cursor += size;
    return taken;
  };
  const auto text = [&take](std::string_view text) {
    auto* copy = reinterpret_cast<char*>(take(text.size() + 1));
    std::memcpy(copy, text.data(), text.size());
    copy[text.size()] = '\0';
    return copy;
  };
  KavHostValue record{};
  switch (value.kind()) {
    case Value::Kind::kNull:
      record.kind = KAV_VALUE_NULL;
      break;
    case Value::Kind::kBool:
      record.kind = KAV_VALUE_BOOL;
      record.payload.boolean = value.AsBool() ? 1 : 0;
      break;
    case Value::Kind::kSigned:
      record.kind = KAV_VALUE_SIGNED;
      record.payload.i64 = value.AsSigned();
      break;
    case Value::Kind::kUnsigned:
      record.kind = KAV_VALUE_UNSIGNED;
      record.payload.u64 = value.AsUnsigned();
      break;
    case Value::Kind::kFloat:
      record.kind = KAV_VALUE_FLOAT;
      record.payload.f64 = value.AsFloat();
      break;
    case Value::Kind::kString:
      record.kind = KAV_VALUE_STRING_OWNED;
      record.payload.ref.data = text(value.AsString());
      record.payload.ref.size = static_cast<uint32_t>(value.AsString().size());
      break;
    case Value::Kind::kBlob: {
      const Value::Blob& bytes = value.AsBlob();
      uint8_t* copy = take(bytes.size());
      if (!bytes.empty()) std::memcpy(copy, bytes.data(), bytes.size());
      record.kind = KAV_VALUE_BLOB_OWNED;
      record.payload.ref.data = copy;
      record.payload.ref.size = static_cast<uint32_t>(bytes.size());
      break;
    }
    case Value::Kind::kArray: {
      const Value::Array& elements = value.AsArray();
      auto* built = reinterpret_cast<KavHostValue*>(take(elements.size() * sizeof(KavHostValue)));
      for (size_t i = 0; i < elements.size(); ++i) built[i] = LayOut(elements[i], cursor);
      record.kind = KAV_VALUE_ARRAY;
      record.payload.ref.data = built;
      record.payload.ref.size = static_cast<uint32_t>(elements.size());
      break;
    }
    case Value::Kind::kMap: {
      const Value::Map& entries = value.AsMap();
      auto* built =
          reinterpret_cast<KavHostMapEntry*>(take(entries.size() * sizeof(KavHostMapEntry)));
      for (size_t i = 0; i < entries.size(); ++i) {
        built[i].key = text(entries[i].key);
        built[i].value = LayOut(entries[i].value, cursor);
        built[i].owns_key = 1;
      }
      record.kind = KAV_VALUE_MAP;
      record.payload.ref.data = built;
      record.payload.ref.size = static_cast<uint32_t>(entries.size());
      break;
    }
  }
  return record;
}

}  // namespace

KavHostValue RecordArena::Build(const Value& value) {
  // Sized first, then laid out in one block of this arena.
  uint8_t* cursor = Bytes(LaidOutSize(value));
  return LayOut(value, cursor);
}

const char* RecordArena::Text(std::string_view text) {
  return texts_.emplace_back(text).c_str();
}

uint8_t* RecordArena::Bytes(size_t size) {
  // One spare byte so that an empty block still has an address of its own.
  return blocks_.emplace_back(size + 1, uint8_t{0}).data();
}

}  // namespace kav::host
