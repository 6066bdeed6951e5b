// Text-to-number rules shared by the value conversions and the readers.
//
// Each function parses `text` the way a string input is assigned to a numeric
// target: integers with automatic base (strtoll / strtoull rules: optional
// leading white space, sign, decimal, "0x" hexadecimal or "0" octal), floating
// point by the strtod rules in the classic locale. The empty text gives 0.
// On failure the status is failed (SetError) with
//   "Value %1 for '%2' of type %3 is in an incorrect format"   (characters left)
//   "Value %1 for '%2' of type %3 is out of range"             (bounds/overflow)
// where %1 is the text, %2 `path` and %3 `type_name`; `out` is then 0.
//
// Thread-safe; no shared state.
#ifndef KAV_BINDING_TEXT_CONVERSION_H_
#define KAV_BINDING_TEXT_CONVERSION_H_

#include <cstdint>
#include <string_view>

#include "binding/binding_property.h"

namespace kav {

bool ParseSignedText(BindingResult& status, std::string_view text, std::string_view path,
                     std::string_view type_name, int64_t min, int64_t max, int64_t& out);
// A first character of "-" is out of range.
bool ParseUnsignedText(BindingResult& status, std::string_view text, std::string_view path,
                       std::string_view type_name, uint64_t max, uint64_t& out);
bool ParseFloatText(BindingResult& status, std::string_view text, std::string_view path,
                    std::string_view type_name, double min, double max, double& out);

}  // namespace kav

#endif  // KAV_BINDING_TEXT_CONVERSION_H_
