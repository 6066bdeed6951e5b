#include "serialization/msgpack.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "serialization/reader_test_support.h"

namespace kav {
namespace {

using reader_test::Describe;
using reader_test::FromHex;

struct Row {
  const char* name;
  const char* hex;
  // The decoded value (Describe form) or, for a failure, the message.
  bool ok;
  std::string expected;
  uint32_t consumed;
};

TEST(MessagePackReaderTest, DecodesValuesAndReportsErrorsWithPositions) {
  const std::vector<Row> rows = {
      // Scalars by first byte.
      {"empty input", "", true, "~", 0},
      {"positive fixint max", "7f", true, "s127", 1},
      {"negative fixint -1", "ff", true, "s-1", 1},
      {"negative fixint -32", "e0", true, "s-32", 1},
      {"uint 8 stays unsigned", "cc ff", true, "u255", 2},
      {"uint 16", "cd 01 00", true, "u256", 3},
      {"uint 32", "ce ff ff ff ff", true, "u4294967295", 5},
      {"uint 64 max", "cf ff ff ff ff ff ff ff ff", true, "u18446744073709551615", 9},
      {"int 8 sign-extends", "d0 ff", true, "s-1", 2},
      {"int 16", "d1 ff fe", true, "s-2", 3},
      {"int 32", "d2 80 00 00 00", true, "s-2147483648", 5},
      {"int 64 min", "d3 80 00 00 00 00 00 00 00", true, "s-9223372036854775808", 9},
      {"float 32 widened", "ca 3f c0 00 00", true, "f1.5", 5},
      {"float 64", "cb 3f f8 00 00 00 00 00 00", true, "f1.5", 9},
      {"nil", "c0", true, "~", 1},
      {"false", "c2", true, "false", 1},
      {"true", "c3", true, "true", 1},
      {"fixstr", "a3 61 62 63", true, "'abc'", 4},
      {"empty fixstr", "a0", true, "''", 1},
      {"str 8", "d9 02 68 69", true, "'hi'", 4},
      {"str 16", "da 00 02 68 69", true, "'hi'", 5},
      {"str 32", "db 00 00 00 02 68 69", true, "'hi'", 7},
      {"bin 8", "c4 03 01 02 03", true, "b:010203", 5},
      {"bin 16 empty", "c5 00 00", true, "b:", 3},
      {"bin 32", "c6 00 00 00 01 ff", true, "b:ff", 6},
      // Containers.
      {"fixmap", "81 a1 61 01", true, "{a:s1}", 4},
      {"members in name order", "82 a1 62 01 a1 61 02", true, "{a:s2,b:s1}", 7},
      {"str 8 key", "81 d9 01 61 01", true, "{a:s1}", 5},
      {"fixarray", "93 01 a1 78 c0", true, "[s1,'x',~]", 5},
      {"array 16", "dc 00 02 01 02", true, "[s1,s2]", 5},
      {"array 32", "dd 00 00 00 01 01", true, "[s1]", 6},
      {"map 16", "de 00 01 a1 61 c3", true, "{a:true}", 6},
      {"map 32", "df 00 00 00 01 a1 61 c3", true, "{a:true}", 8},
      {"empty map and array", "92 80 90", true, "[{},[]]", 3},
      {"nested", "81 a1 61 92 81 a1 62 c3 90", true, "{a:[{b:true},[]]}", 9},
      // Partial containers and trailing bytes.
      {"array missing an element", "92 01", true, "[s1]", 2},
      {"map key without value", "81 a1 61", true, "{}", 3},
      {"huge declared count costs nothing", "df ff ff ff ff a1 61 01", true, "{a:s1}", 8},
      {"trailing byte left unread", "01 02", true, "s1", 1},
      {"bytes after a complete array", "91 01 02", true, "[s1]", 2},
      // Repeated keys.
      {"repeated key: scalar replaces", "82 a1 61 01 a1 61 02", true, "{a:s2}", 7},
      {"repeated key: arrays overwrite by index", "82 a1 61 93 01 02 03 a1 61 92 09 08", true,
       "{a:[s9,s8,s3]}", 12},
      {"repeated key: scalar replaces map", "82 a1 61 81 a1 62 01 a1 61 02", true, "{a:s2}", 10},
      // Reserved and extension bytes.
      {"0xc1", "c1", false, "Invalid MessagePack data at position 1.", 1},
      {"fixext 1", "d4 00 00", false, "Invalid MessagePack data at position 1.", 1},
      {"fixext 16", "d8", false, "Invalid MessagePack data at position 1.", 1},
      {"ext 8", "c7 01 00 00", false, "Invalid MessagePack data at position 1.", 1},
      {"ext 16", "c8 00 01 00 00", false, "Invalid MessagePack data at position 1.", 1},
      {"ext 32", "c9", false, "Invalid MessagePack data at position 1.", 1},
      {"reserved byte inside an array", "92 01 c1", false,
       "Invalid MessagePack data at position 3.", 3},
      // Keys.
      {"integer key", "81 01 01", false,
       "Invalid MessagePack data at position 2. Map keys must be strings.", 2},
      {"nil key", "81 c0 01", false,
       "Invalid MessagePack data at position 2. Map keys must be strings.", 2},
      {"bin key", "81 c4 01 61 01", false,
       "Invalid MessagePack data at position 2. Map keys must be strings.", 2},
      {"truncated key", "81 d9 05 61", false,
       "Invalid MessagePack data. String of size 5 at position 3 is truncated.", 3},
      {"truncated key length", "81 da 00", false,
       "Invalid MessagePack data. 16-bit integer value at position 2 is truncated.", 2},
      // Truncation.
      {"str 8 without length", "d9", false,
       "Invalid MessagePack data. 8-bit integer value at position 1 is truncated.", 1},
      {"str 8 short", "d9 05 61", false,
       "Invalid MessagePack data. String of size 5 at position 2 is truncated.", 2},
      {"str 16 without length", "da 00", false,
       "Invalid MessagePack data. 16-bit integer value at position 1 is truncated.", 1},
      {"fixstr short", "a2 61", false,
       "Invalid MessagePack data. String of size 2 at position 1 is truncated.", 1},
      {"bin 8 short", "c4 05 01", false,
       "Invalid MessagePack data. Raw bytes of size 5 at position 2 are truncated.", 2},
      {"bin 32 huge", "c6 ff ff ff ff 00", false,
       "Invalid MessagePack data. Raw bytes of size 4294967295 at position 5 are truncated.", 5},
      {"uint 8 missing", "cc", false,
       "Invalid MessagePack data. 8-bit integer value at position 1 is truncated.", 1},
      {"uint 16 short", "cd 01", false,
       "Invalid MessagePack data. 16-bit integer value at position 1 is truncated.", 1},
      {"uint 16 missing", "cd", false,
       "Invalid MessagePack data. 16-bit integer value at position 1 is truncated.", 1},
      {"int 32 short", "d2 00 00 00", false,
       "Invalid MessagePack data. 32-bit integer value at position 1 is truncated.", 1},
      {"int 64 short", "d3 00", false,
       "Invalid MessagePack data. 64-bit integer value at position 1 is truncated.", 1},
      {"float 32 short", "ca 3f", false,
       "Invalid MessagePack data. 32-bit integer value at position 1 is truncated.", 1},
      {"float 64 short", "cb 3f f8", false,
       "Invalid MessagePack data. 64-bit integer value at position 1 is truncated.", 1},
      {"array 16 count short", "dc 00", false,
       "Invalid MessagePack data. 16-bit integer value at position 1 is truncated.", 1},
      {"map 32 count short", "df 00 00", false,
       "Invalid MessagePack data. 32-bit integer value at position 1 is truncated.", 1},
      {"truncated value inside a map", "81 a1 61 cd 01", false,
       "Invalid MessagePack data. 16-bit integer value at position 4 is truncated.", 4},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    std::vector<uint8_t> bytes = FromHex(row.hex);
    uint32_t consumed = 12345;
    BindingResult result =
        ReadMessagePack(bytes.data(), static_cast<uint32_t>(bytes.size()), consumed);
    EXPECT_EQ(result.Ok(), row.ok);
    if (row.ok) {
      EXPECT_EQ(Describe(result), row.expected);
    } else {
      EXPECT_EQ(result.Error(), row.expected);
      EXPECT_EQ(Describe(result), "{error:'" + row.expected + "'}");
    }
    EXPECT_EQ(consumed, row.consumed);
  }
}

TEST(MessagePackReaderTest, NestingIsLimited) {
  struct DepthRow {
    const char* name;
    size_t depth;
    bool ok;
  };
  const DepthRow rows[] = {
      {"at the limit", kMessagePackMaxDepth, true},
      {"one past the limit", kMessagePackMaxDepth + 1, false},
      {"hostile depth", 100000, false},
  };
  for (const DepthRow& row : rows) {
    SCOPED_TRACE(row.name);
    // Arrays of one element each, maps of one entry at every other level,
    // the innermost holding 1.
    std::vector<uint8_t> bytes;
    for (size_t level = 0; level < row.depth; ++level) {
      if (level % 2 == 0) {
        bytes.push_back(0x91);
      } else {
        bytes.insert(bytes.end(), {0x81, 0xa1, 0x6b});
      }
    }
    bytes.push_back(0x01);
    uint32_t consumed = 0;
    BindingResult result =
        ReadMessagePack(bytes.data(), static_cast<uint32_t>(bytes.size()), consumed);
    ASSERT_EQ(result.Ok(), row.ok) << result.Error();
    if (row.ok) {
      EXPECT_EQ(consumed, bytes.size());
      const BindingProperty* node = &result;
      for (size_t level = 0; level < row.depth; ++level) {
        node = level % 2 == 0 ? &node->At(0) : &node->Find("k");
      }
      EXPECT_EQ(node->AsSigned(), 1);
    } else {
      // Level 1001 opens at byte 1 + 2 * 500 + 3 * 500 (arrays take one
      // byte, maps three); its header ends one byte later.
      uint32_t position = 500 * 1 + 500 * 3 + 1;
      EXPECT_EQ(result.Error(), "Invalid MessagePack data at position " + std::to_string(position) +
                                    ". Nesting exceeds 1000 levels.");
      EXPECT_EQ(consumed, position);
    }
  }
}

TEST(MessagePackReaderTest, LooksLikeMessagePackOnlyForContainerHeaders) {
  struct GuessRow {
    const char* hex;
    bool expected;
  };
  const GuessRow rows[] = {
      {"", false},   {"80", true},  {"8f", true},  {"90", true},  {"9f", true},
      {"dc", true},  {"dd", true},  {"de", true},  {"df", true},  {"a0", false},
      {"7b", false}, {"5b", false}, {"c0", false}, {"db", false}, {"e0", false},
  };
  for (const GuessRow& row : rows) {
    SCOPED_TRACE(row.hex);
    std::vector<uint8_t> bytes = FromHex(row.hex);
    EXPECT_EQ(LooksLikeMessagePack(bytes.data(), bytes.size()), row.expected);
    EXPECT_EQ(LooksLikeMessagePack(reinterpret_cast<const char*>(bytes.data()), bytes.size()),
              row.expected);
  }
}

}  // namespace
}  // namespace kav
