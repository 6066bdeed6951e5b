#include "binding/host_value_images.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>

#include "binding/host_value_block.h"

namespace kav {
namespace {

using host_value_internal::AddBytes;
using host_value_internal::OneBlock;

constexpr size_t kRecordSize = sizeof(KavHostValue);
// Where a record keeps its pointer (kinds 5 to 10).
constexpr size_t kDataField = offsetof(KavHostValue, payload);
constexpr size_t kKeyField = offsetof(KavHostMapEntry, key);
constexpr size_t kValueField = offsetof(KavHostMapEntry, value);
constexpr size_t kOwnsKeyField = offsetof(KavHostMapEntry, owns_key);

void WritePointerBits(std::byte* field, uintptr_t bits) {
  std::memcpy(field, &bits, sizeof(bits));
}

// Appends one image to `bytes`, recording in `moves` where its pointers
// into itself lie. Positions are indices into `bytes`, which may move while
// the image grows.
class ImageWriter {
 public:
  ImageWriter(std::vector<std::byte>& bytes, std::vector<uint32_t>& moves)
      : bytes_(bytes), moves_(moves), start_(bytes.size()) {}

  // The record of `value` and everything it owns.
  void Write(const KavHostValue& value) { WriteRecord(Append(nullptr, kRecordSize), value); }
  size_t Size() const { return bytes_.size() - start_; }

 private:
  // `size` bytes copied from `data` (zeros when null) at the end.
  size_t Append(const void* data, size_t size) {
    const size_t position = bytes_.size();
    if (size > UINT32_MAX - (position - start_)) throw std::bad_alloc();
    bytes_.resize(position + size);
    if (data != nullptr && size != 0) std::memcpy(bytes_.data() + position, data, size);
    return position;
  }
  size_t AppendText(const char* text, size_t size) {
    const size_t position = Append(text, size + 1);
    bytes_[position + size] = std::byte{0};
    return position;
  }
  // The pointer at `field` points to `target`, both in this image.
  void PointAt(size_t field, size_t target) {
    WritePointerBits(bytes_.data() + field, static_cast<uintptr_t>(target - start_));
    moves_.push_back(static_cast<uint32_t>(field - start_));
  }

  void WriteRecord(size_t record, const KavHostValue& value) {
    std::memcpy(bytes_.data() + record, &value, kRecordSize);
    const void* data = value.payload.ref.data;
    const uint32_t size = value.payload.ref.size;
    switch (value.kind) {
      case KAV_VALUE_STRING_OWNED:
        if (data != nullptr) {
          PointAt(record + kDataField, AppendText(static_cast<const char*>(data), size));
        }
        return;
      case KAV_VALUE_BLOB_OWNED:
        if (data != nullptr) PointAt(record + kDataField, Append(data, size));
        return;
      case KAV_VALUE_ARRAY: {
        if (data == nullptr || size == 0) {
          WriteEmpty(record, KAV_VALUE_ARRAY);
          return;
        }
        const size_t elements = Append(nullptr, size_t{size} * kRecordSize);
        PointAt(record + kDataField, elements);
        const auto* from = static_cast<const KavHostValue*>(data);
        for (uint32_t index = 0; index < size; ++index) {
          WriteRecord(elements + index * kRecordSize, from[index]);
        }
        return;
      }
      case KAV_VALUE_MAP: {
        if (data == nullptr || size == 0) {
          WriteEmpty(record, KAV_VALUE_MAP);
          return;
        }
        const size_t entries = Append(nullptr, size_t{size} * sizeof(KavHostMapEntry));
        PointAt(record + kDataField, entries);
        const auto* from = static_cast<const KavHostMapEntry*>(data);
        for (uint32_t index = 0; index < size; ++index) {
          const KavHostMapEntry& entry = from[index];
          const size_t at = entries + index * sizeof(KavHostMapEntry);
          bytes_[at + kOwnsKeyField] = std::byte{entry.owns_key};
          if (entry.owns_key && entry.key != nullptr) {
            PointAt(at + kKeyField, AppendText(entry.key, std::strlen(entry.key)));
          } else {
            WritePointerBits(bytes_.data() + at + kKeyField,
                             reinterpret_cast<uintptr_t>(entry.key));
          }
          WriteRecord(at + kValueField, entry.value);
        }
        return;
      }
      default:
        return;  // scalars and borrowed kinds as they are
    }
  }

  // An array or map without elements: no block, as LayOutHostValue makes it.
  void WriteEmpty(size_t record, uint32_t kind) {
    KavHostValue empty{};
    empty.kind = kind;
    std::memcpy(bytes_.data() + record, &empty, kRecordSize);
  }

  std::vector<std::byte>& bytes_;
  std::vector<uint32_t>& moves_;
  size_t start_;
};

}  // namespace

void HostValueImages::Clear() noexcept {
  entries_.clear();
  bytes_.clear();
  moves_.clear();
  names_ = nullptr;
}

void HostValueImages::Reset(size_t count, const TypeRegistry* names) {
  Clear();
  entries_.resize(count);
  names_ = names;
}

void HostValueImages::Store(size_t index, const KavHostValue& value) {
  const size_t offset = bytes_.size();
  const size_t first_move = moves_.size();
  try {
    ImageWriter writer(bytes_, moves_);
    writer.Write(value);
    entries_[index] = {offset, writer.Size(), first_move, moves_.size() - first_move, true};
  } catch (...) {
    bytes_.resize(offset);
    moves_.resize(first_move);
    throw;
  }
}

void HostValueImages::LayOutArray(KavHostValue& target, std::span<const uint32_t> picks) const {
  if (picks.empty() || picks.size() > UINT32_MAX || picks.size() > SIZE_MAX / 2 / kRecordSize) {
    if (!picks.empty()) throw std::bad_alloc();
    target = KavHostValue{};
    target.kind = KAV_VALUE_ARRAY;
    return;
  }
  size_t bytes = picks.size() * kRecordSize;
  for (uint32_t pick : picks) bytes = AddBytes(bytes, entries_[pick].size - kRecordSize);
  OneBlock block(bytes);
  std::byte* records = block.Take(picks.size() * kRecordSize);
  std::byte* record = records;
  for (uint32_t pick : picks) {
    const Entry& entry = entries_[pick];
    const std::byte* image = bytes_.data() + entry.offset;
    const size_t rest_size = entry.size - kRecordSize;
    std::byte* rest = block.Take(rest_size);
    std::memcpy(record, image, kRecordSize);
    if (rest_size != 0) std::memcpy(rest, image + kRecordSize, rest_size);
    // An offset o in the image lands at rest + (o - kRecordSize).
    const uintptr_t shift = reinterpret_cast<uintptr_t>(rest) - kRecordSize;
    for (size_t index = 0; index < entry.move_count; ++index) {
      const uint32_t position = moves_[entry.first_move + index];
      std::byte* field =
          position < kRecordSize ? record + position : rest + (position - kRecordSize);
      uintptr_t bits = 0;
      std::memcpy(&bits, field, sizeof(bits));
      WritePointerBits(field, bits + shift);
    }
    record += kRecordSize;
  }
  block.HandOver();
  target = KavHostValue{};
  target.kind = KAV_VALUE_ARRAY;
  target.payload.ref.data = records;
  target.payload.ref.size = static_cast<uint32_t>(picks.size());
}

}  // namespace kav
