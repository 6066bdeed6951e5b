// The reference host's values: Value, an owned copy of what a KavHostValue
// describes, and RecordArena, which builds KavHostValue records (and the
// other C records the host hands to a plugin) from Values and owns their
// storage.
//
// The host never shares code with the plugin: these are its own readers and
// writers of the records of kav/plugin_host.h.
//
// Thread-compatible value types: an instance is used by one thread at a time.
#ifndef KAV_HOST_HOST_VALUE_H_
#define KAV_HOST_HOST_VALUE_H_

#include <cstdint>
#include <deque>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "kav/plugin_host.h"

namespace kav::host {

struct MapEntry;

// A value of the host's format, owning all of its parts. Borrowed and owned
// records read alike: a Value only knows strings, blobs, arrays and maps.
class Value {
 public:
  enum class Kind : uint8_t {
    kNull,
    kBool,
    kSigned,
    kUnsigned,
    kFloat,
    kString,
    kBlob,
    kArray,
    kMap,
  };
  using Blob = std::vector<uint8_t>;
  using Array = std::vector<Value>;
  using Map = std::vector<MapEntry>;  // in the order given; keys may repeat

  Value() = default;
  static Value Bool(bool value);
  static Value Signed(int64_t value);
  static Value Unsigned(uint64_t value);
  static Value Float(double value);
  static Value String(std::string text);
  static Value MakeBlob(Blob bytes);
  static Value MakeArray(Array elements);
  static Value MakeMap(Map entries);

  // A deep copy of a record (and of everything it points to).
  static Value FromRecord(const KavHostValue& record);
  // JSON text as a Value: objects become maps (in document order), integers
  // that fit int64 become signed, larger ones unsigned, other numbers float.
  // Null on a parse error, which `error` then describes.
  static std::optional<Value> FromJson(std::string_view text, std::string* error = nullptr);

  Kind kind() const { return static_cast<Kind>(data_.index()); }
  bool IsNull() const { return kind() == Kind::kNull; }

  // REQUIRES: the kind named.
  bool AsBool() const { return std::get<bool>(data_); }
  int64_t AsSigned() const { return std::get<int64_t>(data_); }
  uint64_t AsUnsigned() const { return std::get<uint64_t>(data_); }
  double AsFloat() const { return std::get<double>(data_); }
  const std::string& AsString() const { return std::get<std::string>(data_); }
  const Blob& AsBlob() const { return std::get<Blob>(data_); }
  const Array& AsArray() const { return std::get<Array>(data_); }
  const Map& AsMap() const { return std::get<Map>(data_); }

  // The value of the first map entry with `key`; null for other kinds or
  // when there is none.
  const Value* Find(std::string_view key) const;

  // Compact JSON; blobs are written as arrays of byte values.
  std::string ToJson() const;

  bool operator==(const Value& other) const;

 private:
  std::variant<std::monostate, bool, int64_t, uint64_t, double, std::string, Blob, Array, Map>
      data_;
};

struct MapEntry {
  std::string key;
  Value value;

  bool operator==(const MapEntry& other) const = default;
};

// Owner of C records built for a plugin. Every pointer handed out stays valid
// until the arena is destroyed; nothing is ever moved.
class RecordArena {
 public:
  RecordArena() = default;
  RecordArena(const RecordArena&) = delete;
  RecordArena& operator=(const RecordArena&) = delete;

  // The record of `value`, with the owned kinds (6, 8, 9 and 10) for texts,
  // blobs, arrays and maps, whose parts this arena owns: all of them in one
  // block, sized first.
  KavHostValue Build(const Value& value);
  // A stable zero-terminated copy of `text`.
  const char* Text(std::string_view text);
  // A stable array of `count` value-initialised records of type T, one of
  // the packed (byte-aligned) records of kav/plugin_host.h.
  template <class T>
  T* Records(size_t count) {
    static_assert(alignof(T) == 1, "packed boundary records only");
    T* records = reinterpret_cast<T*>(Bytes(count * sizeof(T)));
    for (size_t i = 0; i < count; ++i) new (records + i) T{};
    return records;
  }

 private:
  uint8_t* Bytes(size_t size);

  std::deque<std::string> texts_;
  std::deque<std::vector<uint8_t>> blocks_;
};

}  // namespace kav::host

#endif  // KAV_HOST_HOST_VALUE_H_
