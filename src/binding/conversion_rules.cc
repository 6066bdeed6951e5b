#include "binding/conversion_rules.h"

#include <cmath>
#include <cstring>
#include <limits>

#include "binding/text_conversion.h"
#include "diagnostics/format.h"

namespace kav {
namespace {

// 2^63 and 2^64 as doubles: the first values past the 64-bit ranges.
constexpr double kTwoTo63 = 9223372036854775808.0;
constexpr double kTwoTo64 = 18446744073709551616.0;

const char* InputKindName(const BindingProperty& source) {
  return KindName(static_cast<uint32_t>(source.Kind()));
}

void ReportRequired(BindingResult& status, std::string_view path) {
  status.SetError(FormatMessage("A value for '%1' is required.", {path}));
}

void ReportInvalidType(BindingResult& status, std::string_view path, std::string_view type_name,
                       const BindingProperty& source) {
  status.SetError(FormatMessage(
      "Couldn't assign value to '%1' of type %2 because the input is of an invalid type %3.",
      {path, type_name, InputKindName(source)}));
}

void ReportOutOfRange(BindingResult& status, const FormatArgument& value, std::string_view path,
                      std::string_view type_name) {
  FormatArgument arguments[] = {value, path, type_name};
  status.SetError(FormatMessage("Value %1 for '%2' of type %3 is out of range", arguments));
}

void ReportInvalidEnumValue(BindingResult& status, const FormatArgument& value,
                            const TypeDescription* type, std::string_view path) {
  FormatArgument arguments[] = {value, type != nullptr ? std::string_view(type->name) : "", path};
  status.SetError(FormatMessage("%1 is not a valid %2 enumeration value for '%3'.", arguments));
}

// Whether `bound` converts to a 64-bit signed integer without overflow.
bool FitsSigned64(double bound) {
  return bound >= -kTwoTo63 && bound < kTwoTo63;
}

bool ValidEnumerator(const TypeDescription* type, int32_t value) {
  return TypeRegistry::IsEnumValue(type, value);
}

int32_t Low32(uint64_t value) {
  return static_cast<int32_t>(static_cast<uint32_t>(value));
}

}  // namespace

void ReportNotCollection(BindingResult& status, std::string_view path) {
  status.SetError(FormatMessage(
      "Couldn't assign value to '%1' of type vector because the input not a collection.", {path}));
}

void ReportNotStructureForMap(BindingResult& status, std::string_view path) {
  status.SetError(FormatMessage(
      "Couldn't assign value to '%1' of type map because the input not a structure.", {path}));
}

void ReportNotInMemory(BindingResult& status, std::string_view path) {
  status.SetError(FormatMessage(
      "Couldn't assign value to '%1' because the input does not fit in memory.", {path}));
}

void BoolFromProperty(BindingResult& status, bool& out, const BindingProperty& source,
                      std::string_view path) {
  out = false;
  if (!status.Ok()) return;
  switch (source.Kind()) {
    case BindingKind::kBool:
      out = source.AsBool();
      return;
    case BindingKind::kString: {
      std::string_view text = source.AsString();
      if (text == "true" || text == "1") {
        out = true;
      } else if (text != "false" && text != "0") {
        status.SetError(FormatMessage(
            "Value %1 for '%2' of type bool is in an incorrect format. Options are \"true\", "
            "\"false\", \"1\", \"0\".",
            {text, path}));
      }
      return;
    }
    case BindingKind::kEmpty:
      ReportRequired(status, path);
      return;
    default:
      status.SetError(FormatMessage(
          "Couldn't assign value to '%1' of type bool because the input is of an invalid type %2.",
          {path, InputKindName(source)}));
      return;
  }
}

void SignedFromProperty(BindingResult& status, int64_t& out, const BindingProperty& source,
                        std::string_view path, std::string_view type_name, int64_t min,
                        int64_t max) {
  out = 0;
  if (!status.Ok()) return;
  switch (source.Kind()) {
    case BindingKind::kSigned:
    case BindingKind::kEnum: {
      int64_t value =
          source.Kind() == BindingKind::kSigned ? source.AsSigned() : source.AsEnum().value;
      if (value < min || value > max) return ReportOutOfRange(status, value, path, type_name);
      out = value;
      return;
    }
    case BindingKind::kUnsigned: {
      uint64_t value = source.AsUnsigned();
      if (value > static_cast<uint64_t>(max)) {
        return ReportOutOfRange(status, value, path, type_name);
      }
      out = static_cast<int64_t>(value);
      return;
    }
    case BindingKind::kFloat: {
      // NaN and 2^63 (which int64's maximum rounds up to) are out of range.
      double value = source.AsFloat();
      if (!(value >= static_cast<double>(min) && value <= static_cast<double>(max)) ||
          value >= kTwoTo63) {
        return ReportOutOfRange(status, value, path, type_name);
      }
      out = static_cast<int64_t>(value);
      return;
    }
    case BindingKind::kString:
      (void)ParseSignedText(status, source.AsString(), path, type_name, min, max, out);
      return;
    case BindingKind::kEmpty:
      return ReportRequired(status, path);
    default:
      return ReportInvalidType(status, path, type_name, source);
  }
}

void UnsignedFromProperty(BindingResult& status, uint64_t& out, const BindingProperty& source,
                          std::string_view path, std::string_view type_name, uint64_t max) {
  out = 0;
  if (!status.Ok()) return;
  switch (source.Kind()) {
    case BindingKind::kSigned:
    case BindingKind::kEnum: {
      int64_t value =
          source.Kind() == BindingKind::kSigned ? source.AsSigned() : source.AsEnum().value;
      if (value < 0 || static_cast<uint64_t>(value) > max) {
        return ReportOutOfRange(status, value, path, type_name);
      }
      out = static_cast<uint64_t>(value);
      return;
    }
    case BindingKind::kUnsigned: {
      uint64_t value = source.AsUnsigned();
      if (value > max) return ReportOutOfRange(status, value, path, type_name);
      out = value;
      return;
    }
    case BindingKind::kFloat: {
      // NaN and 2^64 (which uint64's maximum rounds up to) are out of range.
      double value = source.AsFloat();
      if (value < 0 || !(value <= static_cast<double>(max)) || value >= kTwoTo64) {
        return ReportOutOfRange(status, value, path, type_name);
      }
      out = static_cast<uint64_t>(value);
      return;
    }
    case BindingKind::kString:
      (void)ParseUnsignedText(status, source.AsString(), path, type_name, max, out);
      return;
    case BindingKind::kEmpty:
      return ReportRequired(status, path);
    default:
      return ReportInvalidType(status, path, type_name, source);
  }
}

void FloatingFromProperty(BindingResult& status, double& out, const BindingProperty& source,
                          std::string_view path, std::string_view type_name, double min,
                          double max) {
  out = 0.0;
  if (!status.Ok()) return;
  switch (source.Kind()) {
    case BindingKind::kFloat: {
      double value = source.AsFloat();
      if (!(min <= value && value <= max)) return ReportOutOfRange(status, value, path, type_name);
      out = value;
      return;
    }
    case BindingKind::kSigned:
    case BindingKind::kEnum: {
      int64_t value =
          source.Kind() == BindingKind::kSigned ? source.AsSigned() : source.AsEnum().value;
      // A bound outside the 64-bit range cannot be passed by any input.
      if ((FitsSigned64(min) && value < static_cast<int64_t>(min)) ||
          (FitsSigned64(max) && value > static_cast<int64_t>(max))) {
        return ReportOutOfRange(status, value, path, type_name);
      }
      out = static_cast<double>(value);
      return;
    }
    case BindingKind::kUnsigned: {
      uint64_t value = source.AsUnsigned();
      if (max >= 0 && max < kTwoTo64 && value > static_cast<uint64_t>(max)) {
        return ReportOutOfRange(status, value, path, type_name);
      }
      out = static_cast<double>(value);
      return;
    }
    case BindingKind::kString:
      (void)ParseFloatText(status, source.AsString(), path, type_name, min, max, out);
      return;
    case BindingKind::kEmpty:
      return ReportRequired(status, path);
    default:
      return ReportInvalidType(status, path, type_name, source);
  }
}

void StringFromProperty(BindingResult& status, std::string& out, const BindingProperty& source,
                        std::string_view path, const TypeRegistry& registry) {
  out.clear();
  if (!status.Ok()) return;
  switch (source.Kind()) {
    case BindingKind::kString:
      out.assign(source.AsString());
      return;
    case BindingKind::kEnum: {
      BindingEnum value = source.AsEnum();
      const char* name =
          value.type != nullptr ? registry.EnumValueName(*value.type, value.value) : nullptr;
      if (name == nullptr) {
        status.SetError(
            FormatMessage("%1 is not a valid enumeration value for '%2'.", {value.value, path}));
        return;
      }
      out.assign(name);
      return;
    }
    case BindingKind::kEmpty:
      return ReportRequired(status, path);
    default:
      status.SetError(FormatMessage(
          "Couldn't assign value to '%1' because the input is not a string.", {path}));
      return;
  }
}

void EnumFromProperty(BindingResult& status, int32_t& out, const BindingProperty& source,
                      std::string_view path, const TypeDescription* type) {
  out = 0;
  if (!status.Ok()) return;
  switch (source.Kind()) {
    case BindingKind::kSigned:
    case BindingKind::kUnsigned:
    case BindingKind::kEnum: {
      int32_t value = source.Kind() == BindingKind::kEnum     ? source.AsEnum().value
                      : source.Kind() == BindingKind::kSigned ? Low32(source.AsSigned())
                                                              : Low32(source.AsUnsigned());
      if (!ValidEnumerator(type, value)) return ReportInvalidEnumValue(status, value, type, path);
      out = value;
      return;
    }
    case BindingKind::kString: {
      std::string_view text = source.AsString();
      if (type != nullptr) {
        if (auto found = type->values.find(text); found != type->values.end()) {
          out = found->second.value;
          return;
        }
      }
      // A number in text form; the parse's own message is not reported.
      BindingResult parse_status;
      int64_t parsed = 0;
      if (ParseSignedText(parse_status, text, path, "int64", std::numeric_limits<int64_t>::min(),
                          std::numeric_limits<int64_t>::max(), parsed) &&
          ValidEnumerator(type, Low32(parsed))) {
        out = Low32(parsed);
        return;
      }
      return ReportInvalidEnumValue(status, text, type, path);
    }
    case BindingKind::kEmpty:
      return ReportRequired(status, path);
    default:
      status.SetError(FormatMessage(
          "Couldn't assign value to '%1' of enum type because the input is of an invalid type %2.",
          {path, InputKindName(source)}));
      return;
  }
}

void ObjectFromProperty(const BindingResult& status, BindingProperty& out,
                        const BindingProperty& source) {
  if (!status.Ok()) {
    out.Clear();
    return;
  }
  out = source;
}

void BlobFromProperty(BindingResult& status, std::vector<std::byte>& out,
                      const BindingProperty& source, std::string_view path) {
  out.clear();
  if (!status.Ok()) return;
  switch (source.Kind()) {
    case BindingKind::kBlob: {
      std::span<const uint8_t> bytes = source.AsBlob();
      out.resize(bytes.size());
      if (!bytes.empty()) std::memcpy(out.data(), bytes.data(), bytes.size());
      return;
    }
    case BindingKind::kEmpty:
      return ReportRequired(status, path);
    default:
      return ReportInvalidType(status, path, "blob", source);
  }
}

void StructureFromProperty(BindingResult& status, void* native, const BindingProperty& source,
                           std::string_view path, const TypeDescription* type,
                           const TypeRegistry& registry) {
  if (!status.Ok()) return;
  if (type == nullptr) {
    status.SetError(FormatMessage(
        "Couldn't assign value to '%1' because the input is an unregistered structure or not a "
        "structure at all.",
        {path}));
    return;
  }
  if (source.IsEmpty()) return ReportRequired(status, path);
  if (source.Kind() != BindingKind::kStructure) {
    status.SetError(
        FormatMessage("Couldn't assign value to '%1' of type %2 because the input not a structure.",
                      {path, type->name}));
    return;
  }
  auto* base = static_cast<std::byte*>(native);
  for (const FieldDescriptor& field : type->fields) {
    if (!status.Ok()) return;
    const BindingProperty& member = source.Find(field.name);
    if (member.IsEmpty()) {
      if (field.flags & kRequired) {
        status.SetError(FormatMessage(
            "Couldn't assign value to '%1' of type %2 because the input structure doesn't have "
            "required field '%3'.",
            {path, type->name, field.name}));
        return;
      }
      continue;
    }
    field.converter->FromProperty(status, base + field.offset, member, field.name, field.type.type,
                                  registry);
  }
}

// Builds the value of an OmitIfDefault field aside, so that a default one
// leaves no member behind. True when the value is to be kept; false when it
// is a default or failed (the failure then lowers `status`).
bool BuildOmittableField(BindingResult& status, BindingResult& value, const FieldDescriptor& field,
                         const void* address, const TypeRegistry& registry) {
  field.converter->ToProperty(value, value, address, field.type.type, registry);
  if (!value.Ok()) {
    status.SetError(value.Error());
    return false;
  }
  return !IsDefaultValue(value);
}

void StructureToProperty(BindingResult& status, BindingProperty& target, const void* native,
                         const TypeDescription* type, const TypeRegistry& registry) {
  if (type == nullptr) {
    status.SetError("Couldn't convert native value because it's an unregistered structure.");
    return;
  }
  target.Clear();
  target.MakeStructure();
  const auto* base = static_cast<const std::byte*>(native);
  for (const FieldDescriptor& field : type->fields) {
    const void* address = base + field.offset;
    if (field.flags & kOmitIfDefault) {
      BindingResult value;
      if (BuildOmittableField(status, value, field, address, registry)) {
        target.Member(field.name) = std::move(value);
      }
      if (!status.Ok()) return;
      continue;
    }
    field.converter->ToProperty(status, target.Member(field.name), address, field.type.type,
                                registry);
    if (!status.Ok()) return;  // `target` may be gone
  }
}

void StructureToHostValue(BindingResult& status, KavHostValue& target, const void* native,
                          const TypeDescription* type, const TypeRegistry& registry,
                          const TypeRegistry* names, HostValueArena* arena) {
  if (type == nullptr || type->fieldsByName.size() != type->fields.size()) {
    ToHostValueThroughProperty(
        status, target,
        [&](BindingResult& value) { StructureToProperty(value, value, native, type, registry); },
        names, arena);
    return;
  }
  const auto* base = static_cast<const std::byte*>(native);
  KavHostMapEntry* entries = SetHostMap(target, type->fields.size(), arena);
  size_t count = 0;
  for (const TypeDescription::MemberField& member : type->fieldsByName) {
    const FieldDescriptor& field = type->fields[member.field];
    const std::string_view name(field.name.data(), member.nameLength);
    const void* address = base + field.offset;
    if (field.flags & kOmitIfDefault) {
      // Whether the value counts as default is decided on its generic form.
      BindingResult value;
      if (BuildOmittableField(status, value, field, address, registry)) {
        KavHostMapEntry& entry = entries[count++];
        SetHostKey(entry, name, arena);
        BuildHostValue(entry.value, value, names, arena);
      }
      if (!status.Ok()) return;
      continue;
    }
    KavHostMapEntry& entry = entries[count++];
    SetHostKey(entry, name, arena);
    field.converter->ToHostValue(status, entry.value, address, field.type.type, registry, names,
                                 arena);
    if (!status.Ok()) return;
  }
  if (count < type->fields.size()) TrimHostMap(target, count, arena);
}

bool IsDefaultValue(const BindingProperty& value) {
  switch (value.Kind()) {
    case BindingKind::kEmpty:
      return true;
    case BindingKind::kBool:
      return !value.AsBool();
    case BindingKind::kSigned:
      return value.AsSigned() == 0;
    case BindingKind::kUnsigned:
      return value.AsUnsigned() == 0;
    case BindingKind::kFloat:
      return value.AsFloat() == 0.0;  // NaN is not a default
    case BindingKind::kEnum:
      return value.AsEnum().value == 0;
    case BindingKind::kString:
    case BindingKind::kBlob:
    case BindingKind::kCollection:
    case BindingKind::kStructure:
      return value.Size() == 0;
  }
  return true;
}

}  // namespace kav
