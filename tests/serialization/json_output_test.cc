// Writing into the result string: integers at the edges of the 32-bit fast
// path, and texts that outgrow the reservation made from the first
// top-level children.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <limits>
#include <string>

#include "binding/binding_property.h"
#include "serialization/json.h"

namespace kav {
namespace {

TEST(JsonOutputTest, WritesWholeTextWhateverItsGrowth) {
  struct Row {
    const char* name;
    std::function<void(BindingProperty&)> build;
    std::string expected;
  };
  const std::string long_text(3000, 'x');
  std::string growing = "[";
  std::string shrinking = "{";
  for (int i = 0; i < 40; ++i) {
    if (i > 0) growing += ',';
    growing += i < 30 ? "1" : "\"" + long_text + "\"";
    if (i > 0) shrinking += ',';
    shrinking += "\"k" + std::to_string(100 + i) + "\":";
    shrinking += i < 2 ? "\"" + long_text + "\"" : "true";
  }
  growing += "]";
  shrinking += "}";
  const Row rows[] = {
      {"integers at the 32-bit edges",
       [](BindingProperty& v) {
         v.Append().SetSigned(int64_t{INT32_MIN} - 1);
         v.Append().SetSigned(INT32_MIN);
         v.Append().SetSigned(INT32_MAX);
         v.Append().SetSigned(int64_t{INT32_MAX} + 1);
         v.Append().SetSigned(std::numeric_limits<int64_t>::max());
         v.Append().SetUnsigned(0);
         v.Append().SetUnsigned(UINT32_MAX);
         v.Append().SetUnsigned(uint64_t{UINT32_MAX} + 1);
       },
       "[-2147483649,-2147483648,2147483647,2147483648,9223372036854775807,0,4294967295,"
       "4294967296]"},
      {"small children first, long ones later",
       [&](BindingProperty& v) {
         for (int i = 0; i < 40; ++i) {
           if (i < 30) {
             v.Append().SetUnsigned(1);
           } else {
             v.Append().SetString(long_text);
           }
         }
       },
       growing},
      {"long members first, short ones later",
       [&](BindingProperty& v) {
         for (int i = 0; i < 40; ++i) {
           BindingProperty& member = v.Member("k" + std::to_string(100 + i));
           if (i < 2) {
             member.SetString(long_text);
           } else {
             member.SetBool(true);
           }
         }
       },
       shrinking},
      {"a lone long string", [&](BindingProperty& v) { v.SetString(long_text); },
       "\"" + long_text + "\""},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    BindingProperty value;
    row.build(value);
    const std::string text = SerializeJson(value);
    EXPECT_EQ(text, row.expected);
    // Indented output goes through the same string; it parses back alike.
    BindingResult again = DeserializeJson(SerializeJson(value, nullptr, "\r\n"));
    ASSERT_TRUE(again.Ok()) << again.Error();
    EXPECT_EQ(SerializeJson(again), row.expected);
  }
}

}  // namespace
}  // namespace kav
