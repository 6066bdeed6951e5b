#include "host/openapi.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <set>
#include <utility>
#include <vector>

#include "kav/plugin_host.h"

namespace kav::host {
namespace {

constexpr std::string_view kBodyContentTypes[] = {"application/json", "application/x-yaml",
                                                  "application/x-msgpack"};

Value Text(std::string_view text) {
  return Value::String(std::string(text));
}

Value Object(Value::Map members) {
  return Value::MakeMap(std::move(members));
}

Value Integer(int64_t minimum, uint64_t maximum, const char* format) {
  Value::Map schema = {{"type", Text("integer")}};
  if (format != nullptr) schema.push_back({"format", Text(format)});
  schema.push_back({"minimum", Value::Signed(minimum)});
  schema.push_back({"maximum", Value::Unsigned(maximum)});
  return Object(std::move(schema));
}

bool IsStructured(uint32_t kind) {
  switch (static_cast<ApiKind>(kind)) {
    case ApiKind::kObject:
    case ApiKind::kVector:
    case ApiKind::kStruct:
    case ApiKind::kMap:
      return true;
    default:
      return false;
  }
}

class DocumentBuilder {
 public:
  explicit DocumentBuilder(const ApiDescription& description) : description_(description) {
    for (const ApiType& type : description.types()) {
      std::string name = OpenApiSchemaName(type.name);
      // Distinct registered names that read alike get a number.
      for (int n = 2; used_names_.count(name) != 0 || name == "Error"; ++n) {
        name = OpenApiSchemaName(type.name) + "_" + std::to_string(n);
      }
      used_names_.insert(name);
      schema_names_.emplace(type.name, std::move(name));
    }
  }

  Value Build(const OpenApiInfo& info) {
    Value::Map paths_map;
    std::map<std::string, size_t> path_index;
    for (const ApiResource& resource : description_.resources()) {
      std::vector<uint32_t> methods;
      if (resource.method == 0) {
        methods = {KAV_METHOD_GET, KAV_METHOD_PUT, KAV_METHOD_POST, KAV_METHOD_DELETE,
                   KAV_METHOD_PATCH};
      } else if (*OpenApiMethod(resource.method) != '\0') {
        methods = {resource.method};
      }
      if (methods.empty()) continue;  // custom methods have no place in the document
      const std::string path =
          OpenApiPath(resource.path_template.empty() ? resource.name : resource.path_template);
      auto [found, added] = path_index.emplace(path, paths_map.size());
      if (added) paths_map.push_back({path, Object({})});
      for (uint32_t method : methods) {
        Value::Map item = paths_map[found->second].value.AsMap();
        item.push_back(
            {OpenApiMethod(method), Operation(resource, path, methods.size() > 1 ? method : 0)});
        paths_map[found->second].value = Object(std::move(item));
      }
    }

    Value::Map webhooks;
    for (const ApiEvent& event : description_.events()) {
      webhooks.push_back({event.name, Object({{"post", EventOperation(event)}})});
    }

    Value::Map schemas;
    for (const ApiType& type : description_.types()) {
      schemas.push_back({schema_names_.at(type.name), TypeSchema(type)});
    }
    schemas.push_back({"Error", ErrorSchema()});

    Value::Array tags;
    for (const std::string& tag : tag_order_) tags.push_back(Object({{"name", Text(tag)}}));

    Value::Map info_map = {{"title", Text(info.title)}, {"version", Text(info.version)}};
    if (!info.description.empty()) info_map.push_back({"description", Text(info.description)});
    return Object({
        {"openapi", Text("3.1.0")},
        {"info", Object(std::move(info_map))},
        {"servers", Value::MakeArray({Object({{"url", Text("/")}})})},
        {"tags", Value::MakeArray(std::move(tags))},
        {"paths", Object(std::move(paths_map))},
        {"webhooks", Object(std::move(webhooks))},
        {"components", Object({{"schemas", Object(std::move(schemas))}})},
    });
  }

 private:
  // The schema of a field, parameter or result.
  Value Schema(const ApiTypeRef& type, size_t depth = 0) {
    switch (static_cast<ApiKind>(type.kind)) {
      case ApiKind::kBool:
        return Typed("boolean");
      case ApiKind::kInt8:
        return Integer(INT8_MIN, INT8_MAX, "int32");
      case ApiKind::kUint8:
        return Integer(0, UINT8_MAX, "int32");
      case ApiKind::kInt16:
        return Integer(INT16_MIN, INT16_MAX, "int32");
      case ApiKind::kUint16:
        return Integer(0, UINT16_MAX, "int32");
      case ApiKind::kInt32:
        return Integer(INT32_MIN, INT32_MAX, "int32");
      case ApiKind::kUint32:
        return Integer(0, UINT32_MAX, "int64");
      case ApiKind::kInt64:
        return Integer(INT64_MIN, INT64_MAX, "int64");
      case ApiKind::kUint64:
        return Integer(0, UINT64_MAX, nullptr);
      case ApiKind::kFloat:
        return Member(Typed("number"), "format", Text("float"));
      case ApiKind::kDouble:
        return Member(Typed("number"), "format", Text("double"));
      case ApiKind::kString:
        return Typed("string");
      case ApiKind::kBlob:
        return Member(Member(Typed("array"), "description", Text("Bytes, one number per byte.")),
                      "items", Integer(0, UINT8_MAX, "int32"));
      case ApiKind::kVector:
        return Member(Typed("array"), "items", ElementSchema(type, depth));
      case ApiKind::kMap:
        return Member(Typed("object"), "additionalProperties", ElementSchema(type, depth));
      case ApiKind::kEnum:
      case ApiKind::kStruct:
        if (auto name = schema_names_.find(type.type_name); name != schema_names_.end()) {
          return Member(Object({}), "$ref", Text("#/components/schemas/" + name->second));
        }
        return Typed(type.kind == static_cast<uint32_t>(ApiKind::kEnum) ? "string" : "object");
      case ApiKind::kCallback:
        return Member(Object({}), "description", Text("A callback of the host."));
      case ApiKind::kObject:
      default:
        return Object({});  // any JSON value
    }
  }

  // {"type": type}.
  static Value Typed(const char* type) { return Member(Object({}), "type", Text(type)); }
  // `schema` with one more member.
  static Value Member(Value schema, const char* key, Value value) {
    Value::Map map = schema.AsMap();
    map.push_back(MapEntry{key, std::move(value)});
    return Object(std::move(map));
  }

  Value ElementSchema(const ApiTypeRef& type, size_t depth) {
    // An element kind that is itself a container does not say what it holds.
    if (depth > 0 || (IsStructured(type.element_kind) && type.type_name.empty())) return Object({});
    return Schema(type.Element(), depth + 1);
  }

  static Value Described(Value schema, const std::string& description) {
    if (description.empty()) return schema;
    Value::Map map = schema.AsMap();
    map.push_back({"description", Text(description)});
    return Object(std::move(map));
  }

  Value TypeSchema(const ApiType& type) {
    Value::Map schema;
    if (type.IsEnumeration()) {
      std::vector<const ApiEnumerator*> enumerators;
      for (const ApiEnumerator& enumerator : type.enumerators) enumerators.push_back(&enumerator);
      std::stable_sort(
          enumerators.begin(), enumerators.end(),
          [](const ApiEnumerator* a, const ApiEnumerator* b) { return a->value < b->value; });
      Value::Array names;
      Value::Map numbers;
      for (const ApiEnumerator* enumerator : enumerators) {
        names.push_back(Text(enumerator->name));
        numbers.push_back({enumerator->name, Value::Signed(enumerator->value)});
      }
      schema = {{"type", Text("string")},
                {"enum", Value::MakeArray(std::move(names))},
                {"x-enum-values", Object(std::move(numbers))}};
    } else {
      Value::Map properties;
      Value::Array required;
      for (const ApiField& field : type.fields) {
        properties.push_back({field.name, Described(Schema(field.type), field.description)});
        if (!field.optional) required.push_back(Text(field.name));
      }
      schema = {{"type", Text("object")}, {"properties", Object(std::move(properties))}};
      if (!required.empty()) schema.push_back({"required", Value::MakeArray(std::move(required))});
    }
    if (!type.description.empty()) schema.push_back({"description", Text(type.description)});
    schema.push_back({"x-registered-name", Text(type.name)});
    return Object(std::move(schema));
  }

  static Value ErrorSchema() {
    return Object({
        {"type", Text("object")},
        {"description", Text("An error answer: the HTTP status and the plugin's (or the host's) "
                             "message.")},
        {"properties", Object({{"httpStatus", Integer(100, 599, "int32")},
                               {"message", Object({{"type", Text("string")}})}})},
        {"required", Value::MakeArray({Text("httpStatus"), Text("message")})},
    });
  }

  Value Tags(const std::vector<std::string>& tags, const std::string& fallback) {
    Value::Array list;
    for (const std::string& tag : tags.empty() ? std::vector<std::string>{fallback} : tags) {
      if (tag.empty()) continue;
      if (known_tags_.insert(tag).second) tag_order_.push_back(tag);
      list.push_back(Text(tag));
    }
    return Value::MakeArray(std::move(list));
  }

  Value Operation(const ApiResource& resource, const std::string& path, uint32_t method_suffix) {
    Value::Map operation;
    std::string operation_id = resource.name;
    if (method_suffix != 0) operation_id += std::string("_") + OpenApiMethod(method_suffix);
    operation.push_back({"operationId", Text(operation_id)});
    const std::string summary =
        !resource.description.empty()
            ? resource.description
            : std::string(resource.method != 0 ? MethodText(resource.method) : "ANY") + " " + path;
    operation.push_back({"summary", Text(summary)});
    if (!resource.help.empty()) operation.push_back({"description", Text(resource.help)});
    operation.push_back(
        {"tags",
         Tags(resource.tags, resource.name_space.empty() ? "Resources" : resource.name_space)});

    Value::Array parameters;
    const ApiParameter* body = nullptr;
    for (const ApiParameter& parameter : resource.parameters) {
      if (parameter.location == static_cast<uint32_t>(ApiLocation::kBody)) {
        if (body == nullptr) body = &parameter;
        continue;
      }
      parameters.push_back(Parameter(parameter, path));
    }
    if (!parameters.empty()) {
      operation.push_back({"parameters", Value::MakeArray(std::move(parameters))});
    }
    if (body != nullptr) {
      Value::Map content;
      for (std::string_view type : kBodyContentTypes) {
        content.push_back({std::string(type), Object({{"schema", Schema(body->type)}})});
      }
      Value::Map request = {{"description", Text(body->description.empty()
                                                     ? "The body parameter '" + body->name + "'."
                                                     : body->description)},
                            {"required", Value::Bool(!body->optional)},
                            {"content", Object(std::move(content))}};
      operation.push_back({"requestBody", Object(std::move(request))});
    }

    Value::Map answer = {{"description", Text("The answer.")}};
    if (resource.result.kind != 0) {
      answer.push_back({"content", Object({{"application/json",
                                            Object({{"schema", Schema(resource.result)}})}})});
    }
    operation.push_back(
        {"responses",
         Object(
             {{"200", Object(std::move(answer))},
              {"default",
               Object({{"description", Text("An error answer.")},
                       {"content",
                        Object({{"application/json",
                                 Object({{"schema",
                                          Object({{"$ref", Text("#/components/"
                                                                "schemas/Error")}})}})}})}})}})});
    return Object(std::move(operation));
  }

  Value Parameter(const ApiParameter& parameter, const std::string& path) {
    const char* in = "query";
    bool required =
        !parameter.optional && parameter.type.kind != static_cast<uint32_t>(ApiKind::kBool);
    if (parameter.location == static_cast<uint32_t>(ApiLocation::kPath) &&
        path.find("{" + parameter.name + "}") != std::string::npos) {
      in = "path";
      required = true;
    } else if (parameter.location == static_cast<uint32_t>(ApiLocation::kHeader)) {
      in = "header";
    }
    Value::Map map = {{"name", Text(parameter.name)}, {"in", Text(in)}};
    std::string description = parameter.description;
    if (IsStructured(parameter.type.kind)) {
      if (description.empty())
        description = "JSON text, or one value per index: name.0=..&name.1=..";
      map.push_back({"description", Text(description)});
      map.push_back({"required", Value::Bool(required)});
      map.push_back({"content",
                     Object({{"application/json", Object({{"schema", Schema(parameter.type)}})}})});
    } else {
      if (!description.empty()) map.push_back({"description", Text(description)});
      map.push_back({"required", Value::Bool(required)});
      map.push_back({"schema", Schema(parameter.type)});
    }
    return Object(std::move(map));
  }

  Value EventOperation(const ApiEvent& event) {
    Value::Map operation = {{"operationId", Text("Event_" + event.name)},
                            {"summary", Text(event.description.empty() ? "The event " + event.name
                                                                       : event.description)},
                            {"tags", Tags(event.tags, "Events")}};
    if (!event.type_name.empty()) {
      ApiTypeRef payload{static_cast<uint32_t>(ApiKind::kStruct), 0, event.type_name};
      if (const ApiType* type = description_.FindType(event.type_name);
          type != nullptr && type->IsEnumeration()) {
        payload.kind = static_cast<uint32_t>(ApiKind::kEnum);
      }
      operation.push_back(
          {"requestBody",
           Object({{"content",
                    Object({{"application/json", Object({{"schema", Schema(payload)}})}})}})});
    }
    operation.push_back(
        {"responses", Object({{"200", Object({{"description", Text("Delivered.")}})}})});
    return Object(std::move(operation));
  }

  static const char* MethodText(uint32_t method) {
    static constexpr const char* kNames[] = {"",        "DELETE", "GET",  "HEAD",
                                             "OPTIONS", "PATCH",  "POST", "PUT"};
    return method < std::size(kNames) ? kNames[method] : "";
  }

  const ApiDescription& description_;
  std::map<std::string, std::string, std::less<>> schema_names_;
  std::set<std::string> used_names_;
  std::set<std::string> known_tags_;
  std::vector<std::string> tag_order_;
};

}  // namespace

Value BuildOpenApiDocument(const ApiDescription& description, const OpenApiInfo& info) {
  return DocumentBuilder(description).Build(info);
}

std::string OpenApiPath(std::string_view path_template) {
  std::string path(path_template);
  for (size_t open = path.find("{+"); open != std::string::npos; open = path.find("{+", open)) {
    path.erase(open + 1, 1);
  }
  return path;
}

std::string OpenApiSchemaName(std::string_view type_name) {
  std::string name(type_name);
  for (char& c : name) {
    const bool allowed = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
                         (c >= '0' && c <= '9') || c == '.' || c == '_' || c == '-';
    if (!allowed) c = '_';
  }
  return name.empty() ? std::string("_") : name;
}

const char* OpenApiMethod(uint32_t method) {
  static constexpr const char* kNames[] = {"",        "delete", "get",  "head",
                                           "options", "patch",  "post", "put"};
  return method < std::size(kNames) ? kNames[method] : "";
}

}  // namespace kav::host
