// Helpers shared by the MessagePack and YAML reader tests: a compact typed
// dump of a value and hex decoding.
#ifndef KAV_TESTS_SERIALIZATION_READER_TEST_SUPPORT_H_
#define KAV_TESTS_SERIALIZATION_READER_TEST_SUPPORT_H_

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "binding/binding_property.h"

namespace kav::reader_test {

// empty: ~; bool: true/false; signed: s-1; unsigned: u1; float: f1.5 (%.17g);
// string: 'text'; blob: b:0a0b (hex); collection: [x,y]; structure:
// {name:x,...} in member order.
inline std::string Describe(const BindingProperty& value) {
  char text[40];
  switch (value.Kind()) {
    case BindingKind::kEmpty:
      return "~";
    case BindingKind::kBool:
      return value.AsBool() ? "true" : "false";
    case BindingKind::kSigned:
      return "s" + std::to_string(value.AsSigned());
    case BindingKind::kUnsigned:
      return "u" + std::to_string(value.AsUnsigned());
    case BindingKind::kFloat:
      std::snprintf(text, sizeof text, "f%.17g", value.AsFloat());
      return text;
    case BindingKind::kString:
      return "'" + std::string(value.AsString()) + "'";
    case BindingKind::kBlob: {
      std::string out = "b:";
      for (uint8_t byte : value.AsBlob()) {
        std::snprintf(text, sizeof text, "%02x", byte);
        out += text;
      }
      return out;
    }
    case BindingKind::kEnum:
      return "e" + std::to_string(value.AsEnum().value);
    case BindingKind::kCollection: {
      std::string out = "[";
      for (size_t i = 0; i < value.Size(); ++i) {
        if (i > 0) out += ',';
        out += Describe(value.At(i));
      }
      return out + "]";
    }
    case BindingKind::kStructure: {
      std::string out = "{";
      for (auto [name, member] : value.Members()) {
        if (out.size() > 1) out += ',';
        out += std::string(name) + ":" + Describe(member);
      }
      return out + "}";
    }
  }
  return "?";
}

// Decodes hex digit pairs; any other character (space, '-') separates.
inline std::vector<uint8_t> FromHex(std::string_view hex) {
  std::vector<uint8_t> bytes;
  int high = -1;
  for (char c : hex) {
    int digit = c >= '0' && c <= '9'   ? c - '0'
                : c >= 'a' && c <= 'f' ? c - 'a' + 10
                : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                       : -1;
    if (digit < 0) continue;
    if (high < 0) {
      high = digit;
    } else {
      bytes.push_back(static_cast<uint8_t>(high * 16 + digit));
      high = -1;
    }
  }
  return bytes;
}

}  // namespace kav::reader_test

#endif  // KAV_TESTS_SERIALIZATION_READER_TEST_SUPPORT_H_
