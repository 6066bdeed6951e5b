// The API's self-description: every registered function, type and event,
// either as structured help records (format Full) or as texts in the Python
// epytext markup (format Epytext).
//
//   Full     each item becomes its registered help record (the Binding*Help
//            structures below, registered by RegisterBuiltins) converted to a
//            value and appended to its container, a collection.
//   Epytext  each item becomes one text, stored in its container, a
//            structure, under the item's name. Lines end in CRLF.
//
// Thread-safety: the functions read descriptions without locking, which is
// safe once registration is over (descriptions are then read-only); the
// registry's snapshots are taken under its own mutex.
#ifndef KAV_BINDING_API_HELP_H_
#define KAV_BINDING_API_HELP_H_

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "binding/binding_property.h"
#include "binding/type_registry.h"

namespace kav {

enum class BindingHelpFormat : int32_t {
  kFull = 1,     // "Native help format"
  kEpytext = 2,  // "Python epytext format"
};

// ---- The help records (registered as "$builtin", "help" types) ----

struct BindingFullTypeIdentifier {
  std::string type;
  std::string elementType;
};

struct BindingFullArgumentHelp {
  std::string name;
  std::string description;
  BindingFullTypeIdentifier type;
  bool optional = false;
};

struct BindingFullFunctionHelp {
  std::string name;
  std::string nameSpace;
  std::vector<BindingFullArgumentHelp> arguments;
  BindingFullTypeIdentifier returns;
  std::string description;
  std::string help;
  bool threadSafe = false;
  std::string async;
  std::vector<std::string> tags;
};

struct BindingFullEnumValueHelp {
  std::string name;
  std::string description;
  int32_t value = 0;
};

struct BindingFullFieldHelp {
  std::string name;
  std::string description;
  uint32_t offset = 0;
  BindingFullTypeIdentifier type;
  bool optional = false;
};

struct BindingFullTypeHelp {
  std::string name;
  std::string nameSpace;
  uint32_t size = 0;
  std::string description;
  std::vector<std::string> tags;
  std::vector<BindingFullFieldHelp> fields;
  std::vector<BindingFullEnumValueHelp> values;
};

struct BindingFullEventHelp {
  std::string name;
  std::string nameSpace;
  BindingFullTypeIdentifier type;
  std::string description;
  std::vector<std::string> tags;
};

struct BindingFullApiHelp {
  std::vector<BindingFullFunctionHelp> functions;
  std::vector<BindingFullTypeHelp> types;
  std::vector<BindingFullEventHelp> events;
};

// ---- Describing ----

// Fills `out` as a structure with the members "functions", "types" and
// "events", each listing its items sorted by name (byte-wise). A member
// without items stays empty. Any format other than Full and Epytext lists
// nothing. Fails when a help record cannot be converted (its registered type
// is missing).
BindingResult DescribeApi(const TypeRegistry& registry,
                          std::span<const FunctionDescription* const> functions,
                          std::span<const TypeDescription* const> types,
                          std::span<const EventDescription* const> events,
                          BindingHelpFormat format);
// Over the registry's own snapshots.
BindingResult DescribeApi(const TypeRegistry& registry, BindingHelpFormat format);

// Add one item to `container` (appended for Full, a member for Epytext);
// failures are reported into `status`.
void DescribeFunction(BindingResult& status, BindingProperty& container,
                      const FunctionDescription& function, BindingHelpFormat format,
                      const TypeRegistry& registry);
void DescribeType(BindingResult& status, BindingProperty& container, const TypeDescription& type,
                  BindingHelpFormat format, const TypeRegistry& registry);
void DescribeEvent(BindingResult& status, BindingProperty& container, const EventDescription& event,
                   BindingHelpFormat format, const TypeRegistry& registry);

// The Full records of one item.
BindingFullFunctionHelp FullFunctionHelp(const FunctionDescription& function);
BindingFullTypeHelp FullTypeHelp(const TypeDescription& type);
BindingFullEventHelp FullEventHelp(const EventDescription& event);

// The Epytext texts of one item.
std::string EpytextFunction(const FunctionDescription& function);
std::string EpytextType(const TypeDescription& type);
std::string EpytextEvent(const EventDescription& event);

// A leading "-" becomes "E{-}", every "{" "E{lb}" and every "}" "E{rb}". The
// text ends at its first NUL byte.
std::string EpytextEscape(std::string_view text);
// "bool", "int8", ... for scalars, "bytearray" for blobs, "list[...]" and
// "dict[...]" of the element for vectors and maps, "L{Name}" for enums and
// structs; "" for anything else.
std::string EpytextTypeName(const TypeSpecification& type);

}  // namespace kav

#endif  // KAV_BINDING_API_HELP_H_
