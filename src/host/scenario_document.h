// ScenarioDocument: a scenario file read into a tree of nodes that remember
// where in the text they began, so that the scenario builder can name the
// line and column of a value it refuses. YAML is read through libyaml's event
// parser, JSON through RapidJSON's SAX reader; both give the same tree for
// the same data (YAML mapping keys are kept as their text, so the YAML key
// 1001 and the JSON key "1001" read alike).
//
// Thread-compatible: the readers keep no state between calls.
#ifndef KAV_HOST_SCENARIO_DOCUMENT_H_
#define KAV_HOST_SCENARIO_DOCUMENT_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/host_value.h"
#include "host/json_value.h"

namespace kav::host {

struct DocumentMember;

// One value of a scenario document.
class DocumentNode {
 public:
  enum class Kind : uint8_t { kNull, kBool, kInteger, kFloat, kString, kSequence, kMapping };

  Kind kind = Kind::kNull;
  TextPosition position;  // where the value begins
  std::string text;       // scalars: the text as written (strings: their content)
  bool boolean = false;   // kBool
  // kInteger: negative values are in `signed_value`; others in
  // `unsigned_value` (and in `signed_value` when they fit).
  bool negative = false;
  int64_t signed_value = 0;
  uint64_t unsigned_value = 0;
  double float_value = 0;               // kFloat, and kInteger as a double
  std::vector<DocumentNode> elements;   // kSequence
  std::vector<DocumentMember> members;  // kMapping, in document order; keys unique

  bool IsScalar() const { return kind != Kind::kSequence && kind != Kind::kMapping; }
  // The member named `key`; null when there is none or this is no mapping.
  const DocumentNode* Find(std::string_view key) const;
  // "null", "a boolean", "an integer", "a number", "a string", "a list",
  // "a mapping": for messages.
  const char* KindDescription() const;
  // The value in the host's format (integers signed when they fit int64).
  Value ToValue() const;
};

struct DocumentMember {
  std::string key;
  TextPosition key_position;
  DocumentNode value;
};

// Why a document could not be read: the message and where it applies.
struct DocumentError {
  std::string message;
  TextPosition position;

  // "line L, column C: message".
  std::string ToString() const;
};

// Reads the first and only YAML document of `text`. Plain scalars resolve as
// in YAML's core schema (null, booleans, integers incl. 0x hex, floats incl.
// .inf and .nan); quoted scalars and "!!str" ones are strings. Anchors and
// aliases are supported, merge keys are not.
std::optional<DocumentNode> ReadYamlDocument(std::string_view text, DocumentError* error);

// Reads one JSON document.
std::optional<DocumentNode> ReadJsonDocument(std::string_view text, DocumentError* error);

}  // namespace kav::host

#endif  // KAV_HOST_SCENARIO_DOCUMENT_H_
