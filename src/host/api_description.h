// ApiDescription: what a plugin told its host about itself at registration,
// read the way a core reads it: the resource table (one entry per served
// function, with its path, method, parameters, parameter locations and result
// type) and the packed API description that the table carries (types with
// their fields or enumerators, and events). The host uses it to find the
// type of an answer and to write enumerators by name, and to document the
// plugin's resources.
//
// Reading copies every text and number out of the plugin's records, so an
// ApiDescription stays valid after the plugin is gone. A table whose records
// point nowhere (a null array with a non-zero count, a null text) reads as
// far as it can: null texts read as "", missing arrays as empty.
//
// Thread-compatible value type.
#ifndef KAV_HOST_API_DESCRIPTION_H_
#define KAV_HOST_API_DESCRIPTION_H_

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "host/host_value.h"
#include "kav/plugin_host.h"

namespace kav::host {

// The type kind codes of the packed description.
enum class ApiKind : uint32_t {
  kNone = 0,
  kBool = 1,
  kInt8 = 2,
  kUint8 = 3,
  kInt16 = 4,
  kUint16 = 5,
  kInt32 = 6,
  kUint32 = 7,
  kInt64 = 8,
  kUint64 = 9,
  kFloat = 10,
  kDouble = 11,
  kString = 12,
  kObject = 13,
  kBlob = 14,
  kVector = 15,
  kEnum = 16,
  kStruct = 17,
  kCallback = 18,
  kMap = 19,
};

// "bool", "int8", ..., "map"; "" for kNone and unknown codes.
const char* ApiKindName(uint32_t kind);

// How a field, parameter or result refers to its type: its kind, for vectors
// and maps the kind of the elements, and the registered name of the
// structure or enumeration referenced ("" when none).
struct ApiTypeRef {
  uint32_t kind = 0;
  uint32_t element_kind = 0;
  std::string type_name;

  // The type of one element of a vector or map: {element_kind, 0, type_name}.
  ApiTypeRef Element() const { return {element_kind, 0, type_name}; }
  bool operator==(const ApiTypeRef&) const = default;
};

// Where a parameter's value may come from (the resource table's codes).
enum class ApiLocation : uint32_t { kAny = 0, kQuery = 1, kPath = 2, kHeader = 4, kBody = 5 };

struct ApiParameter {
  std::string name;
  std::string description;
  ApiTypeRef type;
  bool optional = false;
  uint32_t location = 0;  // ApiLocation code; other codes are kept as given
};

// One entry of the resource table.
struct ApiResource {
  const KavResourceEntry* entry = nullptr;  // the plugin's record; valid while it is loaded
  std::string name;
  std::string name_space;
  std::string description;
  std::string help;
  uint32_t method = 0;  // 1 "DELETE" .. 7 "PUT", 8 custom; 0 any
  std::string custom_method;
  std::string path_template;
  std::vector<ApiParameter> parameters;
  ApiTypeRef result;
  std::string async_type_name;
  std::vector<std::string> tags;
  bool thread_safe = false;
};

struct ApiField {
  std::string name;
  std::string description;
  uint32_t offset = 0;
  ApiTypeRef type;
  bool optional = false;
};

struct ApiEnumerator {
  std::string name;
  std::string description;
  int32_t value = 0;
};

// A registered structure (fields) or enumeration (enumerators). A structure
// without fields has neither.
struct ApiType {
  std::string name;
  std::string name_space;
  std::string description;
  uint32_t size = 0;
  std::vector<std::string> tags;
  std::vector<ApiField> fields;
  std::vector<ApiEnumerator> enumerators;

  bool IsEnumeration() const { return fields.empty() && !enumerators.empty(); }
  // The first field named `name`; null when none.
  const ApiField* FindField(std::string_view name) const;
  // The first enumerator of `value`; null when none.
  const ApiEnumerator* FindEnumerator(int64_t value) const;
};

struct ApiEvent {
  std::string name;
  std::string name_space;
  std::string type_name;
  std::string description;
  std::vector<std::string> tags;
};

class ApiDescription {
 public:
  ApiDescription() = default;

  // Reads `table` and everything it points to; a null table reads as empty.
  static ApiDescription Read(const KavResourceTable* table);

  // In table order.
  const std::vector<ApiResource>& resources() const { return resources_; }
  const std::vector<ApiType>& types() const { return types_; }
  const std::vector<ApiEvent>& events() const { return events_; }

  // Null when nothing has that name (the first of several otherwise).
  const ApiType* FindType(std::string_view name) const;
  const ApiResource* FindResource(std::string_view name) const;
  // The resource whose table entry is `entry`; null when none.
  const ApiResource* FindResource(const KavResourceEntry* entry) const;

  // `value`, read as a value of type `type`, with every number that stands
  // for an enumerator the description names replaced by that name. Numbers
  // without a described enumerator, and parts whose shape does not fit the
  // type (a string where a structure is described, say), stay as they are;
  // members of a structure that it does not describe are left alone. The walk
  // follows the value, so it ends for every finite value, however the types
  // refer to each other.
  Value NameEnumerators(const Value& value, const ApiTypeRef& type) const;

 private:
  void Index();
  Value Named(const Value& value, const ApiTypeRef& type, size_t depth) const;

  std::vector<ApiResource> resources_;
  std::vector<ApiType> types_;
  std::vector<ApiEvent> events_;
  std::map<std::string, size_t, std::less<>> type_index_;
};

}  // namespace kav::host

#endif  // KAV_HOST_API_DESCRIPTION_H_
