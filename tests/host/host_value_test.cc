#include "host/host_value.h"

#include <string>

#include <gtest/gtest.h>

#include "host/reference_host.h"

namespace kav::host {
namespace {

TEST(HostValueTest, RecordsRoundTripEveryKind) {
  const struct {
    const char* name;
    Value value;
    uint32_t record_kind;
  } rows[] = {
      {"null", Value(), KAV_VALUE_NULL},
      {"bool", Value::Bool(true), KAV_VALUE_BOOL},
      {"signed", Value::Signed(-5'000'000'000), KAV_VALUE_SIGNED},
      {"unsigned", Value::Unsigned(18'000'000'000'000'000'000u), KAV_VALUE_UNSIGNED},
      {"float", Value::Float(0.25), KAV_VALUE_FLOAT},
      {"string with NUL", Value::String(std::string("a\0b", 3)), KAV_VALUE_STRING_OWNED},
      {"empty string", Value::String(""), KAV_VALUE_STRING_OWNED},
      {"blob", Value::MakeBlob({0, 1, 255}), KAV_VALUE_BLOB_OWNED},
      {"empty array", Value::MakeArray({}), KAV_VALUE_ARRAY},
      {"nested",
       Value::MakeMap({{"b", Value::MakeArray({Value::Signed(1), Value()})},
                       {"a", Value::MakeMap({{"x", Value::String("y")}})},
                       {"b", Value::Bool(false)}}),
       KAV_VALUE_MAP},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    RecordArena arena;
    const KavHostValue record = arena.Build(row.value);
    EXPECT_EQ(record.kind, row.record_kind);
    EXPECT_EQ(Value::FromRecord(record), row.value);
  }
}

TEST(HostValueTest, BorrowedRecordsAndUnknownKindsRead) {
  const char text[] = "borrowed";
  KavHostValue borrowed{};
  borrowed.kind = KAV_VALUE_STRING_BORROWED;
  borrowed.payload.ref.data = text;
  borrowed.payload.ref.size = 3;
  EXPECT_EQ(Value::FromRecord(borrowed), Value::String("bor"));
  KavHostValue unknown{};
  unknown.kind = 42;
  EXPECT_TRUE(Value::FromRecord(unknown).IsNull());
}

TEST(HostValueTest, JsonReadsAndWrites) {
  const struct {
    const char* json;
    const char* written;  // null: the same text
  } rows[] = {
      {R"({"b":[1,-2,18446744073709551615,0.5],"a":{"s":"t\"x"},"n":null,"t":true})", nullptr},
      {"[ ]", "[]"},
      {R"("\u00e9")", "\"\xC3\xA9\""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.json);
    auto value = Value::FromJson(row.json);
    ASSERT_TRUE(value.has_value());
    EXPECT_EQ(value->ToJson(), row.written != nullptr ? row.written : row.json);
  }
  auto parsed = Value::FromJson(R"({"x":5,"y":"z"})");
  ASSERT_TRUE(parsed.has_value());
  ASSERT_NE(parsed->Find("y"), nullptr);
  EXPECT_EQ(*parsed->Find("x"), Value::Signed(5));
  EXPECT_EQ(parsed->Find("missing"), nullptr);

  std::string error;
  EXPECT_FALSE(Value::FromJson("{\"x\":", &error).has_value());
  EXPECT_FALSE(error.empty());
}

TEST(ApiVersionTest, ParsesOnlyThreeDecimalNumbers) {
  const struct {
    const char* text;
    std::optional<ApiVersion> expected;
  } rows[] = {
      {"18.0.0", ApiVersion{18, 0, 0}},
      {"17.9.9", ApiVersion{17, 9, 9}},
      {"4294967295.1.2", ApiVersion{4294967295u, 1, 2}},
      {"18.0", std::nullopt},
      {"18.0.0.1", std::nullopt},
      {"18..0", std::nullopt},
      {"-1.0.0", std::nullopt},
      {"18.0.x", std::nullopt},
      {"4294967296.0.0", std::nullopt},
      {"", std::nullopt},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    EXPECT_EQ(ApiVersion::Parse(row.text), row.expected);
  }
  EXPECT_EQ((ApiVersion{18, 3, 1}).ToString(), "18.3.1");
}

}  // namespace
}  // namespace kav::host
