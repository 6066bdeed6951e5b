#include "serialization/msgpack.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <new>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "diagnostics/format.h"

namespace kav {
namespace {

// What a first byte announces. Extension types share kInvalid with 0xC1:
// they are rejected the same way.
enum class ByteClass : uint8_t {
  kPositiveFixint,
  kNegativeFixint,
  kFixmap,
  kFixarray,
  kFixstr,
  kNil,
  kInvalid,
  kFalse,
  kTrue,
  kBin8,
  kBin16,
  kBin32,
  kFloat32,
  kFloat64,
  kUint8,
  kUint16,
  kUint32,
  kUint64,
  kInt8,
  kInt16,
  kInt32,
  kInt64,
  kStr8,
  kStr16,
  kStr32,
  kArray16,
  kArray32,
  kMap16,
  kMap32,
};

constexpr std::array<ByteClass, 256> MakeByteClassTable() {
  std::array<ByteClass, 256> table{};
  for (int b = 0x00; b <= 0x7F; ++b) table[b] = ByteClass::kPositiveFixint;
  for (int b = 0x80; b <= 0x8F; ++b) table[b] = ByteClass::kFixmap;
  for (int b = 0x90; b <= 0x9F; ++b) table[b] = ByteClass::kFixarray;
  for (int b = 0xA0; b <= 0xBF; ++b) table[b] = ByteClass::kFixstr;
  for (int b = 0xE0; b <= 0xFF; ++b) table[b] = ByteClass::kNegativeFixint;
  table[0xC0] = ByteClass::kNil;
  table[0xC1] = ByteClass::kInvalid;
  table[0xC2] = ByteClass::kFalse;
  table[0xC3] = ByteClass::kTrue;
  table[0xC4] = ByteClass::kBin8;
  table[0xC5] = ByteClass::kBin16;
  table[0xC6] = ByteClass::kBin32;
  table[0xC7] = ByteClass::kInvalid;  // ext 8
  table[0xC8] = ByteClass::kInvalid;  // ext 16
  table[0xC9] = ByteClass::kInvalid;  // ext 32
  table[0xCA] = ByteClass::kFloat32;
  table[0xCB] = ByteClass::kFloat64;
  table[0xCC] = ByteClass::kUint8;
  table[0xCD] = ByteClass::kUint16;
  table[0xCE] = ByteClass::kUint32;
  table[0xCF] = ByteClass::kUint64;
  table[0xD0] = ByteClass::kInt8;
  table[0xD1] = ByteClass::kInt16;
  table[0xD2] = ByteClass::kInt32;
  table[0xD3] = ByteClass::kInt64;
  for (int b = 0xD4; b <= 0xD8; ++b) table[b] = ByteClass::kInvalid;  // fixext
  table[0xD9] = ByteClass::kStr8;
  table[0xDA] = ByteClass::kStr16;
  table[0xDB] = ByteClass::kStr32;
  table[0xDC] = ByteClass::kArray16;
  table[0xDD] = ByteClass::kArray32;
  table[0xDE] = ByteClass::kMap16;
  table[0xDF] = ByteClass::kMap32;
  return table;
}

constexpr std::array<ByteClass, 256> kByteClass = MakeByteClassTable();

// The unsigned number of sizeof(T) bytes at `at`, most significant first.
template <typename T>
T LoadBigEndian(const uint8_t* at) {
  static_assert(std::endian::native == std::endian::little, "a little-endian target");
  T value;
  std::memcpy(&value, at, sizeof value);
  if constexpr (sizeof value == 2) return __builtin_bswap16(value);
  if constexpr (sizeof value == 4) return __builtin_bswap32(value);
  if constexpr (sizeof value == 8) return __builtin_bswap64(value);
}

constexpr std::string_view kInvalidData = "Invalid MessagePack data at position %1.";
constexpr std::string_view kKeyNotString =
    "Invalid MessagePack data at position %1. Map keys must be strings.";
constexpr std::string_view kBlobTruncated =
    "Invalid MessagePack data. Raw bytes of size %1 at position %2 are truncated.";
constexpr std::string_view kStringTruncated =
    "Invalid MessagePack data. String of size %1 at position %2 is truncated.";
constexpr std::string_view kInteger8Truncated =
    "Invalid MessagePack data. 8-bit integer value at position %1 is truncated.";
constexpr std::string_view kInteger16Truncated =
    "Invalid MessagePack data. 16-bit integer value at position %1 is truncated.";
constexpr std::string_view kInteger32Truncated =
    "Invalid MessagePack data. 32-bit integer value at position %1 is truncated.";
constexpr std::string_view kInteger64Truncated =
    "Invalid MessagePack data. 64-bit integer value at position %1 is truncated.";
constexpr std::string_view kTooDeep =
    "Invalid MessagePack data at position %1. Nesting exceeds %2 levels.";
constexpr std::string_view kTooManyElements =
    "Invalid MessagePack data at position %1. Collection exceeds %2 elements.";
constexpr std::string_view kOutOfMemory = "MessagePack data at position %1 does not fit in memory.";

// An open container: the items still to come (a map counts keys and values
// separately), the items started so far, the elements reserved for it that
// are not filled yet, and the key of the entry being read. `expected` is
// 64-bit so that twice a map 32 count cannot wrap.
struct Frame {
  BindingProperty* target;
  uint64_t expected;
  uint64_t index;
  uint32_t reserved;
  bool is_map;
  std::string_view pending_key;
};

// One decoding pass. Frames exist only for open containers; a scalar is
// stored straight into the element or member it belongs to.
class MessagePackReader {
 public:
  MessagePackReader(const uint8_t* bytes, uint32_t count) : bytes_(bytes), count_(count) {
    frames_.reserve(16);
  }

  // Growing the value may throw (out of memory, or a collection beyond the
  // value layer's bound); that ends decoding with an error, never thrown on.
  BindingResult Read(uint32_t& consumed) {
    {
      // The builder closes what is still open (the input may end inside
      // containers) and is gone before a failure clears the tree.
      StructureBuilder structures;
      structures_ = &structures;
      try {
        Decode();
      } catch (const std::bad_alloc&) {
        Fail(FormatMessage(kOutOfMemory, {position_}));
      } catch (const std::length_error&) {
        Fail(FormatMessage(kTooManyElements, {position_, kMessagePackMaxElements}));
      }
      frames_.clear();  // frames point into the tree that SetError may release
      structures_ = nullptr;
    }
    if (failed_) result_.SetError(error_);
    consumed = position_;
    return std::move(result_);
  }

 private:
  void Decode() {
    BindingProperty* target = &result_;
    while (!failed_ && position_ < count_) {
      if (target == nullptr) {
        while (!frames_.empty() && frames_.back().index == frames_.back().expected) CloseFrame();
        if (frames_.empty()) break;
        Frame& top = frames_.back();
        if (!top.is_map) {
          if (top.index >= kMessagePackMaxElements) {
            Fail(FormatMessage(kTooManyElements, {position_, kMessagePackMaxElements}));
            break;
          }
          if (top.index < top.reserved) --unfilled_reserved_;
          target = &top.target->At(static_cast<size_t>(top.index++));
        } else {
          // A key, then straight on to its value when there are bytes left
          // for one (msgpack_bench ReadMessagePackBench).
          top.index += 2;
          ReadKey(top.pending_key);
          if (failed_ || position_ == count_) break;
          target = &structures_->Member(top.pending_key);
        }
      }
      ReadValue(*target);
      target = nullptr;
    }
  }

  uint32_t Remaining() const { return count_ - position_; }

  // Records the first failure; decoding stops at the next step.
  [[gnu::cold, gnu::noinline]] void Fail(std::string message) {
    if (failed_) return;
    failed_ = true;
    error_ = std::move(message);
  }

  [[gnu::cold, gnu::noinline]] void FailTruncated(uint32_t width) {
    std::string_view format = width == 1   ? kInteger8Truncated
                              : width == 2 ? kInteger16Truncated
                              : width == 4 ? kInteger32Truncated
                                           : kInteger64Truncated;
    Fail(FormatMessage(format, {position_}));
  }

  // Reads a big-endian unsigned number of `width` bytes (1, 2, 4 or 8).
  bool ReadFixed(uint32_t width, uint64_t& out) {
    if (Remaining() < width) {
      FailTruncated(width);
      return false;
    }
    const uint8_t* at = bytes_ + position_;
    position_ += width;
    switch (width) {
      case 1:
        out = at[0];
        break;
      case 2:
        out = LoadBigEndian<uint16_t>(at);
        break;
      case 4:
        out = LoadBigEndian<uint32_t>(at);
        break;
      default:
        out = LoadBigEndian<uint64_t>(at);
        break;
    }
    return true;
  }

  bool ReadLength(uint32_t width, uint32_t& out) {
    uint64_t value = 0;
    if (!ReadFixed(width, value)) return false;
    out = static_cast<uint32_t>(value);
    return true;
  }

  // Takes `length` bytes; on shortage fails with the string or raw-bytes
  // message.
  bool ReadBytes(uint32_t length, bool is_string, const uint8_t*& out) {
    if (Remaining() < length) {
      Fail(FormatMessage(is_string ? kStringTruncated : kBlobTruncated, {length, position_}));
      return false;
    }
    out = bytes_ + position_;
    position_ += length;
    return true;
  }

  bool ReadString(uint32_t length, std::string_view& out) {
    const uint8_t* data = nullptr;
    if (!ReadBytes(length, true, data)) return false;
    out = std::string_view(reinterpret_cast<const char*>(data), length);
    return true;
  }

  // The length of a str 8/16/32 or bin 8/16/32 whose first byte was `cls`.
  static uint32_t LengthWidth(ByteClass cls) {
    switch (cls) {
      case ByteClass::kStr8:
      case ByteClass::kBin8:
        return 1;
      case ByteClass::kStr16:
      case ByteClass::kBin16:
        return 2;
      default:
        return 4;
    }
  }

  void ReadKey(std::string_view& key) {
    uint8_t first = bytes_[position_++];
    ByteClass cls = kByteClass[first];
    uint32_t length = 0;
    if (cls == ByteClass::kFixstr) {
      length = first & 0x1Fu;
    } else if (cls == ByteClass::kStr8 || cls == ByteClass::kStr16 || cls == ByteClass::kStr32) {
      if (!ReadLength(LengthWidth(cls), length)) return;
    } else {
      Fail(FormatMessage(kKeyNotString, {position_}));
      return;
    }
    ReadString(length, key);
  }

  // Makes `target` an open container of `count` elements or entries.
  void OpenContainer(BindingProperty& target, bool is_map, uint32_t count) {
    if (frames_.size() >= kMessagePackMaxDepth) {
      Fail(FormatMessage(kTooDeep, {position_, kMessagePackMaxDepth}));
      return;
    }
    uint32_t reserved = 0;
    if (is_map) {
      target.MakeStructure();
      // Members are collected and put in name order once, when the map is
      // complete, instead of one tree insertion each (msgpack_bench
      // ReadMessagePackBench).
      structures_->Open(target);
    } else {
      const bool fresh = target.Kind() != BindingKind::kCollection || target.Size() == 0;
      target.MakeCollection();
      // A fresh collection gets room for its declared elements at once
      // (msgpack_bench ReadMessagePackBench), but only for as many as the
      // bytes left can still fill, less those promised to the collections
      // already open: each element takes at least one byte, so what is
      // reserved never exceeds what the input could fill.
      const uint32_t fillable =
          Remaining() > unfilled_reserved_ ? Remaining() - unfilled_reserved_ : 0;
      if (fresh && count > 1 && fillable > 1) {
        reserved = std::min({count, fillable, kMessagePackMaxElements});
        target.Reserve(reserved);
        unfilled_reserved_ += reserved;
      }
    }
    frames_.push_back(
        Frame{&target, is_map ? uint64_t{count} * 2 : count, 0, reserved, is_map, {}});
  }

  void CloseFrame() {
    const Frame& frame = frames_.back();
    if (frame.is_map) {
      structures_->Close();
    } else if (frame.index < frame.reserved) {
      unfilled_reserved_ -= frame.reserved - static_cast<uint32_t>(frame.index);
    }
    frames_.pop_back();
  }

  void ReadValue(BindingProperty& target) {
    uint8_t first = bytes_[position_++];
    uint64_t raw = 0;
    uint32_t length = 0;
    switch (kByteClass[first]) {
      case ByteClass::kPositiveFixint:
        target.SetSigned(first);
        return;
      case ByteClass::kNegativeFixint:
        target.SetSigned(static_cast<int8_t>(first));
        return;
      case ByteClass::kNil:
        target.Clear();
        return;
      case ByteClass::kFalse:
        target.SetBool(false);
        return;
      case ByteClass::kTrue:
        target.SetBool(true);
        return;
      case ByteClass::kInvalid:
        Fail(FormatMessage(kInvalidData, {position_}));
        return;
      case ByteClass::kFloat32:
        if (ReadFixed(4, raw)) {
          uint32_t bits = static_cast<uint32_t>(raw);
          float value;
          std::memcpy(&value, &bits, sizeof value);
          target.SetFloat(value);
        }
        return;
      case ByteClass::kFloat64:
        if (ReadFixed(8, raw)) {
          double value;
          std::memcpy(&value, &raw, sizeof value);
          target.SetFloat(value);
        }
        return;
      case ByteClass::kUint8:
        if (ReadFixed(1, raw)) target.SetUnsigned(raw);
        return;
      case ByteClass::kUint16:
        if (ReadFixed(2, raw)) target.SetUnsigned(raw);
        return;
      case ByteClass::kUint32:
        if (ReadFixed(4, raw)) target.SetUnsigned(raw);
        return;
      case ByteClass::kUint64:
        if (ReadFixed(8, raw)) target.SetUnsigned(raw);
        return;
      case ByteClass::kInt8:
        if (ReadFixed(1, raw)) target.SetSigned(static_cast<int8_t>(raw));
        return;
      case ByteClass::kInt16:
        if (ReadFixed(2, raw)) target.SetSigned(static_cast<int16_t>(raw));
        return;
      case ByteClass::kInt32:
        if (ReadFixed(4, raw)) target.SetSigned(static_cast<int32_t>(raw));
        return;
      case ByteClass::kInt64:
        if (ReadFixed(8, raw)) target.SetSigned(static_cast<int64_t>(raw));
        return;
      case ByteClass::kFixstr:
        length = first & 0x1Fu;
        break;
      case ByteClass::kStr8:
      case ByteClass::kStr16:
      case ByteClass::kStr32:
        if (!ReadLength(LengthWidth(kByteClass[first]), length)) return;
        break;
      case ByteClass::kBin8:
      case ByteClass::kBin16:
      case ByteClass::kBin32: {
        const uint8_t* data = nullptr;
        if (ReadLength(LengthWidth(kByteClass[first]), length) && ReadBytes(length, false, data)) {
          target.SetBlob(std::span<const uint8_t>(data, length));
        }
        return;
      }
      case ByteClass::kFixarray:
        OpenContainer(target, false, first & 0x0Fu);
        return;
      case ByteClass::kArray16:
        if (ReadLength(2, length)) OpenContainer(target, false, length);
        return;
      case ByteClass::kArray32:
        if (ReadLength(4, length)) OpenContainer(target, false, length);
        return;
      case ByteClass::kFixmap:
        OpenContainer(target, true, first & 0x0Fu);
        return;
      case ByteClass::kMap16:
        if (ReadLength(2, length)) OpenContainer(target, true, length);
        return;
      case ByteClass::kMap32:
        if (ReadLength(4, length)) OpenContainer(target, true, length);
        return;
    }
    // Strings: the length is known, the bytes follow.
    std::string_view text;
    if (ReadString(length, text)) target.SetString(text);
  }

  const uint8_t* bytes_;
  uint32_t count_;
  uint32_t position_ = 0;
  BindingResult result_;
  bool failed_ = false;
  std::string error_;  // the first failure, stored once the tree is no longer filled
  std::vector<Frame> frames_;
  StructureBuilder* structures_ = nullptr;  // fills the open maps of frames_
  // Elements reserved in the open collections and not filled yet. Never
  // more than the bytes left when it was last raised, so the elements ever
  // allocated stay under twice the input's length.
  uint32_t unfilled_reserved_ = 0;
};

bool OpensMessagePackContainer(uint8_t first) {
  return (first >= 0x80 && first <= 0x9F) || (first >= 0xDC && first <= 0xDF);
}

}  // namespace

BindingResult ReadMessagePack(const uint8_t* bytes, uint32_t count, uint32_t& consumed) {
  return MessagePackReader(bytes, count).Read(consumed);
}

bool LooksLikeMessagePack(const uint8_t* bytes, size_t length) {
  return length != 0 && OpensMessagePackContainer(bytes[0]);
}

bool LooksLikeMessagePack(const char* bytes, size_t length) {
  return LooksLikeMessagePack(reinterpret_cast<const uint8_t*>(bytes), length);
}

}  // namespace kav
