#include "binding/host_value.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <new>
#include <span>

#include "binding/conversion_rules.h"
#include "binding/host_value_block.h"
#include "binding/type_registry.h"
#include "diagnostics/format.h"
#include "platform/allocation.h"

namespace kav {
namespace {

using host_value_internal::AddBytes;
using host_value_internal::OneBlock;

void SetNull(KavHostValue& value) {
  std::memset(&value, 0, sizeof(value));
  value.kind = KAV_VALUE_NULL;
}

void SetReference(KavHostValue& value, uint32_t kind, const void* data, size_t size) {
  value.kind = kind;
  value.payload.ref.data = data;
  value.payload.ref.size = static_cast<uint32_t>(size);
}

// `size` bytes from `arena`, or a heap block without one.
void* AllocateOwned(size_t size, HostValueArena* arena) {
  return arena != nullptr ? arena->Allocate(size) : PluginAllocate(size);
}

// Copy of `size` bytes followed by a zero byte.
char* CopyText(const char* text, size_t size, HostValueArena* arena) {
  auto* copy = static_cast<char*>(AllocateOwned(size + 1, arena));
  if (size != 0) std::memcpy(copy, text, size);
  copy[size] = '\0';
  return copy;
}

// Throws std::bad_alloc when `count` records of `Record` cannot be one
// block: the count field is 32 bits wide, and in a 32-bit process the
// block's size must not wrap.
template <class Record>
void CheckRecordCount(size_t count) {
  if (count > UINT32_MAX || count > SIZE_MAX / sizeof(Record)) throw std::bad_alloc();
}

// `target` as an array or map (`kind`) of `count` all-zero records; no block
// when count is 0. One clear makes the whole block releasable before any
// record is built.
template <class Record>
Record* SetZeroedRecords(KavHostValue& target, uint32_t kind, size_t count, HostValueArena* arena) {
  if (count == 0) {
    SetReference(target, kind, nullptr, 0);
    return nullptr;
  }
  CheckRecordCount<Record>(count);
  auto* records = static_cast<Record*>(AllocateOwned(count * sizeof(Record), arena));
  std::memset(static_cast<void*>(records), 0, count * sizeof(Record));
  SetReference(target, kind, records, count);
  return records;
}

// `target` as kind 6 with an owned copy of `text`.
void SetOwnedText(KavHostValue& target, std::string_view text, HostValueArena* arena) {
  SetReference(target, KAV_VALUE_STRING_OWNED, CopyText(text.data(), text.size(), arena),
               text.size());
}

std::string_view UpToFirstNul(std::string_view text) {
  const void* nul = std::memchr(text.data(), '\0', text.size());
  return nul == nullptr ? text : text.substr(0, static_cast<const char*>(nul) - text.data());
}

// Whether `data`, the records of an array or map, are the outermost records
// of a one-block value (see host_value.h): only the address is looked at.
bool IsOneBlock(const void* data) {
  return reinterpret_cast<uintptr_t>(data) % kPluginBlockAlignment == kOneBlockOffset;
}

// Frees every block that `value` owns, depth first, leaving the record
// itself as it is: the records inside an array or map die with the block
// that holds them, so only the outermost one needs resetting. A one-block
// value goes with its one block, unread. The plugin releases only values
// that it built, which nest at most kHostValueMaxDepth deep, so the
// recursion is bounded.
void FreeOwnedBlocks(const KavHostValue& value) noexcept {
  void* data = const_cast<void*>(value.payload.ref.data);
  const uint32_t size = value.payload.ref.size;
  switch (value.kind) {
    case KAV_VALUE_STRING_OWNED:
    case KAV_VALUE_BLOB_OWNED:
      PluginFree(data);
      return;
    case KAV_VALUE_ARRAY: {
      if (data == nullptr) return;
      if (IsOneBlock(data)) {
        PluginFree(static_cast<std::byte*>(data) - kOneBlockOffset);
        return;
      }
      const auto* elements = static_cast<const KavHostValue*>(data);
      for (uint32_t index = 0; index < size; ++index) FreeOwnedBlocks(elements[index]);
      PluginFree(data);
      return;
    }
    case KAV_VALUE_MAP: {
      if (data == nullptr) return;
      if (IsOneBlock(data)) {
        PluginFree(static_cast<std::byte*>(data) - kOneBlockOffset);
        return;
      }
      const auto* entries = static_cast<const KavHostMapEntry*>(data);
      for (uint32_t index = 0; index < size; ++index) {
        const KavHostMapEntry& entry = entries[index];
        if (entry.owns_key) PluginFree(const_cast<char*>(entry.key));
        FreeOwnedBlocks(entry.value);
      }
      PluginFree(data);
      return;
    }
    default:
      return;
  }
}

// ---- One block from a host value built elsewhere ----

// The bytes that `value`'s owned texts, bytes, arrays and entries take in
// one block.
size_t LaidOutBytes(const KavHostValue& value) {
  const uint32_t size = value.payload.ref.size;
  const void* data = value.payload.ref.data;
  switch (value.kind) {
    case KAV_VALUE_STRING_OWNED:
      return data != nullptr ? size_t{size} + 1 : 0;
    case KAV_VALUE_BLOB_OWNED:
      return data != nullptr ? size_t{size} : 0;
    case KAV_VALUE_ARRAY: {
      if (data == nullptr || size == 0) return 0;
      CheckRecordCount<KavHostValue>(size);
      size_t total = size_t{size} * sizeof(KavHostValue);
      const auto* elements = static_cast<const KavHostValue*>(data);
      for (uint32_t index = 0; index < size; ++index) {
        total = AddBytes(total, LaidOutBytes(elements[index]));
      }
      return total;
    }
    case KAV_VALUE_MAP: {
      if (data == nullptr || size == 0) return 0;
      CheckRecordCount<KavHostMapEntry>(size);
      size_t total = size_t{size} * sizeof(KavHostMapEntry);
      const auto* entries = static_cast<const KavHostMapEntry*>(data);
      for (uint32_t index = 0; index < size; ++index) {
        const KavHostMapEntry& entry = entries[index];
        if (entry.owns_key && entry.key != nullptr) {
          total = AddBytes(total, std::strlen(entry.key) + 1);
        }
        total = AddBytes(total, LaidOutBytes(entry.value));
      }
      return total;
    }
    default:
      return 0;
  }
}

// Copies `source` into `target` (all zero), its owned parts taken from
// `block`.
void LayOut(KavHostValue& target, const KavHostValue& source, OneBlock& block) {
  const uint32_t size = source.payload.ref.size;
  const void* data = source.payload.ref.data;
  switch (source.kind) {
    case KAV_VALUE_STRING_OWNED:
      target = source;
      if (data != nullptr)
        target.payload.ref.data = block.TakeText(static_cast<const char*>(data), size);
      return;
    case KAV_VALUE_BLOB_OWNED:
      target = source;
      if (data != nullptr) {
        std::byte* copy = block.Take(size);
        if (size != 0) std::memcpy(copy, data, size);
        target.payload.ref.data = copy;
      }
      return;
    case KAV_VALUE_ARRAY: {
      if (data == nullptr || size == 0) {
        SetReference(target, KAV_VALUE_ARRAY, nullptr, 0);
        return;
      }
      auto* elements = block.TakeRecords<KavHostValue>(size);
      SetReference(target, KAV_VALUE_ARRAY, elements, size);
      const auto* from = static_cast<const KavHostValue*>(data);
      for (uint32_t index = 0; index < size; ++index) LayOut(elements[index], from[index], block);
      return;
    }
    case KAV_VALUE_MAP: {
      if (data == nullptr || size == 0) {
        SetReference(target, KAV_VALUE_MAP, nullptr, 0);
        return;
      }
      auto* entries = block.TakeRecords<KavHostMapEntry>(size);
      SetReference(target, KAV_VALUE_MAP, entries, size);
      const auto* from = static_cast<const KavHostMapEntry*>(data);
      for (uint32_t index = 0; index < size; ++index) {
        KavHostMapEntry& entry = entries[index];
        entry.owns_key = from[index].owns_key;
        entry.key = from[index].owns_key && from[index].key != nullptr
                        ? block.TakeText(from[index].key, std::strlen(from[index].key))
                        : from[index].key;
        LayOut(entry.value, from[index].value, block);
      }
      return;
    }
    default:
      target = source;
      return;
  }
}

// Memory copied elsewhere: pointers into [from, from + size) move by
// `shift` bytes.
struct MovedRange {
  uintptr_t from;
  size_t size;
  uintptr_t shift;  // modulo 2^N
};

// `pointer` moved with the range that holds it; null when none does.
const void* Moved(const void* pointer, std::span<const MovedRange> ranges) {
  const auto address = reinterpret_cast<uintptr_t>(pointer);
  for (const MovedRange& range : ranges) {
    if (address - range.from < range.size) {
      return reinterpret_cast<const void*>(address + range.shift);
    }
  }
  return nullptr;
}

// Moves every pointer of `value`'s tree that points into one of `ranges`;
// the others (borrowed texts and keys) stay. An array or map outside them
// is not walked.
void MovePointers(KavHostValue& value, std::span<const MovedRange> ranges) {
  const void* moved = Moved(value.payload.ref.data, ranges);
  if (moved == nullptr) return;
  switch (value.kind) {
    case KAV_VALUE_STRING_OWNED:
    case KAV_VALUE_BLOB_OWNED:
      value.payload.ref.data = moved;
      return;
    case KAV_VALUE_ARRAY: {
      value.payload.ref.data = moved;
      auto* elements = const_cast<KavHostValue*>(static_cast<const KavHostValue*>(moved));
      for (uint32_t index = 0; index < value.payload.ref.size; ++index) {
        MovePointers(elements[index], ranges);
      }
      return;
    }
    case KAV_VALUE_MAP: {
      value.payload.ref.data = moved;
      auto* entries = const_cast<KavHostMapEntry*>(static_cast<const KavHostMapEntry*>(moved));
      for (uint32_t index = 0; index < value.payload.ref.size; ++index) {
        KavHostMapEntry& entry = entries[index];
        if (const void* key = Moved(entry.key, ranges)) entry.key = static_cast<const char*>(key);
        MovePointers(entry.value, ranges);
      }
      return;
    }
    default:
      return;
  }
}

bool IsLaidOutInOneBlock(const KavHostValue& value) {
  return (value.kind == KAV_VALUE_ARRAY || value.kind == KAV_VALUE_MAP) &&
         value.payload.ref.data != nullptr && value.payload.ref.size != 0;
}

}  // namespace

HostValueArena::~HostValueArena() {
  for (size_t index = 1; index < region_count_; ++index) PluginFree(regions_[index].start);
}

void* HostValueArena::AllocateChunk(size_t size) {
  // Chunks double, so that a large value costs few of them.
  constexpr size_t kFirstChunk = 4096;
  if (region_count_ == kMaxRegions) throw std::bad_alloc();
  const size_t chunk_size = std::max({next_chunk_size_, kFirstChunk, size});
  auto* chunk = static_cast<std::byte*>(PluginAllocate(chunk_size));
  Region& current = regions_[region_count_ - 1];
  current.used = static_cast<size_t>(cursor_ - current.start);
  regions_[region_count_++] = {chunk, 0};
  next_chunk_size_ = chunk_size <= SIZE_MAX / 2 ? chunk_size * 2 : chunk_size;
  cursor_ = chunk + size;
  end_ = chunk + chunk_size;
  return chunk;
}

void SetHostString(KavHostValue& target, std::string_view text, HostValueArena* arena) {
  SetOwnedText(target, UpToFirstNul(text), arena);
}

void SetHostBlob(KavHostValue& target, std::span<const uint8_t> bytes, HostValueArena* arena) {
  void* copy = nullptr;
  if (!bytes.empty()) {
    copy = AllocateOwned(bytes.size(), arena);
    std::memcpy(copy, bytes.data(), bytes.size());
  }
  SetReference(target, KAV_VALUE_BLOB_OWNED, copy, bytes.size());
}

void SetHostEnum(KavHostValue& target, int32_t value, const StaticTypeIdentity& type,
                 const TypeRegistry* registry, HostValueArena* arena) {
  const char* name = registry != nullptr ? registry->EnumValueName(type, value) : nullptr;
  if (name == nullptr) {
    target.kind = KAV_VALUE_SIGNED;
    target.payload.i64 = value;
    return;
  }
  SetOwnedText(target, name, arena);
}

KavHostValue* SetHostArray(KavHostValue& target, size_t count, HostValueArena* arena) {
  // All-zero records are null values.
  return SetZeroedRecords<KavHostValue>(target, KAV_VALUE_ARRAY, count, arena);
}

KavHostMapEntry* SetHostMap(KavHostValue& target, size_t count, HostValueArena* arena) {
  // All-zero entries have no key, do not own one and hold null values.
  return SetZeroedRecords<KavHostMapEntry>(target, KAV_VALUE_MAP, count, arena);
}

void SetHostKey(KavHostMapEntry& entry, std::string_view name, HostValueArena* arena) {
  entry.key = CopyText(name.data(), name.size(), arena);
  entry.owns_key = 1;
}

void TrimHostMap(KavHostValue& target, size_t count, HostValueArena* arena) noexcept {
  if (count == 0) {
    if (arena == nullptr) PluginFree(const_cast<void*>(target.payload.ref.data));
    SetReference(target, KAV_VALUE_MAP, nullptr, 0);
    return;
  }
  target.payload.ref.size = static_cast<uint32_t>(count);
}

namespace {

// BuildHostValue of a source whose containers lie below `depth` others.
void BuildHostValueAt(KavHostValue& target, const BindingProperty& source,
                      const TypeRegistry* registry, size_t depth, HostValueArena* arena) {
  switch (source.Kind()) {
    case BindingKind::kEmpty:
      return;
    case BindingKind::kBool:
      target.kind = KAV_VALUE_BOOL;
      target.payload.boolean = source.AsBool() ? 1 : 0;
      return;
    case BindingKind::kSigned:
      target.kind = KAV_VALUE_SIGNED;
      target.payload.i64 = source.AsSigned();
      return;
    case BindingKind::kUnsigned:
      target.kind = KAV_VALUE_UNSIGNED;
      target.payload.u64 = source.AsUnsigned();
      return;
    case BindingKind::kFloat:
      target.kind = KAV_VALUE_FLOAT;
      target.payload.f64 = source.AsFloat();
      return;
    case BindingKind::kString:
      SetOwnedText(target, source.AsString(), arena);
      return;
    case BindingKind::kBlob:
      SetHostBlob(target, source.AsBlob(), arena);
      return;
    case BindingKind::kEnum: {
      const BindingEnum value = source.AsEnum();
      if (value.type == nullptr) {
        target.kind = KAV_VALUE_SIGNED;
        target.payload.i64 = value.value;
        return;
      }
      SetHostEnum(target, value.value, *value.type, registry, arena);
      return;
    }
    case BindingKind::kCollection: {
      if (depth >= kHostValueMaxDepth) throw HostValueTooDeep();
      const size_t count = source.Size();
      KavHostValue* elements = SetHostArray(target, count, arena);
      for (size_t index = 0; index < count; ++index) {
        BuildHostValueAt(elements[index], source.At(index), registry, depth + 1, arena);
      }
      return;
    }
    case BindingKind::kStructure: {
      if (depth >= kHostValueMaxDepth) throw HostValueTooDeep();
      KavHostMapEntry* entries = SetHostMap(target, source.Size(), arena);
      for (auto [name, member] : source.Members()) {
        KavHostMapEntry& entry = *entries++;
        SetHostKey(entry, name, arena);
        BuildHostValueAt(entry.value, member, registry, depth + 1, arena);
      }
      return;
    }
  }
}

// The bytes that BuildHostValueAt takes for `source`'s texts, bytes, arrays
// and entries.
size_t BuiltBytes(const BindingProperty& source, const TypeRegistry* registry, size_t depth) {
  switch (source.Kind()) {
    case BindingKind::kString:
      return AddBytes(source.AsString().size(), 1);
    case BindingKind::kBlob:
      return source.AsBlob().size();
    case BindingKind::kEnum: {
      const BindingEnum value = source.AsEnum();
      if (value.type == nullptr || registry == nullptr) return 0;
      const char* name = registry->EnumValueName(*value.type, value.value);
      return name != nullptr ? std::strlen(name) + 1 : 0;
    }
    case BindingKind::kCollection: {
      if (depth >= kHostValueMaxDepth) throw HostValueTooDeep();
      const size_t count = source.Size();
      CheckRecordCount<KavHostValue>(count);
      size_t total = count * sizeof(KavHostValue);
      for (size_t index = 0; index < count; ++index) {
        total = AddBytes(total, BuiltBytes(source.At(index), registry, depth + 1));
      }
      return total;
    }
    case BindingKind::kStructure: {
      if (depth >= kHostValueMaxDepth) throw HostValueTooDeep();
      CheckRecordCount<KavHostMapEntry>(source.Size());
      size_t total = source.Size() * sizeof(KavHostMapEntry);
      for (auto [name, member] : source.Members()) {
        total = AddBytes(total, AddBytes(name.size() + 1, BuiltBytes(member, registry, depth + 1)));
      }
      return total;
    }
    default:
      return 0;
  }
}

}  // namespace

void BuildHostValue(KavHostValue& target, const BindingProperty& source,
                    const TypeRegistry* registry, HostValueArena* arena) {
  BuildHostValueAt(target, source, registry, 0, arena);
}

void LayOutHostValue(KavHostValue& target, const KavHostValue& source) {
  if (!IsLaidOutInOneBlock(source)) {
    // At most one block, as it would be built.
    std::memset(&target, 0, sizeof(target));
    if (source.kind == KAV_VALUE_STRING_OWNED && source.payload.ref.data != nullptr) {
      SetOwnedText(target,
                   std::string_view(static_cast<const char*>(source.payload.ref.data),
                                    source.payload.ref.size),
                   nullptr);
    } else if (source.kind == KAV_VALUE_BLOB_OWNED) {
      SetHostBlob(target, std::span<const uint8_t>(
                              static_cast<const uint8_t*>(source.payload.ref.data),
                              source.payload.ref.data != nullptr ? source.payload.ref.size : 0));
    } else {
      target = source;
    }
    return;
  }
  OneBlock block(LaidOutBytes(source));
  KavHostValue laid_out{};
  LayOut(laid_out, source, block);
  block.HandOver();
  target = laid_out;
}

const char* HostValueKindName(uint32_t kind) {
  switch (kind) {
    case KAV_VALUE_BOOL:
      return "bool";
    case KAV_VALUE_SIGNED:
      return "signed";
    case KAV_VALUE_UNSIGNED:
      return "unsigned";
    case KAV_VALUE_FLOAT:
      return "float";
    case KAV_VALUE_STRING_BORROWED:
    case KAV_VALUE_STRING_OWNED:
      return "string";
    case KAV_VALUE_BLOB_BORROWED:
    case KAV_VALUE_BLOB_OWNED:
      return "blob";
    case KAV_VALUE_ARRAY:
      return "collection";
    case KAV_VALUE_MAP:
      return "structure";
    default:
      return "";
  }
}

namespace {

// FromHostValue of a source whose arrays and maps lie below `depth` others.
bool FromHostValueAt(BindingResult& status, BindingProperty& target, const KavHostValue& source,
                     std::string_view path, size_t depth);

// Checks what an array or map at `depth` declares before any element is
// read; false, with the failure reported, when it cannot be read.
bool CheckContainer(BindingResult& status, const void* data, uint32_t count, std::string_view path,
                    size_t depth) {
  if (depth >= kHostValueMaxDepth) {
    status.SetError(FormatMessage(
        "Couldn't assign value to '%1' because the input nests more than %2 levels deep.",
        {path, kHostValueMaxDepth}));
    return false;
  }
  if (count > kHostValueMaxElements) {
    status.SetError(FormatMessage(
        "Couldn't assign value to '%1' because the input holds %2 elements, more than %3.",
        {path, count, kHostValueMaxElements}));
    return false;
  }
  if (count != 0 && data == nullptr) {
    status.SetError(
        FormatMessage("Couldn't assign value to '%1' because the input's %2 elements are missing.",
                      {path, count}));
    return false;
  }
  return true;
}

bool FromHostValueAt(BindingResult& status, BindingProperty& target, const KavHostValue& source,
                     std::string_view path, size_t depth) {
  target.Clear();
  const uint32_t kind = source.kind;
  const void* data = source.payload.ref.data;
  const uint32_t size = source.payload.ref.size;
  switch (kind) {
    case KAV_VALUE_NULL:
      return status.Ok();
    case KAV_VALUE_BOOL:
      target.SetBool(source.payload.boolean != 0);
      return status.Ok();
    case KAV_VALUE_SIGNED:
      target.SetSigned(source.payload.i64);
      return status.Ok();
    case KAV_VALUE_UNSIGNED:
      target.SetUnsigned(source.payload.u64);
      return status.Ok();
    case KAV_VALUE_FLOAT:
      target.SetFloat(source.payload.f64);
      return status.Ok();
    case KAV_VALUE_STRING_BORROWED:
    case KAV_VALUE_STRING_OWNED:
      // The text runs to its zero byte; the length field is not trusted.
      target.SetString(static_cast<const char*>(data));
      return status.Ok();
    case KAV_VALUE_BLOB_BORROWED:
    case KAV_VALUE_BLOB_OWNED:
      target.SetBlob(
          std::span<const uint8_t>(static_cast<const uint8_t*>(data), data != nullptr ? size : 0));
      return status.Ok();
    case KAV_VALUE_ARRAY: {
      if (!CheckContainer(status, data, size, path, depth)) return false;
      const auto* elements = static_cast<const KavHostValue*>(data);
      target.MakeCollection();
      // The count is the host's word; room beyond the limit is made as the
      // elements arrive.
      target.Reserve(std::min(size, kHostValueReserveLimit));
      for (uint32_t index = 0; index < size; ++index) {
        if (!FromHostValueAt(status, target.At(index), elements[index], path, depth + 1)) {
          return false;
        }
      }
      return status.Ok();
    }
    case KAV_VALUE_MAP: {
      if (!CheckContainer(status, data, size, path, depth)) return false;
      const auto* entries = static_cast<const KavHostMapEntry*>(data);
      target.MakeStructure();
      for (uint32_t index = 0; index < size; ++index) {
        const KavHostMapEntry& entry = entries[index];
        const char* key = entry.key != nullptr ? entry.key : "";
        if (!FromHostValueAt(status, target.Member(key), entry.value, path, depth + 1)) {
          return false;
        }
      }
      return status.Ok();
    }
    default:
      status.SetError(FormatMessage(
          "Couldn't assign value to '%1' of type object because the input is of an incompatible "
          "type '%2'.",
          {path, HostValueKindName(kind)}));
      return false;
  }
}

}  // namespace

bool FromHostValue(BindingResult& status, BindingProperty& target, const KavHostValue& source,
                   std::string_view path) {
  ConvertWithoutThrowing(status, path, [&] { FromHostValueAt(status, target, source, path, 0); });
  return status.Ok();
}

void LayOutHostValue(KavHostValue& target, const KavHostValue& source,
                     const HostValueArena& arena) {
  std::array<MovedRange, HostValueArena::kMaxRegions> ranges;
  size_t count = 0;
  size_t bytes = 0;
  arena.ForEachUsedRegion([&](std::span<const std::byte> used) {
    if (used.empty()) return;
    ranges[count++] = {reinterpret_cast<uintptr_t>(used.data()), used.size(), 0};
    bytes = AddBytes(bytes, used.size());
  });
  if (!IsLaidOutInOneBlock(source) || count == 0 ||
      reinterpret_cast<uintptr_t>(source.payload.ref.data) != ranges[0].from) {
    LayOutHostValue(target, source);
    return;
  }
  // One copy per region and one walk that moves the pointers, instead of a
  // copy per record; the outermost records come first, at kOneBlockOffset
  // (eligibility_bench CachedSelfEligibility/50/50, and 400/400 whose answer
  // outgrows the stack memory).
  OneBlock block(bytes);
  for (size_t index = 0; index < count; ++index) {
    MovedRange& range = ranges[index];
    std::byte* copy = block.Take(range.size);
    std::memcpy(copy, reinterpret_cast<const void*>(range.from), range.size);
    range.shift = reinterpret_cast<uintptr_t>(copy) - range.from;
  }
  KavHostValue laid_out = source;
  MovePointers(laid_out, std::span<const MovedRange>(ranges.data(), count));
  block.HandOver();
  target = laid_out;
}

bool ToHostValue(KavHostValue& target, const BindingProperty& source,
                 const TypeRegistry* registry) {
  SetNull(target);
  const BindingKind kind = source.Kind();
  try {
    if ((kind != BindingKind::kCollection && kind != BindingKind::kStructure) ||
        source.Size() == 0) {
      BuildHostValue(target, source, registry);  // one block at most
      return true;
    }
    // Sized first, then built in place: the arena over the block is exactly
    // as large as the tree, so it never takes a chunk of its own.
    const size_t bytes = BuiltBytes(source, registry, 0);
    OneBlock block(bytes);
    HostValueArena arena(std::span<std::byte>(block.Take(bytes), bytes));
    KavHostValue built{};
    BuildHostValue(built, source, registry, &arena);
    if (arena.Grew()) throw std::bad_alloc();  // sized wrong: not handed over
    block.HandOver();
    target = built;
  } catch (const std::bad_alloc&) {
    ReleaseHostValue(target);
    return false;
  }
  return true;
}

void ReleaseHostValue(KavHostValue& value) noexcept {
  FreeOwnedBlocks(value);
  SetNull(value);
}

}  // namespace kav
