// A compact, kind-preserving text of a BindingProperty for test expectations:
// null, true/false, s5, u5, f1.5, "text", blob(3), enum(2), [a,b], {k:v}.
#ifndef KAV_TESTS_BINDING_PROPERTY_TEXT_H_
#define KAV_TESTS_BINDING_PROPERTY_TEXT_H_

#include <string>

#include "binding/binding_property.h"

namespace kav::testing_support {

inline std::string PropertyText(const BindingProperty& value) {
  switch (value.Kind()) {
    case BindingKind::kEmpty:
      return "null";
    case BindingKind::kBool:
      return value.AsBool() ? "true" : "false";
    case BindingKind::kSigned:
      return "s" + std::to_string(value.AsSigned());
    case BindingKind::kUnsigned:
      return "u" + std::to_string(value.AsUnsigned());
    case BindingKind::kFloat:
      return "f" + std::to_string(value.AsFloat());
    case BindingKind::kString:
      return "\"" + std::string(value.AsString()) + "\"";
    case BindingKind::kBlob:
      return "blob(" + std::to_string(value.AsBlob().size()) + ")";
    case BindingKind::kEnum:
      return "enum(" + std::to_string(value.AsEnum().value) + ")";
    case BindingKind::kCollection: {
      std::string text = "[";
      for (size_t i = 0; i < value.Size(); ++i) {
        if (i != 0) text += ",";
        text += PropertyText(value.At(i));
      }
      return text + "]";
    }
    case BindingKind::kStructure: {
      std::string text = "{";
      bool first = true;
      for (auto [name, member] : value.Members()) {
        if (!first) text += ",";
        first = false;
        text += std::string(name) + ":" + PropertyText(member);
      }
      return text + "}";
    }
  }
  return "?";
}

}  // namespace kav::testing_support

#endif  // KAV_TESTS_BINDING_PROPERTY_TEXT_H_
