// Plain integer lists: which texts qualify, and that reading one gives the
// integers written or turns it down when one does not fit.
#include "routing/integer_list.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace kav {
namespace {

TEST(IntegerListTest, PlainListsAreCountedAndReadExactly) {
  struct Row {
    const char* text;
    std::optional<size_t> count;  // nullopt: not a plain list
    // As read into int32_t and uint64_t elements; nullopt: turned down.
    std::optional<std::vector<int32_t>> as_int32;
    std::optional<std::vector<uint64_t>> as_uint64;
  };
  using I = std::vector<int32_t>;
  using U = std::vector<uint64_t>;
  const Row rows[] = {
      {"[]", 0, I{}, U{}},
      {"[0]", 1, I{0}, U{0}},
      {"[400,420,440]", 3, I{400, 420, 440}, U{400, 420, 440}},
      {"[-5,7]", 2, I{-5, 7}, std::nullopt},
      {"[2147483647]", 1, I{2147483647}, U{2147483647}},
      {"[-2147483648]", 1, I{INT32_MIN}, std::nullopt},
      {"[2147483648]", 1, std::nullopt, U{2147483648u}},
      {"[-2147483649]", 1, std::nullopt, std::nullopt},
      {"[18446744073709551615]", 1, std::nullopt, U{UINT64_MAX}},
      {"[18446744073709551616]", 1, std::nullopt, std::nullopt},
      {"[99999999999999999999999]", 1, std::nullopt, std::nullopt},
      {"[1,1]", 2, I{1, 1}, U{1, 1}},
      // Not plain: the generic reader decides about them.
      {"", std::nullopt, std::nullopt, std::nullopt},
      {"[", std::nullopt, std::nullopt, std::nullopt},
      {"]", std::nullopt, std::nullopt, std::nullopt},
      {"[01]", std::nullopt, std::nullopt, std::nullopt},
      {"[-0]", std::nullopt, std::nullopt, std::nullopt},
      {"[-]", std::nullopt, std::nullopt, std::nullopt},
      {"[1,]", std::nullopt, std::nullopt, std::nullopt},
      {"[,1]", std::nullopt, std::nullopt, std::nullopt},
      {"[1,,2]", std::nullopt, std::nullopt, std::nullopt},
      {"[ 1]", std::nullopt, std::nullopt, std::nullopt},
      {"[1 ]", std::nullopt, std::nullopt, std::nullopt},
      {" [1]", std::nullopt, std::nullopt, std::nullopt},
      {"[1.5]", std::nullopt, std::nullopt, std::nullopt},
      {"[1e3]", std::nullopt, std::nullopt, std::nullopt},
      {"[+1]", std::nullopt, std::nullopt, std::nullopt},
      {"[null]", std::nullopt, std::nullopt, std::nullopt},
      {"[[1]]", std::nullopt, std::nullopt, std::nullopt},
      {"1", std::nullopt, std::nullopt, std::nullopt},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(std::string("text ") + row.text);
    const std::optional<size_t> count = PlainIntegerListCount(row.text);
    EXPECT_EQ(count, row.count);
    if (!count) continue;
    std::vector<int32_t> int32s{9, 9};  // replaced, not appended to
    const bool read_int32 = ReadPlainIntegerList(row.text, *count, int32s);
    EXPECT_EQ(read_int32, row.as_int32.has_value());
    if (read_int32 && row.as_int32) {
      EXPECT_EQ(int32s, *row.as_int32);
    }
    std::vector<uint64_t> uint64s;
    const bool read_uint64 = ReadPlainIntegerList(row.text, *count, uint64s);
    EXPECT_EQ(read_uint64, row.as_uint64.has_value());
    if (read_uint64 && row.as_uint64) {
      EXPECT_EQ(uint64s, *row.as_uint64);
    }
  }
}

TEST(IntegerListTest, SmallElementTypesKeepTheirBounds) {
  struct Row {
    const char* text;
    bool fits_int8;
    bool fits_uint8;
  };
  const Row rows[] = {
      {"[127]", true, true},    {"[128]", false, true}, {"[-128]", true, false},
      {"[-129]", false, false}, {"[255]", false, true}, {"[256]", false, false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(std::string("text ") + row.text);
    std::vector<int8_t> int8s;
    std::vector<uint8_t> uint8s;
    EXPECT_EQ(ReadPlainIntegerList(row.text, 1, int8s), row.fits_int8);
    EXPECT_EQ(ReadPlainIntegerList(row.text, 1, uint8s), row.fits_uint8);
  }
}

}  // namespace
}  // namespace kav
