#include "binding/api_help.h"

#include <algorithm>
#include <string_view>

#include "binding/conversion.h"

namespace kav {
namespace {

constexpr std::string_view kLineEnd = "\r\n";

BindingFullTypeIdentifier Identifier(const TypeSpecification& type) {
  TypeIdentifierText text = TypeIdentifier(type);
  return BindingFullTypeIdentifier{std::move(text.type), std::move(text.elementType)};
}

std::string JoinTags(const std::vector<std::string>& tags) {
  std::string joined;
  for (size_t i = 0; i < tags.size(); ++i) {
    if (i > 0) joined += ',';
    joined += tags[i];
  }
  return joined;
}

void AppendTags(std::string& text, const std::vector<std::string>& tags) {
  if (tags.empty()) return;
  text += "@tags: ";
  text += JoinTags(tags);
  text += kLineEnd;
}

void AppendDescription(std::string& text, std::string_view description) {
  text += EpytextEscape(description);
  text += kLineEnd;
  text += kLineEnd;
}

// Enumerators in ascending value order (equal values in name order).
std::vector<const EnumValueDescription*> EnumeratorsByValue(const TypeDescription& type) {
  std::vector<const EnumValueDescription*> enumerators;
  enumerators.reserve(type.values.size());
  for (const auto& [name, value] : type.values) enumerators.push_back(&value);
  std::stable_sort(enumerators.begin(), enumerators.end(),
                   [](const EnumValueDescription* a, const EnumValueDescription* b) {
                     return a->value < b->value;
                   });
  return enumerators;
}

template <class T>
std::vector<const T*> SortedByName(std::span<const T* const> items) {
  std::vector<const T*> sorted(items.begin(), items.end());
  std::sort(sorted.begin(), sorted.end(), [](const T* a, const T* b) { return a->name < b->name; });
  return sorted;
}

// Converts a Full record with its registered type and appends it.
template <class Record>
void AppendRecord(BindingResult& status, BindingProperty& container, const Record& record,
                  const TypeRegistry& registry) {
  BindingResult value = ToBindingProperty(record, registry);
  if (!value.Ok()) {
    status.SetError(value.Error());
    return;
  }
  container.Append() = std::move(value);
}

}  // namespace

std::string EpytextEscape(std::string_view text) {
  text = text.substr(0, text.find('\0'));
  std::string escaped;
  escaped.reserve(text.size() + 8);
  size_t start = 0;
  if (!text.empty() && text.front() == '-') {
    escaped += "E{-}";
    start = 1;
  }
  for (size_t i = start; i < text.size(); ++i) {
    char c = text[i];
    if (c == '{') {
      escaped += "E{lb}";
    } else if (c == '}') {
      escaped += "E{rb}";
    } else {
      escaped += c;
    }
  }
  return escaped;
}

std::string EpytextTypeName(const TypeSpecification& type) {
  switch (type.kind) {
    case TypeKind::kBool:
    case TypeKind::kInt8:
    case TypeKind::kUint8:
    case TypeKind::kInt16:
    case TypeKind::kUint16:
    case TypeKind::kInt32:
    case TypeKind::kUint32:
    case TypeKind::kInt64:
    case TypeKind::kUint64:
    case TypeKind::kFloat:
    case TypeKind::kDouble:
    case TypeKind::kString:
    case TypeKind::kObject:
    case TypeKind::kCallback:
      return TypeKindName(type.kind);
    case TypeKind::kBlob:
      return "bytearray";
    case TypeKind::kVector:
    case TypeKind::kMap: {
      TypeSpecification element{type.elementKind, TypeKind::kNone, type.type};
      std::string text = type.kind == TypeKind::kVector ? "list[" : "dict[";
      text += EpytextTypeName(element);
      text += ']';
      return text;
    }
    case TypeKind::kEnum:
    case TypeKind::kStruct: {
      std::string text = "L{";
      if (type.type != nullptr) text += type.type->name;
      text += '}';
      return text;
    }
    default:
      return {};
  }
}

std::string EpytextFunction(const FunctionDescription& function) {
  std::string text;
  if (!function.description.empty()) AppendDescription(text, function.description);
  if (!function.help.empty()) AppendDescription(text, function.help);
  for (const ParameterDescription& parameter : function.parameters) {
    if (!parameter.description.empty()) {
      text += "@param ";
      text += parameter.name;
      text += ": ";
      if (parameter.optional) text += "(optional) ";
      text += EpytextEscape(parameter.description);
      text += kLineEnd;
    }
    text += "@type ";
    text += parameter.name;
    text += ": ";
    text += EpytextTypeName(parameter.type);
    text += kLineEnd;
  }
  if (function.result.kind != TypeKind::kNone) {
    text += "@rtype: ";
    text += EpytextTypeName(function.result);
    text += kLineEnd;
  }
  AppendTags(text, function.tags);
  if (function.threadSafe) {
    text += "@threadsafe: true";
    text += kLineEnd;
  }
  if (function.async) {
    text += "@async: ";
    text += EpytextTypeName(function.result);
    text += kLineEnd;
  }
  return text;
}

std::string EpytextType(const TypeDescription& type) {
  std::string text;
  if (!type.description.empty()) AppendDescription(text, type.description);
  if (!type.isEnum) {
    for (const FieldDescriptor& field : type.fields) {
      text += "@ivar ";
      text += field.name;
      text += ": ";
      text += field.description;
      text += kLineEnd;
      text += "@type ";
      text += field.name;
      text += ": ";
      text += EpytextTypeName(field.type);
      text += kLineEnd;
    }
    AppendTags(text, type.tags);
    return text;
  }
  for (const EnumValueDescription* value : EnumeratorsByValue(type)) {
    text += "@cvar ";
    text += value->name;
    text += ": (";
    text += std::to_string(value->value);
    text += ')';
    if (!value->description.empty()) {
      text += ' ';
      text += value->description;
    }
    text += kLineEnd;
  }
  AppendTags(text, type.tags);
  text += "@size: ";
  text += std::to_string(type.size);
  text += kLineEnd;
  return text;
}

std::string EpytextEvent(const EventDescription& event) {
  std::string text;
  AppendDescription(text, event.description);
  AppendTags(text, event.tags);
  return text;
}

BindingFullFunctionHelp FullFunctionHelp(const FunctionDescription& function) {
  BindingFullFunctionHelp help;
  help.name = function.name;
  help.nameSpace = function.nameSpace;
  help.arguments.reserve(function.parameters.size());
  for (const ParameterDescription& parameter : function.parameters) {
    help.arguments.push_back(BindingFullArgumentHelp{
        parameter.name, parameter.description, Identifier(parameter.type), parameter.optional});
  }
  if (function.result.kind != TypeKind::kNone) help.returns = Identifier(function.result);
  help.description = function.description;
  help.help = function.help;
  help.threadSafe = function.threadSafe;
  if (function.async && function.result.type != nullptr) help.async = function.result.type->name;
  help.tags = function.tags;
  return help;
}

BindingFullTypeHelp FullTypeHelp(const TypeDescription& type) {
  BindingFullTypeHelp help;
  help.name = type.name;
  help.nameSpace = type.nameSpace;
  help.size = type.size;
  help.description = type.description;
  help.tags = type.tags;
  help.fields.reserve(type.fields.size());
  for (const FieldDescriptor& field : type.fields) {
    help.fields.push_back(BindingFullFieldHelp{field.name, field.description, field.offset,
                                               Identifier(field.type), field.optional});
  }
  if (type.isEnum) {
    for (const EnumValueDescription* value : EnumeratorsByValue(type)) {
      help.values.push_back(
          BindingFullEnumValueHelp{value->name, value->description, value->value});
    }
  }
  return help;
}

BindingFullEventHelp FullEventHelp(const EventDescription& event) {
  BindingFullEventHelp help;
  help.name = event.name;
  help.nameSpace = event.nameSpace;
  TypeSpecification payload;
  payload.kind = event.type != nullptr && event.type->isEnum ? TypeKind::kEnum : TypeKind::kStruct;
  payload.type = event.type;
  help.type = Identifier(payload);
  help.description = event.description;
  help.tags = event.tags;
  return help;
}

void DescribeFunction(BindingResult& status, BindingProperty& container,
                      const FunctionDescription& function, BindingHelpFormat format,
                      const TypeRegistry& registry) {
  if (format == BindingHelpFormat::kFull) {
    AppendRecord(status, container, FullFunctionHelp(function), registry);
  } else if (format == BindingHelpFormat::kEpytext) {
    container.Member(function.name).SetString(EpytextFunction(function));
  }
}

void DescribeType(BindingResult& status, BindingProperty& container, const TypeDescription& type,
                  BindingHelpFormat format, const TypeRegistry& registry) {
  if (format == BindingHelpFormat::kFull) {
    AppendRecord(status, container, FullTypeHelp(type), registry);
  } else if (format == BindingHelpFormat::kEpytext) {
    container.Member(type.name).SetString(EpytextType(type));
  }
}

void DescribeEvent(BindingResult& status, BindingProperty& container, const EventDescription& event,
                   BindingHelpFormat format, const TypeRegistry& registry) {
  if (format == BindingHelpFormat::kFull) {
    AppendRecord(status, container, FullEventHelp(event), registry);
  } else if (format == BindingHelpFormat::kEpytext) {
    container.Member(event.name).SetString(EpytextEvent(event));
  }
}

BindingResult DescribeApi(const TypeRegistry& registry,
                          std::span<const FunctionDescription* const> functions,
                          std::span<const TypeDescription* const> types,
                          std::span<const EventDescription* const> events,
                          BindingHelpFormat format) {
  BindingResult result;
  result.MakeStructure();
  // Members are created up front so that a list without items stays empty.
  result.Member("functions");
  result.Member("types");
  result.Member("events");
  for (const FunctionDescription* function : SortedByName(functions)) {
    if (!result.Ok()) return result;
    DescribeFunction(result, result.Member("functions"), *function, format, registry);
  }
  for (const TypeDescription* type : SortedByName(types)) {
    if (!result.Ok()) return result;
    DescribeType(result, result.Member("types"), *type, format, registry);
  }
  for (const EventDescription* event : SortedByName(events)) {
    if (!result.Ok()) return result;
    DescribeEvent(result, result.Member("events"), *event, format, registry);
  }
  return result;
}

BindingResult DescribeApi(const TypeRegistry& registry, BindingHelpFormat format) {
  std::vector<const FunctionDescription*> functions = registry.Functions();
  std::vector<const TypeDescription*> types = registry.Types();
  std::vector<const EventDescription*> events = registry.Events();
  return DescribeApi(registry, functions, types, events, format);
}

}  // namespace kav
