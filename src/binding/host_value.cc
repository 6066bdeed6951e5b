#include "binding/host_value.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>
#include <span>

#include "binding/conversion_rules.h"
#include "binding/type_registry.h"
#include "diagnostics/format.h"
#include "platform/allocation.h"

namespace kav {
namespace {

void SetNull(KavHostValue& value) {
  std::memset(&value, 0, sizeof(value));
  value.kind = KAV_VALUE_NULL;
}

void SetReference(KavHostValue& value, uint32_t kind, const void* data, size_t size) {
  value.kind = kind;
  value.payload.ref.data = data;
  value.payload.ref.size = static_cast<uint32_t>(size);
}

// Heap copy of `size` bytes followed by a zero byte.
char* CopyText(const char* text, size_t size) {
  auto* copy = static_cast<char*>(PluginAllocate(size + 1));
  if (size != 0) std::memcpy(copy, text, size);
  copy[size] = '\0';
  return copy;
}

// `target` as an array or map (`kind`) of `count` all-zero records; no block
// when count is 0. One clear makes the whole block releasable before any
// record is built.
template <class Record>
Record* SetZeroedRecords(KavHostValue& target, uint32_t kind, size_t count) {
  if (count == 0) {
    SetReference(target, kind, nullptr, 0);
    return nullptr;
  }
  // The count field is 32 bits wide, and in a 32-bit process the block's
  // size must not wrap.
  if (count > UINT32_MAX || count > SIZE_MAX / sizeof(Record)) throw std::bad_alloc();
  auto* records = static_cast<Record*>(PluginAllocate(count * sizeof(Record)));
  std::memset(static_cast<void*>(records), 0, count * sizeof(Record));
  SetReference(target, kind, records, count);
  return records;
}

// `target` as kind 6 with an owned copy of `text`.
void SetOwnedText(KavHostValue& target, std::string_view text) {
  SetReference(target, KAV_VALUE_STRING_OWNED, CopyText(text.data(), text.size()), text.size());
}

std::string_view UpToFirstNul(std::string_view text) {
  const void* nul = std::memchr(text.data(), '\0', text.size());
  return nul == nullptr ? text : text.substr(0, static_cast<const char*>(nul) - text.data());
}

// Frees every block that `value` owns, depth first, leaving the record
// itself as it is: the records inside an array or map die with the block
// that holds them, so only the outermost one needs resetting. The plugin
// releases only values that it built, which nest at most kHostValueMaxDepth
// deep, so the recursion is bounded.
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
      const auto* elements = static_cast<const KavHostValue*>(data);
      for (uint32_t index = 0; index < size; ++index) FreeOwnedBlocks(elements[index]);
      PluginFree(data);
      return;
    }
    case KAV_VALUE_MAP: {
      if (data == nullptr) return;
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

}  // namespace

void SetHostString(KavHostValue& target, std::string_view text) {
  SetOwnedText(target, UpToFirstNul(text));
}

void SetHostBlob(KavHostValue& target, std::span<const uint8_t> bytes) {
  void* copy = nullptr;
  if (!bytes.empty()) {
    copy = PluginAllocate(bytes.size());
    std::memcpy(copy, bytes.data(), bytes.size());
  }
  SetReference(target, KAV_VALUE_BLOB_OWNED, copy, bytes.size());
}

void SetHostEnum(KavHostValue& target, int32_t value, const StaticTypeIdentity& type,
                 const TypeRegistry* registry) {
  const char* name = registry != nullptr ? registry->EnumValueName(type, value) : nullptr;
  if (name == nullptr) {
    target.kind = KAV_VALUE_SIGNED;
    target.payload.i64 = value;
    return;
  }
  SetOwnedText(target, name);
}

KavHostValue* SetHostArray(KavHostValue& target, size_t count) {
  // All-zero records are null values.
  return SetZeroedRecords<KavHostValue>(target, KAV_VALUE_ARRAY, count);
}

KavHostMapEntry* SetHostMap(KavHostValue& target, size_t count) {
  // All-zero entries have no key, do not own one and hold null values.
  return SetZeroedRecords<KavHostMapEntry>(target, KAV_VALUE_MAP, count);
}

void SetHostKey(KavHostMapEntry& entry, std::string_view name) {
  entry.key = CopyText(name.data(), name.size());
  entry.owns_key = 1;
}

void TrimHostMap(KavHostValue& target, size_t count) noexcept {
  if (count == 0) {
    PluginFree(const_cast<void*>(target.payload.ref.data));
    SetReference(target, KAV_VALUE_MAP, nullptr, 0);
    return;
  }
  target.payload.ref.size = static_cast<uint32_t>(count);
}

namespace {

// BuildHostValue of a source whose containers lie below `depth` others.
void BuildHostValueAt(KavHostValue& target, const BindingProperty& source,
                      const TypeRegistry* registry, size_t depth) {
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
      SetOwnedText(target, source.AsString());
      return;
    case BindingKind::kBlob:
      SetHostBlob(target, source.AsBlob());
      return;
    case BindingKind::kEnum: {
      const BindingEnum value = source.AsEnum();
      if (value.type == nullptr) {
        target.kind = KAV_VALUE_SIGNED;
        target.payload.i64 = value.value;
        return;
      }
      SetHostEnum(target, value.value, *value.type, registry);
      return;
    }
    case BindingKind::kCollection: {
      if (depth >= kHostValueMaxDepth) throw HostValueTooDeep();
      const size_t count = source.Size();
      KavHostValue* elements = SetHostArray(target, count);
      for (size_t index = 0; index < count; ++index) {
        BuildHostValueAt(elements[index], source.At(index), registry, depth + 1);
      }
      return;
    }
    case BindingKind::kStructure: {
      if (depth >= kHostValueMaxDepth) throw HostValueTooDeep();
      KavHostMapEntry* entries = SetHostMap(target, source.Size());
      for (auto [name, member] : source.Members()) {
        KavHostMapEntry& entry = *entries++;
        SetHostKey(entry, name);
        BuildHostValueAt(entry.value, member, registry, depth + 1);
      }
      return;
    }
  }
}

}  // namespace

void BuildHostValue(KavHostValue& target, const BindingProperty& source,
                    const TypeRegistry* registry) {
  BuildHostValueAt(target, source, registry, 0);
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

bool ToHostValue(KavHostValue& target, const BindingProperty& source,
                 const TypeRegistry* registry) {
  SetNull(target);
  try {
    BuildHostValue(target, source, registry);
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
